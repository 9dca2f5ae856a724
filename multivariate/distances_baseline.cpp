// The distance kernels for every processor.
#include "slack_kernel.hpp"

const tavik::multivariate::DistanceKernels tavik::multivariate::baseline_distance_kernels =
    kernels_of_this_level;
