// The rotation kernels for processors with AVX2 and FMA.
#include "rotation_kernel.hpp"

const tavik::regression::RotationKernels tavik::regression::avx2_rotation_kernels = kernels_of_this_level;
