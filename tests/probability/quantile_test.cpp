// Quantiles of the normal, Student t and chi-squared distributions: a high-precision table, closed forms,
// order and symmetry, and the edges of the domain. Every bound is in units in the last place of the element
// type.
#include "frame/capture.hpp"
#include "frame/processor.hpp"
#include "probability/chi_squared_quantile.hpp"
#include "probability/normal_quantile.hpp"
#include "probability/normal_quantile_wide.hpp"
#include "probability/student_t_quantile.hpp"
#include "quantile_reference.hpp"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <random>

namespace {

using namespace tavik::probability;

// Rounding alone costs 0.5.
constexpr long double bound = 0.52L;
template <class Real> constexpr long double normal_bound = sizeof(Real) == 4 ? 0.52L : 1.8L;

template <class Real> struct Quantile : testing::Test {
    using Limits = std::numeric_limits<Real>;

    static void expect_near(Real actual, long double due, long double p, long double nu,
                            long double most = bound)
    {
        const int exponent = std::max(std::ilogb(due), Limits::min_exponent - 1) - Limits::digits + 1;
        const bool near = std::fabs(due) > Limits::max()
                              ? actual == std::copysign(Limits::infinity(), Real(due))
                              : std::fabs(actual - due) <= std::ldexp(most, exponent);
        EXPECT_TRUE(near) << "p " << p << ", df " << nu << ": got " << actual << ", due " << due;
    }

    template <std::size_t N, class Function>
    static void expect_rows(const QuantileRow (&rows)[N], Function f, long double most = bound)
    {
        for (const auto &[p, nu, due] : rows)
            if (Real(p) == p && Real(nu) == nu) expect_near(f(Real(p), Real(nu)), due, p, nu, most);
    }

    // From the smallest number to the last one below 1, dense at both ends and about 1/2, in order.
    static std::vector<Real> probabilities()
    {
        std::vector<Real> p;
        for (int k = Limits::min_exponent - Limits::digits; k < -2; ++k)
            for (const Real f : {Real(1), Real(1.375)})
                if (k >= Limits::min_exponent - 1 || f == 1) p.push_back(std::ldexp(f, k));
        for (int k = 3; k <= Limits::digits; ++k) p.push_back(Real(0.5) - std::ldexp(Real(1), -k));
        for (int k = Limits::digits; k >= 2; --k) p.push_back(Real(0.5) + std::ldexp(Real(1), -k));
        for (int k = 3; k <= Limits::digits; ++k) p.push_back(1 - std::ldexp(Real(1), -k));
        return p;
    }
};
TYPED_TEST_SUITE(Quantile, capture::Reals);

TYPED_TEST(Quantile, AgreesWithHighPrecision)
{
    this->expect_rows(
        normal_rows, [](TypeParam p, TypeParam) { return normal_quantile(p); }, normal_bound<TypeParam>);
    this->expect_rows(normal_rows, [](TypeParam p, TypeParam) { return TypeParam(normal_quantile_wide(p)); });
    this->expect_rows(student_t_rows, student_t_quantile<TypeParam>);
    this->expect_rows(chi_squared_rows, chi_squared_quantile<TypeParam>);
}

TYPED_TEST(Quantile, AgreesWithClosedForms)
{
    const long double pi = std::acos(-1.0L);
    for (const TypeParam x : this->probabilities()) {
        const long double p = x, middle = p - 0.5L, alpha = 4 * p * (1 - p), root = std::sqrt(alpha);
        this->expect_near(chi_squared_quantile(x, TypeParam(2)), -2 * std::log1p(-p), p, 2);
        this->expect_near(student_t_quantile(x, TypeParam(1)),
                          std::fabs(middle) < 0.25L ? std::tan(pi * middle)
                          : middle < 0              ? -1 / std::tan(pi * p)
                                                    : 1 / std::tan(pi * (1 - p)),
                          p, 1);
        this->expect_near(student_t_quantile(x, TypeParam(2)), 2 * middle * std::sqrt(2 / alpha), p, 2);
        if (std::fabs(middle) > 0.1L) // the closed form itself cancels about 1/2
            this->expect_near(student_t_quantile(x, TypeParam(4)),
                              std::copysign(2 * std::sqrt(std::cos(std::acos(root) / 3) / root - 1), middle),
                              p, 4);
    }
}

TYPED_TEST(Quantile, KeepsOrderAndSymmetry)
{
    using Real = TypeParam;
    const std::vector<Real> ps = this->probabilities();
    for (const double df : {1e-3, 0.3, 1.0, 6.0, 40.0, 499.0, 501.0, 9e4, 2e5, 1e15}) {
        const Real nu = Real(df);
        for (std::size_t i = 0; i < ps.size(); ++i) {
            const Real p = ps[i], t = student_t_quantile(p, nu), c = chi_squared_quantile(p, nu);
            if (p > Real(0.5)) {
                EXPECT_EQ(student_t_quantile(1 - p, nu), -t) << "p " << p << ", df " << nu;
                EXPECT_EQ(normal_quantile(1 - p), -normal_quantile(p)) << "p " << p;
            }
            if (i == 0) continue;
            EXPECT_LT(ps[i - 1], p);
            EXPECT_LT(normal_quantile(ps[i - 1]), normal_quantile(p)) << "p " << p;
            EXPECT_LE(student_t_quantile(ps[i - 1], nu), t) << "p " << p << ", df " << nu;
            EXPECT_LE(chi_squared_quantile(ps[i - 1], nu), c) << "p " << p << ", df " << nu;
        }
    }
    // Where one method hands over to the next, neighbouring degrees of freedom must not swap.
    for (const Real p : ps)
        for (const Real seam : {Real(500), Real(1e5)}) {
            const Real below = std::nextafter(seam, Real(0));
            EXPECT_GE(std::fabs(student_t_quantile(p, below)), std::fabs(student_t_quantile(p, seam))) << p;
            EXPECT_LE(chi_squared_quantile(p, below), chi_squared_quantile(p, seam)) << p;
        }
}

TYPED_TEST(Quantile, HoldsAtTheEdges)
{
    using Real = TypeParam;
    using Numbers = typename TestFixture::Limits;
    const Real inf = Numbers::infinity(), nan = Numbers::quiet_NaN(), least = Numbers::denorm_min(),
               most = Numbers::max();
    for (const Real p : {-least, Real(-1), std::nextafter(Real(1), inf), inf, -inf, nan}) {
        EXPECT_TRUE(std::isnan(normal_quantile(p))) << p;
        EXPECT_TRUE(std::isnan(student_t_quantile(p, Real(3)))) << p;
        EXPECT_TRUE(std::isnan(chi_squared_quantile(p, Real(3)))) << p;
    }
    for (const Real nu : {Real(0), -least, Real(-2), -inf, nan})
        for (const Real p : {Real(0), Real(0.3), Real(0.5), Real(1)}) {
            EXPECT_TRUE(std::isnan(student_t_quantile(p, nu))) << nu;
            EXPECT_TRUE(std::isnan(chi_squared_quantile(p, nu))) << nu;
        }
    for (const auto &[p, due] : {std::pair{Real(0), -inf}, {Real(0.5), Real(0)}, {Real(1), inf}}) {
        EXPECT_EQ(normal_quantile(p), due) << p;
        for (const Real nu : {least, Real(3), Real(1e5), most, inf}) {
            EXPECT_EQ(student_t_quantile(p, nu), due) << p << ", df " << nu;
            EXPECT_TRUE(due == 0 || chi_squared_quantile(p, nu) == std::max(due, Real(0))) << p << ' ' << nu;
        }
    }
    EXPECT_FALSE(std::signbit(normal_quantile(Real(0.5))));
    for (const Real p : this->probabilities()) {
        for (const Real nu : {most, inf})
            EXPECT_EQ(student_t_quantile(p, nu), Real(normal_quantile_wide(p))) << p;
        EXPECT_EQ(chi_squared_quantile(p, most), most) << p;
        EXPECT_EQ(chi_squared_quantile(p, inf), inf) << p;
        EXPECT_EQ(chi_squared_quantile(p, least), 0) << p;
        EXPECT_EQ(student_t_quantile(p, least), p < Real(0.5) ? -inf : p > Real(0.5) ? inf : 0) << p;
    }
}

template <class Real> struct NormalQuantile : Quantile<Real> {
    // All regimes and, densely, where one hands over to the next; some invalid ones.
    static std::vector<Real> mixture(int n)
    {
        using Limits = std::numeric_limits<Real>;
        std::mt19937_64 bits(20);
        const auto uniform = [&] {
            return std::ldexp(Real(bits() >> (64 - Limits::digits)), -Limits::digits);
        };
        std::vector<Real> p = {0, 1, Real(-0.0), -1, 2, Limits::quiet_NaN(), Limits::infinity(), Real(0.5)};
        for (int k = 0; k < n; ++k) {
            const Real u = uniform(), v = uniform();
            for (const Real x : {u, std::ldexp(u, int(v * Limits::min_exponent * Real(1.1))),
                                 Real(0.5) - std::ldexp(u, int(-v * Limits::digits)),
                                 1 - std::ldexp(u, int(-v * Limits::digits)),
                                 std::ldexp(1 + (u - Real(0.5)) / 64, -int(1 + v * 15)), Real(0.25) * u,
                                 Real(21.0 / 512) + (u - Real(0.5)) / 64})
                p.push_back(x);
        }
        return p;
    }
};
TYPED_TEST_SUITE(NormalQuantile, capture::Reals);

TYPED_TEST(NormalQuantile, AgreesWithWiderApproximation)
{
    for (const TypeParam p : this->mixture(100'000))
        if (p > 0 && p < 1)
            this->expect_near(normal_quantile(p), normal_quantile_wide(p), p, 0, normal_bound<TypeParam>);
}

TYPED_TEST(NormalQuantile, HasTheSameBitsEverywhere)
{
    using Real = TypeParam;
    const std::vector<Real> p = this->mixture(3000);
    std::vector<Real> z(p.size());
    const auto expect_scalar = [&](std::size_t from, std::size_t n) {
        for (std::size_t i = from; i < from + n; ++i) {
            const Real due = normal_quantile(p[i]);
            EXPECT_EQ(std::memcmp(&z[i], &due, sizeof due), 0) << p[i] << ": " << z[i] << ", " << due;
        }
    };
    for (const NormalQuantileKernels *level :
         {&baseline_normal_quantile_kernels, &avx2_normal_quantile_kernels}) {
        if (level == &avx2_normal_quantile_kernels && !tavik::processor_has_avx2()) continue;
        const auto kernel = capture::of_type<Real>(level->f, level->d);
        kernel(p.data(), z.data(), p.size());
        expect_scalar(0, p.size());
        for (std::size_t n = 0; n < 40; ++n) { // at every offset in a vector; nothing beyond is touched
            const std::size_t from = n * 131 % 64;
            std::fill(z.begin(), z.end(), Real(7));
            kernel(p.data() + from, z.data() + from, n);
            expect_scalar(from, n);
            EXPECT_EQ(std::count(z.begin(), z.end(), Real(7)), std::ptrdiff_t(z.size() - n));
        }
    }
    z = p;
    normal_quantiles(z.data() + 1, z.data() + 1, z.size() - 1);
    expect_scalar(1, z.size() - 1);
    normal_quantiles(static_cast<const Real *>(nullptr), static_cast<Real *>(nullptr), 0);
}

} // namespace
