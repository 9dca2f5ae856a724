// Reader of the message file. The file is found through a search path that begins with the working folder, so
// whatever it holds is input: every size and offset is checked before it is used, and what does not fit makes
// the file or the record unusable, never the process.

#include "readerr.hpp"
#include "message_file_format.hpp"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tavik {
namespace {

using namespace message_file;

constexpr char default_path[] = "./:$HOME/:/usr/lib/:/usr/local/lib/";
constexpr char bad_format[] = "File is not in tavierr.bin format";

enum class FileState { unopened, usable, failed };

// Process-wide; `file` changes under readerr_0 and readerr_1 together, records are read under readerr_1.
struct MessageFile {
    FileState state = FileState::unopened;
    int descriptor = -1;
    bool swapped = false;
    std::size_t count = 0;
    std::uint16_t *codes = nullptr;   // count
    std::uint16_t *offsets = nullptr; // count + 1, behind the codes
    std::size_t record_size = 0;
    unsigned alignment = 0;
};

MessageFile file;

// Reads until `size` bytes are there or the file ends. Negative on failure.
ssize_t read_fully(int descriptor, void *buffer, std::size_t size)
{
    std::size_t done = 0;
    while (done < size) {
        const ssize_t got = read(descriptor, static_cast<char *>(buffer) + done, size - done);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) return -1;
        if (got == 0) break;
        done += static_cast<std::size_t>(got);
    }
    return static_cast<ssize_t>(done);
}

// One element of the search path with the file name behind it. A leading $NAME is replaced by that variable.
// False when the result is longer than a path can be.
bool make_candidate(const char *element, std::size_t length, char (&candidate)[PATH_MAX])
{
    std::size_t used = 0;
    const auto append = [&](const char *text, std::size_t count) {
        if (count >= sizeof candidate - used) return false;
        std::memcpy(candidate + used, text, count);
        used += count;
        return true;
    };
    if (length > 0 && element[0] == '$') {
        const char *end = std::find(element, element + length, '/');
        char variable[256];
        const auto size = static_cast<std::size_t>(end - element - 1);
        if (size >= sizeof variable) return false;
        std::memcpy(variable, element + 1, size);
        variable[size] = '\0';
        const char *value = std::getenv(variable);
        if (value != nullptr && !append(value, std::strlen(value))) return false;
        length -= static_cast<std::size_t>(end - element);
        element = end;
    }
    if (!append(element, length) || !append(message_file::name, sizeof message_file::name - 1)) return false;
    candidate[used] = '\0';
    return true;
}

// Opens the first file on the path that exists; -1 when there is none.
int open_on_path(const char *path)
{
    for (const char *element = path;;) {
        const char *end = element + std::strcspn(element, ":");
        char candidate[PATH_MAX];
        struct stat status;
        if (make_candidate(element, static_cast<std::size_t>(end - element), candidate) &&
            stat(candidate, &status) == 0) {
            // Non-blocking, so that a pipe of that name cannot hold the process up.
            return open(candidate, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
        }
        if (*end == '\0') return -1;
        element = end + 1;
    }
}

// Reads header and tables. Returns the reason of a failure, or null.
const char *read_tables(int descriptor)
{
    struct stat status;
    if (fstat(descriptor, &status) != 0 || !S_ISREG(status.st_mode)) return bad_format;
    std::uint16_t header[header_words];
    if (read_fully(descriptor, header, sizeof header) != static_cast<ssize_t>(sizeof header))
        return bad_format;
    file.swapped = header[magic_word] != magic;
    if (file.swapped) std::transform(header, header + header_words, header, swap_bytes);
    if (header[magic_word] != magic || header[alignment_word] > largest_alignment) return bad_format;
    file.count = header[count_word];
    file.record_size = std::size_t{header[template_size_word]} + header[name_size_word] + 2;
    file.alignment = header[alignment_word];

    const std::size_t words = 2 * file.count + 1, size = words * sizeof(std::uint16_t);
    file.codes = static_cast<std::uint16_t *>(std::malloc(size));
    if (file.codes == nullptr) return "Out-of-memory";
    file.offsets = file.codes + file.count;
    if (read_fully(descriptor, file.codes, size) != static_cast<ssize_t>(size)) return bad_format;
    if (file.swapped) std::transform(file.codes, file.codes + words, file.codes, swap_bytes);
    return nullptr;
}

void close_file()
{
    if (file.descriptor >= 0) close(file.descriptor);
    std::free(file.codes);
    file.descriptor = -1;
    file.codes = file.offsets = nullptr;
    file.count = 0;
}

void open_message_file(const tavik_error_struct &state)
{
#pragma omp critical(readerr_0)
    {
        if (file.state == FileState::unopened) {
            const char *path = state.file_path != nullptr ? state.file_path : std::getenv("TAVIKERRPATH");
            file.descriptor = open_on_path(path != nullptr ? path : default_path);
            const char *reason = file.descriptor < 0 ? "File not found" : read_tables(file.descriptor);
            if (reason == nullptr) {
                file.state = FileState::usable;
            } else {
                close_file();
                std::fprintf(stderr, "Error in reading %s\n%s.\n", message_file::name, reason);
                file.state = FileState::failed;
            }
        }
    }
}

constexpr int not_found = -1, read_error = -2;

int find_index(long code)
{
    const std::uint16_t wanted = key(code);
    const std::uint16_t *end = file.codes + file.count;
    const std::uint16_t *found = std::lower_bound<const std::uint16_t *>(file.codes, end, wanted);
    return found != end && *found == wanted ? static_cast<int>(found - file.codes) : not_found;
}

// Reads record `index` into the thread's buffer, closed by two NULs whatever it holds. Returns the reason of
// a failure, or null.
const char *read_record(MessageLookup &lookup, int index)
{
    if (lookup.capacity < file.record_size + 2) {
        auto *record = static_cast<char *>(std::realloc(lookup.record, file.record_size + 2));
        if (record == nullptr) return "Out-of-memory";
        lookup.record = record;
        lookup.capacity = file.record_size + 2;
    }
    const long long first = file.offsets[index], next = file.offsets[index + 1];
    const long long unit = 1LL << file.alignment;
    const auto start = static_cast<off_t>(data_start(file.count, file.alignment)) + first * unit;
    if (lseek(file.descriptor, start, SEEK_SET) != start) return "Cannot seek to correct location";
    const long long length =
        std::min<long long>((next - first + 1) * unit, static_cast<long long>(file.record_size));
    const ssize_t got =
        length > 0 ? read_fully(file.descriptor, lookup.record, static_cast<std::size_t>(length)) : 0;
    if (got <= 0) return "Error from read() when reading error message bin file";
    lookup.record[got] = lookup.record[got + 1] = '\0';
    return nullptr;
}

void look_up(MessageLookup &lookup, long code)
{
    std::snprintf(lookup.decimal_name, sizeof lookup.decimal_name, "%ld", code);
    std::snprintf(lookup.substitute, sizeof lookup.substitute, "Error code %ld.", code);
    lookup.text = lookup.substitute;
    lookup.name = lookup.decimal_name;
    lookup.code = code;
    lookup.index = file.state == FileState::usable ? find_index(code) : not_found;
    if (lookup.index == not_found) return;

    lookup.failure = read_record(lookup, lookup.index);
    if (lookup.failure != nullptr) {
        lookup.index = read_error;
        std::snprintf(lookup.substitute, sizeof lookup.substitute,
                      "Error in reading %s for error message %d.\n%s.\n", message_file::name,
                      static_cast<int>(code), lookup.failure);
        return;
    }
    lookup.text = lookup.record;
    const char *symbolic_name = lookup.record + std::strlen(lookup.record) + 1;
    if (*symbolic_name != '\0') lookup.name = symbolic_name;
}

} // namespace

const MessageLookup &find_message(tavik_error_struct &state, long code)
{
    MessageLookup &lookup = state.lookup;
    if (code == lookup.code && lookup.text != nullptr) return lookup;
    // A lookup always goes to the default name, whatever name was set.
    std::free(state.file_name);
    state.file_name = nullptr;
    open_message_file(state);
#pragma omp critical(readerr_1)
    look_up(lookup, code);
    return lookup;
}

void release_message_file()
{
#pragma omp critical(readerr_0)
    {
#pragma omp critical(readerr_1)
        {
            close_file();
            if (file.state == FileState::usable) file.state = FileState::unopened; // a failure is final
        }
    }
}

} // namespace tavik
