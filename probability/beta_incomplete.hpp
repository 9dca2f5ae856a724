// The regularised incomplete beta function. NaN for arguments out of its domain; never throws, never raises a
// library error.
#pragma once

namespace tavik::probability {

// I_x(a, b). An infinite a or b gives the limit, NaN when both are.
double beta_incomplete(double x, double a, double b) noexcept;

// The same where 1 - x would lose digits: the caller gives both x and y = 1 - x. a and b must be finite.
long double beta_incomplete_wide(long double x, long double y, long double a, long double b) noexcept;

} // namespace tavik::probability
