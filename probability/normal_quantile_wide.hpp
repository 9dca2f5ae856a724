// Quantile of the standard normal distribution in long double, for the quantiles that start from it.
// NaN for p outside [0, 1]; never throws, never raises a library error. Accuracy and method: the .cpp file.
#pragma once

namespace tavik::probability {

long double normal_quantile_wide(long double p) noexcept;

} // namespace tavik::probability
