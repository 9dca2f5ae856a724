// Incomplete beta function: Boost.Math in long double, and an asymptotic expansion where both parameters are
// so large that Boost.Math runs out of digits and of time.
#include "probability/beta_incomplete.hpp"

#include "frame/call.hpp"
#include "frame/error.hpp"
#include "probability/quantile_solver.hpp"

#include <algorithm>
#include <boost/math/special_functions/beta.hpp>

namespace tavik::probability {
namespace {

constexpr double nan = std::numeric_limits<double>::quiet_NaN();

// From here on, for the smaller parameter, the third term of the expansion below changes less than the
// rounding of its arguments does.
constexpr Wide both_are_large = 1e8L;

// The first two terms of N. M. Temme, Incomplete Laplace integrals: uniform asymptotic expansion with
// application to the incomplete beta function, SIAM J. Math. Anal. 18 (1987), 1638-1663 (DLMF 8.18.9), in h =
// eta sqrt(a + b).
Wide expansion(Wide x, Wide y, Wide a, Wide b)
{
    const Wide excess = x * b - y * a; // (a + b) (x - a / (a + b))
    const Wide deviance = -2 * (a * boost::math::log1pmx(excess / a, QuietPolicy()) +
                                b * boost::math::log1pmx(-excess / b, QuietPolicy()));
    const Wide h = std::copysign(std::sqrt(deviance), excess);
    const Wide harmonic = std::sqrt(a / (a + b) * b);
    const Wide correction =
        std::fabs(h) < 1e-3L ? (b / (a + b) - a / (a + b)) / (3 * harmonic) : 1 / h - harmonic / excess;
    const Wide density = std::exp(-deviance / 2) * 0.398942280401432677939946059934L; // 1 / sqrt(2 pi)
    const Wide value =
        boost::math::erfc(-h * 0.707106781186547524400844362105L, QuietPolicy()) / 2; // 1 / sqrt 2
    return std::clamp(value + density * correction, Wide(0), Wide(1));
}

} // namespace

long double beta_incomplete_wide(long double x, long double y, long double a, long double b) noexcept
{
    if (x == 0 || y == 0) return x == 0 ? 0 : 1;
    // Boost.Math's arcsine needs 1 - x for the complement.
    if (a == 0.5L && b == 0.5L)
        return std::atan2(std::sqrt(x), std::sqrt(y)) * 0.636619772367581343075535053490L;
    if (std::min(a, b) >= both_are_large) return expansion(x, y, a, b);
    return x <= y ? boost::math::ibeta(a, b, x, QuietPolicy()) : boost::math::ibetac(b, a, y, QuietPolicy());
}

double beta_incomplete(double x, double a, double b) noexcept
{
    if (!(x >= 0 && x <= 1 && a > 0 && b > 0) || (std::isinf(a) && std::isinf(b))) return nan;
    if (std::isinf(a)) return x < 1 ? 0 : 1;
    if (std::isinf(b)) return x > 0 ? 1 : 0;
    return static_cast<double>(beta_incomplete_wide(x, 1 - Wide(x), a, b));
}

} // namespace tavik::probability

using namespace tavik;

namespace {

void l_beta_incomplete(double x, double a, double b, double &value)
{
    if (x < 0 || x > 1) {
        tavik_e1std(1, x);
        tavik_ermes(terminal, 11201);
    } else if (a <= 0 || b <= 0) {
        tavik_e1std(1, a);
        tavik_e1std(2, b);
        tavik_ermes(terminal, 11202);
    } else {
        value = probability::beta_incomplete(x, a, b);
    }
}

double call(const char *name, double x, double a, double b)
{
    double value = probability::nan;
    public_call(name, [=, &value](Workspace &) { l_beta_incomplete(x, a, b, value); });
    return value;
}

} // namespace

extern "C" {

float tavik_f_beta_incomplete(float x, float a, float b)
{
    return static_cast<float>(call("tavik_f_beta_incomplete", x, a, b));
}

double tavik_d_beta_incomplete(double x, double a, double b)
{
    return call("tavik_d_beta_incomplete", x, a, b);
}

} // extern "C"
