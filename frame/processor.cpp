#include "processor.hpp"

bool tavik::processor_has_avx2()
{
    return __builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma");
}
