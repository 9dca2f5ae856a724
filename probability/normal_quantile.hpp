// Quantile of the standard normal distribution, for float, double and long double.
// NaN for p outside [0, 1]; never throws, never raises a library error. Accuracy and method: the .cpp file.
#pragma once

namespace tavik::probability {

template <class Real> Real normal_quantile(Real p) noexcept;

} // namespace tavik::probability
