// The incomplete beta function and the tail probabilities made of it: tables of another library, closed
// forms, order, and the edges of the domain.
#include "frame/capture.hpp"
#include "probability/beta_incomplete.hpp"
#include "probability/tail_probabilities.hpp"

#include <cmath>
#include <limits>

namespace {

using namespace capture;
using namespace tavik::probability;
using L = long double;

constexpr float inf = std::numeric_limits<float>::infinity(), nan = std::numeric_limits<float>::quiet_NaN();

template <class T> constexpr auto beta = of_type<T>(tavik_f_beta_incomplete, tavik_d_beta_incomplete);

template <class T> struct BetaIncomplete : FrameTest {
    static constexpr T epsilon = std::numeric_limits<T>::epsilon(),
                       least = std::numeric_limits<T>::denorm_min();

    // A float is a double result, rounded. Powers of x and 1 - x lose digits where both parameters are large.
    static void expect_near(T x, T a, T b, L due)
    {
        const T both = std::min(a, b), value = beta<T>(x, a, b);
        const L units = sizeof(T) == 4 ? 0.5005L : both < 1e3 || both >= 1e8 ? 1 : 200;
        EXPECT_LE(std::fabs(value - due), units * epsilon * due + least) << x << ' ' << a << ' ' << b;
    }
};
TYPED_TEST_SUITE(BetaIncomplete, capture::Reals);

TYPED_TEST(BetaIncomplete, AgreesWithTableAndClosedForms)
{
    using T = TypeParam;
    // By mpmath 1.2, 50 digits: betainc(a, b, 0, x, regularized=True); from 2^34 on the density's quadrature.
    const L rows[][4] = {{0.25L, 2.5L, 3.5L, 2.092843318634301221932849e-1L},
                         {0x1p-60L, 3, 0x1p-10L, 2.127235068676093155986406e-58L},
                         {0.0625L, 200, 20, 4.791437499518963137266698e-215L},
                         {0.484375L, 1e6L, 0x1p20L, 1.849827231033708473520895e-27L},
                         {0.5L - 0x1p-17L, 0x1p34L, 0x1p34L, 2.338867489471028152888124e-3L},
                         {0.25L, 0x1p34L, 3 * 0x1p34L, 5.000005857580387914477217e-1L}};
    for (const auto &[x, a, b, due] : rows) this->expect_near(T(x), T(a), T(b), due);
    for (int k = -80; k <= 80; ++k) {
        const T x = T(1 / (1 + std::exp2(k / 2.0L)));
        const L wide = x, y = 1 - wide;
        for (const T b : {T(0x1p-9), T(0.25), T(1), T(3), T(77.5), T(1024)}) {
            this->expect_near(x, 1, b, -std::expm1(b * std::log1p(-wide)));
            this->expect_near(x, b, 1, std::pow(wide, L(b)));
        }
        this->expect_near(x, 0.5, 0.5, std::atan2(std::sqrt(wide), std::sqrt(y)) / std::acos(0.0L));
        L tail = 0, ways = 1; // of at least a successes in 12
        for (int a = 12; a > 0; ways = ways * a / (13 - a), --a)
            this->expect_near(x, T(a), T(13 - a), tail += ways * std::pow(wide, a) * std::pow(y, 12 - a));
    }
}

TYPED_TEST(BetaIncomplete, IsADistributionFunction)
{
    using T = TypeParam;
    const T parameters[] = {T(1e-30), T(1e-3), T(0.5), T(2.5), T(40), T(3e3), T(1e6), T(2e10), T(1e30)};
    for (const T a : parameters)
        for (const T b : parameters) {
            const double ratio = double(b) / a, mean = 1 / (1 + ratio),
                         step = mean * std::sqrt(ratio / (double(a) + b + 1)) / 2;
            T before = 0;
            for (int k = -20; k <= 20; ++k) {
                const T x = T(std::clamp(mean + k * step, 0.0, 1.0)), value = beta<T>(x, a, b);
                SCOPED_TRACE(testing::PrintToString(std::array{x, a, b, value, before}));
                EXPECT_TRUE(value >= 0 && value <= 1 && value >= before * (1 - 4 * this->epsilon));
                before = value;
                const double y = 1 - double(x), complement = beta_incomplete(y, b, a);
                EXPECT_TRUE(1 - y != x || std::fabs(value + complement - 1) <= this->epsilon + 1e-13);
            }
        }
}

TYPED_TEST(BetaIncomplete, HoldsAtTheEdges)
{
    using T = TypeParam;
    const T least = this->least, most = std::numeric_limits<T>::max(), last = 1 - this->epsilon / 2;
    const T due_at[][4] = {{0, last, inf, 2},      {1, 1, inf, 2},       {0, 0, 2, inf},
                           {1, least, 2, inf},     {least, least, 1, 1}, {1, 0.5, least, 1},
                           {0.5, 0.5, most, most}, {0, 0.25, most, most}};
    for (const auto &[due, x, a, b] : due_at) EXPECT_EQ(beta<T>(x, a, b), due) << x << ' ' << a << ' ' << b;
    const T undefined[][3] = {{nan, 1, 1},   {0, nan, 1}, {0.5, 1, nan}, {1, inf, inf},
                              {-0.25, 1, 1}, {inf, 1, 1}, {0.5, 0, 3},   {0.5, 2.5, -1}};
    for (const auto &row : undefined) {
        const T x = row[0], a = row[1], b = row[2];
        EXPECT_EQ(outcome([&] { EXPECT_TRUE(std::isnan(beta<T>(x, a, b))); }), x < 0 || x > 1     ? "5 11201"
                                                                               : a <= 0 || b <= 0 ? "5 11202"
                                                                                                  : "0 0");
        EXPECT_TRUE(std::isnan(beta_incomplete(x, a, b))) << x << ' ' << a << ' ' << b;
    }
    EXPECT_EQ(outcome([] { beta<T>(-0.25, 1, 1); }, "r"), "5 11201 -0.25");
    EXPECT_EQ(outcome([] { beta<T>(0.5, 2.5, -1); }, "rr"), "5 11202 2.5 -1");
    EXPECT_EQ(printed[0].routine, sizeof(T) == 4 ? "tavik_f_beta_incomplete" : "tavik_d_beta_incomplete");
}

TEST(TailProbabilities, AgreeWithTableAndClosedForms)
{
    // By mpmath 1.2, 50 digits, from its incomplete beta function. Many degrees of freedom cost digits.
    const double rows[][4] = {{1e20, 1, 2.5, 1.4386794381663444829e-25},
                              {1.125, 1000, 500, 6.665602307887522813e-2},
                              {9, 4, 0x1p20, 2.8944962495075552406e-7}};
    for (const auto &[f, m, n, due] : rows) {
        EXPECT_NEAR(f_upper_tail(f, m, n) / due, 1, (1.5 + 1e-4 * std::max(m, n)) * 0x1p-52) << f;
        EXPECT_TRUE(m != 1 || student_t_two_sided(-std::sqrt(f), n) == f_upper_tail(f, m, n)) << f;
    }
    for (int k = -520; k <= 520; k += 8) {
        const double t = std::ldexp(1.375, k);
        const L wide = t, square = wide * wide;
        const auto near = [=](double p, L due) { EXPECT_NEAR(p, due, 1.5 * 0x1p-52 * due) << "2^" << k; };
        near(student_t_two_sided(t, 1), std::atan(1 / wide) / std::acos(0.0L));
        near(student_t_two_sided(t, 2), 2 / (2 + square + wide * std::sqrt(2 + square)));
        near(student_t_two_sided(-t, inf), std::erfc(wide / std::sqrt(2.0L)));
        near(f_upper_tail(t, 2, 5), std::exp(-2.5L * std::log1p(0.4L * wide)));
        near(f_upper_tail(t, 2, inf), std::exp(-wide));
        near(f_upper_tail(t, inf, 2), -std::expm1(-1 / wide));
    }
}

TEST(TailProbabilities, HoldAtTheEdges)
{
    for (const double df : {1e-300, 0.5, 1e300, double(inf)}) {
        EXPECT_TRUE(student_t_two_sided(0, df) == 1 && student_t_two_sided(-inf, df) == 0) << df;
        EXPECT_TRUE(f_upper_tail(-1, 2, df) == 1 && f_upper_tail(inf, df, 2) == 0) << df;
    }
    for (const double bad : {0.f, -1.f, -inf, nan})
        for (const double p : {student_t_two_sided(1, bad), f_upper_tail(1, bad, 1), f_upper_tail(1, 1, bad)})
            EXPECT_TRUE(std::isnan(p)) << bad;
    for (const double p : {student_t_two_sided(nan, 1), f_upper_tail(nan, 1, 1), f_upper_tail(1, inf, inf)})
        EXPECT_TRUE(std::isnan(p));
    EXPECT_TRUE(f_upper_tail(0.5, inf, inf) == 1 && f_upper_tail(2, inf, inf) == 0);
}

} // namespace
