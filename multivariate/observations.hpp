// The observations that are clustered: the caller's rows, read where they are.
#pragma once

#include "data_options.hpp"
#include "distances.hpp"

#include "frame/parallel.hpp"
#include "frame/workspace.hpp"

#include <algorithm>
#include <cmath>

namespace tavik::multivariate {

constexpr int rows_per_piece = 4096;

constexpr int count_pieces(int n_observations)
{
    return (n_observations - 1) / rows_per_piece + 1;
}

template <class Real> struct Observations {
    const Real *x;
    std::size_t stride;
    int n;
    std::size_t n_variables;
    const Real *frequencies, *weights; // null: all 1
    bool complete;                     // no value is NaN
    double mass_scale; // a power of two that keeps sums of masses in range; decisions are the same
    double least_mass, greatest_mass;

    const Real *row(int i) const
    {
        return x + static_cast<std::size_t>(i) * stride;
    }

    // Into a row whose padding is not touched.
    void read(int i, double *to) const
    {
        std::copy_n(row(i), n_variables, to);
    }

    double mass(int i) const
    {
        return has_masses() ? scaled(unscaled_mass(i)) : 1;
    }

    // Extreme masses are scaled to about 1.
    void scale_masses()
    {
        double least = infinity<double>, greatest = 0;
        for (int i = 0; has_masses() && i < n; ++i) {
            least = std::min(least, unscaled_mass(i));
            greatest = std::max(greatest, unscaled_mass(i));
        }
        const bool extreme = greatest > 1e100 || (greatest > 0 && greatest < 1e-100);
        mass_scale = extreme ? std::ldexp(1.0, std::min(-std::ilogb(greatest), 1023)) : 1; // a finite one
        least_mass = has_masses() ? scaled(least) : 1;
        greatest_mass = has_masses() ? scaled(greatest) : 1;
    }

private:
    double scaled(double mass) const
    {
        return std::max(mass * mass_scale, smallest_normal<double>);
    }

    double unscaled_mass(int i) const
    {
        const double f = frequencies != nullptr ? frequencies[i] : 1;
        return weights != nullptr ? f * weights[i] : f;
    }

    bool has_masses() const
    {
        return frequencies != nullptr || weights != nullptr;
    }
};

// Cuts n rows into pieces that threads take in turn.
template <class Body> void for_each_piece(int n, int threads, const Body &body)
{
    OrderedPieces pieces(count_pieces(n));
    parallel(threads, [&](int thread) {
        for (std::int64_t k = pieces.take(); k >= 0; k = pieces.take()) {
            const auto first = static_cast<int>(k) * rows_per_piece;
            body(thread, pieces, k, first, std::min(n - first, rows_per_piece) + first);
        }
    });
}

template <class Real> bool has_missing(const Observations<Real> &observations, int threads)
{
    std::atomic<bool> found{false};
    for_each_piece(observations.n, threads, [&](int, OrderedPieces &, std::int64_t, int first, int end) {
        bool missing = false;
        for (int i = first; i < end; ++i) {
            const Real *row = observations.row(i);
            for (std::size_t j = 0; j < observations.n_variables; ++j) missing |= row[j] != row[j];
        }
        if (missing) found.store(true, std::memory_order_relaxed);
    });
    return found.load();
}

inline bool raise_no_memory(const char *name, int value, const char *other_name, int other)
{
    return raise(terminal, 202, name, value, other_name, other);
}

inline bool raise_no_memory(int n_observations, int n_variables, int n_clusters)
{
    return raise(terminal, 203, "n_observations", n_observations, "n_variables", n_variables, "n_clusters",
                 n_clusters);
}

// Selected columns are copied side by side once, since every row is read many times. False, with an error, without
// memory for that.
template <class Real>
bool observe(const Real *x, int n_observations, int n_variables, const DataOptions<Real> &options,
             Workspace &workspace, Observations<Real> &observations)
{
    const auto n = static_cast<std::size_t>(n_observations), p = static_cast<std::size_t>(n_variables);
    const auto stride = static_cast<std::size_t>(options.x_col_dim);
    observations = {x, stride, n_observations, p, options.frequencies, options.weights, true, 1, 1, 1};
    observations.scale_masses();
    if (options.variables != nullptr) {
        Real *selected = n <= SIZE_MAX / p ? workspace.array_or_null<Real>(n * p) : nullptr;
        if (selected == nullptr)
            return raise_no_memory("n_observations", n_observations, "n_variables", n_variables);
        for (std::size_t i = 0; i < n; ++i) {
            for (std::size_t j = 0; j < p; ++j)
                selected[i * p + j] = x[i * stride + static_cast<std::size_t>(options.variables[j])];
        }
        observations.x = selected;
        observations.stride = p;
    }
    const std::int64_t values = static_cast<std::int64_t>(n_observations) * n_variables;
    observations.complete = !has_missing(observations, thread_count(count_pieces(n_observations), values));
    return true;
}

} // namespace tavik::multivariate
