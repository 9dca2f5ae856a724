// Quantile of the chi-squared distribution with any positive, also fractional or infinite, degrees of
// freedom. NaN for p outside [0, 1] or degrees of freedom not above 0; never throws, never raises a library
// error.
#pragma once

namespace tavik::probability {

template <class Real> Real chi_squared_quantile(Real p, Real degrees_of_freedom) noexcept;

// The same from the upper tail: the value that is exceeded with probability q. A tail keeps digits that 1 - q
// has not.
template <class Real> Real chi_squared_upper_quantile(Real q, Real degrees_of_freedom) noexcept;

} // namespace tavik::probability
