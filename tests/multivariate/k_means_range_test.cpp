// K-means at the ends of its range: scales of data and masses that leave the range of their squares and sums, stages of
// very many passes, and rows enough that threads go through them.
#include "frame/tavikstat.h"

#include <gtest/gtest.h>

#include <cmath>
#include <omp.h>
#include <vector>

namespace {

using Values = std::vector<double>;

class KMeansRange : public testing::Test {
protected:
    void SetUp() override
    {
        tavik_random_option(1);
        tavik_random_seed_set(3);
    }

    void TearDown() override
    {
        omp_set_num_threads(omp_get_num_procs());
    }
};

struct Result {
    std::vector<int> clusters, history;
    int n_iterations;
    double sum_of_squares;
};

// From the first k rows as seeds, or others.
Result find(const Values &x, int p, int k, const Values &masses = {}, const Values &seeds = {})
{
    const int n = static_cast<int>(x.size()) / p, limit = 30;
    Result result{std::vector<int>(x.size() / static_cast<std::size_t>(p)), {}, 0, 0};
    result.history.resize(result.clusters.size() * limit);
    Values squares(static_cast<std::size_t>(k)), ones(result.clusters.size(), 1);
    EXPECT_NE(tavik_d_cluster_k_means(n, p, x.data(), k, seeds.empty() ? x.data() : seeds.data(),
                                      TAVIK_WEIGHTS, masses.empty() ? ones.data() : masses.data(),
                                      TAVIK_MAX_ITERATIONS, limit, TAVIK_CLUSTER_SSQ_USER, squares.data(),
                                      TAVIK_CLUSTER_HISTORY_USER, &result.n_iterations, result.history.data(),
                                      TAVIK_RETURN_USER, result.clusters.data(), 0),
              nullptr)
        << tavik_error_message();
    for (const double square : squares) result.sum_of_squares += square;
    return result;
}

Values normals(int count)
{
    Values x(static_cast<std::size_t>(count));
    tavik_d_random_normal(count, TAVIK_RETURN_USER, x.data(), 0);
    return x;
}

Values scaled(Values x, double factor)
{
    for (double &value : x) value *= factor;
    return x;
}

// Powers of two change no decision while squares keep their digits; where they lose some, threads and bounds still may
// not matter.
TEST_F(KMeansRange, ScaleOfTheData)
{
    const Values x = normals(1200);
    const Result plain = find(x, 2, 3);
    for (const int exponent : {-480, 500}) {
        const Result other = find(scaled(x, std::ldexp(1.0, exponent)), 2, 3);
        EXPECT_EQ(other.clusters, plain.clusters);
        EXPECT_EQ(other.n_iterations, plain.n_iterations);
    }
    const Values many = scaled(normals(264000), 1e-161);
    omp_set_num_threads(1);
    const Result alone = find(many, 1, 3);
    omp_set_num_threads(2);
    EXPECT_EQ(find(many, 1, 3).clusters, alone.clusters);
}

// So many that threads also take part where all clusters are looked at: plain rows; masses of all sizes and a cluster of
// few rows, which loses most of them; missing values; an infinite one, beside which nobody stays.
TEST_F(KMeansRange, ThreadsGoThroughTheRows)
{
    constexpr int p = 4, k = 16, n = (1 << 24) / p / k;
    for (int variant = 0; variant < 4; ++variant) {
        Values x = normals(n * p), masses, seeds;
        for (std::size_t i = 0; i < x.size(); ++i)
            x[i] += static_cast<double>(i / p % 7 * (i % p)); // they overlap
        if (variant == 1) {
            masses = normals(n);
            for (double &mass : masses) mass = std::exp(3 * mass);
            for (std::size_t i = 0; i < 40; ++i) x[i] += 9;
        }
        seeds.assign(x.begin(), x.begin() + k * p);
        for (std::size_t i = 1000; variant == 2 && i < x.size(); i += 97) x[i] = std::nan("");
        if (variant == 3) x[p * 1000] = HUGE_VAL;
        omp_set_num_threads(1);
        const Result alone = find(x, p, k, masses, seeds);
        EXPECT_GT(alone.n_iterations, 5);
        for (const int threads : {2, 3}) {
            omp_set_num_threads(threads);
            const Result other = find(x, p, k, masses, seeds);
            EXPECT_EQ(other.n_iterations, alone.n_iterations) << variant;
            EXPECT_TRUE(other.history == alone.history) << variant;
            EXPECT_TRUE(other.clusters == alone.clusters) << variant;
        }
    }
}

// Masses stand for ratios: their scale multiplies the sums of squares, and nothing else.
TEST_F(KMeansRange, ScaleOfTheMasses)
{
    const Values x = normals(600), masses = [] {
        Values m = normals(300);
        for (double &mass : m) mass = 0.5 + mass * mass;
        return m;
    }();
    const Result plain = find(x, 2, 4, masses);
    for (const double factor : {0x1p-1000, 0x1p1000}) {
        const Result other = find(x, 2, 4, scaled(masses, factor));
        EXPECT_EQ(other.clusters, plain.clusters);
        EXPECT_EQ(other.sum_of_squares, plain.sum_of_squares * factor);
    }
    Values whole(300);
    for (std::size_t i = 0; i < whole.size(); ++i) whole[i] = static_cast<double>(1 + i % 3);
    const Result tiny = find(x, 2, 4, scaled(whole, 0x1p-1074)), of_whole = find(x, 2, 4, whole);
    EXPECT_EQ(tiny.clusters, of_whole.clusters);
    EXPECT_NEAR(tiny.sum_of_squares, of_whole.sum_of_squares * 0x1p-1074,
                0x1p-1072); // four clusters' roundings
    // One so heavy that the others are nothing beside it stays where it is.
    const Values far_apart = {.1, .2, .3, 100, 100.1, 100.2}, heavy = {1e16, 1, 1, 1, 1, 1};
    const Result result = find(far_apart, 1, 2, heavy, {.1, 100});
    EXPECT_EQ(result.clusters, (std::vector<int>{1, 1, 1, 2, 2, 2}));
}

// Heavy rows at 0 and 1 and a row of light ones between, in reverse order: each that moves draws the border just past
// the next, so that a quick stage has one move a pass.
TEST_F(KMeansRange, AStageOfManyPasses)
{
    constexpr int light = 3000;
    constexpr double heavy_mass = 1e5, step = 0.974 * 0.5 / heavy_mass;
    Values x, masses;
    for (int t = light - 1; t >= 0; --t) {
        x.push_back(0.5 + step * (t - light / 2.0));
        masses.push_back(1);
    }
    for (const double place : {0.0, 0.0, 1.0, 1.0}) {
        x.push_back(place);
        masses.push_back(heavy_mass / 2);
    }
    const double border = x[light - 1] + 0.5 * step;
    const Result result = find(x, 1, 2, masses, {0, 2 * border});
    EXPECT_EQ(result.n_iterations, 2);
}

} // namespace
