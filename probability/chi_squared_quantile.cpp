// Chi-squared quantile: twice the x of P(a, x) = p, a = half the degrees of freedom. Three regimes: an
// asymptotic inversion for large a, the power series for small x (which alone survives tiny a), and between
// them one or two Halley steps in long double on the incomplete gamma function of Boost.Math. Against
// 60-digit arithmetic, degrees of freedom from 1e-18 to 1e300 and p from 2^-1074 to 1 - 2^-53, the error
// before the result is rounded stays below 0.01 units in the last place of double, so the largest found is
// 0.501 there and 0.500 in float.
#include "probability/chi_squared_quantile.hpp"

#include "probability/normal_quantile_wide.hpp"
#include "probability/quantile_solver.hpp"

namespace tavik::probability {
namespace {

// Both probabilities beside the quantile, each with all its digits.
struct Tails {
    Wide lower, upper;
};

// With eta^2 / 2 = mu - log(1 + mu), x = a (1 + mu), the density is normal in eta times eta / mu;
// eta = eta0 + sum eps_k(eta0) / a^k with eta0 = z / sqrt(a). After N. M. Temme, Asymptotic inversion of
// incomplete gamma functions, Math. Comp. 58 (1992), 755-764.
Wide x_of_nearly_normal(Tails tails, Wide a)
{
    static constexpr Wide eps1[] = {-1 / 3.0L,
                                    1 / 36.0L,
                                    1 / 1620.0L,
                                    -7 / 6480.0L,
                                    5 / 18144.0L,
                                    -11 / 382725.0L,
                                    -101 / 16329600.0L,
                                    37 / 9797760.0L,
                                    -454973 / 498845952000.0L,
                                    1231 / 15913705500.0L,
                                    2745493 / 84737299046400.0L};
    static constexpr Wide eps2[] = {-7 / 405.0L,        -7 / 2592.0L,     533 / 204120.0L,
                                    -1579 / 2099520.0L, 109 / 1749600.0L, 10217 / 251942400.0L};
    static constexpr Wide eps3[] = {449 / 102060.0L, -63149 / 20995200.0L};
    const Wide z =
        tails.lower < 0.5L ? normal_quantile_wide(tails.lower) : -normal_quantile_wide(tails.upper);
    const Wide eta0 = z / std::sqrt(a);
    const Wide by_a[] = {eta0, polynomial(eps1, eta0), polynomial(eps2, eta0), polynomial(eps3, eta0)};
    const Wide eta = polynomial(by_a, 1 / a);
    Wide mu = eta * (1 + eta / 3 * (1 + eta / 12));
    for (int newton = 0; newton < 3; ++newton)
        if (mu != 0) mu += (boost::math::log1pmx(mu, QuietPolicy()) + eta * eta / 2) * (1 + mu) / mu;
    return a * (1 + mu);
}

// P(a, x) = (x / leading)^a p (1 + a sum_k (-x)^k / (k! (a + k)))
Wide x_of_lower_tail(Wide a, Wide leading)
{
    return solve(leading, [=](Wide x) {
        Wide power = 1, sum = 0, term = 1;
        for (int k = 1; std::fabs(term) > std::fabs(sum) * 0x1p-66L; ++k) {
            power *= -x / static_cast<Wide>(k);
            term = power / (a + static_cast<Wide>(k));
            sum += term;
        }
        return LogCurve{a * std::log(x / leading) + std::log1p(a * sum), a * std::exp(-x) / (1 + a * sum),
                        a - x};
    });
}

// The side of smaller probability is solved for, which keeps the problem well conditioned. The start is held
// between certain bounds: the leading term below; above, a (which exceeds the median) or lemma 1 of B.
// Laurent and P. Massart, Adaptive estimation of a quadratic functional by model selection, Ann. Statist. 28
// (2000).
Wide x_of_middle(Tails tails, Wide a, Wide leading)
{
    const bool lower = tails.lower < 0.5L;
    const Wide target = lower ? tails.lower : tails.upper, exponent = -std::log(target);
    const Wide most = lower ? a : a + std::sqrt(2 * a * exponent) + exponent;
    const Wide start = 2 * a >= some_degrees_of_freedom ? x_of_nearly_normal(tails, a)
                       : lower ? boost::math::gamma_p_inv(double(a), double(target), QuietPolicy())
                               : boost::math::gamma_q_inv(double(a), double(target), QuietPolicy());
    return solve(std::fmin(std::fmax(start, leading), most), [=](Wide x) {
        const Wide value =
            lower ? boost::math::gamma_p(a, x, QuietPolicy()) : boost::math::gamma_q(a, x, QuietPolicy());
        const Wide slope = x * boost::math::gamma_p_derivative(a, x, QuietPolicy()) / value;
        return LogCurve{log_ratio(value, target), lower ? slope : -slope, a - x};
    });
}

Wide gamma_quantile(Tails tails, Wide a)
{
    if (2 * a >= many_degrees_of_freedom) return x_of_nearly_normal(tails, a);
    const Wide leading = root(tails.lower, a) * std::exp(log_gamma_1p(a) / a);
    if (leading == 0) return 0;
    return leading < small_argument ? x_of_lower_tail(a, leading) : x_of_middle(tails, a, leading);
}

} // namespace

template <class Real> Real chi_squared_quantile(Real p, Real degrees_of_freedom) noexcept
{
    const Wide nu = degrees_of_freedom;
    if (!(p >= 0 && p <= 1 && nu > 0)) return std::numeric_limits<Real>::quiet_NaN();
    if (p == 0) return 0;
    if (p == 1 || std::isinf(nu)) return std::numeric_limits<Real>::infinity();
    return static_cast<Real>(2 * gamma_quantile({p, 1 - Wide(p)}, nu / 2));
}

template <class Real> Real chi_squared_upper_quantile(Real q, Real degrees_of_freedom) noexcept
{
    const Wide nu = degrees_of_freedom;
    if (!(q >= 0 && q <= 1 && nu > 0)) return std::numeric_limits<Real>::quiet_NaN();
    if (q == 1) return 0;
    if (q == 0 || std::isinf(nu)) return std::numeric_limits<Real>::infinity();
    return static_cast<Real>(2 * gamma_quantile({1 - Wide(q), q}, nu / 2));
}

template float chi_squared_quantile(float, float) noexcept;
template double chi_squared_quantile(double, double) noexcept;
template float chi_squared_upper_quantile(float, float) noexcept;
template double chi_squared_upper_quantile(double, double) noexcept;

} // namespace tavik::probability
