// The scalar logarithm and exponential. The logarithm is that of log_kernel.hpp. For the exponential,
// x = k log 2 + r, |r| <= log(2) / 2, and exp(r) = 1 + r + r^2 X(r), with 1 + r carried as the sum of two
// doubles. Minimax coefficients: tools/fit_normal_quantile.py. Largest errors found against long double, in
// units in the last place: 0.72 of the logarithm, 0.81 of the exponential.
#include "numerical/reproducible.hpp"

#include "numerical/log_kernel.hpp"

namespace tavik::numerical {
namespace {

// error 2^-57.92
constexpr Coefficients exp_series({0x1.000000000000ap-1, 0x1.55555555554f9p-3, 0x1.555555555088cp-5,
                                   0x1.1111111127d57p-7, 0x1.6c16c184287fbp-10, 0x1.a01a012a03f69p-13,
                                   0x1.a0199a0e2e5e3p-16, 0x1.71df25c7fc638p-19, 0x1.28ad727cc7628p-22,
                                   0x1.ad7f0a5db176ep-26});

// Beyond these the result is infinite or rounds to 0.
constexpr double largest_exponent = 710, least_exponent = -746;

} // namespace

double reproducible_log(double x) noexcept
{
    if (!(x > 0)) return x == 0 ? -infinite : undefined;
    if (x == infinite) return x;
    const bool subnormal = x < 0x1p-1022;
    const TwoPartLog log = two_part_log(broadcast(subnormal ? x * 0x1p54 : x), subnormal ? -54 : 0);
    return (log.high + log.low)[0];
}

double reproducible_exp(double x) noexcept
{
    if (x > largest_exponent) return infinite;
    if (!(x >= least_exponent)) return x < 0 ? 0 : undefined;
    constexpr double rounder = 0x1.8p52; // adding it leaves an integer in the last bits
    const double k = (x * (1 / log_2) + rounder) - rounder;
    const double head = x - k * log_2_high, tail = k * log_2_low;
    const double r = head - tail, r_low = (head - r) - tail;
    const double sum = 1 + r, sum_low = r - (sum - 1);
    const double series = polynomial(exp_series, Powers(broadcast(r)))[0];
    const double result = sum + (sum_low + (r_low * sum + r * r * series));
    // In two steps, as 2^k need not be a number; only the second one can round.
    const int exponent = static_cast<int>(k), half = exponent / 2;
    const auto power_of_2 = [](int n) {
        return __builtin_bit_cast(double, static_cast<unsigned long long>(1023 + n) << 52);
    };
    return result * power_of_2(half) * power_of_2(exponent - half);
}

} // namespace tavik::numerical
