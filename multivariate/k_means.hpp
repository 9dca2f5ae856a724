// K-means clustering: from the caller's seeds to a partition that no transfer of a single observation improves.
//
// assign() takes every observation to the closest seed, the transfer stages move observations one by one, and the
// outputs are formed anew from the members. Methods: partition.hpp, transfers.hpp, passes.hpp.
#pragma once

#include "k_means_options.hpp"
#include "transfers.hpp"

namespace tavik::multivariate {

template <class Real> struct KMeansOutputs {
    int *membership, *counts, *history;
    Real *means, *sums_of_squares;

    // The caller's arrays, or new ones. False, with an error, without memory.
    bool prepare(int n_observations, int n_clusters, const KMeansOptions<Real> &options, Workspace &workspace)
    {
        const auto n = static_cast<std::size_t>(n_observations), k = static_cast<std::size_t>(n_clusters);
        const auto array = [&](const auto &output, std::size_t size, const char *governed_by) {
            using T = std::remove_pointer_t<decltype(output.array)>;
            if (output.pointer == nullptr || error_pending()) return output.array;
            return workspace.result<T>(size, governed_by);
        };
        membership = options.result != nullptr ? options.result : workspace.result<int>(n, "n_observations");
        counts = array(options.counts, k, "n_clusters");
        sums_of_squares = array(options.sums_of_squares, k, "n_clusters");
        const std::size_t means_size = k * static_cast<std::size_t>(options.means_col_dim);
        means = array(options.means, means_size, "n_clusters");
        if (means != nullptr && options.means.pointer != nullptr) // the padding of its rows
            std::fill_n(means, means_size, Real{0});
        if (error_pending()) return false;

        history = options.history.array;
        if (options.history.pointer == nullptr) return true;
        const auto rows = static_cast<std::size_t>(std::max(1, options.max_iterations));
        history = workspace.result_or_null<int>(n * rows);
        if (history != nullptr) return true;
        return raise_no_memory("n_observations", n_observations, "max_iterations", options.max_iterations);
    }
};

template <class Real> void write_membership(const Partition<Real> &partition, int *membership)
{
    for (int i = 0; i < partition.observations.n; ++i) membership[i] = partition.cluster[i] + 1;
}

// Alternates the two stages. False when clusters still changed in the last iteration.
template <class Real>
bool iterate(Partition<Real> &partition, Transfers<Real> &transfers, int max_iterations, int *history,
             int &n_iterations)
{
    transfers.start();
    bool moved = true;
    transfers.run([&] {
        for (n_iterations = 0; moved && n_iterations < max_iterations; ++n_iterations) {
            moved = transfers.optimal_stage();
            if (moved) transfers.quick_stage();
            if (history == nullptr) continue;
            const auto n = static_cast<std::size_t>(partition.observations.n);
            write_membership(partition, history + static_cast<std::size_t>(n_iterations) * n);
        }
    });
    return !moved;
}

// Every cluster has a member; false, with an error, when one has none.
template <class Real> bool check_members(const Partition<Real> &partition)
{
    for (std::size_t c = 0; c < partition.centres.n_clusters; ++c) {
        if (!(partition.sums.clusters[c].mass > 0)) return raise(terminal, 20083, static_cast<int>(c) + 1);
    }
    return true;
}

template <class Real>
void write_outputs(Partition<Real> &partition, const KMeansOutputs<Real> &out, std::size_t means_stride)
{
    const std::size_t k = partition.centres.n_clusters, p = partition.centres.n_variables;
    write_membership(partition, out.membership);
    if (out.means != nullptr || out.sums_of_squares != nullptr) {
        partition.sum_members();
        partition.set_centres();
    }
    for (std::size_t c = 0; out.means != nullptr && c < k; ++c)
        std::transform(partition.centres.row(c), partition.centres.row(c) + p, out.means + c * means_stride,
                       [](double mean) { return static_cast<Real>(mean); });
    if (out.sums_of_squares != nullptr) {
        partition.sum_squares();
        const double scale = partition.observations.mass_scale;
        std::transform(partition.squares, partition.squares + k, out.sums_of_squares,
                       [scale](double sum) { return static_cast<Real>(sum / scale); });
    }
    for (std::size_t c = 0; out.counts != nullptr && c < k; ++c)
        out.counts[c] = static_cast<int>(partition.sums.clusters[c].count);
}

template <class Real>
void l_cluster_k_means(int n_observations, int n_variables, const Real *x, int n_clusters, const Real *seeds,
                       ArgumentList &list, Workspace &workspace, int *&result)
{
    KMeansOptions<Real> options(n_variables);
    if (!read_options(OptionReader(list, count_codes), options) ||
        !check_arguments(n_observations, n_variables, x, n_clusters, seeds, options))
        return;

    KMeansOutputs<Real> out{};
    Observations<Real> observations{};
    Partition<Real> partition{};
    Transfers<Real> transfers;
    if (!observe(x, n_observations, n_variables, options.data, workspace, observations)) return;
    if (!partition.prepare(observations, n_clusters, workspace) || !transfers.prepare(partition, workspace)) {
        raise_no_memory(n_observations, n_variables, n_clusters);
        return;
    }
    if (!out.prepare(n_observations, n_clusters, options, workspace)) return;

    for (std::size_t c = 0; c < partition.centres.n_clusters; ++c) {
        for (std::size_t j = 0; j < partition.centres.n_variables; ++j)
            partition.centres.set(c, j, seeds[c * static_cast<std::size_t>(options.seeds_col_dim) + j]);
    }
    partition.assign();
    partition.sum_members();
    if (!check_members(partition)) return;
    partition.set_centres();
    int n_iterations = 0;
    const bool converged = iterate(partition, transfers, options.max_iterations, out.history, n_iterations);
    write_outputs(partition, out, static_cast<std::size_t>(options.means_col_dim));
    if (options.n_iterations != nullptr)
        *options.n_iterations = n_iterations; // a bad pointer ends the call here

    const auto hand_over = [&](const auto &output, auto *array) {
        if (output.pointer != nullptr) *output.pointer = workspace.hand_over(array);
    };
    hand_over(options.means, out.means);
    hand_over(options.sums_of_squares, out.sums_of_squares);
    hand_over(options.counts, out.counts);
    hand_over(options.history, out.history);
    result = workspace.hand_over(out.membership);
    if (!converged) {
        tavik_e1sti(1, options.max_iterations);
        tavik_ermes(warning, 20084);
    }
}

} // namespace tavik::multivariate
