// Vectors of four doubles on every instruction level, and what they are loaded, stored and looked at with. For kernels
// whose sums are cut into lanes, so that results would change with the number of lanes. Everything has internal
// linkage, so that no level's code can stand in for another's at link time.
#pragma once

#include <cstddef>

namespace tavik::four_lanes {
namespace {

using V = double __attribute__((vector_size(4 * sizeof(double))));
using VMask = decltype(V{} < V{});
using F4 = float __attribute__((vector_size(4 * sizeof(float))));

inline V load(const double *from)
{
    V v;
    __builtin_memcpy(&v, from, sizeof v);
    return v;
}

inline V load(const float *from)
{
    F4 v;
    __builtin_memcpy(&v, from, sizeof v);
    return __builtin_convertvector(v, V);
}

inline void store(double *to, V v)
{
    __builtin_memcpy(to, &v, sizeof v);
}

inline V broadcast(double value)
{
    return V{value, value, value, value};
}

// Bit k is set when lane k is true.
inline unsigned true_lanes(VMask mask)
{
#ifdef __AVX2__
    return static_cast<unsigned>(__builtin_ia32_movmskpd256(__builtin_bit_cast(V, mask)));
#else
    return static_cast<unsigned>((mask[0] & 1) | (mask[1] & 2) | (mask[2] & 4) | (mask[3] & 8));
#endif
}

inline bool any(VMask mask)
{
    return true_lanes(mask) != 0;
}

} // namespace
} // namespace tavik::four_lanes
