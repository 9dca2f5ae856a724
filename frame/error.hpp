// Entering and leaving routines, and recording errors: the part of the error handler that every call runs.
#pragma once

#include "error_thread.hpp"

#include <cstring>

namespace tavik {

// Fills the message buffer from a template and its parameters; see error_format.cpp.
void format_message(tavik_error_struct &state, const char *message_template);

inline void clear_message(tavik_error_struct &state)
{
    state.message[0] = '\0';
    state.message_end = state.message;
}

// Ends the process with the type of the top entry as exit status.
[[noreturn]] void stop_process(const tavik_error_struct &state);

// Prints with the thread's print procedure and, if that is set, a traceback.
void report(tavik_error_struct &state, int type, long code);

// Forgets the procedures of the caller's that a jump left, those that levels from `from` up were calling.
void abandon_callbacks(tavik_error_struct &state, const RoutineEntry *from);

// The two rare exits of entering and leaving.
[[noreturn]] void stop_on_stack_overflow(tavik_error_struct &state);
void leave_with_error(tavik_error_struct &state, const char *name);

inline void enter_routine(tavik_error_struct &state, const char *name)
{
    if (state.top == state.stack) {
        clear_message(state);
        if (state.counted == 0) count_as_caller(state);
    }
    if (state.top == state.stack + stack_levels - 1) stop_on_stack_overflow(state);
    *++state.top = RoutineEntry{no_error, 0, 0, 0, 0, name};
    state.current_type = state.exit_type = no_error;
    state.current_code = state.exit_code = 0;
    if (trapping_with_threads.load(std::memory_order_relaxed)) tavik_ermes(fatal, 499);
}

inline void leave_routine(tavik_error_struct &state, const char *name)
{
    // The plain case, nothing recorded here and nothing to unwind, is all that a successful call pays for.
    const RoutineEntry &top = *state.top;
    if (state.signal_unwind == 0 && top.name == name && top.type == no_error && &top != state.stack) {
        RoutineEntry &below = state.top[-1];
        if (below.type == no_error) {
            below.code = state.current_code = top.code;
            state.current_type = no_error;
        }
        state.exit_type = no_error;
        state.exit_code = top.code;
        --state.top;
        return;
    }
    leave_with_error(state, name);
}

// A level of an internal routine that exists only to report one error.
inline void raise_in_level(const char *name, int type, long code)
{
    tavik_e1psh(name);
    tavik_ermes(type, code);
    tavik_e1pop(name);
}

inline bool error_pending()
{
    return error_state().current_type != no_error;
}

// An error that ends a computation; warnings of whatever kind do not.
inline bool fatal_pending()
{
    const int type = error_state().current_type;
    return type == fatal || type == terminal;
}

} // namespace tavik
