// The options of a k-means clustering, and the checks of its arguments in their order. The first error ends them.
#pragma once

#include "frame/options.hpp"

#include <cmath>
#include <cstdint>

namespace tavik::multivariate {

// An output in one of its two forms: the caller's pointer or array. Of several, the last one given holds.
template <class T> struct Output {
    T **pointer = nullptr, *array = nullptr;

    bool wanted() const
    {
        return pointer != nullptr || array != nullptr;
    }
};

// What observations are made of.
template <class Real> struct DataOptions {
    int x_col_dim;
    const Real *frequencies = nullptr, *weights = nullptr;
    const int *variables = nullptr;
};

template <class Real> struct KMeansOptions {
    DataOptions<Real> data;
    int seeds_col_dim, means_col_dim, max_iterations = 30;
    int *result = nullptr;
    Output<Real> means, sums_of_squares;
    Output<int> counts, history;
    int *n_iterations = nullptr;

    explicit KMeansOptions(int n_variables)
        : data{n_variables}, seeds_col_dim(n_variables), means_col_dim(n_variables)
    {
    }
};

// False when the code is none of these.
template <class Real> bool read_data_option(int code, OptionReader &reader, DataOptions<Real> &options)
{
    switch (code) {
    case TAVIK_X_COL_DIM: options.x_col_dim = reader.integer(); return true;
    case TAVIK_FREQUENCIES:
        options.frequencies = reader.pointer<const Real>("TAVIK_FREQUENCIES");
        return true;
    case TAVIK_WEIGHTS: options.weights = reader.pointer<const Real>("TAVIK_WEIGHTS"); return true;
    case TAVIK_CLUSTER_VARIABLES:
        options.variables = reader.pointer<const int>("TAVIK_CLUSTER_VARIABLES");
        return true;
    default: return false;
    }
}

template <class Real> bool read_options(OptionReader reader, KMeansOptions<Real> &options)
{
    while (const int code = reader.next()) {
        if (read_data_option(code, reader, options.data)) continue;
        switch (code) {
        case TAVIK_CLUSTER_SEEDS_COL_DIM: options.seeds_col_dim = reader.integer(); break;
        case TAVIK_CLUSTER_MEANS_COL_DIM: options.means_col_dim = reader.integer(); break;
        case TAVIK_MAX_ITERATIONS: options.max_iterations = reader.integer(); break;
        case TAVIK_CLUSTER_MEANS: options.means = {reader.output<Real>("TAVIK_CLUSTER_MEANS")}; break;
        case TAVIK_CLUSTER_MEANS_USER:
            options.means = {nullptr, reader.pointer<Real>("TAVIK_CLUSTER_MEANS_USER")};
            break;
        case TAVIK_CLUSTER_SSQ: options.sums_of_squares = {reader.output<Real>("TAVIK_CLUSTER_SSQ")}; break;
        case TAVIK_CLUSTER_SSQ_USER:
            options.sums_of_squares = {nullptr, reader.pointer<Real>("TAVIK_CLUSTER_SSQ_USER")};
            break;
        case TAVIK_CLUSTER_COUNTS: options.counts = {reader.output<int>("TAVIK_CLUSTER_COUNTS")}; break;
        case TAVIK_CLUSTER_COUNTS_USER:
            options.counts = {nullptr, reader.pointer<int>("TAVIK_CLUSTER_COUNTS_USER")};
            break;
        case TAVIK_CLUSTER_HISTORY:
            options.n_iterations = reader.pointer<int>("TAVIK_CLUSTER_HISTORY (number of iterations)");
            options.history = {reader.output<int>("TAVIK_CLUSTER_HISTORY")};
            break;
        case TAVIK_CLUSTER_HISTORY_USER:
            options.n_iterations = reader.pointer<int>("TAVIK_CLUSTER_HISTORY_USER (number of iterations)");
            options.history = {nullptr, reader.pointer<int>("TAVIK_CLUSTER_HISTORY_USER")};
            break;
        case TAVIK_RETURN_USER: options.result = reader.pointer<int>("TAVIK_RETURN_USER"); break;
        default: reader.unknown(11001); return false;
        }
    }
    return !error_pending();
}

inline bool raise(long code, int value)
{
    tavik_e1sti(1, value);
    tavik_ermes(terminal, code);
    return false;
}

inline bool raise(long code, int value, int other)
{
    tavik_e1sti(2, other);
    return raise(code, value);
}

inline bool check_positive(int value, const char *name)
{
    int position = 0;
    tavik_c1iarg(value, name, 1, -1, &position);
    return !error_pending();
}

inline bool check_stride(int n_variables, int stride, const char *name)
{
    int position = 0;
    tavik_c1dim(1, n_variables, "*n_variables", stride, name, &position);
    return !error_pending();
}

template <class Real> bool usable_mass(Real mass)
{
    return mass > 0 && !std::isinf(mass);
}

template <class Real> bool check_masses(int n_observations, const DataOptions<Real> &options)
{
    if (options.frequencies == nullptr && options.weights == nullptr) return true;
    for (int i = 0; i < n_observations; ++i) {
        const double f = options.frequencies != nullptr ? options.frequencies[i] : 1;
        const double w = options.weights != nullptr ? options.weights[i] : 1;
        if (!usable_mass(f)) return raise(20081, i);
        if (!usable_mass(w) || !usable_mass(f * w)) return raise(20082, i);
    }
    return true;
}

// Frequencies and weights count as columns behind those of x.
template <class Real> bool check_variables(int n_variables, const DataOptions<Real> &options)
{
    if (options.variables == nullptr) return true;
    const bool with_frequencies = options.frequencies != nullptr, with_weights = options.weights != nullptr;
    const std::int64_t frequency_column = options.x_col_dim,
                       weight_column = std::int64_t{options.x_col_dim} + with_frequencies,
                       width = weight_column + with_weights;
    for (int j = 0; j < n_variables; ++j) {
        const int column = options.variables[j];
        if (with_frequencies && column == frequency_column) return raise(20090, column, j);
        if (with_weights && column == weight_column) return raise(20091, column, j);
        if (column < 0 || column >= width)
            return raise(20092 + with_frequencies + with_weights, column,
                         static_cast<int>(std::min<std::int64_t>(width, INT_MAX)));
    }
    return true;
}

template <class Real>
bool check_arguments(int n_observations, int n_variables, const Real *x, int n_clusters, const Real *seeds,
                     const KMeansOptions<Real> &options)
{
    if (!check_positive(n_observations, "n_observations") || !check_positive(n_variables, "n_variables") ||
        !check_stride(n_variables, options.data.x_col_dim, "x_col_dim") ||
        !check_stride(n_variables, options.seeds_col_dim, "cluster_seeds_col_dim") ||
        !check_stride(n_variables, options.means_col_dim, "cluster_means_col_dim"))
        return false;
    if (n_clusters < 2 || n_clusters > n_observations) return raise(20080, n_clusters, n_observations);
    return check_not_null(x, "x") && check_not_null(seeds, "cluster_seeds") &&
           check_masses(n_observations, options.data) && check_variables(n_variables, options.data);
}

} // namespace tavik::multivariate
