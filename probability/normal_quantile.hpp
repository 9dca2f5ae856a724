// Quantile of the standard normal distribution in float and double, one at a time or many, with the same bits
// either way, on every processor and wherever in an array: random variates are made by it. -infinity at 0,
// infinity at 1, NaN outside [0, 1]; exactly symmetric where 1 - p is exact. Accuracy and method:
// normal_quantile_kernel.hpp.
#pragma once

#include <cstddef>

namespace tavik::probability {

template <class Real> Real normal_quantile(Real p) noexcept;

// z[i] is the quantile of p[i]; z may be p.
template <class Real> void normal_quantiles(const Real *p, Real *z, std::size_t n) noexcept;

// The kernels of one instruction level.
struct NormalQuantileKernels {
    void (*f)(const float *p, float *z, std::size_t n) noexcept;
    void (*d)(const double *p, double *z, std::size_t n) noexcept;
};

extern const NormalQuantileKernels baseline_normal_quantile_kernels, avx2_normal_quantile_kernels;

} // namespace tavik::probability
