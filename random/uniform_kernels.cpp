#include "uniform_kernels.hpp"

#include "frame/processor.hpp"

const tavik::random::GeneratorKernels &tavik::random::generator_kernels()
{
    static const GeneratorKernels &chosen =
        processor_has_avx2() ? avx2_generator_kernels : baseline_generator_kernels;
    return chosen;
}
