// The hot loops of the generators, one table for each instruction level. All levels give the same bits.
#pragma once

#include "congruential.hpp"

#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace tavik::random {

// What tells the two Mersenne Twisters apart: Matsumoto and Nishimura (1998) for 32 bits, Nishimura (2000) for
// 64.
struct MersenneTwister32 {
    using Word = std::uint32_t;
    static constexpr int size = 624, middle = 397;
    static constexpr Word matrix = 0x9908B0DF, lower_mask = 0x7FFFFFFF;
    static constexpr Word seed_factor = 1812433253, key_factor_1 = 1664525, key_factor_2 = 1566083941;
    static constexpr int seed_shift = 30;
};

struct MersenneTwister64 {
    using Word = std::uint64_t;
    static constexpr int size = 312, middle = 156;
    static constexpr Word matrix = 0xB5026F5AA96619E9, lower_mask = 0x7FFFFFFF;
    static constexpr Word seed_factor = 6364136223846793005, key_factor_1 = 3935559000370003845,
                          key_factor_2 = 2862933555777941757;
    static constexpr int seed_shift = 62;
};

// The output functions. Of internal linkage, since the kernels of all levels use them.
[[maybe_unused]] static constexpr std::uint32_t temper(std::uint32_t y)
{
    y ^= y >> 11;
    y ^= (y << 7) & 0x9D2C5680;
    y ^= (y << 15) & 0xEFC60000;
    return y ^ (y >> 18);
}

[[maybe_unused]] static constexpr std::uint64_t temper(std::uint64_t x)
{
    x ^= (x >> 29) & 0x5555555555555555;
    x ^= (x << 17) & 0x71D67FFFEDA60000;
    x ^= (x << 37) & 0xFFF7EEE000000000;
    return x ^ (x >> 43);
}

constexpr double reciprocal_of_residue_modulus = 1 / 2147483647.0;

template <class Real> struct UniformKernels {
    // n > 0 deviates scale * x from the residues x that follow `seed`, which is below the modulus; gives the
    // last residue. With `residues`, the residues are stored, too.
    std::uint32_t (*congruential)(std::uint32_t seed, const CongruentialPowers &powers, double scale, Real *r,
                                  std::uint32_t *residues, std::size_t n);
    // n deviates scale * (v | 1) from table words v = t[i], t[i + 1], ..., each then replaced by v ^ t[j], ...
    void (*gfsr)(std::int32_t *ti, const std::int32_t *tj, Real scale, Real *r, std::size_t n);
    // A deviate from each of n words of a twister's state.
    void (*from_words_32)(const std::uint32_t *words, Real *r, std::size_t n);
    void (*from_words_64)(const std::uint64_t *words, Real *r, std::size_t n);
    // Makes 0 to `first` and 1 to `last` in n uniforms.
    void (*leave_ends)(Real *u, std::size_t n, Real first, Real last);
    // factor * r + shift, each operation rounded.
    void (*scale_and_shift)(Real *r, std::size_t n, Real factor, Real shift);
};

struct GeneratorKernels {
    UniformKernels<float> f;
    UniformKernels<double> d;

    template <class Real> const UniformKernels<Real> &uniform() const
    {
        if constexpr (std::is_same_v<Real, float>) return f;
        else return d;
    }

    // The next state of a twister.
    void (*twist_32)(std::uint32_t *state);
    void (*twist_64)(std::uint64_t *state);
};

extern const GeneratorKernels baseline_generator_kernels, avx2_generator_kernels;

// The fastest that this processor runs.
const GeneratorKernels &generator_kernels();

} // namespace tavik::random
