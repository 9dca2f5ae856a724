// The seed of the thread's generator, and the seeds of substreams.
#include "congruential.hpp"
#include "frame/call.hpp"
#include "frame/error.hpp"
#include "generator_state.hpp"

#include <cmath>

using namespace tavik;

namespace {

using random::generator_state, random::GeneratorState;

// Seeds outside of 0 to 2^31 - 2 count for nothing, but the thread has a seed afterwards. A 0 takes the time of day
// and does not count as a seed: unless the thread has one, its first draw takes the time again.
void l_random_seed_set(int seed)
{
    const bool valid = seed >= 0 && seed < tavik_imach(5);
    GeneratorState *state = generator_state(!valid      ? random::seed_if_unseeded
                                            : seed == 0 ? random::set_up_only
                                                        : random::mark_seeded);
    if (state == nullptr || !valid) return;
    if (seed == 0) tavik_r1clk(&seed);
    random::set_seed(state->record, seed);
}

// 100,000 steps of the recursion. Negative seeds keep their sign, as in the recursion in floating point.
constexpr std::uint32_t substream_factors[3] = {46831694, 1659360, 1280967134};

void l_random_substream_seed_get(int seed, int &result)
{
    result = seed;
    const GeneratorState *state = generator_state(random::set_up_only);
    if (state == nullptr) return;
    const int option = state->record.option;
    if (option > random::congruential_950706376_shuffled) {
        tavik_ermes(terminal, 65101);
    } else if (option % 2 == 0) {
        tavik_ermes(terminal, 65100);
    } else {
        const std::int64_t product = std::int64_t{substream_factors[(option - 1) / 2]} * seed;
        result = static_cast<int>(product % random::residue_modulus);
    }
}

} // namespace

extern "C" {

void tavik_random_seed_set(int seed)
{
    public_call("tavik_random_seed_set", [=](Workspace &) { l_random_seed_set(seed); });
}

int tavik_random_seed_get(void)
{
    return public_call<int>("tavik_random_seed_get", [](Workspace &, int &seed) {
        if (const auto *state = generator_state(random::seed_if_unseeded)) seed = state->record.seed;
    });
}

int tavik_random_substream_seed_get(int seed)
{
    return public_call<int>("tavik_random_substream_seed_get",
                            [=](Workspace &, int &result) { l_random_substream_seed_get(seed, result); });
}

} // extern "C"
