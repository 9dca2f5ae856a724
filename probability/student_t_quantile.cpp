// Student t quantile. With nu degrees of freedom and a = nu/2, P(|T| > t) = I_x(a, 1/2), x = nu / (nu + t^2);
// the unknown is the odds t^2 / nu = (1 - x) / x. Three regimes: an asymptotic inversion for large nu, the
// power series for small x (which alone survives tiny nu), and between them one or two Halley steps in long
// double on the incomplete beta function of Boost.Math. Against 50-digit arithmetic, nu from 1e-18 to 1e300
// and p from 2^-1074 to 1 - 2^-53, the error before the result is rounded stays below 0.01 units in the last
// place of double, so the largest found is 0.501 there and 0.500 in float.
#include "probability/student_t_quantile.hpp"

#include "probability/normal_quantile_wide.hpp"
#include "probability/quantile_solver.hpp"

#include <algorithm>
#include <boost/math/special_functions/beta.hpp>

namespace tavik::probability {
namespace {

// nu >= many_degrees_of_freedom. With eta^2 = log(1 + t^2 / nu) the density is normal in eta times
// eta / sqrt(1 - exp(-eta^2)); eta = eta0 + sum eps_k(eta0) / nu^k with eta0 = z / sqrt(nu). After N. M.
// Temme, Asymptotic inversion of the incomplete beta function, J. Comput. Appl. Math. 41 (1992), 145-157.
Wide odds_of_nearly_normal(Wide p, Wide nu)
{
    static constexpr Wide eps1[] = {1 / 4.0L, -1 / 48.0L, 0, 1 / 5760.0L};
    static constexpr Wide eps2[] = {1 / 32.0L, -5 / 192.0L, 7 / 2560.0L};
    static constexpr Wide eps3[] = {-5 / 128.0L};
    const Wide eta0 = normal_quantile_wide(p) / std::sqrt(nu), s = eta0 * eta0;
    const Wide by_nu[] = {1, polynomial(eps1, s), polynomial(eps2, s), polynomial(eps3, s)};
    const Wide eta = eta0 * polynomial(by_nu, 1 / nu);
    return std::expm1(eta * eta);
}

// I_x(a, 1/2) = (x / leading)^a (1 + a sum_k (1/2)_k x^k / (k! (a + k))), solved for the given value of its
// left side.
Wide odds_of_far_tail(Wide a, Wide leading)
{
    const Wide x = solve(leading, [=](Wide v) {
        Wide power = 1, sum = 0, term = 1;
        for (int k = 1; term > sum * 0x1p-66L; ++k) {
            power *= v * (static_cast<Wide>(k) - 0.5L) / static_cast<Wide>(k);
            term = power / (a + static_cast<Wide>(k));
            sum += term;
        }
        return LogCurve{a * std::log(v / leading) + std::log1p(a * sum),
                        a / (std::sqrt(1 - v) * (1 + a * sum)), a + v / (2 * (1 - v))};
    });
    return (1 - x) / x;
}

// Boost.Math's inverse in double is no start about the median: for 4 and 6 degrees of freedom it is wrong by
// powers of ten there.
Wide odds_to_start(Wide p, Wide central, Wide tail, Wide a, Wide beta)
{
    if (2 * a >= some_degrees_of_freedom) return odds_of_nearly_normal(p, 2 * a);
    const Wide near_zero = std::pow(central * beta / 2, Wide(2)); // the limit for t -> 0
    if ((1 + a) * near_zero < 0x1p-24L) return near_zero;
    double x = 0;
    const double y = central < tail
                         ? boost::math::ibeta_inv(0.5, double(a), double(central), &x, QuietPolicy())
                         : boost::math::ibetac_inv(0.5, double(a), double(tail), &x, QuietPolicy());
    return y > 0 && x > 0.01 ? Wide(y) / x : 1;
}

// The side of smaller probability is solved for, which keeps the problem well conditioned; the incomplete
// beta function gets the smaller of x and 1 - x.
Wide odds_of_middle(Wide start, Wide central, Wide tail, Wide a)
{
    const bool inside = central < tail;
    return solve(start, [=](Wide v) {
        const Wide x = 1 / (1 + v), y = v / (1 + v);
        Wide value, density;
        if (y < x) {
            value = inside ? boost::math::ibeta(0.5L, a, y, QuietPolicy())
                           : boost::math::ibetac(0.5L, a, y, QuietPolicy());
            density = boost::math::ibeta_derivative(0.5L, a, y, QuietPolicy());
        } else {
            value = inside ? boost::math::ibetac(a, 0.5L, x, QuietPolicy())
                           : boost::math::ibeta(a, 0.5L, x, QuietPolicy());
            density = boost::math::ibeta_derivative(a, 0.5L, x, QuietPolicy());
        }
        const Wide slope = x * y * density / value;
        return LogCurve{log_ratio(value, inside ? central : tail), inside ? slope : -slope, x / 2 - a * y};
    });
}

Wide odds(Wide p, Wide nu)
{
    if (nu >= many_degrees_of_freedom) return odds_of_nearly_normal(p, nu);
    const Wide a = nu / 2, tail = 2 * std::min(p, 1 - p), central = 2 * std::fabs(p - 0.5L);
    // log(a B(a, 1/2)) / a, from a B(a, 1/2) = 4^a Gamma(1 + a)^2 / Gamma(1 + 2a)
    const Wide log_beta = std::log(4.0L) + (2 * log_gamma_1p(a) - log_gamma_1p(nu)) / a;
    const Wide leading = root(tail, a) * std::exp(log_beta);
    if (leading == 0) return std::numeric_limits<Wide>::infinity();
    if (leading < small_argument) return odds_of_far_tail(a, leading);
    const Wide start = odds_to_start(p, central, tail, a, std::exp(a * log_beta) / a);
    return odds_of_middle(start, central, tail, a);
}

} // namespace

template <class Real> Real student_t_quantile(Real p, Real degrees_of_freedom) noexcept
{
    const Wide nu = degrees_of_freedom;
    if (!(p >= 0 && p <= 1 && nu > 0)) return std::numeric_limits<Real>::quiet_NaN();
    if (p == 0 || p == 1 || p == Real(0.5) || std::isinf(nu))
        return static_cast<Real>(normal_quantile_wide(p));
    const Real t = static_cast<Real>(std::sqrt(nu * odds(p, nu)));
    return p < Real(0.5) ? -t : t;
}

template float student_t_quantile(float, float) noexcept;
template double student_t_quantile(double, double) noexcept;

} // namespace tavik::probability
