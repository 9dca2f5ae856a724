// The kernels of the normal quantile for every 64-bit x86.
#include "probability/normal_quantile_kernel.hpp"

const tavik::probability::NormalQuantileKernels tavik::probability::baseline_normal_quantile_kernels =
    kernels_of_this_level;
