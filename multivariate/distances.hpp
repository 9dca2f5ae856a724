// Squared Euclidean distances from an observation to cluster centres.
//
// Every distance is the sum of four sums, of variables j with equal j mod 4, whichever kernel computes it: equal
// centres are equally far, so that ties are decided by the rules of the method.
#pragma once

#include "slack_table.hpp"

#include <cstddef>

namespace tavik::multivariate {

constexpr std::size_t lanes = 4; // doubles in a vector

constexpr std::size_t whole_vectors(std::size_t n)
{
    return (n + lanes - 1) / lanes * lanes;
}

// Of memory that a thread writes to all the time: no other shall write to the same cache lines, nor, but at the ends,
// to those that are fetched with them.
constexpr std::size_t whole_line_pairs(std::size_t n)
{
    constexpr std::size_t line_pair = 128 / sizeof(double);
    return (n + line_pair - 1) / line_pair * line_pair;
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

    // After its row has been written to.
    void set_by_variable(std::size_t cluster) const
    {
        const double *from = row(cluster);
        double *to = by_variable + cluster;
        for (std::size_t j = 0; j < n_variables; ++j) to[j * padded_clusters] = from[j];
    }
};

struct Pair {
    double a, b;
};

// Observations where they are.
template <class Real> struct RowSource {
    const Real *x;
    std::size_t stride;
    bool complete;

    const Real *row(int i) const
    {
        return x + static_cast<std::size_t>(i) * stride;
    }
};

// Both bring slacks of some rows up to date.
template <class Real> struct SlackKernels {
    // The first ones.
    void (*renew_own)(const SlackTable &slacks, const RowSource<Real> &from, const Centres &centres,
                      const int *rows, int n);
    // Both of them. Where another cluster is closer than the second, instead, it is proposed; returns how many are.
    // `row` is padded, `distances` has padded_clusters elements.
    int (*renew_all)(const SlackTable &slacks, const RowSource<Real> &from, const Centres &centres,
                     const int *rows, int n, double *row, double *distances, Proposal *proposals);
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
    // Sorts n rows, those that are given or all from the first on, by their slacks. In optimal stages, which keep no
    // rows, both count, and the first matters where the second holds; otherwise the first.
    ScanCounts (*scan)(const SlackTable &slacks, bool is_optimal, int first, const int *rows, int n,
                       const ScanMargins &margins, const ScanLists &to);
    // Of n rows those whose slack, now that it has been brought up to date, is not greater than the margin. Returns how
    // many are left of the list, in which four more are stored at a time.
    int (*keep_near)(const SlackTable &slacks, bool is_optimal, int *rows, int n, double margin);
    SlackKernels<float> slacks_f;
    SlackKernels<double> slacks_d;
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

template <class Real> const SlackKernels<Real> &slack_kernels()
{
    if constexpr (sizeof(Real) == sizeof(float)) return distance_kernels().slacks_f;
    else return distance_kernels().slacks_d;
}

} // namespace tavik::multivariate
