// The error primitives. A routine records at most one error, an inner error becomes its caller's unless that
// holds a more severe one, and what is to be printed or to stop the process happens when the error leaves the
// library, except for the immediate types.

#include "error.hpp"
#include "checkers.hpp"
#include "error_print.hpp"
#include "readerr.hpp"

#include <atomic>
#include <cstdlib>
#include <new>

namespace tavik {
namespace {

std::atomic<tavik_error_hook> hook{nullptr};

void store(RoutineEntry &entry, int type, long code)
{
    entry.type = static_cast<std::uint8_t>(type);
    entry.code = code;
}

void make_current(tavik_error_struct &state, const RoutineEntry &entry)
{
    state.current_type = entry.type;
    state.current_code = entry.code;
}

// An inner error replaces its caller's unless that one is more severe.
void propagate(tavik_error_struct &state)
{
    RoutineEntry &below = state.top[-1];
    if (below.type > state.top->type) return;
    store(below, state.top->type, state.top->code);
    make_current(state, below);
}

[[noreturn]] void stop_on_bad_type(tavik_error_struct &state, int type, const char *message_template)
{
    enter_routine(state, "tavik_e1mes");
    tavik_e1sti(1, type);
    tavik_e1stl(1, message_template != nullptr ? message_template : "");
    format_message(state, "Error type must be -1,...,8, but type = %(i1).  Message = \"%(s1)\"");
    store(*state.top, internal_fault, 160);
    report(state, internal_fault, 160);
    stop_process(state);
}

void raise_type_range(int lo, int type)
{
    set_range_parameters(lo, internal_fault, type, "type");
    raise_in_level("tavik_e1pos", terminal, 132);
}

// Levels that a trapped signal jumped out of hand their error down like levels that return.
void unwind_to(tavik_error_struct &state, const char *name)
{
    state.signal_unwind = 0;
    while (state.top > state.stack && std::strcmp(state.top->name, name) != 0) {
        propagate(state);
        --state.top;
    }
}

} // namespace

void stop_process(const tavik_error_struct &state)
{
    std::exit(state.top->type);
}

// A procedure of the caller's may call the library. Its calls return to the caller's own level, so they
// report on their own, and what is being reported is put back behind them. It is held by the state, not by
// the stack, since a trapped signal may jump out of the procedure.
HeldReport *hold_report(tavik_error_struct &state)
{
    const std::size_t size = std::strlen(state.message) + 1, last_size = std::strlen(state.last_message) + 1;
    void *memory = std::malloc(sizeof(HeldReport) + size + last_size);
    if (memory == nullptr) return nullptr;
    char *message = static_cast<char *>(memory) + sizeof(HeldReport), *last_message = message + size;
    std::memcpy(message, state.message, size);
    std::memcpy(last_message, state.last_message, last_size);
    return state.held = new (memory) HeldReport{state.held,      state.top, *state.top,  state.exit_type,
                                                state.exit_code, message,   last_message};
}

void restore_report(tavik_error_struct &state, HeldReport *held)
{
    *held->level = held->entry;
    make_current(state, held->entry);
    state.exit_type = held->exit_type;
    state.exit_code = held->exit_code;
    std::strcpy(state.message, held->message); // the buffers never shrink
    std::strcpy(state.last_message, held->last_message);
    state.message_end = state.message + std::strlen(state.message);
    state.held = held->outer;
    std::free(held);
}

template <class Callback> void call_back(tavik_error_struct &state, const Callback &callback)
{
    HeldReport *held = hold_report(state);
    if (held == nullptr) { // the procedure is told all the same
        callback(state.message);
        return;
    }
    state.top->user_level = 1;
    callback(held->message);
    restore_report(state, held);
}

void tell_hook(tavik_error_struct &state)
{
    const tavik_error_hook told = hook.load(std::memory_order_acquire);
    if (told == nullptr) return;
    const int type = state.top->type;
    const long code = state.top->code;
    call_back(state, [=](const char *message) { told(type, code, message, message); });
}

void report(tavik_error_struct &state, int type, long code)
{
    const tavik_print_proc proc = state.settings.print_proc;
    const char *routine = state.top->name;
    if (proc == default_print) default_print(type, code, routine, state.message);
    else call_back(state, [=](const char *message) { proc(type, code, routine, message); });
    if (state.settings.traceback[type] != 0) print_traceback(state);
}

void abandon_callbacks(tavik_error_struct &state, const RoutineEntry *from)
{
    while (state.held != nullptr && state.held->level >= from) {
        HeldReport *held = state.held;
        held->level->user_level = held->entry.user_level;
        state.held = held->outer;
        std::free(held);
    }
}

void stop_on_stack_overflow(tavik_error_struct &state)
{
    tavik_ermes(internal_fault, 60000); // on the last level that there is; stops the process
    stop_process(state);
}

void leave_with_error(tavik_error_struct &state, const char *name)
{
    if (state.signal_unwind != 0) unwind_to(state, name);
    if (state.top == state.stack || (state.top->name != name && std::strcmp(state.top->name, name) != 0)) {
        tavik_e1stl(1, name);
        tavik_e1stl(2, state.top->name);
        tavik_ermes(internal_fault, 60001); // stops the process
    }

    const RoutineEntry &top = *state.top;
    if (top.type != no_error && state.top[-1].user_level != 0) {
        tell_hook(state);
        if (state.message[0] != '\0' && state.settings.print[top.type] != 0)
            report(state, top.type, top.code);
        if (state.settings.stop[top.type] != 0) stop_process(state);
    }
    propagate(state);
    state.exit_type = top.type;
    state.exit_code = top.code;
    --state.top;
}

} // namespace tavik

using namespace tavik;

extern "C" {

void tavik_e1psh(const char *name)
{
    enter_routine(error_state(), name);
}

void tavik_e1pop(const char *name)
{
    leave_routine(error_state(), name);
}

void tavik_ermes(int type, long code)
{
    tavik_error_struct &state = error_state();
    tavik_e1mes(type, code, find_message(state, code).text);
}

void tavik_e1mes(int type, long code, const char *message_template)
{
    tavik_error_struct &state = error_state();
    RoutineEntry &entry = *state.top;
    if (type < -1 || type > internal_fault) stop_on_bad_type(state, type, message_template);

    if (type == -1) {
        if (code > 0) entry.code = code; // otherwise the entry's own error is issued again
    } else if (type == no_error && code == 0) {
        clear_message(state);
        store(entry, no_error, 0);
    } else {
        store(entry, type, code);
        if (message_template != nullptr && std::strcmp(message_template, " ") != 0) {
            format_message(state, message_template);
            std::strcpy(state.last_message, state.message);
        } else {
            clear_message(state);
            state.last_message[0] = '\0';
        }
    }

    if (state.settings.immediate[entry.type] != 0) {
        tell_hook(state);
        if (state.settings.print[entry.type] != 0) report(state, entry.type, entry.code);
        clear_message(state);
    }
    if (entry.type == internal_fault) stop_process(state);
    make_current(state, entry);
}

void tavik_e1sti(int k, int value)
{
    if (k >= 1 && k <= n_parameters) error_state().parameters.integer[k - 1] = value;
}

void tavik_e1str(int k, float value)
{
    tavik_e1std(k, value);
}

void tavik_e1std(int k, double value)
{
    if (k >= 1 && k <= n_parameters) error_state().parameters.real[k - 1] = value;
}

void tavik_e1stc(int k, tavik_c_complex value)
{
    tavik_e1stz(k, tavik_z_complex{value.re, value.im});
}

void tavik_e1stz(int k, tavik_z_complex value)
{
    if (k >= 1 && k <= n_parameters) error_state().parameters.complex[k - 1] = value;
}

void tavik_e1stl(int k, const char *value)
{
    if (k < 0 && k >= -n_parameters) k = -k;
    if (k >= 1 && k <= n_parameters) error_state().parameters.string[k - 1] = value;
}

int tavik_n1rty(int level)
{
    const tavik_error_struct &state = error_state();
    if (level == 0) return state.current_type;
    if (level == 1) return state.exit_type;
    set_range_parameters(0, 1, level, "level");
    tavik_ermes(internal_fault, 122); // stops the process
    return no_error;
}

long tavik_n1rcd(int level)
{
    const tavik_error_struct &state = error_state();
    if (level == 0) return state.current_code;
    if (level == 1) return state.exit_code;
    return tavik_n1rty(level);
}

void tavik_e1pos(int type, int *print, int *stop)
{
    ErrorSettings &settings = error_state().settings;
    if (type < -internal_fault || type > internal_fault) {
        raise_type_range(-internal_fault, type);
        return;
    }
    if (type < 0) {
        if (print != nullptr) *print = settings.print[-type];
        if (stop != nullptr) *stop = settings.stop[-type];
        return;
    }
    const int first = type == 0 ? 1 : type, last = type == 0 ? 7 : type;
    for (int t = first; t <= last; ++t) {
        if (print != nullptr && *print >= 0) settings.print[t] = *print != 0;
        if (stop != nullptr && *stop >= 0) settings.stop[t] = *stop != 0;
    }
}

void tavik_e1usr(const char *onoff)
{
    RoutineEntry &entry = *error_state().top;
    const char second = onoff != nullptr && onoff[0] != '\0' ? onoff[1] : '\0';
    const bool on = second == 'n' || second == 'N';
    entry.user_level = on || &entry == error_state().stack; // the base is always the caller's own level
    if (on || entry.user_function_error == 0) return;
    tavik_e1sti(1, entry.user_function_value);
    entry.user_function_error = entry.user_function_value = 0;
    tavik_ermes(fatal, 12116);
}

void tavik_set_at_checksum(tavik_error_hook new_hook)
{
    hook.store(new_hook, std::memory_order_release);
}

} // extern "C"
