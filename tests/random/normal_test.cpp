// Normal deviates against the models of their methods, bit by bit, and against the distribution itself.
#include "models.hpp"

#include "numerical/reproducible.hpp"
#include "probability/normal_quantile.hpp"
#include "random/random_normal.hpp"

#include <omp.h>

namespace {

using namespace models;
using tavik::numerical::reproducible_exp, tavik::numerical::reproducible_log;
using tavik::probability::normal_quantile;

template <class Real> struct Normal : testing::Test {
    static Real inversion(Generators &g)
    {
        return normal_quantile(g.next<Real>());
    }

    static Real kinderman_ramage(Generators &g)
    {
        constexpr auto half = Real(2.4554074);
        constexpr Real xi = Real(2.2160358),
                       wedges[][5] = {{0.9587208, xi, -0.6308348, 0.7555915, 0.034240503},
                                      {0.91131276, 0.47972742, 1.1054736, 0.872835, 0.049264498},
                                      {0, 0.47972742, -0.59550714, 0.80557793, 0.05337755}};
        const Real u = g.next<Real>(), root = 1 / std::sqrt(4 * std::asin(Real(1)));
        if (u < Real(0.8840704)) return xi * (Real(1.1311316) * u + g.next<Real>() - 1);
        const auto [from, start, slope, quick, factor] =
            *std::find_if(wedges, wedges + 2, [u](auto &w) { return u >= w[0]; });
        for (;;) {
            const Real v = g.next<Real>(), w = g.next<Real>();
            const Real half_square = half - static_cast<Real>(reproducible_log(w));
            if (u >= Real(0.97331095)) {
                if (!(v * v * half_square <= half)) continue;
                return std::sqrt(2 * half_square) * (u >= Real(0.9866555) ? -1 : 1);
            }
            const Real t = start + slope * std::min(v, w);
            const Real above =
                static_cast<Real>(reproducible_exp(Real(-0.5) * t * t)) * root - Real(0.18002519) * (xi - t);
            if (t >= 0 && (std::max(v, w) <= quick || factor * std::fabs(v - w) <= above))
                return v < w ? t : -t;
        }
    }

    // One uniform at a time. The rule draws ahead, but never more than the deviates still to be made need.
    static Real ziggurat(Generators &g)
    {
        using namespace tavik::random;
        for (;;) {
            const Real a = 2 * g.next<Real>() - 1;
            const auto i = static_cast<std::size_t>(128 * g.next<Real>());
            const Real z = a * lv_ziggurat_x<Real>[i];
            if (std::fabs(a) < lv_ziggurat_ratio<Real>[i]) return z;
            const Real u = g.next<Real>();
            const auto p = static_cast<Real>(double{u} * 0.0002880692481994629 + 0.9997119307518005);
            if (i == 0) return std::copysign(p < 1 ? normal_quantile(p) : Real(5.5), a);
            const auto e = static_cast<Real>(reproducible_exp(-z * z / 2));
            const Real f = lv_ziggurat_f<Real>[i] / e, f_above = lv_ziggurat_f<Real>[i + 1] / e;
            if (f_above + (f - f_above) * u < 1) return z;
        }
    }

    struct Method {
        int option;
        Real (*next)(Generators &);
    };
    static constexpr Method methods[3] = {
        {0, inversion}, {TAVIK_ACCEPT_REJECT, kinderman_ramage}, {TAVIK_ZIGGURAT, ziggurat}};

    template <class... Arguments> static Vector<Real> draw(int n, Arguments... arguments)
    {
        Vector<Real> z(static_cast<std::size_t>(n));
        EXPECT_EQ(Routines<Real>::normal(n, TAVIK_RETURN_USER, z.data(), arguments..., 0), z.data());
        return z;
    }

    static Vector<Real> model_draw(Generators &model, const Method &method, int n, Real mean = 0,
                                   Real variance = 1)
    {
        Vector<Real> z;
        while (n-- > 0) z.push_back(method.next(model) * std::sqrt(variance) + mean);
        return z;
    }
};
TYPED_TEST_SUITE(Normal, Reals);

TYPED_TEST(Normal, EveryMethodFollowsItsRuleAndLeavesTheGeneratorThere)
{
    for (const auto &method : this->methods)
        for (int option : {1, 7, 8})
            fresh([&, option] {
                Generators model(option, 20261121);
                for (int n :
                     {1, 2, 3, 1, 9, 10, 11, 499, 500, 501, 9999, 10000, 10001, 10002, 100001, 100002}) {
                    omp_set_num_threads(1 + n % 3);
                    ASSERT_EQ(this->draw(n, method.option), this->model_draw(model, method, n))
                        << method.option << " " << n;
                    ASSERT_EQ(tavik_random_seed_get(), static_cast<int>(model.seed)) << n;
                }
                EXPECT_EQ(uniforms<TypeParam>(9), model.draw<TypeParam>(9));
            });
}

// Kolmogorov's distance, both tails, mean and variance of a million deviates.
TYPED_TEST(Normal, IsNormal)
{
    constexpr double n = 1000000;
    for (const auto &method : this->methods)
        fresh([&] {
            SCOPED_TRACE(method.option);
            Generators(8, 42);
            const auto z = this->draw(1000000, method.option);
            Vector<double> p;
            double distance = 0, sum = 0, squares = 0;
            for (double x : z) p.push_back(std::erfc(-x / std::sqrt(2.0)) / 2), sum += x, squares += x * x;
            std::sort(p.begin(), p.end());
            for (std::size_t i = 0; i < p.size(); ++i)
                distance = std::max({distance, (i + 1) / n - p[i], p[i] - i / n});
            EXPECT_LT(distance * std::sqrt(n), 1.95); // 1 in 1000 is larger, here and below
            EXPECT_LT(std::fabs(sum), 3.3 * std::sqrt(n));
            EXPECT_LT(std::fabs(squares - n), 3.3 * std::sqrt(2 * n));
            for (double x : {-4.0, -3.4426, -3.0, -2.216, -0.28, 0.28, 2.216, 3.0, 3.4426, 4.0}) {
                const double due = n * std::erfc(std::fabs(x) / std::sqrt(2.0)) / 2;
                const auto beyond = [x](double z) { return x < 0 ? z < x : z > x; };
                EXPECT_NEAR(std::count_if(z.begin(), z.end(), beyond), due, 3.3 * std::sqrt(due)) << x;
            }
        });
}

TYPED_TEST(Normal, ZigguratLayersHaveEqualAreas)
{
    using namespace tavik::random;
    constexpr auto x = lv_ziggurat_x<double>;
    constexpr double r = 3.4426198558968952, eps = 4 * std::numeric_limits<TypeParam>::epsilon();
    const auto f = [&](std::size_t i) { return std::exp(-x[i] * x[i] / 2); };
    const double v = r * f(1) + std::sqrt(std::acos(0.0)) * std::erfc(r / std::sqrt(2.0)); // with the tail
    EXPECT_NEAR(v, 9.91256303526217e-3, 1e-13);
    EXPECT_EQ(x[1], r);
    EXPECT_NEAR(x[0] * f(1), v, 1e-12 * v);
    for (std::size_t i = 1; i < 127; ++i) EXPECT_NEAR(x[i] * (f(i + 1) - f(i)), v, 1e-12 * v) << i;
    EXPECT_NEAR(x[0], 3.71308624674059, 1e-14);
    EXPECT_NEAR(x[127], 0.272320864715997, 1e-15);
    EXPECT_EQ(x[128], 3.0056790906549268e-06);
    EXPECT_EQ(lv_ziggurat_f<TypeParam>[128], 1);
    EXPECT_EQ(lv_ziggurat_ratio<TypeParam>[128], 0);
    for (std::size_t i = 0; i < 128; ++i) {
        EXPECT_EQ(lv_ziggurat_x<TypeParam>[i], static_cast<TypeParam>(x[i]));
        EXPECT_NEAR(lv_ziggurat_f<TypeParam>[i] / f(i), 1, eps) << i;
        EXPECT_NEAR(lv_ziggurat_ratio<TypeParam>[i] / (x[i + 1] / x[i]), 1, eps) << i;
    }
}

TYPED_TEST(Normal, TakesUniformsThatAreExactly0Or1)
{
    using Real = TypeParam;
    fresh([this] {
        constexpr auto all = UINT64_MAX;
        give_out<std::mt19937_64>({all, 0});
        const Real below_1 = 1 - std::numeric_limits<Real>::epsilon() / 2;
        EXPECT_EQ(this->draw(2), (Vector<Real>{normal_quantile(below_1), normal_quantile(Real(0x1p-53))}));
        // The base strip on either side, and the upper end of the tail's probabilities, which is 1 in float.
        give_out<std::mt19937_64>({all, 0, all, 0, 0, all});
        const double p = (1 - 0x1p-53) * 0.0002880692481994629 + 0.9997119307518005;
        const Real end = of_type<Real>(5.5F, p < 1 ? normal_quantile(p) : 5.5);
        EXPECT_EQ(this->draw(2, TAVIK_ZIGGURAT), (Vector<Real>{end, -end}));
        for (const auto &method : this->methods) {
            give_out<std::mt19937_64>({all, all, all, all, 0, 0, 0, all, 0, all, all, 0, all});
            for (Real z : this->draw(100, method.option)) EXPECT_LT(std::fabs(z), 9);
        }
    });
}

TYPED_TEST(Normal, TakesOptions)
{
    using Real = TypeParam;
    fresh([this] {
        Generators model(1, 77);
        const Real mean = Real(-1.5), variance = Real(0.3);
        const auto &[inversion, kinderman_ramage, ziggurat] = this->methods;
        EXPECT_EQ(this->draw(50, TAVIK_MEAN, 10.0, TAVIK_VARIANCE, 4.0),
                  this->model_draw(model, inversion, 50, 10, 4));
        EXPECT_EQ(this->draw(50, TAVIK_ACCEPT_REJECT, TAVIK_MEAN_ADR, &mean, TAVIK_ZIGGURAT,
                             TAVIK_VARIANCE_ADR, &variance),
                  this->model_draw(model, ziggurat, 50, mean, variance));
        EXPECT_EQ(this->draw(50, TAVIK_ZIGGURAT, TAVIK_ACCEPT_REJECT),
                  this->model_draw(model, kinderman_ramage, 50));
        EXPECT_EQ(take(Routines<Real>::normal(50, 0), 50), this->model_draw(model, inversion, 50));
        // The methods' own names.
        Real user[] = {42};
        const auto nothing = [](auto...) {};
        EXPECT_EQ(capture::outcome([&] { tavik::random::l_rnnor(0, user, nothing); }, "iil"), "5 603 0 1 nr");
        EXPECT_EQ(capture::printed.at(0).routine, "l_rnnor");
        EXPECT_EQ(capture::outcome([&] { tavik::random::l_rnnoa(0, user, nothing); }, "iil"), "5 603 0 1 NR");
        EXPECT_EQ(capture::printed.at(0).routine, "l_rnnoa  ");
    });
}

} // namespace
