// Controls of multi-threaded work.

#include "call.hpp"
#include "options.hpp"
#include "parallel.hpp"

#include <algorithm>
#include <pthread.h>

using namespace tavik;

namespace {

std::atomic<bool> forked{false};

std::atomic<int> functions_thread_safe{0};
std::atomic<int> single_threaded_linear_algebra{1};

void store_flag(int *variable, const std::atomic<int> &flag)
{
    if (variable != nullptr) *variable = flag;
}

// Settings act when the list ends, also when an unknown code ends it.
void l_omp_options(OptionReader reader)
{
    int thread_safe = functions_thread_safe, single_threaded = single_threaded_linear_algebra;
    bool at_end = false;
    while (!at_end) {
        switch (reader.next()) {
        case 0: at_end = true; break;
        case TAVIK_SET_FUNCTIONS_THREAD_SAFE: thread_safe = reader.integer(); break;
        case TAVIK_GET_FUNCTIONS_THREAD_SAFE:
            store_flag(reader.pointer<int>("TAVIK_GET_FUNCTIONS_THREAD_SAFE"), functions_thread_safe);
            break;
        case TAVIK_SET_SINGLE_THREADED_LINEAR_ALGEBRA: single_threaded = reader.integer(); break;
        case TAVIK_GET_SINGLE_THREADED_LINEAR_ALGEBRA:
            store_flag(reader.pointer<int>("TAVIK_GET_SINGLE_THREADED_LINEAR_ALGEBRA"),
                       single_threaded_linear_algebra);
            break;
        default: reader.unknown(103); at_end = true;
        }
    }
    functions_thread_safe = thread_safe;
    single_threaded_linear_algebra = single_threaded;
}

} // namespace

namespace tavik {

int usable_threads()
{
    static const int watching_fork = pthread_atfork(nullptr, nullptr, [] { forked = true; });
    return watching_fork != 0 || forked || tavik_signal_trap_status() != 0 ? 1 : omp_get_max_threads();
}

int thread_count(std::int64_t pieces, std::int64_t values)
{
    constexpr std::int64_t least_values_per_thread =
        1 << 15; // below, starting threads costs more than it gives
    return static_cast<int>(
        std::clamp<std::int64_t>(std::min(pieces, values / least_values_per_thread), 1, usable_threads()));
}

} // namespace tavik

extern "C" void tavik_omp_options(int code, ...)
{
    ArgumentList list;
    va_start(list.arguments, code);
    public_call("tavik_omp_options",
                [&](Workspace &) { l_omp_options(OptionReader(code, list, count_codes)); });
    va_end(list.arguments);
}
