// What the inversions of the incomplete beta and gamma functions share; included by their .cpp files only.
// Everything is evaluated in the 64-bit significand of long double, whose eleven extra bits carry the
// conditioning of the tails (a relative error in p grows by 1/a where the distribution falls like x^a).
#pragma once

#include <boost/math/policies/policy.hpp>
#include <boost/math/special_functions/gamma.hpp>
#include <cmath>
#include <cstddef>
#include <limits>

namespace tavik::probability {

using Wide = long double;
static_assert(std::numeric_limits<Wide>::digits >= 64, "accuracy below is stated for this significand");

// Every error of Boost.Math gives a value and never throws: the quantiles are noexcept.
namespace quiet {
using namespace boost::math::policies;
using Policy =
    policy<domain_error<ignore_error>, pole_error<ignore_error>, overflow_error<ignore_error>,
           underflow_error<ignore_error>, denorm_error<ignore_error>, rounding_error<ignore_error>,
           evaluation_error<ignore_error>, indeterminate_result_error<ignore_error>, promote_double<false>>;
} // namespace quiet
using QuietPolicy = quiet::Policy;

// From here on a distribution counts as nearly normal: the inversion series in powers of 1/a, cut where the
// .cpp files cut them, are then exact to the last bits of Wide down to p = 2^-1074.
constexpr Wide many_degrees_of_freedom = 1e5L;

// From here on the same series start the solver; below, Boost.Math's inverses in double do, which lose their
// digits and much time when p is subnormal.
constexpr Wide some_degrees_of_freedom = 500;

// Below this argument the power series about 0 are short, and log F is nearly a straight line in log x.
constexpr Wide small_argument = 0.1L;

// log Gamma(1 + a), relatively accurate for a -> 0 too.
inline Wide log_gamma_1p(Wide a)
{
    return a < 1 ? std::log1p(boost::math::tgamma1pm1(a, QuietPolicy()))
                 : boost::math::lgamma(1 + a, QuietPolicy());
}

// base^(1/degree) with the rounding of the reciprocal made good: for a small degree it would be magnified.
inline Wide root(Wide base, Wide degree)
{
    const Wide reciprocal = 1 / degree;
    const Wide power = std::pow(base, reciprocal);
    const Wide rest = std::fma(-reciprocal, degree, Wide(1)) * reciprocal;
    return power > 0 ? power + power * (rest * std::log(base)) : power;
}

// A distribution function F about v, in logarithms on both axes.
struct LogCurve {
    Wide excess;    // log(F(v) / target)
    Wide slope;     // d log F / d log v
    Wide curvature; // d log|v F'| / d log v
};

// Solves F(v) = target by Halley's method for log F as a function of log v, from a start good to a few powers
// of e. Both tails of the distributions solved here are concave in these variables, so bounded steps of the
// right sign come home; from a start in double precision one step is exact to Wide, and the last one is below
// 2^-36.
template <class Curve> Wide solve(Wide v, Curve curve_at)
{
    for (int step = 0; step < 60; ++step) {
        const LogCurve c = curve_at(v);
        const Wide newton = -c.excess / c.slope;
        const Wide halley = newton / std::fmax(0.5L, 1 + newton * (c.curvature - c.slope) / 2);
        const Wide change = std::fmin(std::fmax(halley, -1.0L), 1.0L);
        v += v * std::expm1(change);
        if (std::fabs(change) < 0x1p-36L) break;
    }
    return v;
}

inline Wide log_ratio(Wide value, Wide target)
{
    return std::log1p((value - target) / target);
}

template <std::size_t N> Wide polynomial(const Wide (&coefficients)[N], Wide x)
{
    Wide sum = 0;
    for (std::size_t k = N; k-- > 0;) sum = sum * x + coefficients[k];
    return sum;
}

} // namespace tavik::probability
