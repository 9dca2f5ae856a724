// The distance kernels for processors with AVX2 and FMA.
#include "slack_kernel.hpp"

const tavik::multivariate::DistanceKernels tavik::multivariate::avx2_distance_kernels = kernels_of_this_level;
