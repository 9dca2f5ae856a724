// K-means of Gaussian mixtures beside R, which makes the same transfers, and on two threads beside one.
#include "ratios.hpp"
#include "tavikstat.h"

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <numeric>
#include <omp.h>

#include <unistd.h>

namespace {

constexpr int repetitions = 5, max_iterations = 1000;

struct Shape {
    int n, p, k;

    bool operator==(const Shape &) const = default;

    std::string name() const
    {
        return "k_means/" + std::to_string(n) + " x " + std::to_string(p) + ", k = " + std::to_string(k);
    }
};

// Rows of k components in turn, whose means are about four standard deviations apart; the first k rows are the seeds. R
// gives up where a quick stage takes more than 50 passes, as with some keys: with this one it gets to the end.
struct Mixture {
    Shape shape;
    std::vector<double> x;

    explicit Mixture(Shape of) : shape(of), x(static_cast<std::size_t>(of.n) * static_cast<std::size_t>(of.p))
    {
        const auto period = static_cast<std::size_t>(shape.k * shape.p);
        std::vector<double> means(period);
        const std::uint64_t key[] = {2026, 1};
        tavik_random_option(9);
        tavik_random_MT64_init(2, key);
        tavik_d_random_normal(shape.k * shape.p, TAVIK_VARIANCE, 8.0 / shape.p, TAVIK_ZIGGURAT,
                              TAVIK_RETURN_USER, means.data(), 0);
        tavik_d_random_normal(shape.n * shape.p, TAVIK_ZIGGURAT, TAVIK_RETURN_USER, x.data(), 0);
        for (std::size_t i = 0; i < x.size(); ++i) x[i] += means[i % period];
    }
};

// The data of the last call stay; those of another shape are released before new ones are made.
const Mixture &mixture(Shape shape)
{
    static std::unique_ptr<Mixture> kept;
    if (!kept || !(kept->shape == shape)) {
        kept.reset();
        kept = std::make_unique<Mixture>(shape);
    }
    return *kept;
}

// All that R gives, too.
struct Clusters {
    std::vector<int> membership, counts;
    std::vector<double> means, ssq;

    explicit Clusters(Shape s)
        : membership(static_cast<std::size_t>(s.n)), counts(static_cast<std::size_t>(s.k)),
          means(static_cast<std::size_t>(s.k * s.p)), ssq(static_cast<std::size_t>(s.k))
    {
    }

    bool find(const Mixture &m)
    {
        tavik_d_cluster_k_means(m.shape.n, m.shape.p, m.x.data(), m.shape.k, m.x.data(), TAVIK_MAX_ITERATIONS,
                                max_iterations, TAVIK_CLUSTER_MEANS_USER, means.data(),
                                TAVIK_CLUSTER_SSQ_USER, ssq.data(), TAVIK_CLUSTER_COUNTS_USER, counts.data(),
                                TAVIK_RETURN_USER, membership.data(), 0);
        return tavik_error_type() == 0;
    }
};

void ours(benchmark::State &state, Shape shape, int threads)
{
    omp_set_num_threads(threads);
    const Mixture &m = mixture(shape);
    Clusters clusters(shape);
    bool converged = true;
    for (auto _ : state) converged = clusters.find(m) && converged;
    if (!converged) state.SkipWithError("not converged");
}

struct Fits {
    Shape shape;
    double objective = 0;
    std::vector<double> seconds = {};
    std::size_t shown = 0;
};

// R times itself on the data that it is given in a file. Without R, or when it did not converge, there are no times.
Fits fits_of_r(const Mixture &m)
{
    namespace fs = std::filesystem;
    const fs::path script = fs::absolute(__FILE__).parent_path() / "peers" / "k_means.R",
                   file = fs::temp_directory_path() / ("k_means_" + std::to_string(getpid()) + ".data");
    std::ofstream(file, std::ios::binary)
        .write(reinterpret_cast<const char *>(m.x.data()),
               static_cast<std::streamsize>(m.x.size() * sizeof(double)));
    std::string command = "Rscript --vanilla '" + script.string() + "' '" + file.string() + "'";
    for (const int argument : {m.shape.n, m.shape.p, m.shape.k, repetitions})
        command += ' ' + std::to_string(argument);
    Fits fits{m.shape};
    if (FILE *output = popen(command.c_str(), "r")) {
        if (std::fscanf(output, "%lf", &fits.objective) != 1) fits.objective = 0;
        for (double s; std::fscanf(output, "%lf", &s) == 1;) fits.seconds.push_back(s);
        if (pclose(output) != 0) fits.seconds.clear();
    }
    fs::remove(file);
    return fits;
}

// Every repetition shows one of R's times. A peer that finds other clusters is no peer.
void r(benchmark::State &state, Shape shape)
{
    static Fits fits{};
    if (!(fits.shape == shape)) fits = fits_of_r(mixture(shape));
    Clusters clusters(shape);
    clusters.find(mixture(shape));
    const double objective = std::accumulate(clusters.ssq.begin(), clusters.ssq.end(), 0.0);
    const bool agrees = std::fabs(fits.objective - objective) <= 1e-10 * objective;
    if (fits.seconds.empty()) state.SkipWithError("Rscript is missing or failed");
    else if (!agrees) state.SkipWithError("the objectives differ");
    else
        for (auto _ : state) state.SetIterationTime(fits.seconds[fits.shown++ % fits.seconds.size()]);
}

template <class... Arguments>
benchmark::internal::Benchmark *add(const std::string &name, void (*run)(benchmark::State &, Arguments...),
                                    Arguments... arguments)
{
    return benchmark::RegisterBenchmark(name.c_str(), run, arguments...)
        ->Unit(benchmark::kMillisecond)
        ->Repetitions(repetitions)
        ->ReportAggregatesOnly();
}

const bool registered = [] {
    const std::pair<Shape, double> beside_r[] = {
        {{100'000, 10, 20}, 3}, {{20'000, 50, 50}, 3}, {{200'000, 2, 8}, 3}, {{50'000, 20, 200}, 4}};
    for (const auto &[shape, at_least] : beside_r) {
        const std::string us = shape.name() + "/1 thread", peer = shape.name() + "/R kmeans";
        add(us, ours, shape, 1)->UseRealTime();
        add(peer, r, shape)->UseManualTime()->Iterations(1);
        bench::compare(us, peer, at_least);
    }

    const Shape large{1'000'000, 10, 20};
    const std::string alone = large.name() + "/1 thread", both = large.name() + "/2 threads";
    add(alone, ours, large, 1)->UseRealTime();
    add(both, ours, large, 2)->UseRealTime();
    bench::compare(both, alone, 1.4);
    return true;
}();

} // namespace
