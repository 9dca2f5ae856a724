// The distance kernels, written once. A file of a few lines compiles them for each instruction level; everything
// here has internal linkage, so that no level's code can stand in for another's at link time.

#include "distances.hpp"

#include "numerical/four_lanes.hpp"

namespace tavik::multivariate {
namespace {

using namespace four_lanes;
static_assert(sizeof(V) == lanes * sizeof(double));

// The first n values, fewer than a vector has; the other lanes are 0.
template <class Real> inline V load_some(const Real *from, std::size_t n)
{
    switch (n) {
    case 1: return V{static_cast<double>(from[0])};
    case 2: return V{static_cast<double>(from[0]), static_cast<double>(from[1])};
    default:
        return V{static_cast<double>(from[0]), static_cast<double>(from[1]), static_cast<double>(from[2])};
    }
}

inline double add_up(V sum)
{
    return (sum[0] + sum[1]) + (sum[2] + sum[3]);
}

template <bool complete> inline void add_square(V x, const double *centre, V &sum)
{
    const V zero = {};
    V difference = x - load(centre);
    if constexpr (!complete) difference = x == x ? difference : zero;
    sum = sum + difference * difference;
}

template <class Real, bool complete>
inline Pair to_two_centres(const Real *x, std::size_t n_variables, const double *a, const double *b)
{
    V sum_a = {}, sum_b = {};
    std::size_t j = 0;
    for (; j + lanes <= n_variables; j += lanes) {
        const V v = load(x + j);
        add_square<complete>(v, a + j, sum_a);
        add_square<complete>(v, b + j, sum_b);
    }
    if (j < n_variables) {
        const V v = load_some(x + j, n_variables - j);
        add_square<complete>(v, a + j, sum_a);
        add_square<complete>(v, b + j, sum_b);
    }
    return {add_up(sum_a), add_up(sum_b)};
}

template <class Real>
Pair to_two(const Real *x, const Centres &centres, std::size_t a, std::size_t b, bool complete)
{
    return complete ? to_two_centres<Real, true>(x, centres.n_variables, centres.row(a), centres.row(b))
                    : to_two_centres<Real, false>(x, centres.n_variables, centres.row(a), centres.row(b));
}

double between(const double *a, const double *b, std::size_t padded_variables)
{
    V sum = {};
    for (std::size_t j = 0; j < padded_variables; j += lanes) add_square<true>(load(a + j), b + j, sum);
    return add_up(sum);
}

// `vectors` vectors of clusters at once, so that their sums overlap.
template <std::size_t vectors>
inline void to_some(const double *row, const Centres &centres, bool complete, std::size_t cluster,
                    double *distances)
{
    V sum[lanes][vectors] = {};
    const double *centre = centres.by_variable + cluster;
    for (std::size_t j = 0; j < centres.n_variables; j += lanes) {
#pragma GCC unroll 4
        for (std::size_t lane = 0; lane < lanes; ++lane, centre += centres.padded_clusters) {
            if (j + lane >= centres.n_variables) break;
            const double x = row[j + lane];
            if (!complete && x != x) continue;
            for (std::size_t v = 0; v < vectors; ++v) {
                const V difference = V{x, x, x, x} - load(centre + v * lanes);
                sum[lane][v] = sum[lane][v] + difference * difference;
            }
        }
    }
    for (std::size_t v = 0; v < vectors; ++v)
        store(distances + cluster + v * lanes, (sum[0][v] + sum[1][v]) + (sum[2][v] + sum[3][v]));
}

void to_all(const double *row, const Centres &centres, bool complete, double *distances)
{
    std::size_t cluster = 0;
    for (; cluster + 3 * lanes <= centres.padded_clusters; cluster += 3 * lanes)
        to_some<3>(row, centres, complete, cluster, distances);
    if (cluster + 2 * lanes == centres.padded_clusters) {
        to_some<2>(row, centres, complete, cluster, distances);
        cluster += 2 * lanes;
    }
    for (; cluster < centres.padded_clusters; cluster += lanes)
        to_some<1>(row, centres, complete, cluster, distances);
    for (cluster = centres.n_clusters; cluster < centres.padded_clusters; ++cluster)
        distances[cluster] = __builtin_inf();
}

double find_below(const double *distances, const double *shares, std::size_t padded_clusters, double below,
                  unsigned *found, std::size_t &n_found)
{
    constexpr double infinity = __builtin_inf();
    V least = {infinity, infinity, infinity, infinity};
    const V bound = {below, below, below, below};
    n_found = 0;
    for (std::size_t cluster = 0; cluster < padded_clusters; cluster += lanes) {
        const V part = load(shares + cluster) * load(distances + cluster);
        least = part < least ? part : least; // so NaN is passed over
        const VMask is_below = part < bound;
        if (__builtin_expect(any(is_below), 0)) {
            for (std::size_t lane = 0; lane < lanes; ++lane) {
                if (is_below[lane] != 0) found[n_found++] = static_cast<unsigned>(cluster + lane);
            }
        }
    }
    const double low = least[0] < least[1] ? least[0] : least[1],
                 high = least[2] < least[3] ? least[2] : least[3];
    return low < high ? low : high;
}

} // namespace
} // namespace tavik::multivariate
