// Median and median absolute deviation of an array, which is reordered.
#pragma once

#include "frame/precision.hpp"

#include <algorithm>
#include <cstdint>
#include <numeric>

namespace tavik::descriptive {

// The mean of the two middle values when n is even; NaN when there is no value. None of the values may be
// NaN.
template <class Real> Real median(Real *x, std::int64_t n)
{
    if (n == 0) return not_a_number<Real>;
    Real *middle = x + n / 2;
    std::nth_element(x, middle, x + n);
    if (n % 2 != 0) return *middle;
    return std::midpoint(*std::max_element(x, middle), *middle); // rounds once and cannot overflow
}

// Median of |x - center|.
template <class Real> Real median_deviation(Real *x, std::int64_t n, Real center)
{
    if (std::isnan(center)) return not_a_number<Real>;
    // An infinite value lies at distance 0 from an infinite center.
    std::transform(x, x + n, x, [=](Real v) { return v == center ? Real{0} : std::fabs(v - center); });
    return median(x, n);
}

} // namespace tavik::descriptive
