// Streams that one call has for itself: locked until the call ends, whichever way it does.
#pragma once

#include "raise.hpp"
#include "workspace.hpp"

#include <cstdio>

namespace tavik {

// False, with an error, without memory.
inline bool lock_until_return(FILE *stream, Workspace &workspace)
{
    tavik_flockfile(stream);
    return workspace.keep(stream, [](FILE *locked) { tavik_funlockfile(locked); });
}

// The thread's output unit. Null, with an error, without memory.
inline FILE *lock_output_unit(Workspace &workspace)
{
    FILE *stream = nullptr;
    tavik_umach(2, &stream);
    return lock_until_return(stream, workspace) ? stream : nullptr;
}

} // namespace tavik
