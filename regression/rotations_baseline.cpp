// The rotation kernels for every 64-bit x86.
#include "rotation_kernel.hpp"

const tavik::regression::RotationKernels tavik::regression::baseline_rotation_kernels = kernels_of_this_level;
