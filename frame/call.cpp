#include "call.hpp"
#include "error.hpp"
#include "signal.hpp"

#include <cxxabi.h>
#include <new>

namespace tavik {
namespace {

// No exception leaves a public call, but for the one by which a thread is ended in the middle of it. Inline: the plain
// call is what short routines wait for.
__attribute__((always_inline)) inline void run_worker(WorkerThunk thunk, void *worker, Workspace &workspace)
{
    try {
        thunk(worker, workspace);
    } catch (const std::bad_alloc &) {
        tavik_ermes(terminal, 200);
    } catch (abi::__forced_unwind &) {
        workspace.release();
        throw;
    } catch (...) {
        tavik_ermes(terminal, 109);
    }
}

// A function of its own, so that no variable that the jump could spoil lives beside the jump's target.
__attribute__((noinline)) void run_trapped(WorkerThunk thunk, void *worker, Workspace &workspace)
{
    tavik_error_struct *single = single_error_state();
    const RoutineEntry *own_level = thread_error_state->top;
    if (single != thread_error_state) { // its jump buffers are another thread's
        tavik_ermes(fatal, 499);
        return;
    }
    // Deeper than the trap reaches, the calls above are still guarded.
    if (single->jump_count >= jump_levels) {
        run_worker(thunk, worker, workspace);
        return;
    }
    if (sigsetjmp(single->jumps[single->jump_count++], 1) == 0) {
        tavik_set_signal(1);
        run_worker(thunk, worker, workspace);
        // Nested calls popped their own buffers, so the top one is this call's.
        if (tavik_error_struct *now = single_error_state()) --now->jump_count;
    } else {
        abandon_callbacks(*thread_error_state, own_level);
        tavik_ermes(terminal, 102);
    }
    tavik_set_signal(0);
}

} // namespace

void run_public_call(const char *name, WorkerThunk thunk, void *worker)
{
    tavik_error_struct &state = error_state();
    enter_routine(state, name);
    if (state.current_type == no_error) {
        Workspace workspace;
        if (signal_trapping.load(std::memory_order_relaxed) != 0) run_trapped(thunk, worker, workspace);
        else run_worker(thunk, worker, workspace);
        workspace.release();
    }
    leave_routine(state, name);
}

} // namespace tavik
