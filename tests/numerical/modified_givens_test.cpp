// rotmg and rotm: cases worked out by hand in exact arithmetic, and what defines the rotation: it zeroes the
// second component and keeps the weighted crossproducts.
#include "frame/capture.hpp"

#include <algorithm>
#include <array>
#include <climits>
#include <cmath>
#include <limits>
#include <random>
#include <type_traits>
#include <vector>

namespace {

using namespace capture;

void rotmg(float &d1, float &d2, float &x, float y, float *param)
{
    tavik_srotmg(&d1, &d2, &x, y, param);
}
void rotmg(double &d1, double &d2, double &x, double y, double *param)
{
    tavik_drotmg(&d1, &d2, &x, y, param);
}
void rotm(int n, float *x, int incx, float *y, int incy, const float *param)
{
    tavik_srotm(n, x, incx, y, incy, param);
}
void rotm(int n, double *x, int incx, double *y, int incy, const double *param)
{
    tavik_drotm(n, x, incx, y, incy, param);
}

template <class T> constexpr T unset = std::numeric_limits<T>::quiet_NaN();

// The whole of H from what a flag stores.
template <class T> struct Matrix {
    long double h11, h21, h12, h22;
    explicit Matrix(const T *param) : h11(param[1]), h21(param[2]), h12(param[3]), h22(param[4])
    {
        if (param[0] == 0 || param[0] == -2) h11 = h22 = 1;
        if (param[0] == -2) h21 = h12 = 0;
        if (param[0] == 1) h21 = -1, h12 = 1;
    }
};

template <class T> struct ModifiedGivens : FrameTest {
    using Limits = std::numeric_limits<T>;
    std::mt19937_64 bits{5};

    T uniform(T lo, T hi)
    {
        return std::uniform_real_distribution<T>(lo, hi)(bits);
    }
    static void expect_sum(long double a, long double b, long double due, const char *what)
    {
        const long double size = std::max({std::fabs(a), std::fabs(b), std::fabs(due)});
        EXPECT_LE(std::fabs(a + b - due), 8 * Limits::epsilon() * size) << what << ": " << a << " + " << b;
    }
};
using Reals = testing::Types<float, double>;
TYPED_TEST_SUITE(ModifiedGivens, Reals);

TYPED_TEST(ModifiedGivens, IsExactWhereTheArithmeticIs)
{
    using T = TypeParam;
    constexpr T no = 0, g = 4096, up = 0x1p50, down = 0x1p-50;
    struct Row {
        T d1, d2, x, y, flag, h11, h21, h12, h22, d1_due, d2_due, x_due;
    };
    const Row rows[] = {
        // nothing to rotate
        {3, 2, 5, 0, -2, no, no, no, no, 3, 2, 5},
        {3, 0, 5, 7, -2, no, no, no, no, 3, 0, 5},
        // the first component is larger
        {20, 5, 1, 1, 0, no, -1, 0.25, no, 16, 4, 1.25},
        {20, 5, 1, -1, 0, no, 1, -0.25, no, 16, 4, 1.25},
        {5, 5, -2, 1, 0, no, 0.5, -0.5, no, 4, 4, -2.5},
        // the second one is, or they are equal
        {5, 20, 1, 1, 1, 0.25, no, no, 1, 16, 4, 1.25},
        {2, 2, 2, 2, 1, 1, no, no, 1, 1, 1, 4},
        {2, 2, 2, -2, 1, -1, no, no, -1, 1, 1, -4},
        {3, 2, 0, 5, 1, 0, no, no, 0, 2, 3, 5},
        {0, 2, 10, 5, 1, 0, no, no, 2, 2, 0, 5},
        // a row is taken out; one that is not in it; a sum of squares that is none
        {12, -3, 1, 1, 0, no, -1, -0.25, no, 16, -4, 0.75},
        {1, -1, 1, 1, -1, 0, 0, 0, 0, 0, 0, 0},
        {1, -4, 1, 1, -1, 0, 0, 0, 0, 0, 0, 0},
        {-1, 1, 1, 1, -1, 0, 0, 0, 0, 0, 0, 0},
        // rows of H rescaled, one twice; both to larger and to smaller scale factors; with a negative d2
        {20 * down, 5 * down, 1, 1, -1, 1 / g, -1 / (g * g), 0.25 / g, 1 / (g * g), 0x1p-22, 1, 1.25 / g},
        {5 * up, 20 * up, 1, 1, -1, 0.25 * g * g, -g * g, g * g, g * g, 0x1p6, 0x1p4, 1.25 * g * g},
        {12 * down, -3 * down, 1, 1, -1, 1 / g, -1 / (g * g), -0.25 / g, 1 / (g * g), 0x1p-22, -1, 0.75 / g},
        // limits of the range: 4096^2 and 4096^-2 are outside of it
        {20 * 0x1p20, 5, 1, 1024, -1, g, -1024, 1, 1, 1, 4, 1.25 * g},
        {20 * 0x1p19, 5, 1, 724, 0, no, -724, 5 * 724 * 0x1p-19 / 20, no, 0, 0, 0},
        {20 * 0x1p-28, 5 * 0x1p-28, 1, 1, -1, 1 / g, -1 / g, 0.25 / g, 1 / g, 1, 0.25, 1.25 / g},
        {20 * 0x1p-27, 5 * 0x1p-25, 1, 0.5, 0, no, -0.5, 0.5, no, 0x1p-23, 0x1p-23, 1.25},
    };
    for (Row row : rows) {
        SCOPED_TRACE(testing::PrintToString(std::array{row.d1, row.d2, row.x, row.y}));
        T param[5] = {unset<T>, unset<T>, unset<T>, unset<T>, unset<T>};
        rotmg(row.d1, row.d2, row.x, row.y, param);
        EXPECT_EQ(param[0], row.flag);
        const bool diagonal = row.flag == -1 || row.flag == 1, other = row.flag == -1 || row.flag == 0;
        const T due[] = {row.h11, row.h21, row.h12, row.h22};
        for (int k = 0; k < 4; ++k) {
            const bool stored = k == 0 || k == 3 ? diagonal : other;
            if (stored) EXPECT_EQ(param[k + 1], due[k]) << k;
            else EXPECT_TRUE(std::isnan(param[k + 1])) << k;
        }
        if (row.x_due == 0 && row.flag == 0) continue; // only its form is exact
        EXPECT_EQ(row.d1, row.d1_due);
        EXPECT_EQ(row.d2, row.d2_due);
        EXPECT_EQ(row.x, row.x_due);
    }
}

TYPED_TEST(ModifiedGivens, KeepsTheWeightedCrossproducts)
{
    using T = TypeParam;
    const T range = std::is_same_v<T, float> ? 20 : 150;
    int forms[4] = {}, downdates = 0;
    for (int k = 0; k < 40'000; ++k) {
        T width = k % 2 == 0 ? T(3) : range;
        const auto random = [&] { return std::exp2(this->uniform(-width, width)); };
        const T d1 = random(), size = random(), x = k % 3 == 0 ? size : -size, y = random(),
                d2 = k % 5 == 0 ? -random() : random();
        T e1 = d1, e2 = d2, u = x, param[5];
        rotmg(e1, e2, u, y, param);
        ++forms[static_cast<int>(param[0]) + 2];
        const Matrix<T> h(param);
        if (e1 == 0) {
            ASSERT_LE(static_cast<long double>(d1) * x * x + static_cast<long double>(d2) * y * y,
                      4 * std::numeric_limits<T>::epsilon() *
                          std::fabs(static_cast<long double>(d2) * y * y));
            continue;
        }
        downdates += d2 < 0;
        for (const T d : {e1, e2}) {
            ASSERT_GT(std::fabs(d), 0x1p-24);
            ASSERT_LT(std::fabs(d), 0x1p24);
        }
        ASSERT_GT(e1, 0);
        EXPECT_EQ(e2 < 0, d2 < 0);
        this->expect_sum(h.h21 * x, h.h22 * y, 0, "second component");
        this->expect_sum(h.h11 * x, h.h12 * y, u, "first component");
        this->expect_sum(e1 * h.h11 * h.h11, e2 * h.h21 * h.h21, d1, "d1");
        this->expect_sum(e1 * h.h12 * h.h12, e2 * h.h22 * h.h22, d2, "d2");
        this->expect_sum(e1 * h.h11 * h.h12, e2 * h.h21 * h.h22, 0, "off the diagonal");
        if (this->HasFailure()) FAIL() << d1 << ' ' << d2 << ' ' << x << ' ' << y << ", flag " << param[0];
    }
    EXPECT_EQ(forms[0], 0);
    EXPECT_GT(forms[1], 1000);
    EXPECT_GT(forms[2], 1000);
    EXPECT_GT(forms[3], 1000);
    EXPECT_GT(downdates, 1000);
}

// What is taken out is all that is there, up to rounding.
TYPED_TEST(ModifiedGivens, TakesOutNearlyEverything)
{
    using T = TypeParam;
    int failed = 0;
    for (int k = 0; k < 10'000; ++k) {
        const T x = this->uniform(1, 2), y = this->uniform(1, 2);
        T d1 = 1, d2 = -(x * x) / (y * y), rotated = x, param[5];
        rotmg(d1, d2, rotated, y, param);
        failed += d1 == 0;
        ASSERT_TRUE(std::isfinite(d1) && d1 >= 0 && std::isfinite(d2) && std::isfinite(rotated))
            << x << ' ' << y;
    }
    EXPECT_GT(failed, 1000);
    EXPECT_LT(failed, 9900);
}

// Infinities, NaN, the smallest and the largest numbers: no call hangs, and none invents a scale factor.
TYPED_TEST(ModifiedGivens, EndsForEveryArgument)
{
    using T = TypeParam;
    using Limits = std::numeric_limits<T>;
    std::vector<T> values = {0, unset<T>};
    for (const T v : {T(1), Limits::infinity(), Limits::denorm_min(), Limits::min(), std::sqrt(Limits::min()),
                      std::sqrt(Limits::max()), Limits::max()})
        values.insert(values.end(), {v, -v});
    for (const T d1 : values)
        for (const T d2 : values)
            for (const T x : values)
                for (const T y : values) {
                    SCOPED_TRACE(testing::PrintToString(std::array{d1, d2, x, y}));
                    T e1 = d1, e2 = d2, u = x, param[5];
                    rotmg(e1, e2, u, y, param);
                    ASSERT_FALSE(e1 < 0);
                    if (param[0] == -2) {
                        ASSERT_EQ(d2 * y, 0);
                        continue;
                    }
                    for (const T d : {e1, e2})
                        ASSERT_TRUE(d == 0 || !std::isfinite(d) ||
                                    (std::fabs(d) > 0x1p-24 && std::fabs(d) < 0x1p24))
                            << d;
                    const bool is_nan = std::isnan(d1 + d2) || std::isnan(x) || std::isnan(y);
                    ASSERT_TRUE(!is_nan || d1 < 0 || (std::isnan(e1) && std::isnan(u))) << e1;
                    ASSERT_TRUE(!(d1 < 0) ||
                                (e1 == 0 && e2 == 0 && u == 0 && param[0] == -1 && param[4] == 0));
                }
}

// R'DR is the weighted crossproduct matrix of the rows that were folded in and not taken out.
TYPED_TEST(ModifiedGivens, DowndatingUndoesUpdating)
{
    using T = TypeParam;
    constexpr int p = 4, n = 30, taken_out = 18;
    T r[p][p] = {}, d[p] = {}, rows[n][p], weights[n];
    const auto fold = [&](const T *row, T weight) {
        T z[p], param[5];
        std::copy_n(row, p, z);
        for (int k = 0; k < p; ++k) {
            rotmg(d[k], weight, r[k][k], z[k], param);
            rotm(p - k - 1, r[k] + k + 1, 1, z + k + 1, 1, param);
        }
    };
    for (int i = 0; i < n; ++i) {
        for (T &v : rows[i]) v = this->uniform(-2, 2);
        fold(rows[i], weights[i] = this->uniform(T(0.5), 4));
    }
    for (const int out : {0, taken_out}) {
        for (int i = 0; i < out; ++i) fold(rows[i], -weights[i]);
        for (int j = 0; j < p; ++j)
            for (int k = j; k < p; ++k) {
                long double due = 0, got = 0;
                for (int i = out; i < n; ++i)
                    due += static_cast<long double>(weights[i]) * rows[i][j] * rows[i][k];
                for (int i = 0; i <= j; ++i) got += static_cast<long double>(d[i]) * r[i][j] * r[i][k];
                EXPECT_NEAR(got, due, 4000 * std::numeric_limits<T>::epsilon())
                    << out << ' ' << j << ' ' << k;
            }
    }
    for (int i = taken_out; i < n; ++i) fold(rows[i], -2 * weights[i]);
    EXPECT_EQ(*std::min_element(d, d + p), 0) << "more was taken out than was there";
}

// Data and matrices whose products are exact, so that the sums of a plain loop must come out to the last bit.
TYPED_TEST(ModifiedGivens, AppliesToVectorsOfAnyStride)
{
    using T = TypeParam;
    constexpr int n = 5, size = 16;
    constexpr T nan = unset<T>;
    const T params[][5] = {{-2, nan, nan, nan, nan}, {-1, 0.5, -2, 1.5, 0.25}, {0, nan, -0.5, 2, nan},
                           {1, 0.5, nan, nan, -2},   {-3, 0.5, -2, 1.5, 0.25}, {2, 0.5, nan, nan, -2}};
    for (const auto &param : params)
        for (const int incx : {1, 2, 3, -1, -3, 0})
            for (const int incy : {1, 3, -1, -2, 0}) {
                SCOPED_TRACE(testing::PrintToString(std::array{int(param[0]), incx, incy}));
                T x[size], y[size], x_due[size], y_due[size];
                for (int i = 0; i < size; ++i) {
                    x[i] = x_due[i] = static_cast<T>(3 * i - 20);
                    y[i] = y_due[i] = static_cast<T>(7 - i * i % 11);
                }
                Matrix<T> h(param);
                if (param[0] == 2) h.h21 = -1, h.h12 = 1; // any positive flag is 1, any other negative one -1
                for (int i = 0; i < n; ++i) {
                    T &a = x_due[incx < 0 ? (i - n + 1) * incx : i * incx];
                    T &b = y_due[incy < 0 ? (i - n + 1) * incy : i * incy];
                    const long double u = a, v = b;
                    a = static_cast<T>(h.h11 * u + h.h12 * v);
                    b = static_cast<T>(h.h21 * u + h.h22 * v);
                }
                rotm(n, x, incx, y, incy, param);
                EXPECT_TRUE(std::equal(x, x + size, x_due));
                EXPECT_TRUE(std::equal(y, y + size, y_due));
            }
    const T full[] = {-1, 0, -1, 1, 0}; // exchanges, with a sign
    T a = 3, b = 5;
    rotm(1, &a, INT_MIN, &b, INT_MAX, full);
    EXPECT_EQ(a, 5);
    EXPECT_EQ(b, -3);
}

TYPED_TEST(ModifiedGivens, NeedsItsArguments)
{
    using T = TypeParam;
    T v[5] = {1, 1, 1, 1, 1}, *const null = nullptr;
    const auto setting_up = [&](T *d1, T *d2, T *x1, T *param) {
        return outcome(
            [=] {
                if constexpr (std::is_same_v<T, float>) tavik_srotmg(d1, d2, x1, 1, param);
                else tavik_drotmg(d1, d2, x1, 1, param);
            },
            "l");
    };
    const auto applying = [&](int n, T *x, T *y, const T *param) {
        return outcome([=] { rotm(n, x, INT_MIN, y, INT_MIN, param); });
    };
    EXPECT_EQ(setting_up(null, v, v, v), "5 150 d1");
    EXPECT_EQ(setting_up(v, null, v, v), "5 150 d2");
    EXPECT_EQ(setting_up(v, v, null, v), "5 150 x1");
    EXPECT_EQ(setting_up(v, v, v, null), "5 150 param");
    EXPECT_EQ(printed.back().routine, (std::is_same_v<T, float> ? "tavik_srotmg" : "tavik_drotmg"));
    EXPECT_EQ(v[0], 1);
    for (const int n : {0, -1, INT_MIN}) EXPECT_EQ(applying(n, null, null, null), "0 0");
    EXPECT_EQ(applying(2, null, v, v), "5 150");
    EXPECT_EQ(applying(2, v, null, v), "5 150");
    EXPECT_EQ(applying(2, v, v, null), "5 150");
    EXPECT_EQ(printed.back().routine, (std::is_same_v<T, float> ? "tavik_srotm" : "tavik_drotm"));
    EXPECT_EQ(v[0], 1);
}

} // namespace
