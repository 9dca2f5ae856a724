// Vectors as the kernels of regression use them. Everything here has internal linkage, since it is compiled for each
// instruction level.
#pragma once

#include "rotations.hpp"

#include "numerical/four_lanes.hpp"

namespace tavik::regression {
namespace {

using four_lanes::any;
using four_lanes::broadcast;
using four_lanes::load;
using four_lanes::true_lanes;
using four_lanes::V;
using four_lanes::VMask;
static_assert(sizeof(V) == side_by_side * sizeof(double));

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
