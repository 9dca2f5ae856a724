// Signal trapping: handlers that are in force during public calls and turn a fatal signal into an error that
// leaves the routine by a long jump. For single-threaded programs; a fault on a thread that armed nothing
// ends the process as it would have without the library.

#include "signal.hpp"
#include "critical.hpp"
#include "error.hpp"

#include <csignal>

namespace tavik {

std::atomic<int> signal_trapping{0};

namespace {

constexpr int trapped[] = {SIGILL, SIGSEGV};
constexpr int n_trapped = 2;

enum Armed : int { never = 0, armed = 1, disarmed = -1 };

thread_local int signal_armed = never;
thread_local int armed_calls = 0; // nested public calls: the outermost installs and restores
thread_local struct sigaction previous[n_trapped];

// What was in force before the last arming, for a fault on a thread that armed nothing.
struct sigaction process_previous[n_trapped];

void raise_trapped(int signal_number)
{
    tavik_e1sti(1, signal_number);
    switch (signal_number) {
    case SIGINT: tavik_ermes(terminal, 502); break;
    case SIGILL: tavik_ermes(terminal, 504); break;
    case SIGABRT: tavik_ermes(terminal, 506); break;
    case SIGFPE: tavik_ermes(terminal, 508); break;
    case SIGSEGV: tavik_ermes(terminal, 511); break;
    default: break;
    }
}

void give_back(int signal_number)
{
    for (int i = 0; i < n_trapped; ++i) {
        if (trapped[i] == signal_number) sigaction(signal_number, &process_previous[i], nullptr);
    }
}

extern "C" void handle_signal(int signal_number, siginfo_t *information, void *)
{
    if (signal_armed != armed) {
        // Returning repeats a faulting instruction, now under the disposition that the process had. A signal
        // that was sent does not come by itself again.
        give_back(signal_number);
        if (information->si_code <= 0) raise(signal_number);
        return;
    }
    tavik_error_struct &state = error_state();
    state.signal_unwind = 1;
    raise_trapped(signal_number);
    tavik_error_struct *single = single_error_state();
    if (single != nullptr && single->jump_count > 0) siglongjmp(single->jumps[--single->jump_count], 1);
    give_back(signal_number);
}

} // namespace

void set_signal_trapping(int on)
{
    alone_in(section::error_2, [=] { signal_trapping = on != 0; });
    if (on != 0) check_trapping_with_threads();
    else clear_trapping_with_threads();
}

} // namespace tavik

using namespace tavik;

extern "C" {

int tavik_signal_trap_status(void)
{
    return signal_trapping;
}

void tavik_skip_signal_handler(void)
{
    set_signal_trapping(0);
}

void tavik_set_signal(int on)
{
    if (on != 0) {
        error_state().signal_unwind = 0;
        if (armed_calls++ > 0) return;
        struct sigaction action = {};
        action.sa_sigaction = handle_signal;
        action.sa_flags = SA_SIGINFO | SA_ONSTACK; // a caller's alternate stack also serves a stack overflow
        sigemptyset(&action.sa_mask);
        for (int i = 0; i < n_trapped; ++i) {
            sigaction(trapped[i], &action, &previous[i]);
            process_previous[i] = previous[i];
        }
        signal_armed = armed;
    } else {
        if (armed_calls > 0 && --armed_calls > 0) return;
        if (signal_armed == armed) {
            for (int i = 0; i < n_trapped; ++i) sigaction(trapped[i], &previous[i], nullptr);
        }
        signal_armed = disarmed;
    }
}

} // extern "C"
