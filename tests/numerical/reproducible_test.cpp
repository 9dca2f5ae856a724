// The reproducible logarithm and exponential against the C library in long double, in units in the last place
// of the result, and at their edges.
#include "numerical/reproducible.hpp"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <gtest/gtest.h>
#include <limits>
#include <random>

namespace {

using namespace tavik::numerical;
using Limits = std::numeric_limits<double>;

void expect_near(double actual, long double due, long double most, double x)
{
    const int exponent = std::max(std::ilogb(due), Limits::min_exponent - 1) - Limits::digits + 1;
    EXPECT_LE(std::fabs(actual - due), std::ldexp(most, exponent))
        << x << ": got " << actual << ", due " << due;
}

TEST(Reproducible, LogIsAccurate)
{
    std::mt19937_64 bits(1);
    for (int k = 0; k < 300'000; ++k) {
        const double u = std::ldexp(static_cast<double>(bits() >> 11), -53);
        const int exponent = static_cast<int>(bits() % 2098) - 1074;
        for (const double x :
             {std::ldexp(1 + u, exponent), 0.5 + 1.5 * u, 1 + std::ldexp(u - 0.5, -std::abs(exponent % 50))})
            if (x != 1) expect_near(reproducible_log(x), std::log(static_cast<long double>(x)), 0.8L, x);
    }
}

TEST(Reproducible, ExpIsAccurate)
{
    std::mt19937_64 bits(2);
    for (int k = 0; k < 300'000; ++k) {
        const double u = std::ldexp(static_cast<double>(bits() >> 11), -53);
        for (const double x : {-745.1 + 1454.8 * u, -745.1 + 40 * u, 2 * u - 1, std::ldexp(u - 0.5, -k % 60)})
            expect_near(reproducible_exp(x), std::exp(static_cast<long double>(x)), 0.9L, x);
    }
}

TEST(Reproducible, HoldsAtTheEdges)
{
    const double inf = Limits::infinity(), nan = Limits::quiet_NaN();
    EXPECT_EQ(reproducible_log(1), 0);
    EXPECT_FALSE(std::signbit(reproducible_log(1)));
    EXPECT_EQ(reproducible_log(0), -inf);
    EXPECT_EQ(reproducible_log(-0.0), -inf);
    EXPECT_EQ(reproducible_log(inf), inf);
    for (const double x : {-Limits::denorm_min(), -1.0, -inf, nan})
        EXPECT_TRUE(std::isnan(reproducible_log(x)));
    expect_near(reproducible_log(Limits::denorm_min()), -744.440071921381262314107298L, 0.6L, 0);
    EXPECT_EQ(reproducible_exp(0), 1);
    EXPECT_EQ(reproducible_exp(-0.0), 1);
    EXPECT_EQ(reproducible_exp(inf), inf);
    EXPECT_EQ(reproducible_exp(-inf), 0);
    EXPECT_TRUE(std::isnan(reproducible_exp(nan)));
    // log(2^1024) and log(2^-1075) lie between neighbouring numbers.
    EXPECT_LT(reproducible_exp(709.782712893384), inf);
    EXPECT_EQ(reproducible_exp(std::nextafter(709.782712893384, inf)), inf);
    EXPECT_EQ(reproducible_exp(-745.1332191019411), Limits::denorm_min());
    EXPECT_EQ(reproducible_exp(std::nextafter(-745.1332191019412, -inf)), 0);
    EXPECT_EQ(reproducible_exp(Limits::max()), inf);
    EXPECT_EQ(reproducible_exp(Limits::lowest()), 0);
}

} // namespace
