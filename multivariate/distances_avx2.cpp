// The distance kernels for processors with AVX2 and FMA.
#include "distance_kernel.hpp"

const tavik::multivariate::DistanceKernels tavik::multivariate::avx2_distance_kernels = kernels_of_this_level;
