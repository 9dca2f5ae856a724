// Logarithm and exponential for streams of random variates, which must have the same bits on every processor
// and with every C library. Those of C libraries differ in their last bits, also with the processor that they
// find; these use the basic operations of IEEE 754 only, rounding to nearest, and never fused. Accuracy and
// method: the .cpp file.
#pragma once

namespace tavik::numerical {

// -infinity at 0, NaN below.
double reproducible_log(double x) noexcept;

// Infinity or 0 beyond the range; a subnormal result keeps the digits it can hold.
double reproducible_exp(double x) noexcept;

} // namespace tavik::numerical
