// The logarithm with the same bits on every processor, written once for scalars (a vector of equal lanes) and
// for kernels. x = 2^k (1 + g) with 1 + g from sqrt(1/2) to sqrt(2), s = g / (2 + g):
//     log(1 + g) = 2 s + s^3 L(s^2) = g - g^2 / 2 + s (g^2 / 2 + s^2 L(s^2)).
// Minimax coefficients of L: tools/fit_normal_quantile.py.
#pragma once

#include "numerical/lanes.hpp"

namespace tavik::numerical {
namespace {

// error 2^-50.97
constexpr Coefficients log_series({0x1.5555555555558p-1, 0x1.99999999952aap-2, 0x1.2492492df6d88p-2,
                                   0x1.c71c62df15242p-3, 0x1.7462b655a8132p-3, 0x1.39fe2d8b2aad7p-3,
                                   0x1.2b5a8f60d3e5dp-3});
// error 2^-29.14
constexpr Coefficients short_log_series({0x1.5555554ba9efep-1, 0x1.9999eb88020f6p-2, 0x1.245c34308b19cp-2,
                                         0x1.ddd195301d611p-3});

// The high part has 11 trailing zeros: its product with an exponent is exact.
constexpr double log_2 = 0x1.62e42fefa39efp-1, log_2_high = 0x1.62e42fefa3800p-1,
                 log_2_low = 0x1.ef35793c76730p-45;

// Of a positive normal number; of any other, some finite k and g.
struct Fraction {
    explicit Fraction(V x)
    {
        constexpr unsigned long long one = 0x3ff0000000000000, root_of_half = 0x3fe6a09e667f3bcd,
                                     significand = 0x000fffffffffffff, two_to_52 = 0x4330000000000000;
        const VBits shifted = bits_of(x) + (one - root_of_half);
        minus_k = (0x1p52 + 1023) - from_bits((shifted >> 52) | two_to_52);
        g = from_bits((shifted & significand) + root_of_half) - 1;
        s = g / (2 + g);
        square = s * s;
    }

    V minus_k, g, s, square;
};

// log(1 + g) to about 2^-53, and to 2^-38, which is enough for a result in float.
inline V log_of_fraction(const Fraction &f)
{
    return (f.s + f.s) + f.s * (f.square * polynomial(log_series, Powers(f.square)));
}

inline V short_log_of_fraction(const Fraction &f)
{
    return (f.s + f.s) + f.s * (f.square * polynomial(short_log_series, Powers(f.square)));
}

// high + low, good to about 2^-58 of it; low is below a twelfth of high.
struct TwoPartLog {
    V high, low;
};

// The logarithm of 2^shift x, x normal and positive.
inline TwoPartLog two_part_log(V x, double shift)
{
    const Fraction f(x);
    const V k = shift - f.minus_k;
    const V series = f.square * polynomial(log_series, Powers(f.square));
    const V head = leading_half(f.g), half_square = 0.5 * head * head,
            rest = 0.5 * (f.g - head) * (f.g + head);
    const V sum = f.g - half_square, sum_low = (f.g - sum) - half_square;
    const V whole = k * log_2_high, high = whole + sum, high_low = sum - (high - whole);
    return {high, (f.s * ((half_square + rest) + series) - rest) + (sum_low + (high_low + k * log_2_low))};
}

} // namespace
} // namespace tavik::numerical
