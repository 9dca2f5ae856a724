// The incomplete beta function and the tail probabilities made of it: a table of another library, closed
// forms, identities, order, and the edges of the domain.
#include "frame/capture.hpp"
#include "probability/beta_incomplete.hpp"
#include "probability/student_t_quantile.hpp"
#include "probability/tail_probabilities.hpp"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <limits>
#include <type_traits>
#include <vector>

namespace {

using namespace capture;
using namespace tavik::probability;

float beta_of(float x, float a, float b)
{
    return tavik_f_beta_incomplete(x, a, b);
}
double beta_of(double x, double a, double b)
{
    return tavik_d_beta_incomplete(x, a, b);
}

// By mpmath 1.2, 50 digits: betainc(a, b, 0, x, regularized=True), and from a = b = 2e4 on quadrature of the
// density.
struct BetaRow {
    double x, a, b;
    long double value;
};
constexpr BetaRow beta_rows[] = {
    {0.25, 2.5, 3.5, 2.092843318634301221932849e-1L},
    {0.75, 0.125, 7.0, 9.999981808072956124260028e-1L},
    {9.5367431640625e-07, 0.5, 30.0, 6.010384415811196395227592e-3L},
    {0.9999990463256836, 30.0, 0.5, 9.939896155841888036047724e-1L},
    {8.673617379884035e-19, 3.0, 0.0009765625, 2.127235068676093155986406e-58L},
    {0.9999999403953552, 1000.0, 0.0078125, 6.904385506817098756364333e-2L},
    {0.0625, 200.0, 20.0, 4.791437499518963137266698e-215L},
    {0.0009765625, 1.5, 1000.0, 4.181103049166496589379073e-1L},
    {0.375, 1500.0, 2500.0, 5.010858244645409951536439e-1L},
    {9.313225746154785e-10, 0.5, 1000000.0, 3.442470792524660695585204e-2L},
    {0.9999847412109375, 1000000.0, 0.5, 3.308166767854317421648291e-8L},
    {7.888609052210118e-31, 0.25, 1000000.0, 1.039750131515522903377336e-6L},
    {0.4970703125, 30000.0, 30000.0, 7.560733190871447173018236e-2L},
    {0.5, 100000.0, 100512.0, 8.735652135799648889342411e-1L},
    {0.484375, 1000000.0, 1048576.0, 1.849827231033708473520895e-27L},
    {0.49999237060546875, 17179869184.0, 17179869184.0, 2.338867489471028152888124e-3L},
    {0.2499980926513672, 17179869184.0, 51539607552.0, 1.241064392475728158161109e-1L},
    {0.5000038146972656, 17179869184.0, 17179869184.0, 9.213503964763675869489664e-1L},
    {0.25, 17179869184.0, 51539607552.0, 5.000005857580387914477217e-1L},
};

// In units of the rounding error of a double. Where both parameters are large, the powers of x and 1 - x lose
// digits as they grow.
double bound(double a, double b)
{
    const double both = std::min(a, b);
    return both < 1e3 || both >= 1e8 ? 1.5 : 400;
}

template <class T> struct BetaIncomplete : FrameTest {
    using Limits = std::numeric_limits<T>;
    // A float is a double result, rounded.
    static void expect_near(T actual, long double due, double a, double b)
    {
        const long double epsilon = Limits::epsilon() / 2,
                          most = std::is_same_v<T, float> ? 1.001L : bound(a, b) + 0.5;
        EXPECT_LE(std::fabs(actual - due), most * epsilon * due + Limits::denorm_min())
            << actual << ", due " << due << ", a " << a << ", b " << b;
    }
    static std::vector<T> arguments()
    {
        std::vector<T> x;
        for (int k = 40; k >= 2; k -= 2) x.push_back(std::ldexp(T(1.25), -k));
        for (int k = 1; k < 16; ++k) x.push_back(T(k) / 16);
        for (int k = 5; k <= Limits::digits; k += 3) x.push_back(1 - std::ldexp(T(1), -k));
        return x;
    }
};
using Reals = testing::Types<float, double>;
TYPED_TEST_SUITE(BetaIncomplete, Reals);

TYPED_TEST(BetaIncomplete, AgreesWithTheTable)
{
    using T = TypeParam;
    using Limits [[maybe_unused]] = std::numeric_limits<T>;
    int used = 0;
    for (const auto &[x, a, b, due] : beta_rows) {
        if (static_cast<T>(x) != x) continue;
        this->expect_near(beta_of(static_cast<T>(x), static_cast<T>(a), static_cast<T>(b)), due, a, b);
        ++used;
    }
    EXPECT_EQ(used, std::size(beta_rows));
}

TYPED_TEST(BetaIncomplete, AgreesWithClosedForms)
{
    using T = TypeParam;
    using Limits [[maybe_unused]] = std::numeric_limits<T>;
    const long double half_pi = 2 * std::atan(1.0L);
    for (const T x : this->arguments()) {
        const long double wide = x, y = 1 - wide;
        for (const T b : {T(0.001953125), T(0.25), T(1), T(3), T(77.5), T(1024)}) {
            this->expect_near(beta_of(x, T(1), b), -std::expm1(b * std::log1p(-wide)), 1, b);
            this->expect_near(beta_of(x, b, T(1)), std::pow(wide, static_cast<long double>(b)), b, 1);
        }
        const long double arcsine = std::asin(std::sqrt(std::min(wide, y))) / half_pi;
        this->expect_near(beta_of(x, T(0.5), T(0.5)), wide < y ? arcsine : 1 - arcsine, 0.5, 0.5);
        // P(at least a successes of n)
        constexpr int n = 12;
        for (int a = 1; a <= n; ++a) {
            long double tail = 0, ways = 1;
            for (int j = n; j >= a; --j) {
                tail += ways * std::pow(wide, j) * std::pow(y, n - j);
                ways = ways * j / (n - j + 1);
            }
            this->expect_near(beta_of(x, T(a), T(n + 1 - a)), tail, a, n + 1 - a);
        }
    }
}

TYPED_TEST(BetaIncomplete, IsADistributionFunction)
{
    using T = TypeParam;
    using Limits [[maybe_unused]] = std::numeric_limits<T>;
    const T parameters[] = {T(1e-30), T(1e-3), T(0.5), T(2.5), T(40), T(3e3), T(1e6), T(2e10), T(1e30)};
    const std::vector<T> x = this->arguments();
    for (const T a : parameters)
        for (const T b : parameters) {
            SCOPED_TRACE(testing::PrintToString(std::make_pair(a, b)));
            T before = 0;
            std::vector<T> ordered = x;
            for (int k = -8; k <= 8; ++k) { // about the mean
                const double mean = static_cast<double>(a) / (static_cast<double>(a) + b),
                             width = std::sqrt(mean * (1 - mean) / (static_cast<double>(a) + b + 1)),
                             v = mean + k * width / 2;
                if (v > 0 && v < 1) ordered.push_back(static_cast<T>(v));
            }
            std::sort(ordered.begin(), ordered.end());
            for (const T v : ordered) {
                const T value = beta_of(v, a, b);
                EXPECT_TRUE(value >= 0 && value <= 1) << v;
                EXPECT_GE(value, before * (1 - 4 * Limits::epsilon())) << v;
                before = value;
                const double other = 1 - static_cast<double>(v);
                if (1 - other != v) continue;
                EXPECT_NEAR(value + beta_incomplete(other, b, a), 1, Limits::epsilon() + 1e-13) << v;
            }
            EXPECT_EQ(beta_of(T(0), a, b), 0);
            EXPECT_EQ(beta_of(T(1), a, b), 1);
        }
}

// I_x(a, b) - I_x(a + 1, b) = x^a (1 - x)^b / (a B(a, b))
TYPED_TEST(BetaIncomplete, FollowsTheRecurrence)
{
    using T = TypeParam;
    using Limits [[maybe_unused]] = std::numeric_limits<T>;
    for (const T x : {T(0.125), T(0.375), T(0.5), T(0.8125)})
        for (const T a : {T(0.25), T(3), T(17.5)})
            for (const T b : {T(0.5), T(2), T(21)}) {
                const double wide_a = a,
                             step = std::exp(a * std::log(x) + b * std::log1p(-x) - std::log(a) -
                                             std::lgamma(wide_a) - std::lgamma(b) + std::lgamma(wide_a + b));
                EXPECT_NEAR(beta_of(x, a, b) - beta_of(x, a + 1, b), step,
                            2 * Limits::epsilon() + 100 * Limits::epsilon() * step)
                    << x << ' ' << a << ' ' << b;
            }
}

TYPED_TEST(BetaIncomplete, HasLimits)
{
    using T = TypeParam;
    using Limits [[maybe_unused]] = std::numeric_limits<T>;
    const T inf = Limits::infinity(), nan = Limits::quiet_NaN(), least = Limits::denorm_min(),
            last = 1 - Limits::epsilon() / 2;
    EXPECT_EQ(beta_of(last, inf, T(2)), 0);
    EXPECT_EQ(beta_of(T(1), inf, T(2)), 1);
    EXPECT_EQ(beta_of(T(0), T(2), inf), 0);
    EXPECT_EQ(beta_of(least, T(2), inf), 1);
    for (const T x : {T(0), T(0.5), T(1)}) EXPECT_TRUE(std::isnan(beta_of(x, inf, inf)));
    EXPECT_TRUE(std::isnan(beta_of(nan, T(1), T(1))));
    EXPECT_TRUE(std::isnan(beta_of(T(0.5), nan, T(1))));
    EXPECT_TRUE(std::isnan(beta_of(T(0.5), T(1), nan)));
    EXPECT_EQ(tavik_error_type(), 0);
    EXPECT_EQ(beta_of(least, T(1), T(1)), least);
    EXPECT_EQ(beta_of(T(0.5), least, T(1)), 1);
    EXPECT_EQ(beta_of(T(0.5), Limits::max(), Limits::max()), T(0.5));
    EXPECT_EQ(beta_of(T(0.25), Limits::max(), Limits::max()), 0);
}

TYPED_TEST(BetaIncomplete, RaisesOutsideOfItsDomain)
{
    using T = TypeParam;
    using Limits [[maybe_unused]] = std::numeric_limits<T>;
    T value = 0;
    const auto outcome_of = [&](T x, T a, T b, const char *kinds) {
        value = 0;
        string seen = outcome([&] { value = beta_of(x, a, b); });
        EXPECT_TRUE(std::isnan(value)) << seen;
        this->stream.take();
        beta_of(x, a, b);
        EXPECT_NE(this->stream.take().find(kinds), string::npos) << kinds;
        return seen + ' ' + printed.back().routine;
    };
    const string name = std::is_same_v<T, float> ? " tavik_f_beta_incomplete" : " tavik_d_beta_incomplete";
    EXPECT_EQ(outcome_of(T(-0.25), 1, 1, "-0.25"), "5 11201" + name);
    EXPECT_EQ(outcome_of(T(1.5), 1, 1, "1.5"), "5 11201" + name);
    EXPECT_EQ(outcome_of(Limits::infinity(), 1, 1, "x"), "5 11201" + name);
    EXPECT_EQ(outcome_of(T(0.5), 0, 3, "0 and 3"), "5 11202" + name);
    EXPECT_EQ(outcome_of(T(0.5), 2.5, -1, "2.5 and -1"), "5 11202" + name);
    EXPECT_EQ(outcome_of(T(0.5), -Limits::infinity(), 1, "and 1"), "5 11202" + name);
}

TEST(BetaIncompleteInternal, IsNanOutsideOfItsDomain)
{
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const double outside[][3] = {{-0.1, 1, 1}, {1.1, 1, 1}, {0.5, 0, 1},
                                 {0.5, 1, -1}, {nan, 1, 1}, {0, nan, 1}};
    for (const auto &[x, a, b] : outside) EXPECT_TRUE(std::isnan(beta_incomplete(x, a, b))) << x << a << b;
    EXPECT_EQ(tavik_error_type(), 0);
}

void expect_tail(double actual, double due, double condition, const string &what)
{
    EXPECT_NEAR(actual, due, (1.5 + 1e-4 * condition) * 0x1p-52 * due) << what;
}

// By mpmath 1.2, 50 digits, from its incomplete beta function.
TEST(TailProbabilities, AgreeWithTheTable)
{
    const double t_rows[][3] = {{9.094947017729282e-13, 3, 9.9999999999933142572e-1},
                                {0.5, 7, 6.3240713568928421635e-1},
                                {2.25, 12, 4.3997189574140436494e-2},
                                {-30, 5.5, 2.6160537530093501721e-7},
                                {8, 200, 9.8792009093306392193e-14},
                                {6, 1048576, 1.9738185602621459879e-9},
                                {-12, 1000, 4.3240573867745274662e-31},
                                {1e10, 2.5, 1.4386794381663444829e-25},
                                {3, 0.25, 5.4806560211861772406e-1}};
    for (const auto &[t, df, due] : t_rows) expect_tail(student_t_two_sided(t, df), due, df, to_string(t));
    const double f_rows[][4] = {{9.094947017729282e-13, 1, 5, 9.9999927595769916072e-1},
                                {0.5, 3, 7, 6.9403638756881372389e-1},
                                {4.25, 5, 44, 3.0721454773452981861e-3},
                                {100, 6, 9, 1.0115685542953569731e-7},
                                {1.125, 1000, 500, 6.665602307887522813e-2},
                                {250, 2.5, 30, 1.7765817457751114995e-20},
                                {9, 4, 1048576, 2.8944962495075552406e-7},
                                {1e-8, 12, 3, 1},
                                {40, 3, 400, 1.2596763932077904438e-22}};
    for (const auto &[f, m, n, due] : f_rows)
        expect_tail(f_upper_tail(f, m, n), due, std::max(m, n), to_string(f));
}

TEST(TailProbabilities, AgreeWithClosedForms)
{
    const long double half_pi = 2 * std::atan(1.0L), inf = std::numeric_limits<double>::infinity();
    for (int k = -300; k <= 300; k += 7) {
        const double t = std::ldexp(1.375, k);
        const long double wide = t, square = wide * wide;
        const auto near = [&](double actual, long double due) {
            expect_tail(actual, static_cast<double>(due), 0, "2^" + to_string(k));
        };
        near(student_t_two_sided(t, 1), std::atan(1 / wide) / half_pi);
        near(student_t_two_sided(t, 2), 2 / (2 + square + wide * std::sqrt(2 + square)));
        near(student_t_two_sided(-t, static_cast<double>(inf)), std::erfc(wide / std::sqrt(2.0L)));
        near(f_upper_tail(t, 2, 2), 1 / (1 + wide));
        near(f_upper_tail(t, 2, 5), std::exp(-2.5L * std::log1p(0.4L * wide)));
        near(f_upper_tail(t, 1, 1), std::atan(1 / std::sqrt(wide)) / half_pi);
        near(f_upper_tail(t, 2, static_cast<double>(inf)), std::exp(-wide));
        near(f_upper_tail(t, static_cast<double>(inf), 2), -std::expm1(-1 / wide));
        near(f_upper_tail(static_cast<double>(square), 1, 2),
             static_cast<long double>(student_t_two_sided(t, 2)));
    }
}

// The quantile is accurate to half a unit; d log p / d log t is at most df.
TEST(TailProbabilities, UndoTheQuantile)
{
    for (const double df : {0.5, 1.0, 3.0, 12.5, 300.0, 3e4})
        for (const double p : {1e-250, 1e-20, 1e-3, 0.125, 0.25, 0.4375}) {
            const double t = student_t_quantile(p, df);
            if (std::isinf(t)) continue;
            EXPECT_NEAR(student_t_two_sided(t, df) / (2 * p), 1, (2 + 2 * df) * 0x1p-53) << df << ' ' << p;
        }
}

TEST(TailProbabilities, HoldAtTheEdges)
{
    const double inf = std::numeric_limits<double>::infinity(),
                 nan = std::numeric_limits<double>::quiet_NaN();
    for (const double df : {1e-300, 0.5, 3.0, 1e300, inf}) {
        EXPECT_EQ(student_t_two_sided(0, df), 1);
        EXPECT_EQ(student_t_two_sided(inf, df), 0);
        EXPECT_EQ(student_t_two_sided(-inf, df), 0);
        for (const double other : {0.5, 1e300, inf}) {
            EXPECT_EQ(f_upper_tail(inf, df, other), 0);
            EXPECT_EQ(f_upper_tail(0, df, other), 1);
            EXPECT_EQ(f_upper_tail(-1, df, other), 1);
        }
        EXPECT_TRUE(std::isnan(student_t_two_sided(nan, df)));
        EXPECT_TRUE(std::isnan(f_upper_tail(nan, df, 1)));
    }
    for (const double bad : {0.0, -1.0, -inf, nan}) {
        EXPECT_TRUE(std::isnan(student_t_two_sided(1, bad)));
        EXPECT_TRUE(std::isnan(f_upper_tail(1, bad, 1)));
        EXPECT_TRUE(std::isnan(f_upper_tail(1, 1, bad)));
    }
    EXPECT_EQ(f_upper_tail(0.5, inf, inf), 1);
    EXPECT_EQ(f_upper_tail(2, inf, inf), 0);
    EXPECT_TRUE(std::isnan(f_upper_tail(1, inf, inf)));
}

} // namespace
