// The beginning and the end of what the library holds for a thread.

#include "call.hpp"
#include "error_thread.hpp"
#include "thread_exit.hpp"

using namespace tavik;

extern "C" {

// The frame alone creates the calling thread's state.
int tavik_initialize(void)
{
    return public_call<int>("tavik_initialize", [](Workspace &, int &result) { result = 1; });
}

void tavik_free_allocated_memory(void)
{
    // A thread that is inside a call, in a function of the caller's, keeps what that call stands on.
    const tavik_error_struct *state = thread_error_state;
    if (state == nullptr || state->top == state->stack) release_thread_state();
    tavik_free_error_handlers();
}

} // extern "C"
