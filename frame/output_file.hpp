// A file that appears under its name only when it is complete.
//
// A regular file, or a new one, is written beside its place and renamed; so whatever goes wrong, the old file stays as
// it was. Where the folder takes no new file, and for devices and pipes, the target itself is written.
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
    bool open_beside(const char *name);

    FILE *stream_;
    char *target_, *beside_; // null: the target itself is written
};

} // namespace tavik
