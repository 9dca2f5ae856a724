// Dispatch of draws over the generators. The integer seed is written back after every draw, so that a stream
// can be taken up again from it; residues are below 2^31, so working value and integer are always the same.
#include "uniform.hpp"

#include "frame/error.hpp"
#include "gfsr.hpp"
#include "mersenne_twister.hpp"
#include "uniform_kernels.hpp"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <utility>

namespace tavik::random {
namespace {

const CongruentialPowers &powers_of_option(std::int32_t option)
{
    return congruential_powers[(option - congruential_16807) / 2];
}

bool is_shuffled(std::int32_t option)
{
    return option <= congruential_950706376_shuffled && option % 2 == 0;
}

// Float deviates stay below 1 by a scale that is reduced for it; in double the plain reciprocal does.
template <class Real> double scale_of(const random_common_structure &record)
{
    if constexpr (std::is_same_v<Real, float>) return static_cast<double>(record.scale_f);
    else return reciprocal_of_residue_modulus;
}

// One deviate by one step.
template <class Real> Real congruential_step(const CongruentialPowers &powers, double scale, std::uint32_t &x)
{
    x = times_modulo(powers.power[0], x);
    return static_cast<Real>(x * scale);
}

// The way of calls for one deviate, which cost hardly more than their frame.
template <class Real> inline void draw_one(random_common_structure &record, Real *r)
{
    std::uint32_t x = residue_of_seed(record.seed);
    *r = congruential_step<Real>(powers_of_option(record.option), scale_of<Real>(record), x);
    set_seed(record, static_cast<std::int32_t>(x));
}

// n deviates in the order of the recursion; the residues that they come from where asked for.
template <class Real>
void draw_congruential(random_common_structure &record, Real *r, std::uint32_t *residues, std::size_t n)
{
    const CongruentialPowers &powers = powers_of_option(record.option);
    const double scale = scale_of<Real>(record);
    std::uint32_t x = residue_of_seed(record.seed);
    constexpr std::size_t few = 8; // fewer than the lanes of the kernels
    if (n < few || x == 0) {
        for (std::size_t k = 0; k < n; ++k) {
            r[k] = congruential_step<Real>(powers, scale, x);
            if (residues != nullptr) residues[k] = x;
        }
    } else {
        x = generator_kernels().uniform<Real>().congruential(x, powers, scale, r, residues, n);
    }
    set_seed(record, static_cast<std::int32_t>(x));
}

// Exchanges deviates, one after the other, with those in the slots that their residues give. A processor writes one
// cache line at a time, which is what this loop waits for, so what comes out of the table is stored two at a time.
template <class Real> void exchange(Real *table, Real *deviates, const std::uint32_t *residues, std::size_t n)
{
    typedef Real Pair __attribute__((vector_size(2 * sizeof(Real))));
    std::size_t k = 0;
    for (; k + 2 <= n; k += 2) {
        const Real first = deviates[k], second = deviates[k + 1];
        Real &first_slot = table[residues[k] % shuffle_slots],
             &second_slot = table[residues[k + 1] % shuffle_slots];
        const Real first_out = first_slot;
        first_slot = first;
        const Real second_out = second_slot; // perhaps the same slot
        second_slot = second;
        const Pair out = {first_out, second_out};
        std::memcpy(deviates + k, &out, sizeof out);
    }
    if (k < n) std::swap(deviates[k], table[residues[k] % shuffle_slots]);
}

template <class Real> void draw_shuffled(GeneratorState &state, Real *r, std::size_t n)
{
    constexpr std::size_t piece = 512;
    std::uint32_t residues[piece];
    if (*shuffle_table<Real>(state).ready == 0) fill_shuffle_table<Real>(state);
    Real *table = shuffle_table<Real>(state).values;
    for (std::size_t drawn = 0; drawn < n;) {
        const std::size_t run = std::min(piece, n - drawn);
        Real *out = r + drawn;
        draw_congruential(state.record, out, residues, run);
        exchange(table, out, residues, run);
        drawn += run;
    }
}

template <class Twister, class Real>
bool draw_twister(random_common_structure &record, Real *r, std::size_t n)
{
    auto twister = twister_state<Twister>(record);
    if (!twister.prepare(record.seed)) return false;
    twister.draw(r, n);
    return true;
}

} // namespace

template <class Real> void fill_shuffle_table(GeneratorState &state)
{
    const ShuffleTable<Real> table = shuffle_table<Real>(state);
    random_common_structure &record = state.record;
    if (is_shuffled(record.option)) {
        std::uint32_t x = residue_of_seed(record.seed);
        for (int k = 0; k < shuffle_slots; ++k) {
            x = times_modulo(powers_of_option(record.option).power[0], x);
            table.values[k] = static_cast<Real>(x / record.modulus);
        }
        set_seed(record, static_cast<std::int32_t>(x));
    }
    *table.ready = 1;
}

template <class Real> bool draw_uniforms(Real *r, std::size_t n)
{
    GeneratorState *state = seeded_generator_state();
    if (state == nullptr) return false;
    random_common_structure &record = state->record;
    if (record.option < gfsr_1563) {
        if (is_shuffled(record.option)) draw_shuffled(*state, r, n);
        else if (n == 1) draw_one(record, r);
        else draw_congruential(record, r, nullptr, n);
        return true;
    }
    if (record.option == mersenne_twister_32) return draw_twister<MersenneTwister32>(record, r, n);
    if (record.option == mersenne_twister_64) return draw_twister<MersenneTwister64>(record, r, n);
    if (record.gfsr_ready == 0) l_r1inf(record);
    draw_gfsr(record, r, n);
    return true;
}

template bool draw_uniforms(float *, std::size_t);
template bool draw_uniforms(double *, std::size_t);
template void fill_shuffle_table<float>(GeneratorState &);
template void fill_shuffle_table<double>(GeneratorState &);

bool check_draw_count(const char *routine, int n, const char *argument)
{
    if (n >= 1) return true;
    int position = 0;
    tavik_e1psh(routine);
    tavik_c1iarg(n, argument, 1, -1, &position);
    tavik_e1pop(routine);
    return false;
}

namespace {

template <class Real> void draw_or_raise(const char *routine, int n, Real *r)
{
    if (check_draw_count(routine, n, "nr")) draw_uniforms(r, static_cast<std::size_t>(n));
}

} // namespace
} // namespace tavik::random

extern "C" {

void tavik_rnun(int n, float *r)
{
    tavik::random::draw_or_raise("tavik_rnun", n, r);
}

void tavik_drnun(int n, double *r)
{
    tavik::random::draw_or_raise("tavik_drnun", n, r);
}

void tavik_r1ins(void)
{
    if (auto *state = tavik::random::generator_state(tavik::random::seed_if_unseeded))
        tavik::random::fill_shuffle_table<float>(*state);
}

void tavik_dr1ins(void)
{
    if (auto *state = tavik::random::generator_state(tavik::random::seed_if_unseeded))
        tavik::random::fill_shuffle_table<double>(*state);
}

} // extern "C"
