// What reading and writing a network file have in common.
#pragma once

#include "frame/call.hpp"
#include "frame/locked_stream.hpp"
#include "frame/options.hpp"

namespace tavik::datamining {

struct NetworkFileOptions {
    FILE *stream = nullptr;
    bool print = false;
};

inline bool read_options(OptionReader reader, NetworkFileOptions &options)
{
    while (const int code = reader.next()) {
        switch (code) {
        case TAVIK_FILE: options.stream = reader.pointer_or_null<FILE>(); break;
        case TAVIK_PRINT: options.print = true; break;
        default: reader.unknown(11001); return false;
        }
    }
    return true;
}

// As errors call what is read or written.
inline const char *name_of(const char *filename)
{
    return filename != nullptr ? filename : "(stream of the caller)";
}

} // namespace tavik::datamining
