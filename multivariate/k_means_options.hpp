// The options of a k-means clustering, and the checks of its arguments in their order. The first error ends them.
#pragma once

#include "data_options.hpp"

namespace tavik::multivariate {

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

template <class Real> bool read_options(OptionReader reader, KMeansOptions<Real> &options)
{
    while (const int code = reader.next()) {
        if (read_data_option(code, reader, options.data)) continue;
        switch (code) {
        case TAVIK_CLUSTER_SEEDS_COL_DIM: options.seeds_col_dim = reader.integer(); break;
        case TAVIK_CLUSTER_MEANS_COL_DIM: options.means_col_dim = reader.integer(); break;
        case TAVIK_MAX_ITERATIONS: options.max_iterations = reader.integer(); break;
        case TAVIK_CLUSTER_MEANS: options.means.read_pointer(reader, "TAVIK_CLUSTER_MEANS"); break;
        case TAVIK_CLUSTER_MEANS_USER: options.means.read_array(reader, "TAVIK_CLUSTER_MEANS_USER"); break;
        case TAVIK_CLUSTER_SSQ: options.sums_of_squares.read_pointer(reader, "TAVIK_CLUSTER_SSQ"); break;
        case TAVIK_CLUSTER_SSQ_USER:
            options.sums_of_squares.read_array(reader, "TAVIK_CLUSTER_SSQ_USER");
            break;
        case TAVIK_CLUSTER_COUNTS: options.counts.read_pointer(reader, "TAVIK_CLUSTER_COUNTS"); break;
        case TAVIK_CLUSTER_COUNTS_USER: options.counts.read_array(reader, "TAVIK_CLUSTER_COUNTS_USER"); break;
        case TAVIK_CLUSTER_HISTORY:
            options.n_iterations = reader.pointer<int>("TAVIK_CLUSTER_HISTORY (number of iterations)");
            options.history.read_pointer(reader, "TAVIK_CLUSTER_HISTORY");
            break;
        case TAVIK_CLUSTER_HISTORY_USER:
            options.n_iterations = reader.pointer<int>("TAVIK_CLUSTER_HISTORY_USER (number of iterations)");
            options.history.read_array(reader, "TAVIK_CLUSTER_HISTORY_USER");
            break;
        case TAVIK_RETURN_USER: options.result = reader.pointer<int>("TAVIK_RETURN_USER"); break;
        default: reader.unknown(11001); return false;
        }
    }
    return !error_pending();
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
    if (n_clusters < 2 || n_clusters > n_observations)
        return raise(terminal, 20080, n_clusters, n_observations);
    return check_not_null(x, "x") && check_not_null(seeds, "cluster_seeds") &&
           check_masses(n_observations, options.data) && check_variables(n_variables, options.data);
}

} // namespace tavik::multivariate
