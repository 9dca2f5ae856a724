// Uniform and normal deviates in arrays of 2^18 and one at a time, beside GSL and the C++ standard library.
#include "peers/random_peers.hpp"
#include "ratios.hpp"
#include "tavikstat.h"

#include <omp.h>
#include <string>

namespace {

constexpr int array_size = 1 << 18;
constexpr int long_run = 10'000'000;
constexpr int inversion = 0;

template <class Real> Real *buffer()
{
    static std::vector<Real> memory(long_run);
    return memory.data();
}

void uniforms(benchmark::State &state, int generator, int n)
{
    tavik_random_option(generator);
    tavik_random_seed_set(20261121);
    double *r = buffer<double>();
    for (auto _ : state) benchmark::DoNotOptimize(tavik_d_random_uniform(n, TAVIK_RETURN_USER, r, 0));
}

void float_uniforms(benchmark::State &state, int generator, int n)
{
    tavik_random_option(generator);
    tavik_random_seed_set(20261121);
    float *r = buffer<float>();
    for (auto _ : state) benchmark::DoNotOptimize(tavik_f_random_uniform(n, TAVIK_RETURN_USER, r, 0));
}

void dice(benchmark::State &state, int generator, int n)
{
    tavik_random_option(generator);
    int *r = buffer<int>();
    for (auto _ : state)
        benchmark::DoNotOptimize(tavik_d_random_uniform_discrete(n, 6, TAVIK_RETURN_USER, r, 0));
}

void std_dice(benchmark::State &state, std::size_t n)
{
    int *r = buffer<int>();
    for (auto _ : state) {
        peers::std_dice(r, n);
        benchmark::ClobberMemory();
    }
}

void normals(benchmark::State &state, int method, int n, int threads)
{
    omp_set_num_threads(threads);
    tavik_random_option(8);
    double *r = buffer<double>();
    for (auto _ : state) {
        if (method == inversion) tavik_d_random_normal(n, TAVIK_RETURN_USER, r, 0);
        else tavik_d_random_normal(n, method, TAVIK_RETURN_USER, r, 0);
        benchmark::ClobberMemory();
    }
}

void peer(benchmark::State &state, peers::Fill fill, std::size_t n)
{
    double *r = buffer<double>();
    for (auto _ : state) {
        fill(r, n);
        benchmark::ClobberMemory();
    }
}

template <class... Arguments>
std::string add(const std::string &name, void (*run)(benchmark::State &, Arguments...),
                Arguments... arguments)
{
    benchmark::RegisterBenchmark(name.c_str(), run, arguments...)
        ->UseRealTime()
        ->Repetitions(9)
        ->ReportAggregatesOnly();
    return name;
}

const bool registered = [] {
    using bench::compare;
    const auto add_peer = [](const std::string &name, peers::Fill fill, std::size_t n = array_size) {
        return add<peers::Fill, std::size_t>("random/" + name, peer, fill, n);
    };
    const std::string minstd = add_peer("gsl minstd", peers::gsl_minstd);
    const std::string gfsr4 = add_peer("gsl gfsr4", peers::gsl_gfsr4);
    const std::string mt19937 = add_peer("gsl mt19937", peers::gsl_mt19937);
    const std::string std_mt19937 = add_peer("std mt19937", peers::std_mt19937);
    const std::string std_mt19937_64 = add_peer("std mt19937_64", peers::std_mt19937_64);

    std::string of[10];
    for (int generator = 1; generator <= 9; ++generator)
        of[generator] = add("random/generator " + std::to_string(generator), uniforms, generator, array_size);
    for (const int generator : {1, 3, 5}) compare(of[generator], minstd, 15);
    compare(add("random/float, generator 1", float_uniforms, 1, +array_size), minstd, 15);
    for (const int generator : {2, 4, 6}) compare(of[generator], minstd, 4);
    compare(of[7], gfsr4, 5);
    compare(of[8], mt19937, 10);
    compare(of[8], std_mt19937, 2);
    compare(of[9], std_mt19937_64, 2);

    compare(add("random/dice, generator 8", dice, 8, +array_size),
            add<std::size_t>("random/std dice", std_dice, array_size), 0);

    compare(add("random/normal, inversion", normals, +inversion, +array_size, 1),
            add_peer("gsl inversion", peers::gsl_inversion), 8);
    compare(add("random/normal, ziggurat", normals, +TAVIK_ZIGGURAT, +array_size, 1),
            add_peer("gsl ziggurat", peers::gsl_ziggurat), 4);
    compare(add("random/normal, Kinderman-Ramage", normals, +TAVIK_ACCEPT_REJECT, +array_size, 1),
            add_peer("gsl ratio method", peers::gsl_ratio_method), 3);

    compare(add("random/one, generator 1", uniforms, 1, 1), add_peer("one, gsl minstd", peers::gsl_minstd, 1),
            0.25);
    compare(add("random/one, generator 8", uniforms, 8, 1),
            add_peer("one, gsl mt19937", peers::gsl_mt19937, 1), 0.25);

    const std::string one_thread =
        add("random/10^7 by inversion, 1 thread", normals, +inversion, +long_run, 1);
    compare(add("random/10^7 by inversion, 2 threads", normals, +inversion, +long_run, 2), one_thread, 1.6);
    return true;
}();

} // namespace
