// The moment kernels for every 64-bit x86.
#include "moments_kernel.hpp"

const tavik::descriptive::MomentKernels tavik::descriptive::baseline_moment_kernels = kernels_of_this_level;
