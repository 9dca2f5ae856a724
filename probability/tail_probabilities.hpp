// Tail probabilities of test statistics. NaN for NaN and for degrees of freedom not above 0, which may be
// infinite; never throws, never raises a library error.
#pragma once

namespace tavik::probability {

// P(|T| > |t|) of Student's t distribution.
double student_t_two_sided(double t, double degrees_of_freedom) noexcept;

// P(F > f) of the F distribution. NaN for f = 1 when all degrees of freedom are infinite.
double f_upper_tail(double f, double numerator_df, double denominator_df) noexcept;

} // namespace tavik::probability
