#include "rotations.hpp"

#include "frame/processor.hpp"

const tavik::regression::RotationKernels &tavik::regression::rotation_kernels()
{
    static const RotationKernels &chosen =
        processor_has_avx2() ? avx2_rotation_kernels : baseline_rotation_kernels;
    return chosen;
}
