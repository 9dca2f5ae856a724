// The generator kernels that every 64-bit x86 processor runs.
#include "uniform_kernel.hpp"

const tavik::random::GeneratorKernels tavik::random::baseline_generator_kernels = kernels_of_this_level;
