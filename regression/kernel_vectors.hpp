// Vectors as the kernels of regression use them. Everything here has internal linkage, since it is compiled for each
// instruction level.
#pragma once

#include "rotations.hpp"

namespace tavik::regression {
namespace {

using V = double __attribute__((vector_size(side_by_side * sizeof(double))));
using VMask = decltype(V{} < V{});
using F4 = float __attribute__((vector_size(side_by_side * sizeof(float))));

// What rotations are set up with: V for four factors at a time, and for one S, of which only the first lane counts.
// So both are selected by masks, without branches.
using S = double __attribute__((vector_size(2 * sizeof(double))));
using SMask = decltype(S{} < S{});

template <class T> constexpr std::size_t factors_in = sizeof(T) == sizeof(V) ? side_by_side : 1;

template <class T> inline T load_as(const double *from)
{
    T v = {};
    __builtin_memcpy(&v, from, factors_in<T> * sizeof *from);
    return v;
}

template <class T> inline void store(double *to, T v)
{
    __builtin_memcpy(to, &v, factors_in<T> * sizeof *to);
}

inline V load(const double *from)
{
    return load_as<V>(from);
}

inline V load(const float *from)
{
    F4 v;
    __builtin_memcpy(&v, from, sizeof v);
    return __builtin_convertvector(v, V);
}

inline V broadcast(double value)
{
    return V{value, value, value, value};
}

// Bit k is set when lane k is true.
inline unsigned true_lanes(VMask mask)
{
    return static_cast<unsigned>((mask[0] & 1) | (mask[1] & 2) | (mask[2] & 4) | (mask[3] & 8));
}

inline bool any(VMask mask)
{
#ifdef __AVX2__
    return __builtin_ia32_movmskpd256(__builtin_bit_cast(V, mask)) != 0;
#else
    return (mask[0] | mask[1] | mask[2] | mask[3]) != 0;
#endif
}

inline unsigned true_lanes(SMask mask)
{
    return static_cast<unsigned>(mask[0] & 1);
}

inline bool any(SMask mask)
{
    return mask[0] != 0;
}

// Four rows' vectors become four columns' vectors.
inline void transpose(V &a, V &b, V &c, V &d)
{
    const V ab_low = __builtin_shufflevector(a, b, 0, 4, 2, 6),
            ab_high = __builtin_shufflevector(a, b, 1, 5, 3, 7);
    const V cd_low = __builtin_shufflevector(c, d, 0, 4, 2, 6),
            cd_high = __builtin_shufflevector(c, d, 1, 5, 3, 7);
    a = __builtin_shufflevector(ab_low, cd_low, 0, 1, 4, 5);
    b = __builtin_shufflevector(ab_high, cd_high, 0, 1, 4, 5);
    c = __builtin_shufflevector(ab_low, cd_low, 2, 3, 6, 7);
    d = __builtin_shufflevector(ab_high, cd_high, 2, 3, 6, 7);
}

} // namespace
} // namespace tavik::regression
