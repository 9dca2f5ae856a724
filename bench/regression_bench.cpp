// Linear regression with an intercept beside LAPACK (OpenBLAS) and R, and in stages beside one call.
#include "peers/regression_peers.hpp"
#include "ratios.hpp"
#include "tavikstat.h"

#include <chrono>
#include <cmath>
#include <memory>
#include <omp.h>
#include <string>

namespace {

constexpr int repetitions = 9;

struct Data {
    int n, p;
    std::unique_ptr<double[]> x, y, weights; // x by rows, without the column of ones

    Data(int rows, int columns) : n(rows), p(columns)
    {
        const std::size_t size = static_cast<std::size_t>(n) * p;
        x.reset(new double[size]);
        y.reset(new double[n]);
        weights.reset(new double[n]);
        tavik_random_option(9);
        tavik_random_seed_set(20261121);
        tavik_d_random_uniform(n, TAVIK_RETURN_USER, weights.get(), 0);
        for (int i = 0; i < n; ++i) weights[i] += 0.5;
        tavik_d_random_normal(n, TAVIK_MEAN, 1.0, TAVIK_ZIGGURAT, TAVIK_RETURN_USER, y.get(), 0);
        tavik_d_random_normal(static_cast<int>(size), TAVIK_MEAN, 10.0, TAVIK_VARIANCE, 4.0, TAVIK_ZIGGURAT,
                              TAVIK_RETURN_USER, x.get(), 0);
        for (int i = 0; i < n; ++i) {
            for (int j = 0; j < p; ++j) y[i] += x[static_cast<std::size_t>(i) * p + j] * (j + 1) / p;
        }
    }
};

// The data of the last call stay; those of another shape are released before new ones are made.
const Data &data(int n, int p)
{
    static std::unique_ptr<Data> kept;
    if (!kept || kept->n != n || kept->p != p) {
        kept.reset();
        kept = std::make_unique<Data>(n, p);
    }
    return *kept;
}

std::vector<double> fit(const Data &d)
{
    std::vector<double> coefficients(d.p + 1);
    tavik_d_regression(d.n, d.p, d.x.get(), d.y.get(), TAVIK_RETURN_USER, coefficients.data(), 0);
    return coefficients;
}

void ours(benchmark::State &state, int n, int p, int threads)
{
    omp_set_num_threads(threads);
    const Data &d = data(n, p);
    for (auto _ : state) benchmark::DoNotOptimize(fit(d));
}

void ours_weighted(benchmark::State &state, int n, int p)
{
    omp_set_num_threads(1);
    const Data &d = data(n, p);
    std::vector<double> coefficients(p + 1);
    for (auto _ : state)
        benchmark::DoNotOptimize(tavik_d_regression(n, p, d.x.get(), d.y.get(), TAVIK_WEIGHTS,
                                                    d.weights.get(), TAVIK_RETURN_USER, coefficients.data(),
                                                    0));
}

void ours_in_stages(benchmark::State &state, int n, int p, int rows_a_stage, int threads)
{
    omp_set_num_threads(threads);
    const Data &d = data(n, p);
    std::vector<double> coefficients(p + 1);
    for (auto _ : state) {
        for (int row = 0; row < n; row += rows_a_stage)
            tavik_d_regression(rows_a_stage, p, &d.x[static_cast<std::size_t>(row) * p], &d.y[row], TAVIK_IDO,
                               row == 0 ? 1 : 2, 0);
        benchmark::DoNotOptimize(tavik_d_regression(0, p, nullptr, nullptr, TAVIK_IDO, 3, TAVIK_RETURN_USER,
                                                    coefficients.data(), 0));
    }
}

// A peer that computes something else is no peer.
bool agrees(const double *coefficients, const std::vector<double> &ours)
{
    double scale = 0;
    for (const double c : ours) scale = std::fmax(scale, std::fabs(c));
    for (std::size_t k = 0; k < ours.size(); ++k) {
        if (!(std::fabs(coefficients[k] - ours[k]) <= 1e-8 * scale)) return false;
    }
    return true;
}

// Only the fit is timed: LAPACK's users may not need their data any more.
void dgels(benchmark::State &state, int n, int p, int threads)
{
    const Data &d = data(n, p);
    peers::set_openblas_threads(threads);
    peers::Dgels peer(d.x.get(), d.y.get(), n, p);
    for (auto _ : state) {
        peer.restore();
        const auto start = std::chrono::steady_clock::now();
        peer.fit();
        const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - start;
        state.SetIterationTime(seconds.count());
    }
    if (!agrees(peer.coefficients(), fit(d))) state.SkipWithError("the coefficients differ");
}

// R times itself, once; every repetition shows one of its times.
void lm_wfit(benchmark::State &state, int n, int p)
{
    static const std::vector<double> seconds = peers::lm_wfit_seconds(n, p, repetitions);
    static std::size_t shown = 0;
    if (seconds.empty()) {
        state.SkipWithError("Rscript is missing or failed");
        return;
    }
    for (auto _ : state) state.SetIterationTime(seconds[shown++ % seconds.size()]);
}

enum Clock { wall_clock, own_clock };

template <class... Arguments>
benchmark::internal::Benchmark *add(const std::string &name, Clock clock,
                                    void (*run)(benchmark::State &, Arguments...), Arguments... arguments)
{
    auto *added = benchmark::RegisterBenchmark(name.c_str(), run, arguments...);
    if (clock == own_clock) added->UseManualTime();
    else added->UseRealTime();
    return added->Unit(benchmark::kMillisecond)->Repetitions(repetitions)->ReportAggregatesOnly();
}

std::string shape_name(int n, int p)
{
    return "regression/" + std::to_string(n) + " x " + std::to_string(p);
}

std::string threads_name(int threads)
{
    return threads == 1 ? "1 thread" : std::to_string(threads) + " threads";
}

void add_beside_dgels(int n, int p, int threads, double at_least)
{
    const std::string on = threads_name(threads);
    const std::string us = shape_name(n, p) + "/" + on, peer = shape_name(n, p) + "/dgels, " + on;
    add(us, wall_clock, ours, n, p, threads);
    add(peer, own_clock, dgels, n, p, threads);
    bench::compare(us, peer, at_least);
}

const bool registered = [] {
    for (const auto &[n, p] : {std::pair(1'000'000, 10), {100'000, 50}, {20'000, 200}}) {
        for (const int threads : {1, 2}) add_beside_dgels(n, p, threads, 3);
    }

    const std::string weighted = shape_name(200'000, 10) + "/weighted, 1 thread";
    const std::string r = shape_name(200'000, 10) + "/R lm.wfit";
    add(weighted, wall_clock, ours_weighted, 200'000, 10);
    add(r, own_clock, lm_wfit, 200'000, 10)->Iterations(1);
    bench::compare(weighted, r, 4);

    for (const int threads : {1, 2}) {
        const std::string shape = shape_name(20'000'000, 10), on = ", " + threads_name(threads);
        const std::string stages = shape + "/in stages of 10000" + on, one_call = shape + "/one call" + on;
        add(one_call, wall_clock, ours, 20'000'000, 10, threads);
        add(stages, wall_clock, ours_in_stages, 20'000'000, 10, 10'000, threads);
        bench::compare(stages, one_call, 0.9);
    }

    add_beside_dgels(60, 4, 1, 0);
    add_beside_dgels(1000, 5, 1, 0);
    return true;
}();

} // namespace
