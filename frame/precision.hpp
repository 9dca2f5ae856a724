// The constants in which the float and the double variant of a routine differ.
#pragma once

#include <cmath>
#include <limits>

namespace tavik {

template <class Real> constexpr Real smallest_normal = std::numeric_limits<Real>::min();
template <class Real> constexpr Real largest_number = std::numeric_limits<Real>::max();
template <class Real> constexpr Real epsilon = std::numeric_limits<Real>::epsilon();
template <class Real> constexpr Real not_a_number = std::numeric_limits<Real>::quiet_NaN();
template <>
inline constexpr float not_a_number<float> = __builtin_nanf("0x3fffff"); // all bits of the mantissa set
template <class Real> constexpr Real infinity = std::numeric_limits<Real>::infinity();

} // namespace tavik
