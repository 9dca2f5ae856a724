// Quantile of Student's t distribution with any positive, also fractional or infinite, degrees of freedom.
// NaN for p outside [0, 1] or degrees of freedom not above 0; never throws, never raises a library error.
#pragma once

namespace tavik::probability {

template <class Real> Real student_t_quantile(Real p, Real degrees_of_freedom) noexcept;

} // namespace tavik::probability
