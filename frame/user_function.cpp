// Failure of a function of the caller's, reported from inside it to the routine that called it.

#include "call.hpp"
#include "error.hpp"

using namespace tavik;

extern "C" void tavik_set_user_fcn_return_flag(int value)
{
    public_call("tavik_set_user_fcn_return_flag", [=](Workspace &) {
        RoutineEntry &caller = error_state().top[-1];
        caller.user_function_error = 1;
        caller.user_function_value = static_cast<std::uint8_t>(value);
    });
}
