// Life of a thread's error state: made on the thread's first call, released when the thread ends or on
// request. A process that has no memory for it reports that through one static structure and stops.

#include "error_thread.hpp"
#include "critical.hpp"
#include "error.hpp"
#include "error_print.hpp"
#include "parallel.hpp"
#include "readerr.hpp"
#include "signal.hpp"
#include "thread_exit.hpp"

#include <atomic>
#include <cstdlib>
#include <cstring>

namespace tavik {

constinit thread_local tavik_error_struct *thread_error_state = nullptr;
std::atomic<int> trapping_with_threads{0};

namespace {

constexpr int initial_capacity = 2048;

std::atomic<tavik_error_struct *> single{nullptr};
int calling_threads = 0; // threads whose state their own calls made; guarded by error_0

tavik_error_struct fallback;
bool fallback_ready = false; // guarded by error_1
char out_of_memory_text[] = "Out of Memory. The TAVI Kestrel error handler cannot be initialized.";

void release_state();
thread_local ThreadExit exit_node{release_state, false, nullptr};

void set_defaults(tavik_error_struct &state)
{
    std::memset(static_cast<void *>(&state), 0, sizeof state);
    state.stack[0].user_level = 1;
    state.stack[0].name = "USER";
    state.top = state.stack;
    state.settings.stream = stderr;
    state.settings.print_proc = default_print;
    state.handler_id = error_handler_id;

    static constexpr const char *names[n_error_types] = {"INTERNAL",          "NOTE    ",        "ALERT   ",
                                                         "WARNING ",          "FATAL   ",        "TERMINAL",
                                                         "WARNING_IMMEDIATE", "FATAL_IMMEDIATE", "INTERNAL"};
    static constexpr std::uint8_t print[n_error_types] = {0, 0, 0, 1, 1, 1, 1, 1, 1};
    static constexpr std::uint8_t stop[n_error_types] = {0, 0, 0, 0, 1, 1, 0, 0, 1};
    static constexpr std::uint8_t traceback[n_error_types] = {0, 0, 0, 0, 0, 0, 0, 0, 1};
    static constexpr std::uint8_t immediate[n_error_types] = {0, 0, 0, 0, 0, 1, 1, 1, 1};
    std::memcpy(state.type_names, names, sizeof names);
    std::memcpy(state.settings.print, print, sizeof print);
    std::memcpy(state.settings.stop, stop, sizeof stop);
    std::memcpy(state.settings.traceback, traceback, sizeof traceback);
    std::memcpy(state.settings.immediate, immediate, sizeof immediate);
    state.lookup.code = -1;
}

void destroy(tavik_error_struct *state)
{
    abandon_callbacks(*state, state->stack);
    std::free(state->message);
    std::free(state->last_message);
    alone_in(section::error_4, [=] { std::free(state->lookup.record); });
    std::free(state->file_name);
    std::free(state->file_path);
    tavik_aligned_free(state);
}

tavik_error_struct *allocate_state()
{
    auto *state = static_cast<tavik_error_struct *>(tavik_aligned_malloc(sizeof(tavik_error_struct)));
    if (state == nullptr) return nullptr;
    set_defaults(*state);
    if (grow_message_buffers(*state, initial_capacity) && release_at_thread_exit(exit_node)) return state;
    destroy(state);
    return nullptr;
}

// A state made for a worker of the library's own parallel region is not another caller.
enum class MadeFor { caller, worker };

bool make_state(MadeFor purpose)
{
    if (thread_error_state != nullptr && thread_error_state != &fallback) return true;
    tavik_error_struct *state = allocate_state();
    if (state == nullptr) return false;
    tavik_error_struct *none = nullptr;
    single.compare_exchange_strong(none, state);
    if (purpose == MadeFor::caller) count_as_caller(*state);
    thread_error_state = state;
    return true;
}

void release_state()
{
    tavik_error_struct *state = thread_error_state;
    if (state == nullptr || state == &fallback) return;
    thread_error_state = nullptr;
    alone_in(section::error_0, [=] {
        if (single.load() == state) single = nullptr;
        calling_threads -= state->counted;
    });
    destroy(state);
}

// Both buffers of `to` have at least the capacity of `from`.
void copy_texts(tavik_error_struct &to, const tavik_error_struct &from)
{
    const auto size = static_cast<std::size_t>(from.capacity);
    std::memcpy(to.message, from.message, size);
    std::memcpy(to.last_message, from.last_message, size);
    to.message_end = to.message + (from.message_end - from.message);
}

[[noreturn]] void stop_without_state()
{
    alone_in(section::error_1, [] {
        if (fallback_ready) return;
        set_defaults(fallback);
        fallback.stack[0].type = terminal;
        fallback.stack[0].name = "TAVI Kestrel";
        fallback.message = fallback.last_message = out_of_memory_text;
        fallback.capacity = static_cast<int>(sizeof out_of_memory_text);
        fallback.message_end = out_of_memory_text + sizeof out_of_memory_text - 1;
        fallback.counted = 1;
        fallback_ready = true;
    });
    thread_error_state = &fallback;
    fallback.settings.print_proc(terminal, 200, fallback.top->name, out_of_memory_text);
    stop_process(fallback);
}

} // namespace

tavik_error_struct &create_error_state()
{
    if (tavik_initialize_error_handler() != 0) stop_without_state();
    return *thread_error_state;
}

tavik_error_struct *single_error_state()
{
    tavik_error_struct *none = nullptr;
    single.compare_exchange_strong(none, thread_error_state); // its thread may have ended
    return single;
}

bool grow_message_buffers(tavik_error_struct &state, int capacity)
{
    if (capacity <= state.capacity) return true;
    const auto used = state.message_end - state.message;
    const auto size = static_cast<std::size_t>(capacity);
    auto *message = static_cast<char *>(std::realloc(state.message, size));
    if (message == nullptr) return false;
    state.message = message;
    state.message_end = message + used;
    *state.message_end = '\0';
    auto *last = static_cast<char *>(std::realloc(state.last_message, size));
    if (last == nullptr) return false;
    if (state.last_message == nullptr) *last = '\0';
    state.last_message = last;
    state.capacity = capacity;
    return true;
}

void count_as_caller(tavik_error_struct &state)
{
    alone_in(section::error_0, [&] {
        state.counted = 1;
        ++calling_threads;
        if (calling_threads > 1 && tavik_signal_trap_status() != 0) trapping_with_threads = 1;
    });
}

void check_trapping_with_threads()
{
    alone_in(section::error_0, [] {
        if (calling_threads > 1) trapping_with_threads = 1;
    });
}

void clear_trapping_with_threads()
{
    alone_in(section::error_0, [] { trapping_with_threads = 0; });
}

} // namespace tavik

using namespace tavik;

extern "C" {

tavik_error_struct *tavik_err_init(void)
{
    return &error_state();
}

tavik_error_struct *tavik_error_struct_get(void)
{
    return &error_state();
}

int tavik_initialize_error_handler(void)
{
    return make_state(MadeFor::caller) ? 0 : 1;
}

void tavik_free_error_handlers(void)
{
    release_message_file();
    // Only the threads of this team can be reached; the others release their state when they end.
#pragma omp parallel num_threads(usable_threads())
    {
        if (thread_error_state != nullptr && thread_error_state->top == thread_error_state->stack)
            release_state();
    }
}

void tavik_error_fork(tavik_error_struct *parent)
{
    if (parent == nullptr || parent == thread_error_state) return;
    // Without memory the worker runs on without a state; it gets another chance if it has an error to raise.
    if (!make_state(MadeFor::worker)) return;
    tavik_error_struct &own = *thread_error_state;
    if (!grow_message_buffers(own, parent->capacity)) return;

    if (own.forked == 0) own.own_settings = own.settings;
    own.forked = 1;
    own.settings = parent->settings;
    own.current_type = parent->current_type;
    own.current_code = parent->current_code;
    own.exit_type = parent->exit_type;
    own.exit_code = parent->exit_code;
    std::memcpy(own.stack, parent->stack, sizeof own.stack);
    own.top = own.stack + (parent->top - parent->stack);
    copy_texts(own, *parent);
    own.parameters = parent->parameters;
    std::free(own.file_path);
    own.file_path = parent->file_path != nullptr ? strdup(parent->file_path) : nullptr;
}

void tavik_error_join(tavik_error_struct *parent)
{
    tavik_error_struct *own = thread_error_state;
    if (parent == nullptr || own == nullptr || own == parent) return;
    if (own->forked == 0) return; // the fork found no memory
    alone_in(section::omp_0, [=] {
        if (own->top->type <= parent->top->type || !grow_message_buffers(*parent, own->capacity)) return;
        const char *name = parent->top->name;
        *parent->top = *own->top;
        parent->top->name = name;
        parent->current_type = own->current_type;
        parent->current_code = own->current_code;
        parent->exit_type = own->exit_type;
        parent->exit_code = own->exit_code;
        copy_texts(*parent, *own);
        parent->parameters = own->parameters;
    });
    // The thread is outside the library again: its next call starts from the base with its own settings.
    own->settings = own->own_settings;
    own->forked = 0;
    own->top = own->stack;
    own->stack[0].type = no_error;
    own->stack[0].code = 0;
}

} // extern "C"
