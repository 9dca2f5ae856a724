#include "distances.hpp"

#include "frame/processor.hpp"

const tavik::multivariate::DistanceKernels &tavik::multivariate::distance_kernels()
{
    static const DistanceKernels &chosen =
        processor_has_avx2() ? avx2_distance_kernels : baseline_distance_kernels;
    return chosen;
}
