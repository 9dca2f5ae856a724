// Seeds for clusters: which observations may be drawn, how often, and that only data and generator decide.
#include "frame/capture.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <map>
#include <omp.h>
#include <set>

namespace {

template <class Real> struct ClusterSeeds : capture::FrameTest {
    using Values = std::vector<Real>;
    static constexpr Real nan = std::numeric_limits<Real>::quiet_NaN(),
                          inf = std::numeric_limits<Real>::infinity();
    static constexpr auto routine = capture::of_type<Real>(tavik_f_cluster_seeds, tavik_d_cluster_seeds);

    ClusterSeeds()
    {
        tavik_random_option(1);
        tavik_random_seed_set(7);
    }
    ~ClusterSeeds() override
    {
        omp_set_num_threads(omp_get_num_procs());
    }

    // Rows of p values; no values after an error.
    template <class... Options> static Values seeds(const Values &x, int p, int k, Options... options)
    {
        return capture::take(routine(int(x.size()) / p, p, x.data(), k, options..., 0), std::size_t(k * p));
    }
};

TYPED_TEST_SUITE(ClusterSeeds, capture::Reals);

// The law of the plain method for x = 0, 1, 3 with masses 2, 1, 1: the first seed is drawn by mass, the second by mass
// times squared distance. Expected counts of the six ordered pairs, in 20,000 draws; the chi-square limit is the 1e-6
// quantile of the upper tail with 5 degrees of freedom.
TYPED_TEST(ClusterSeeds, PlainSeedsFollowTheirLaw)
{
    const std::vector<TypeParam> x = {0, 1, 3}, mass = {2, 1, 1};
    const std::map<std::pair<double, double>, double> probability = {
        {{0, 1}, 0.5 * 1 / 10}, {{0, 3}, 0.5 * 9 / 10},   {{1, 0}, 0.25 * 2 / 6},
        {{1, 3}, 0.25 * 4 / 6}, {{3, 0}, 0.25 * 18 / 22}, {{3, 1}, 0.25 * 4 / 22}};
    constexpr int draws = 20000;
    std::map<std::pair<double, double>, int> seen;
    for (int i = 0; i < draws; ++i) {
        const auto s = this->seeds(x, 1, 2, TAVIK_CLUSTER_TRIALS, 1, TAVIK_FREQUENCIES, mass.data());
        ++seen[{s.at(0), s.at(1)}];
    }
    double chi_square = 0;
    for (const auto &[pair, p] : probability) {
        const double expected = p * draws, difference = seen[pair] - expected;
        chi_square += difference * difference / expected;
    }
    EXPECT_EQ(seen.size(), probability.size());
    EXPECT_LT(chi_square, 35.9);
}

// Of several candidates the one that leaves the smallest sum of squares. With many trials that is: the observation
// closest to the mean, then the middle of the group that is farthest away, then the middle of the third.
TYPED_TEST(ClusterSeeds, TrialsSpreadTheSeeds)
{
    const std::vector<TypeParam> x = {0, 1, 2, 100, 101, 102, 1000, 1001, 1002};
    for (int i = 0; i < 50; ++i) {
        auto s = this->seeds(x, 1, 3, TAVIK_CLUSTER_TRIALS, 60);
        std::sort(s.begin(), s.end());
        ASSERT_EQ(s, (std::vector<TypeParam>{1, 102, 1001}));
    }
}

TYPED_TEST(ClusterSeeds, OnlyGeneratorAndDataDecide)
{
    std::vector<TypeParam> x(30000);
    for (std::size_t i = 0; i < x.size(); ++i) x[i] = TypeParam(std::sin(0.7 * double(i)));
    const auto draw = [&](int threads) {
        omp_set_num_threads(threads);
        tavik_random_seed_set(5);
        return this->seeds(x, 2, 20);
    };
    const auto first = draw(1);
    for (const int threads : {2, 3}) EXPECT_EQ(draw(threads), first);
    EXPECT_NE(this->seeds(x, 2, 20), first); // the next draws of the stream
    std::set<std::pair<TypeParam, TypeParam>> distinct;
    for (std::size_t i = 0; i < first.size(); i += 2) distinct.insert({first[i], first[i + 1]});
    EXPECT_EQ(distinct.size(), 20U);
}

TYPED_TEST(ClusterSeeds, MissingAndInfiniteValues)
{
    // Where a seed has no value, it gets the mean of the column by mass: (2 x 2 + 2 + 3) / 4 here.
    const std::vector<TypeParam> x = {1, 2, 50, this->nan, 5, 2, this->inf, 3}, mass = {2, 1, 1, 1};
    for (int i = 0; i < 50; ++i) {
        const auto s = this->seeds(x, 2, 3, TAVIK_WEIGHTS, mass.data());
        ASSERT_EQ(s.size(), 6U);
        for (std::size_t k = 0; k < 6; k += 2)
            EXPECT_TRUE(s[k] < 50 || (s[k] == 50 && s[k + 1] == TypeParam(2.25))) << s[k] << ' ' << s[k + 1];
    }
}

TYPED_TEST(ClusterSeeds, ColumnsStridesAndUsersArray)
{
    const std::vector<TypeParam> x = {9, 1, 9, 2, 9, 4};
    const int second[] = {1};
    TypeParam user[] = {-1, -1, -1, -1, -1, -1};
    EXPECT_EQ(this->routine(3, 1, x.data(), 3, TAVIK_X_COL_DIM, 2, TAVIK_CLUSTER_VARIABLES, second,
                            TAVIK_CLUSTER_SEEDS_COL_DIM, 2, TAVIK_RETURN_USER, user, 0),
              user);
    EXPECT_EQ(user[0] + user[2] + user[4], 7);
    EXPECT_EQ(user[1] + user[3] + user[5], -3);
}

TYPED_TEST(ClusterSeeds, Errors)
{
    const std::vector<TypeParam> x = {1, 1, 2, 2}, bad = {1, 0, 1, 1};
    const auto code = [&](auto... options) {
        return this->seeds(x, 1, options...).empty() ? tavik_error_code() : 0;
    };
    EXPECT_EQ(code(1), 20080);
    EXPECT_EQ(code(5), 20080);
    EXPECT_EQ(code(3), 20085);
    EXPECT_EQ(code(2, TAVIK_CLUSTER_TRIALS, 0), 603);
    EXPECT_EQ(code(2, TAVIK_CLUSTER_SEEDS_COL_DIM, 0), 603);
    EXPECT_EQ(code(2, TAVIK_FREQUENCIES, bad.data()), 20081);
    EXPECT_EQ(code(2, TAVIK_WEIGHTS, bad.data()), 20082);
    EXPECT_EQ(code(2, 12345), 11001);
    EXPECT_EQ(code(2), 0);
}

} // namespace
