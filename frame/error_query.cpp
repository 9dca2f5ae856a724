// What a caller asks about the last error, and errors raised on purpose to see how they are reported.

#include "call.hpp"
#include "error.hpp"

#include <cstdlib>

using namespace tavik;

namespace {

void l_internal_generate_error(int type, int depth)
{
    static constexpr const char *levels[] = {"l_fcn1", "l_fcn2", "l_fcn3"};
    for (int level = 0; level < depth; ++level) tavik_e1psh(levels[level]);
    tavik_e1sti(1, type);
    tavik_e1sti(2, depth);
    tavik_ermes(type, 108);
    for (int level = depth - 1; level >= 0; --level) tavik_e1pop(levels[level]);
}

} // namespace

extern "C" {

// These three read what the last pop left, so they must not enter a level of their own.

int tavik_error_type(void)
{
    return error_state().exit_type;
}

long tavik_error_code(void)
{
    return error_state().exit_code;
}

char *tavik_error_message(void)
{
    const tavik_error_struct &state = error_state();
    if (state.exit_type < 1) return nullptr;
    char *copy = strdup(state.last_message);
    if (copy == nullptr) raise_in_level("tavik_error_message", terminal, 200);
    return copy;
}

void tavik_internal_generate_error(int type, int depth)
{
    public_call("tavik_internal_generate_error", [=](Workspace &) {
        if (type < 1 || type > 7) {
            std::fprintf(stderr,
                         "*** Error from tavik_internal_generate_error.  Argument type must be 1 to "
                         "7, not %d.\n",
                         type);
        } else if (depth < 0 || depth > 3) {
            std::fprintf(stderr,
                         "*** Error from tavik_internal_generate_error.  Argument depth must be 0 "
                         "to 3, not %d.\n",
                         depth);
        } else {
            l_internal_generate_error(type, depth);
        }
    });
}

} // extern "C"
