// The generator kernels for processors with AVX2.
#include "uniform_kernel.hpp"

const tavik::random::GeneratorKernels tavik::random::avx2_generator_kernels = kernels_of_this_level;
