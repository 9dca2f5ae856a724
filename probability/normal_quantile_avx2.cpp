// The kernels of the normal quantile for processors with AVX2.
#include "probability/normal_quantile_kernel.hpp"

const tavik::probability::NormalQuantileKernels tavik::probability::avx2_normal_quantile_kernels =
    kernels_of_this_level;
