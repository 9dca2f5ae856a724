// Vectors of doubles of the instruction level that a file is compiled for, and what they are loaded, selected
// and taken apart with. Kernels whose results must not depend on the processor are written with these: each
// operation is one of IEEE 754 and acts on each lane alone, so the number of lanes cannot be seen in the
// bits. Such a file is compiled with -ffp-contract=off. Everything has internal linkage, so that no level's
// code can stand in for another's at link time.
#pragma once

#include <cstddef>
#include <immintrin.h>

namespace tavik::numerical {
namespace {

#ifdef __AVX2__
constexpr std::size_t lanes = 4;
#else
constexpr std::size_t lanes = 2;
#endif

using V = double __attribute__((vector_size(lanes * sizeof(double))));
using VBits = unsigned long long __attribute__((vector_size(lanes * sizeof(double))));
using VMask = long long __attribute__((vector_size(lanes * sizeof(double))));

constexpr double infinite = __builtin_inf();
constexpr double undefined = __builtin_nan("");

inline V load(const double *x)
{
    V v;
    __builtin_memcpy(&v, x, sizeof v);
    return v;
}

inline void store(double *to, V v)
{
    __builtin_memcpy(to, &v, sizeof v);
}

#ifdef __AVX2__
constexpr V broadcast(double value)
{
    return V{value, value, value, value};
}

inline V load(const float *x)
{
    return _mm256_cvtps_pd(_mm_loadu_ps(x));
}

inline void store(float *to, V v)
{
    _mm_storeu_ps(to, _mm256_cvtpd_ps(v));
}

// x[at[k]] for each lane k
inline V gather(const double *x, const unsigned short *at)
{
    return V{x[at[0]], x[at[1]], x[at[2]], x[at[3]]};
}

inline V gather(const float *x, const unsigned short *at)
{
    return _mm256_cvtps_pd(_mm_setr_ps(x[at[0]], x[at[1]], x[at[2]], x[at[3]]));
}

inline V square_root(V x)
{
    return _mm256_sqrt_pd(x);
}

// Bit k is set when lane k is true.
inline unsigned true_lanes(VMask mask)
{
    return static_cast<unsigned>(_mm256_movemask_pd(__builtin_bit_cast(V, mask)));
}
#else
constexpr V broadcast(double value)
{
    return V{value, value};
}

inline V load(const float *x)
{
    __m128 both = _mm_setzero_ps();
    __builtin_memcpy(&both, x, lanes * sizeof *x);
    return _mm_cvtps_pd(both);
}

inline void store(float *to, V v)
{
    const __m128 both = _mm_cvtpd_ps(v);
    __builtin_memcpy(to, &both, lanes * sizeof *to);
}

inline V gather(const double *x, const unsigned short *at)
{
    return V{x[at[0]], x[at[1]]};
}

inline V gather(const float *x, const unsigned short *at)
{
    return V{x[at[0]], x[at[1]]};
}

inline V square_root(V x)
{
    return _mm_sqrt_pd(x);
}

inline unsigned true_lanes(VMask mask)
{
    return static_cast<unsigned>(_mm_movemask_pd(__builtin_bit_cast(V, mask)));
}
#endif

inline VBits bits_of(V x)
{
    return __builtin_bit_cast(VBits, x);
}

inline V from_bits(VBits bits)
{
    return __builtin_bit_cast(V, bits);
}

inline V absolute(V x)
{
    return from_bits(bits_of(x) & 0x7fffffffffffffffull);
}

// The leading 26 bits of the significand: the product of two such numbers is exact.
inline V leading_half(V x)
{
    return from_bits(bits_of(x) & 0xfffffffff8000000ull);
}

// x, x^2, x^4, x^8
struct Powers {
    explicit Powers(V x) : power{x, x * x, (x * x) * (x * x), ((x * x) * (x * x)) * ((x * x) * (x * x))}
    {
    }

    V power[4];
};

// Of a polynomial, in the order of the powers.
template <int n> struct Coefficients {
    constexpr explicit Coefficients(const double (&values)[n]) : c{}
    {
        for (int k = 0; k < n; ++k) c[k] = broadcast(values[k]);
    }

    V c[n];
};

// The sum of c[k] x^k over k < count, by Estrin's scheme, whose chain of operations is short.
template <int count> inline V polynomial(const V *c, const Powers &x)
{
    static_assert(count >= 2 && count <= 16);
    constexpr int level = count > 8 ? 3 : count > 4 ? 2 : count > 2 ? 1 : 0, low = 1 << level;
    if constexpr (count == 2) return c[0] + c[1] * x.power[0];
    else if constexpr (count == low + 1) return polynomial<low>(c, x) + c[low] * x.power[level];
    else return polynomial<low>(c, x) + polynomial<count - low>(c + low, x) * x.power[level];
}

template <int n> inline V polynomial(const Coefficients<n> &c, const Powers &x)
{
    return polynomial<n>(c.c, x);
}

template <int n, int d> inline V ratio(const Coefficients<n> &p, const Coefficients<d> &q, V x)
{
    const Powers powers(x);
    return polynomial(p, powers) / polynomial(q, powers);
}

} // namespace
} // namespace tavik::numerical
