// The normal quantile of whole arrays, written once for each instruction level; built on numerical/lanes.hpp,
// whose rules make the bits the same for all of them. With m = min(p, 1 - p), exact on either side:
//     centre, |q| <= 7/16:  z = q F(w), q = p - 1/2, w = p (1 - p) (for float, |q| <= 235/512)
//     tail, m >= 2^-14:     |z| = R(L), L = -log(m)
//     far tail:             |z| = t - S(t), t = sqrt(2 L)
// F, R and S are minimax rational functions. For double, a straight line is first taken off them, and added
// back without rounding, so that the fraction is a small part of the result. Float is computed in double and
// rounded once. Largest errors found, in units in the last place: 1.72 of double, 0.516 of float.
// An array goes in blocks, and a block in short loops, whose chains of operations overlap better than those
// of a long one: the fractions of the centre (for double), the centre, the arguments of the tails, the tails.
#pragma once

#include "numerical/log_kernel.hpp"
#include "probability/normal_quantile.hpp"
#include "probability/normal_quantile_coefficients.hpp"

namespace tavik::probability {
namespace {

using namespace numerical;

template <class Real> constexpr bool is_float = sizeof(Real) == sizeof(float);

inline V smaller_tail(V p)
{
    const V upper = 1 - p;
    return p < upper ? p : upper;
}

template <class Real> inline VMask in_centre(V p)
{
    return absolute(p - 0.5) <= (is_float<Real> ? float_centre_half_width : centre_half_width);
}

template <class Real> inline V centre_fraction(V p)
{
    const V w = p * (1 - p);
    if constexpr (is_float<Real>) return ratio(float_centre_p, float_centre_q, w);
    else return ratio(centre_p, centre_q, w);
}

template <class Real> inline V centre_quantile(V p, V fraction)
{
    const V q = p - 0.5;
    if constexpr (is_float<Real>) {
        return q * fraction;
    } else {
        const V head = leading_half(q), rest = p - (head + 0.5); // together p - 1/2 without the rounding of q
        return centre_slope * head + (centre_slope * rest + q * fraction);
    }
}

// What the tail takes from m: L and, for double, line = tail_offset + tail_slope (L - rest), which is exact.
struct TailArgument {
    V log, line, rest;
};

template <class Real> inline TailArgument tail_argument(V m)
{
    const Fraction f(m);
    if constexpr (is_float<Real>) {
        return {f.minus_k * log_2 - short_log_of_fraction(f), V{}, V{}};
    } else {
        const V rest = f.minus_k * log_2_low - log_of_fraction(f);
        return {f.minus_k * log_2_high + rest, tail_offset + f.minus_k * (tail_slope * log_2_high), rest};
    }
}

template <class Real> inline V tail_quantile(V p, const TailArgument &a)
{
    V z;
    if constexpr (is_float<Real>) z = ratio(float_tail_p, float_tail_q, a.log);
    else z = a.line + (tail_slope * a.rest + ratio(tail_p, tail_q, a.log));
    return p < 0.5 ? -z : z;
}

// Everything outside of centre and tail, whatever it is. The lanes are all alike.
inline double far_quantile(double p)
{
    const double m = p < 0.5 ? p : 1 - p;
    if (!(m > 0)) return m < 0 || p != p ? undefined : p < 0.5 ? -infinite : infinite;
    const bool subnormal = m < 0x1p-1022;
    const TwoPartLog log = two_part_log(broadcast(subnormal ? m * 0x1p54 : m), subnormal ? -54 : 0);
    const V y = -2 * (log.high + log.low), y_low = -2 * (log.high + 0.5 * y + log.low);
    const V t = square_root(y), head = leading_half(t), rest = ((y - head * head) + y_low) / (t + head);
    const V series =
        m < farther_from ? ratio(farther_tail_p, farther_tail_q, t) : ratio(far_tail_p, far_tail_q, t);
    const V z = (head - far_shift) + (rest - series);
    return p < 0.5 ? -z[0] : z[0];
}

template <class Real> inline Real quantile(Real p)
{
    const V v = broadcast(p), m = smaller_tail(v);
    if (in_centre<Real>(v)[0] != 0)
        return static_cast<Real>(centre_quantile<Real>(v, centre_fraction<Real>(v))[0]);
    if (m[0] >= far_from) return static_cast<Real>(tail_quantile<Real>(v, tail_argument<Real>(m))[0]);
    return static_cast<Real>(far_quantile(p));
}

// The lanes whose bits are set, packed to the front: two bytes each.
constexpr unsigned long long packed_lanes[16] = {
    0, 0,       1,       0x10000,     2,       0x20000,     0x20001,     0x200010000,
    3, 0x30000, 0x30001, 0x300010000, 0x30002, 0x300020000, 0x300020001, 0x3000200010000};
constexpr unsigned char lane_count[16] = {0, 1, 1, 2, 1, 2, 2, 3, 1, 2, 2, 3, 2, 3, 3, 4};

constexpr std::size_t block_size = 512;
constexpr std::size_t step = 2 * lanes; // two vectors at a time keep the units busier than one

// Where in a block what lies outside of the centre is; room for one more whole group.
using Places = unsigned short[block_size + sizeof(unsigned long long)];

// Appends those of the vector at `place`; gives the new number.
inline std::size_t append(Places &places, std::size_t n, VMask central, std::size_t place)
{
    const unsigned outside = true_lanes(central) ^ ((1u << lanes) - 1);
    const unsigned long long found = packed_lanes[outside] + place * 0x0001000100010001ull;
    __builtin_memcpy(places + n, &found, sizeof found);
    return n + lane_count[outside];
}

template <class Real> inline void tails_of_block(Real *z, Places &places, std::size_t n)
{
    // The last group is filled up with its last place, which is then read, and written, more than once.
    for (std::size_t k = 0; k < lanes; ++k) places[n + k] = places[n - 1];

    alignas(V) double p[block_size], log[block_size], line[block_size], rest[block_size];
    VMask near = ~VMask{};
    for (std::size_t k = 0; k < n; k += lanes) {
        const V v = gather(z, places + k), m = smaller_tail(v);
        store(p + k, v);
        near &= m >= far_from;
        const TailArgument a = tail_argument<Real>(m);
        store(log + k, a.log);
        if constexpr (!is_float<Real>) {
            store(line + k, a.line);
            store(rest + k, a.rest);
        }
    }
    for (std::size_t k = 0; k < n; k += lanes) {
        TailArgument a{load(log + k), V{}, V{}};
        if constexpr (!is_float<Real>) a = {a.log, load(line + k), load(rest + k)};
        Real group[lanes];
        store(group, tail_quantile<Real>(load(p + k), a));
        for (std::size_t j = 0; j < lanes; ++j) z[places[k + j]] = group[j];
    }
    if (true_lanes(near) == (1u << lanes) - 1) return;
    for (std::size_t k = 0; k < n; ++k)
        if (!(p[k] >= far_from && 1 - p[k] >= far_from)) z[places[k]] = static_cast<Real>(far_quantile(p[k]));
}

// n is a multiple of step.
template <class Real> inline void block_of_quantiles(const Real *p, Real *z, std::size_t n)
{
    alignas(V) double fraction[block_size];
    if constexpr (!is_float<Real>) {
        for (std::size_t i = 0; i < n; i += step) {
            const V first = centre_fraction<Real>(load(p + i)),
                    second = centre_fraction<Real>(load(p + i + lanes));
            store(fraction + i, first);
            store(fraction + i + lanes, second);
        }
    }
    Places tails;
    std::size_t n_tails = 0;
    for (std::size_t i = 0; i < n; i += step) {
        const V p0 = load(p + i), p1 = load(p + i + lanes);
        const VMask central0 = in_centre<Real>(p0), central1 = in_centre<Real>(p1);
        V z0, z1;
        if constexpr (is_float<Real>) {
            z0 = centre_quantile<Real>(p0, centre_fraction<Real>(p0));
            z1 = centre_quantile<Real>(p1, centre_fraction<Real>(p1));
        } else {
            z0 = centre_quantile<Real>(p0, load(fraction + i));
            z1 = centre_quantile<Real>(p1, load(fraction + i + lanes));
        }
        store(z + i, central0 ? z0 : p0); // a p of the tails waits in z
        store(z + i + lanes, central1 ? z1 : p1);
        n_tails = append(tails, n_tails, central0, i);
        n_tails = append(tails, n_tails, central1, i + lanes);
    }
    if (n_tails > 0) tails_of_block(z, tails, n_tails);
}

template <class Real> void array_of_quantiles(const Real *p, Real *z, std::size_t n) noexcept
{
    const std::size_t whole = n - n % step;
    for (std::size_t i = 0; i < whole; i += block_size)
        block_of_quantiles(p + i, z + i, whole - i < block_size ? whole - i : block_size);
    if (whole == n) return;
    Real end[step];
    for (std::size_t k = 0; k < step; ++k) end[k] = whole + k < n ? p[whole + k] : Real(0.5);
    block_of_quantiles(end, end, step);
    for (std::size_t i = whole; i < n; ++i) z[i] = end[i - whole];
}

constexpr NormalQuantileKernels kernels_of_this_level = {array_of_quantiles<float>,
                                                         array_of_quantiles<double>};

} // namespace
} // namespace tavik::probability
