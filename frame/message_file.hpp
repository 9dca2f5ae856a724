// A message file that has been opened. It is found through a search path that begins with the working folder,
// so whatever it holds is input: every size and offset is checked before it is used, and what does not fit
// makes the file or the record unusable, never the process.
#pragma once

#include "error_struct.hpp"

#include <cstddef>
#include <cstdint>

namespace tavik {

class MessageFile {
public:
    // Opens the first file of the name tavik_e.bin on the path (elements separated by ':', a leading $NAME
    // stands for that variable) and reads its tables. Returns the reason of a failure, or null.
    const char *open(const char *path);
    void close();

    // What the file says of a code; what the reader says where the file says nothing or is not open.
    void look_up(MessageLookup &lookup, long code) const;

private:
    const char *read_tables();
    int find_index(long code) const;
    const char *read_record(MessageLookup &lookup, int index) const;

    int descriptor_ = -1;
    bool swapped_ = false;
    std::size_t count_ = 0;
    std::uint16_t *codes_ = nullptr;   // count
    std::uint16_t *offsets_ = nullptr; // count + 1, behind the codes
    std::size_t record_size_ = 0;
    unsigned alignment_ = 0;
};

} // namespace tavik
