// A file that appears under its name only when it is complete.
//
// A regular file, or a new one, is written beside its place and renamed; so whatever goes wrong, the old file stays as
// it was. The target itself is written where a new file could not stand for it: devices, pipes, a file with several
// links or of another owner, and in folders that take no new file. Nothing is forced to the disk.
#pragma once

#include "workspace.hpp"

#include <cstdio>

namespace tavik {

class OutputFile {
public:
    // Null, without an error, when the file cannot be opened: errno tells why. The workspace closes it, and removes
    // what is incomplete.
    static OutputFile *open(const char *name, Workspace &workspace);

    FILE *stream() const
    {
        return stream_;
    }

    // Closes the file and brings it into its place. False when that fails: errno tells why.
    bool finish();

    void abandon();

private:
    enum class Place { beside, target, nowhere };

    Place find_place(const char *name);
    Place open_beside();

    FILE *stream_;
    char *target_, *beside_; // beside_ is null when the target itself is written
};

} // namespace tavik
