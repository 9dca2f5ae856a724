// The moment kernels for processors with AVX2 and FMA.
#include "moments_kernel.hpp"

const tavik::descriptive::MomentKernels tavik::descriptive::avx2_moment_kernels = kernels_of_this_level;
