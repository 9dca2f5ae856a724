// Both tails are incomplete beta functions of x = nu / (nu + q), where q is t^2 or f times the degrees of
// freedom of the numerator. x and 1 - x = q / (nu + q) are both computed without a difference, and in long
// double, where neither t^2 nor the product overflows.
#include "probability/tail_probabilities.hpp"

#include "probability/beta_incomplete.hpp"
#include "probability/quantile_solver.hpp"

#include <boost/math/special_functions/erf.hpp>

namespace tavik::probability {
namespace {

constexpr double nan = std::numeric_limits<double>::quiet_NaN();

Wide upper_tail(Wide q, Wide numerator_df, Wide nu)
{
    return beta_incomplete_wide(nu / (nu + q), q / (nu + q), nu / 2, numerator_df / 2);
}

} // namespace

double student_t_two_sided(double t, double degrees_of_freedom) noexcept
{
    const Wide wide_t = t, nu = degrees_of_freedom;
    if (std::isnan(t) || !(nu > 0)) return nan;
    if (std::isinf(t)) return 0;
    if (std::isinf(nu))
        return static_cast<double>(boost::math::erfc(std::fabs(wide_t) / std::sqrt(Wide(2)), QuietPolicy()));
    return static_cast<double>(upper_tail(wide_t * wide_t, 1, nu));
}

double f_upper_tail(double f, double numerator_df, double denominator_df) noexcept
{
    const Wide m = numerator_df, nu = denominator_df;
    if (std::isnan(f) || !(m > 0 && nu > 0)) return nan;
    if (f <= 0) return 1;
    if (std::isinf(f)) return 0;
    if (std::isinf(m) && std::isinf(nu)) return f == 1 ? nan : f < 1;
    if (std::isinf(nu)) return static_cast<double>(boost::math::gamma_q(m / 2, m / 2 * f, QuietPolicy()));
    if (std::isinf(m)) return static_cast<double>(boost::math::gamma_p(nu / 2, nu / 2 / f, QuietPolicy()));
    return static_cast<double>(upper_tail(f * m, m, nu));
}

} // namespace tavik::probability
