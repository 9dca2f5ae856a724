#include "probability/normal_quantile.hpp"

#include "frame/processor.hpp"
#include "probability/normal_quantile_kernel.hpp"

namespace tavik::probability {
namespace {

const NormalQuantileKernels &kernels_of_this_processor()
{
    static const NormalQuantileKernels &chosen =
        processor_has_avx2() ? avx2_normal_quantile_kernels : baseline_normal_quantile_kernels;
    return chosen;
}

} // namespace

template <class Real> Real normal_quantile(Real p) noexcept
{
    return quantile<Real>(p);
}

template float normal_quantile(float) noexcept;
template double normal_quantile(double) noexcept;

template <> void normal_quantiles(const float *p, float *z, std::size_t n) noexcept
{
    kernels_of_this_processor().f(p, z, n);
}

template <> void normal_quantiles(const double *p, double *z, std::size_t n) noexcept
{
    kernels_of_this_processor().d(p, z, n);
}

} // namespace tavik::probability
