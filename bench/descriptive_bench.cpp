// Simple statistics of 4,000,000 doubles in three shapes, beside Eigen.
#include "peers/eigen_moments.hpp"
#include "ratios.hpp"
#include "tavikstat.h"

#include <omp.h>
#include <random>
#include <string>

namespace {

constexpr int n_values = 4'000'000;

const std::vector<double> &data()
{
    static const std::vector<double> x = [] {
        std::mt19937_64 engine(20261121);
        std::normal_distribution<double> normal(10, 2);
        std::vector<double> values(n_values);
        for (double &v : values) v = normal(engine);
        return values;
    }();
    return x;
}

void ours(benchmark::State &state, int p, int threads)
{
    omp_set_num_threads(threads);
    std::vector<double> result(14 * static_cast<std::size_t>(p));
    for (auto _ : state) {
        tavik_d_simple_statistics(n_values / p, p, data().data(), TAVIK_RETURN_USER, result.data(), 0);
        benchmark::DoNotOptimize(result.data());
    }
}

using Peer = void (*)(const double *, std::int64_t, std::int64_t, double *);

void peer(benchmark::State &state, int p, Peer moments)
{
    std::vector<double> result(6 * static_cast<std::size_t>(p));
    for (auto _ : state) {
        moments(data().data(), n_values / p, p, result.data());
        benchmark::DoNotOptimize(result.data());
    }
}

template <class... Arguments>
void add(const std::string &name, void (*run)(benchmark::State &, Arguments...), Arguments... arguments)
{
    benchmark::RegisterBenchmark(name.c_str(), run, arguments...)
        ->Unit(benchmark::kMillisecond)
        ->UseRealTime()
        ->Repetitions(9)
        ->ReportAggregatesOnly();
}

const bool registered = [] {
    const struct {
        int p;
        double at_least;
    } shapes[] = {{1, 8}, {10, 4}, {100, 5}};
    for (const auto &shape : shapes) {
        const std::string work = "simple_statistics/nx" + std::to_string(shape.p);
        add(work + "/1 thread", ours, shape.p, 1);
        add(work + "/2 threads", ours, shape.p, 2);
        add<int, Peer>(work + "/eigen", peer, shape.p, peers::eigen_moments);
        add<int, Peer>(work + "/eigen fused", peer, shape.p, peers::eigen_moments_fused);
        bench::compare(work + "/1 thread", work + "/eigen", shape.at_least);
        bench::compare(work + "/1 thread", work + "/eigen fused", 0);
        bench::compare(work + "/2 threads", work + "/eigen fused", 0);
        bench::compare(work + "/2 threads", work + "/1 thread", 1.7);
    }
    return true;
}();

} // namespace
