// Multiplicative congruential generators x <- a x mod m with m = 2^31 - 1: multipliers and jumps.
//
// Multipliers: 16807 from Lewis, Goodman and Miller (1969); 397204094 and 950706376 from Fishman and Moore
// (1986). The recursion is exact, so states may be taken in any order: lanes start at a, a^2, a^3, ... times
// the seed and step together by the power of their number.
#pragma once

#include <cstdint>

namespace tavik::random {

constexpr std::uint32_t residue_modulus = 2147483647;

// a x mod m for factors below m: the product's bits above and below bit 31 add up to less than 2 m.
constexpr std::uint32_t times_modulo(std::uint64_t a, std::uint64_t x)
{
    const std::uint64_t product = a * x, sum = (product & residue_modulus) + (product >> 31);
    return static_cast<std::uint32_t>(sum >= residue_modulus ? sum - residue_modulus : sum);
}

// The seed that generator 7 leaves can be the modulus itself, from which nothing but zeros follows.
constexpr std::uint32_t residue_of_seed(std::int32_t seed)
{
    const auto x = static_cast<std::uint32_t>(seed);
    return x < residue_modulus ? x : x % residue_modulus;
}

constexpr int most_lanes = 32;

struct CongruentialPowers {
    // a^1 to a^32, each as wide as the product that it goes into.
    alignas(64) std::uint64_t power[most_lanes];
};

constexpr CongruentialPowers powers_of(std::uint32_t multiplier)
{
    CongruentialPowers powers{};
    std::uint32_t x = 1;
    for (std::uint64_t &power : powers.power) power = x = times_modulo(multiplier, x);
    return powers;
}

inline constexpr CongruentialPowers congruential_powers[3] = {powers_of(16807), powers_of(397204094),
                                                              powers_of(950706376)};

} // namespace tavik::random
