#include "generator_state.hpp"

#include "frame/error.hpp"
#include "frame/thread_exit.hpp"

#include <cstdlib>
#include <ctime>

namespace tavik::random {

// Not the state itself: 8 KB of thread-local memory would keep programs from loading the library while they run.
constinit thread_local GeneratorState *thread_generator_state = nullptr;

namespace {

void release()
{
    if (thread_generator_state == nullptr) return;
    std::free(thread_generator_state->record.mt32_state);
    std::free(thread_generator_state->record.mt64_state);
    std::free(thread_generator_state);
    thread_generator_state = nullptr;
}

thread_local ThreadExit at_thread_exit{release, false, nullptr};

__attribute__((noinline)) GeneratorState *create_state()
{
    if (release_at_thread_exit(at_thread_exit))
        thread_generator_state = static_cast<GeneratorState *>(std::calloc(1, sizeof(GeneratorState)));
    if (thread_generator_state == nullptr) {
        tavik_ermes(terminal, 200);
        return nullptr;
    }
    thread_generator_state->record.gfsr_i = 1;
    thread_generator_state->record.gfsr_j = 1468;
    return thread_generator_state;
}

GeneratorState *state_or_error()
{
    return thread_generator_state != nullptr ? thread_generator_state : create_state();
}

// A thread whose first act is to select generator 7, whose words go up to 2^31 - 1, scales by 2^31 and so never gives
// a 1. All others scale by 2^31 - 1, and keep that when 7 is selected later.
void set_up(GeneratorState &state, int first_code)
{
    constexpr double largest_residue = 2147483646;
    constexpr float above_all_words = 2147483648.0F; // what a state near the largest becomes in float
    random_common_structure &record = state.record;
    record.modulus = first_code == gfsr_1563 ? 2147483648.0 : 2147483647.0;
    record.scale_d = 1 / record.modulus;
    while (largest_residue * record.scale_d >= 1) record.scale_d *= 1 - 0x1p-53;
    record.scale_f = static_cast<float>(record.scale_d);
    while (record.scale_f * above_all_words >= 1.0F) record.scale_f *= 1 - 0x1p-24F;
    record.option = congruential_16807;
    record.shuffle_ready_d = record.shuffle_ready_f = 0;
    state.scaled = true;
}

} // namespace

GeneratorState *generator_state(int code)
{
    GeneratorState *state = state_or_error();
    if (state == nullptr || (code == seed_if_unseeded && state->seeded)) return state;
    if (!state->scaled) set_up(*state, code);
    if (code == mark_seeded) state->seeded = true;
    if (code == seed_if_unseeded) {
        int seed = 0;
        tavik_r1clk(&seed);
        set_seed(state->record, seed);
        state->seeded = true;
    }
    if (code >= 1) state->record.option = code;
    return state;
}

int clock_seed(int hour, int minute, int second)
{
    const int seed = hour * 10000 + minute * 100 + second + 1;
    return seed < 2 ? 123457 : seed;
}

} // namespace tavik::random

using namespace tavik;

extern "C" {

random_common_structure *tavik_get_random_common_structure(void)
{
    random::GeneratorState *state = random::state_or_error();
    return state != nullptr ? &state->record : nullptr;
}

void tavik_r1int(int code)
{
    random::generator_state(code);
}

void tavik_r1clk(int *seed)
{
    const std::time_t now = std::time(nullptr);
    std::tm broken_down{};
    if (gmtime_r(&now, &broken_down) == nullptr) localtime_r(&now, &broken_down);
    *seed = random::clock_seed(broken_down.tm_hour, broken_down.tm_min, broken_down.tm_sec);
}

} // extern "C"
