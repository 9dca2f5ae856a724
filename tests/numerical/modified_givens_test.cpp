// rotmg and rotm: cases worked out by hand in exact arithmetic, and what defines the rotation: it zeroes the
// second component and keeps the weighted crossproducts.
#include "frame/capture.hpp"

#include <array>
#include <climits>
#include <cmath>
#include <limits>
#include <random>

namespace {

using namespace capture;
using L = long double;

template <class T> constexpr auto rotmg = of_type<T>(tavik_srotmg, tavik_drotmg);
template <class T> constexpr auto rotm = of_type<T>(tavik_srotm, tavik_drotm);

// Zero, infinity and NaN cannot be brought into the range of a scale factor.
template <class T> bool in_range(T d)
{
    return d == 0 || !std::isfinite(d) || (std::fabs(d) > 0x1p-24 && std::fabs(d) < 0x1p24);
}

template <class T> struct ModifiedGivens : FrameTest {
};
TYPED_TEST_SUITE(ModifiedGivens, capture::Reals);

TYPED_TEST(ModifiedGivens, IsExactWhereTheArithmeticIs)
{
    using T = TypeParam;
    constexpr T no = std::numeric_limits<T>::quiet_NaN(), g = 4096, up = 0x1p50, down = 0x1p-50;
    // Given are d1, d2, x, y; due are flag, h11, h21, h12, h22 (or not set), d1, d2, x.
    const T rows[][12] = {
        {3, 2, 5, 0, -2, no, no, no, no, 3, 2, 5},
        {20, 5, 1, -1, 0, no, 1, -0.25, no, 16, 4, 1.25},
        {5, 20, 1, 1, 1, 0.25, no, no, 1, 16, 4, 1.25},
        {2, 2, 2, -2, 1, -1, no, no, -1, 1, 1, -4},
        {0, 2, 10, 5, 1, 0, no, no, 2, 2, 0, 5},
        {12, -3, 1, 1, 0, no, -1, -0.25, no, 16, -4, 0.75},
        {1, -1, 1, 1, -1, 0, 0, 0, 0, 0, 0, 0},
        // rescaled, some rows of H twice; 4096^2 and 4096^-2 are out of range
        {20 * down, 5 * down, 1, 1, -1, 1 / g, -1 / (g * g), 0.25 / g, 1 / (g * g), 0x1p-22, 1, 1.25 / g},
        {5 * up, 20 * up, 1, 1, -1, 0.25 * g * g, -g * g, g * g, g * g, 0x1p6, 0x1p4, 1.25 * g * g},
        {20 * 0x1p20, 5, 1, 1024, -1, g, -1024, 1, 1, 1, 4, 1.25 * g},
        {20 * 0x1p-28, 5 * 0x1p-28, 1, 1, -1, 1 / g, -1 / g, 0.25 / g, 1 / g, 1, 0.25, 1.25 / g},
        {20 * 0x1p-27, 5 * 0x1p-25, 1, 0.5, 0, no, -0.5, 0.5, no, 0x1p-23, 0x1p-23, 1.25},
    };
    for (const auto &row : rows) {
        T seen[] = {no, no, no, no, no, row[0], row[1], row[2]};
        rotmg<T>(&seen[5], &seen[6], &seen[7], row[3], seen);
        for (int k = 0; k < 8; ++k)
            EXPECT_TRUE(seen[k] == row[k + 4] || (std::isnan(seen[k]) && std::isnan(row[k + 4])))
                << testing::PrintToString(row) << ", but " << k << " is " << seen[k];
    }
}

TYPED_TEST(ModifiedGivens, KeepsTheWeightedCrossproducts)
{
    using T = TypeParam;
    constexpr L epsilon = std::numeric_limits<T>::epsilon();
    std::mt19937_64 bits(5);
    int forms[4] = {}; // the first of them: nothing is left
    for (int k = 0; k < 40'000; ++k) {
        const T width = k % 2 == 0 ? 3 : sizeof(T) == 4 ? 20 : 150;
        const auto random = [&] { return std::exp2(std::uniform_real_distribution<T>(-width, width)(bits)); };
        const T d1 = random(), x = random() * (k % 3 == 0 ? 1 : -1), y = random(),
                d2 = k % 7 == 0 ? -d1 * (x / y) * (x / y) : random() * (k % 5 == 0 ? -1 : 1);
        SCOPED_TRACE(testing::PrintToString(std::array{d1, d2, x, y}));
        T e1 = d1, e2 = d2, u = x, param[5], h11 = 1, h12 = 0, h21 = 0, h22 = 1;
        rotmg<T>(&e1, &e2, &u, y, param);
        ++forms[e1 == 0 ? 0 : static_cast<int>(param[0]) + 2];
        if (e1 == 0 && L(d1) * x * x <= (1 + 4 * epsilon) * -L(d2) * y * y) continue;
        ASSERT_TRUE(e1 > 0 && (e2 < 0) == (d2 < 0) && in_range(e1) && in_range(e2)) << e1 << ' ' << e2;
        rotm<T>(1, &h11, 1, &h21, 1, param);
        rotm<T>(1, &h12, 1, &h22, 1, param);
        const L sums[][3] = {{L(h21) * x, L(h22) * y, 0}, // two terms, and their sum
                             {L(h11) * x, L(h12) * y, u},
                             {L(e1) * h11 * h11, L(e2) * h21 * h21, d1},
                             {L(e1) * h12 * h12, L(e2) * h22 * h22, d2},
                             {L(e1) * h11 * h12, L(e2) * h21 * h22, 0}};
        for (const auto &[a, b, due] : sums)
            ASSERT_NEAR(a + b, due, 8 * epsilon * std::max({std::fabs(a), std::fabs(b), std::fabs(due)}));
    }
    EXPECT_GT(*std::min_element(forms, forms + 4), 500);
}

// Infinities, NaN, the smallest and the largest numbers: no call hangs, and none invents a scale factor.
TYPED_TEST(ModifiedGivens, EndsForEveryArgument)
{
    using T = TypeParam;
    using Limits = std::numeric_limits<T>;
    const T root = std::sqrt(Limits::min()), most = Limits::max(), inf = Limits::infinity(),
            v[] = {0, 1, -1, Limits::denorm_min(), root, -root, 1 / root, most, -most, inf, -inf, inf - inf};
    constexpr int n = std::size(v);
    for (int k = 0; k < n * n * n * n; ++k) {
        const T d1 = v[k % n], d2 = v[k / n % n], x = v[k / n / n % n], y = v[k / n / n / n];
        SCOPED_TRACE(testing::PrintToString(std::array{d1, d2, x, y}));
        T e1 = d1, e2 = d2, u = x, param[5];
        rotmg<T>(&e1, &e2, &u, y, param);
        const bool is_nan = std::isnan(d1 + d2) || std::isnan(x) || std::isnan(y);
        if (param[0] == -2) ASSERT_TRUE(d2 * y == 0 && !(d1 < 0));
        else if (d1 < 0) ASSERT_TRUE(e1 == 0 && e2 == 0 && u == 0 && param[0] == -1 && param[4] == 0);
        else if (is_nan) ASSERT_TRUE(std::isnan(e1) && std::isnan(u) && in_range(e2));
        else ASSERT_TRUE(!(e1 < 0) && in_range(e1) && in_range(e2)) << e1 << ' ' << e2;
    }
}

// Any positive flag counts as 1, any negative one but -2 as -1. All results are exact.
TYPED_TEST(ModifiedGivens, AppliesToVectorsOfAnyStride)
{
    using T = TypeParam;
    constexpr T no = std::numeric_limits<T>::quiet_NaN();
    const struct {
        T param[5], x, y; // of 3 and 5
    } cases[] = {{{-2, no, no, no, no}, 3, 5}, {{-1, 2, -2, 3, 4}, 21, 14}, {{0, no, -2, 3, no}, 18, -1},
                 {{1, 2, no, no, 4}, 11, 17},  {{-3, 2, -2, 3, 4}, 21, 14}, {{2, 2, no, no, 4}, 11, 17}};
    for (const auto &[param, x_of_3, y_of_5] : cases) {
        T a = 3, b = 5;
        rotm<T>(1, &a, INT_MIN, &b, INT_MAX, param);
        EXPECT_TRUE(a == x_of_3 && b == y_of_5) << param[0] << ": " << a << ' ' << b;
        for (const auto &[dx, dy] : {std::pair{1, 1}, {1, 3}, {2, -1}, {-1, 1}, {-3, -2}, {0, 2}}) {
            std::array<T, 16> x{3, 1, 4, 1, 5, 9, 2, 6, 5, 3, 5, 8, 9, 7, 9, 3}, y = x, x_due = x, y_due = x;
            for (int i = 0; i < 5; ++i)
                rotm<T>(1, &x_due[(dx < 0 ? i - 4 : i) * dx], 1, &y_due[(dy < 0 ? i - 4 : i) * dy], 1, param);
            rotm<T>(5, x.data(), dx, y.data(), dy, param);
            EXPECT_TRUE(x == x_due && y == y_due) << param[0] << ", strides " << dx << ", " << dy;
        }
    }
}

TYPED_TEST(ModifiedGivens, NeedsItsArguments)
{
    using T = TypeParam;
    T v[5] = {1, 1, 1, 1, 1};
    const string names[] = {"d1", "d2", "x1", "param"};
    for (int missing = 0; missing < 4; ++missing) {
        const auto arg = [&](int k) { return k == missing ? nullptr : v; };
        EXPECT_EQ(outcome([&] { rotm<T>(1, arg(0), 1, arg(1), 1, arg(2)); }), missing == 3 ? "0 0" : "5 150");
        EXPECT_EQ(outcome([&] { rotm<T>(-missing, nullptr, 1, nullptr, 1, nullptr); }), "0 0");
        EXPECT_EQ(outcome([&] { rotmg<T>(arg(0), arg(1), arg(2), 1, arg(3)); }, "l"),
                  "5 150 " + names[missing]);
        EXPECT_EQ(printed.back().routine, sizeof(T) == 4 ? "tavik_srotmg" : "tavik_drotmg");
    }
}

} // namespace
