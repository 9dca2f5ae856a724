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

struct DistanceKernels {
    // Copies an observation; padding of the row stays as it is.
    void (*read_f)(const float *x, std::size_t n_variables, double *row);
    void (*read_d)(const double *x, std::size_t n_variables, double *row);
    // `complete` says that no value of the row is NaN. Otherwise such values are passed over.
    double (*to_one)(const double *row, const double *centre, std::size_t padded_variables, bool complete);
    // `distances` has padded_clusters elements; those of padding are infinite.
    void (*to_all)(const double *row, const Centres &centres, bool complete, double *distances);
    // The least of shares x distances, and in `found` the clusters, in order, for which it is less than `below`.
    double (*find_below)(const double *distances, const double *shares, std::size_t padded_clusters,
                         double below, unsigned *found, std::size_t &n_found);
};

extern const DistanceKernels baseline_distance_kernels, avx2_distance_kernels;

// Those for this processor.
const DistanceKernels &distance_kernels();

inline void read_row(const float *x, std::size_t n_variables, double *row)
{
    distance_kernels().read_f(x, n_variables, row);
}

inline void read_row(const double *x, std::size_t n_variables, double *row)
{
    distance_kernels().read_d(x, n_variables, row);
}

} // namespace tavik::multivariate
