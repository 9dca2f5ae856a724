#include "random_peers.hpp"

#include <gsl/gsl_cdf.h>
#include <gsl/gsl_randist.h>
#include <gsl/gsl_rng.h>
#include <random>

namespace {

template <class Draw> void fill(const gsl_rng_type *type, double *r, std::size_t n, const Draw &draw)
{
    static gsl_rng *generator = gsl_rng_alloc(type);
    for (std::size_t i = 0; i < n; ++i) r[i] = draw(generator);
}

} // namespace

void peers::gsl_minstd(double *r, std::size_t n)
{
    fill(gsl_rng_minstd, r, n, [](gsl_rng *g) { return gsl_rng_uniform(g); });
}

void peers::gsl_gfsr4(double *r, std::size_t n)
{
    fill(gsl_rng_gfsr4, r, n, [](gsl_rng *g) { return gsl_rng_uniform(g); });
}

void peers::gsl_mt19937(double *r, std::size_t n)
{
    fill(gsl_rng_mt19937, r, n, [](gsl_rng *g) { return gsl_rng_uniform(g); });
}

void peers::std_mt19937(double *r, std::size_t n)
{
    static std::mt19937 engine;
    for (std::size_t i = 0; i < n; ++i) r[i] = (static_cast<double>(engine()) + 0.5) * 0x1p-32;
}

void peers::std_mt19937_64(double *r, std::size_t n)
{
    static std::mt19937_64 engine;
    for (std::size_t i = 0; i < n; ++i) r[i] = static_cast<double>(engine() >> 11) * 0x1p-53;
}

void peers::std_dice(int *r, std::size_t n)
{
    static std::mt19937 engine;
    std::uniform_int_distribution<int> die(1, 6);
    for (std::size_t i = 0; i < n; ++i) r[i] = die(engine);
}

void peers::gsl_inversion(double *r, std::size_t n)
{
    fill(gsl_rng_mt19937, r, n, [](gsl_rng *g) { return gsl_cdf_ugaussian_Pinv(gsl_rng_uniform_pos(g)); });
}

void peers::gsl_ziggurat(double *r, std::size_t n)
{
    fill(gsl_rng_mt19937, r, n, [](gsl_rng *g) { return gsl_ran_gaussian_ziggurat(g, 1); });
}

void peers::gsl_ratio_method(double *r, std::size_t n)
{
    fill(gsl_rng_mt19937, r, n, [](gsl_rng *g) { return gsl_ran_gaussian_ratio_method(g, 1); });
}
