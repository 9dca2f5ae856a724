// Squared Euclidean distances from an observation to cluster centres.
//
// Every distance is the sum of four sums, of variables j with equal j mod 4, whichever kernel computes it: equal
// centres are equally far, so that ties are decided by the rules of the method.
#pragma once

#include <cstddef>

namespace tavik::multivariate {

constexpr std::size_t lanes = 4; // doubles in a vector

constexpr std::size_t whole_vectors(std::size_t n)
{
    return (n + lanes - 1) / lanes * lanes;
}

// Centres in the two orders in which distances read them. Padding is 0.
struct Centres {
    std::size_t n_clusters, n_variables, padded_clusters, padded_variables;
    double *rows;        // n_clusters x padded_variables
    double *by_variable; // n_variables x padded_clusters

    std::size_t rows_size() const
    {
        return n_clusters * padded_variables;
    }

    double *row(std::size_t cluster) const
    {
        return rows + cluster * padded_variables;
    }

    void set(std::size_t cluster, std::size_t variable, double value) const
    {
        rows[cluster * padded_variables + variable] = value;
        by_variable[variable * padded_clusters + cluster] = value;
    }
};

struct Pair {
    double a, b;
};

// `complete` says that no value of the observation is NaN; otherwise such values are passed over.
struct DistanceKernels {
    // From an observation to two centres.
    Pair (*to_two_f)(const float *x, const Centres &centres, std::size_t a, std::size_t b, bool complete);
    Pair (*to_two_d)(const double *x, const Centres &centres, std::size_t a, std::size_t b, bool complete);
    // To all centres: `row` is the observation in double, padded.
    // `distances` has padded_clusters elements; those of padding are infinite.
    void (*to_all)(const double *row, const Centres &centres, bool complete, double *distances);
    // Between two padded rows.
    double (*between)(const double *a, const double *b, std::size_t padded_variables);
    // The least of shares x distances, and in `found` the clusters, in order, for which it is less than `below`.
    double (*find_below)(const double *distances, const double *shares, std::size_t padded_clusters,
                         double below, unsigned *found, std::size_t &n_found);
};

extern const DistanceKernels baseline_distance_kernels, avx2_distance_kernels;

// Those for this processor.
const DistanceKernels &distance_kernels();

inline Pair to_two(const float *x, const Centres &centres, std::size_t a, std::size_t b, bool complete)
{
    return distance_kernels().to_two_f(x, centres, a, b, complete);
}

inline Pair to_two(const double *x, const Centres &centres, std::size_t a, std::size_t b, bool complete)
{
    return distance_kernels().to_two_d(x, centres, a, b, complete);
}

} // namespace tavik::multivariate
