// A partition of observations into clusters: who belongs where, and the clusters' centres and masses.
#pragma once

#include "observations.hpp"

#include <cstring>

namespace tavik::multivariate {

struct Cluster {
    double mass;
    std::int64_t count;
};

// Sums over the members of each cluster, from which its centre follows.
struct MemberSums {
    Cluster *clusters;
    double *values; // n_clusters x n_variables: values times masses
    double *masses; // the same: masses of the values that are not NaN; null when none is

    bool prepare(std::size_t n_clusters, std::size_t n_variables, bool complete, Workspace &workspace)
    {
        const std::size_t size = n_clusters * n_variables;
        clusters = workspace.array_or_null<Cluster>(n_clusters);
        values = workspace.array_or_null<double>(size);
        masses = complete ? nullptr : workspace.array_or_null<double>(size);
        return clusters != nullptr && values != nullptr && (complete || masses != nullptr);
    }

    void clear(std::size_t n_clusters, std::size_t n_variables) const
    {
        std::fill_n(clusters, n_clusters, Cluster{});
        std::fill_n(values, n_clusters * n_variables, 0.0);
        if (masses != nullptr) std::fill_n(masses, n_clusters * n_variables, 0.0);
    }

    void add(std::size_t cluster, const double *row, double mass, std::size_t n_variables) const
    {
        clusters[cluster].mass += mass;
        ++clusters[cluster].count;
        double *sums = values + cluster * n_variables;
        if (masses == nullptr) {
            for (std::size_t j = 0; j < n_variables; ++j) sums[j] += mass * row[j];
            return;
        }
        double *variable_masses = masses + cluster * n_variables;
        for (std::size_t j = 0; j < n_variables; ++j) {
            if (std::isnan(row[j])) continue;
            sums[j] += mass * row[j];
            variable_masses[j] += mass;
        }
    }

    void add(const MemberSums &other, std::size_t n_clusters, std::size_t n_variables) const
    {
        for (std::size_t c = 0; c < n_clusters; ++c) {
            clusters[c].mass += other.clusters[c].mass;
            clusters[c].count += other.clusters[c].count;
        }
        for (std::size_t k = 0; k < n_clusters * n_variables; ++k) values[k] += other.values[k];
        for (std::size_t k = 0; masses != nullptr && k < n_clusters * n_variables; ++k)
            masses[k] += other.masses[k];
    }
};

template <class Real> struct Partition {
    Observations<Real> observations;
    Centres centres;
    MemberSums sums;         // the values of each cluster are not kept up to date when a member moves
    int *cluster, *second;   // of each observation: its cluster, and the one that it would go to
    MemberSums *thread_sums; // and what else a thread needs for a sweep over the observations
    double *thread_rows, *thread_distances;
    double *squares; // n_clusters
    int threads;

    // False without memory.
    bool prepare(const Observations<Real> &those, int n_clusters, Workspace &workspace)
    {
        observations = those;
        const auto n = static_cast<std::size_t>(observations.n), k = static_cast<std::size_t>(n_clusters);
        const std::size_t p = observations.n_variables;
        centres = {k, p, whole_vectors(k), whole_vectors(p), nullptr, nullptr};
        threads = thread_count(count_pieces(observations.n), static_cast<std::int64_t>(n * p));
        const auto n_threads = static_cast<std::size_t>(threads);
        cluster = workspace.array_or_null<int>(2 * n);
        squares = workspace.array_or_null<double>(k);
        centres.rows = workspace.array_or_null<double>(centres.rows_size());
        centres.by_variable = workspace.array_or_null<double>(p * centres.padded_clusters);
        thread_sums = workspace.array_or_null<MemberSums>(n_threads);
        thread_rows = workspace.array_or_null<double>(n_threads * row_stride());
        thread_distances = workspace.array_or_null<double>(n_threads * distances_stride());
        if (cluster == nullptr || squares == nullptr || centres.rows == nullptr ||
            centres.by_variable == nullptr || thread_sums == nullptr || thread_rows == nullptr ||
            thread_distances == nullptr || !sums.prepare(k, p, observations.complete, workspace))
            return false;
        for (int t = 0; t < threads; ++t) {
            if (!thread_sums[t].prepare(k, p, observations.complete, workspace)) return false;
        }
        second = cluster + n;
        std::fill_n(centres.rows, centres.rows_size(), 0.0);
        std::fill_n(centres.by_variable, p * centres.padded_clusters, 0.0);
        std::fill_n(thread_rows, n_threads * row_stride(), 0.0);
        return true;
    }

    std::size_t own(int i) const
    {
        return static_cast<std::size_t>(cluster[i]);
    }

    std::size_t next(int i) const
    {
        return static_cast<std::size_t>(second[i]);
    }

    double *row_of_thread(int thread) const
    {
        return thread_rows + static_cast<std::size_t>(thread) * row_stride();
    }

    double *distances_of_thread(int thread) const
    {
        return thread_distances + static_cast<std::size_t>(thread) * distances_stride();
    }

    // Assigns every observation to the closest centre, and notes the second closest. A tie is won by the smaller
    // number; a distance that is NaN counts as infinite.
    void assign()
    {
        for_each_piece(observations.n, threads,
                       [&](int thread, OrderedPieces &, std::int64_t, int first, int end) {
                           double *row = row_of_thread(thread), *distances = distances_of_thread(thread);
                           for (int i = first; i < end; ++i) {
                               observations.read(i, row);
                               distance_kernels().to_all(row, centres, observations.complete, distances);
                               set_closest(distances, i);
                           }
                       });
    }

    // Sums the members of all clusters up, in pieces of fixed size that are joined in their order.
    void sum_members()
    {
        const std::size_t k = centres.n_clusters, p = centres.n_variables;
        sums.clear(k, p);
        for_each_piece(observations.n, threads,
                       [&](int thread, OrderedPieces &pieces, std::int64_t piece, int first, int end) {
                           const MemberSums &own = thread_sums[thread];
                           double *row = row_of_thread(thread);
                           own.clear(k, p);
                           for (int i = first; i < end; ++i) {
                               observations.read(i, row);
                               own.add(static_cast<std::size_t>(cluster[i]), row, observations.mass(i), p);
                           }
                           pieces.wait_for_turn(piece);
                           sums.add(own, k, p);
                           pieces.pass_turn(piece);
                       });
    }

    // The centres are the means of the sums.
    void set_centres() const
    {
        const std::size_t p = centres.n_variables;
        for (std::size_t c = 0; c < centres.n_clusters; ++c) {
            for (std::size_t j = 0; j < p; ++j)
                centres.set(c, j, sums.values[c * p + j] / mass_of_variable(c, j));
        }
    }

    // The objective: all sums of squares about the centres.
    double sum_of_squares() const
    {
        sum_squares();
        double sum = 0;
        for (std::size_t c = 0; c < centres.n_clusters; ++c) sum += squares[c];
        return sum;
    }

    // Within-cluster sums of squares about the centres, into `squares`.
    void sum_squares() const
    {
        std::fill_n(squares, centres.n_clusters, 0.0);
        for_each_piece(observations.n, threads,
                       [&](int thread, OrderedPieces &pieces, std::int64_t piece, int first, int end) {
                           double *own = thread_sums[thread].values;
                           std::fill_n(own, centres.n_clusters, 0.0);
                           for (int i = first; i < end; ++i) {
                               const auto c = static_cast<std::size_t>(cluster[i]);
                               own[c] += observations.mass(i) *
                                         to_two(observations.row(i), centres, c, c, observations.complete).a;
                           }
                           pieces.wait_for_turn(piece);
                           for (std::size_t c = 0; c < centres.n_clusters; ++c) squares[c] += own[c];
                           pieces.pass_turn(piece);
                       });
    }

    double mass_of_variable(std::size_t c, std::size_t variable) const
    {
        return sums.masses != nullptr ? sums.masses[c * centres.n_variables + variable]
                                      : sums.clusters[c].mass;
    }

    // Moves an observation, whose padded values are in `row`, from one cluster to another.
    void move(int i, std::size_t from, std::size_t to, const double *row, double mass) const
    {
        if (sums.masses == nullptr) move_means(from, to, row, mass);
        else move_means_of_present(from, to, row, mass);
        sums.clusters[from].mass -= mass;
        --sums.clusters[from].count;
        sums.clusters[to].mass += mass;
        ++sums.clusters[to].count;
        cluster[i] = static_cast<int>(to);
        second[i] = static_cast<int>(from);
    }

private:
    std::size_t row_stride() const
    {
        return whole_line_pairs(centres.padded_variables);
    }

    std::size_t distances_stride() const
    {
        return whole_line_pairs(centres.padded_clusters);
    }

    bool is_used_up(std::size_t from, std::size_t variable, double mass) const
    {
        return mass_of_variable(from, variable) <= mass || sums.clusters[from].count < 2;
    }

    // All variables have the masses of the clusters. Divisions cost most: two at once. Padding stays 0.
    void move_means(std::size_t from, std::size_t to, const double *row, double mass) const
    {
        using Two = double __attribute__((vector_size(2 * sizeof(double))));
        const bool used_up = is_used_up(from, 0, mass);
        const double mass_from = sums.clusters[from].mass, mass_to = sums.clusters[to].mass,
                     mass_left = used_up ? 1 : mass_from - mass;
        double *mean_from = centres.row(from), *mean_to = centres.row(to);
        for (std::size_t j = 0; j < centres.n_variables; j += 2) {
            Two x, left, joined;
            std::memcpy(&x, row + j, sizeof x);
            std::memcpy(&left, mean_from + j, sizeof left);
            std::memcpy(&joined, mean_to + j, sizeof joined);
            left = (left * mass_from - x * mass) / mass_left;
            joined = (x * mass + joined * mass_to) / (mass_to + mass);
            std::memcpy(mean_from + j, &left, sizeof left);
            std::memcpy(mean_to + j, &joined, sizeof joined);
        }
        if (used_up) std::fill_n(mean_from, centres.n_variables, not_a_number<double>);
        centres.set_by_variable(from);
        centres.set_by_variable(to);
    }

    void move_means_of_present(std::size_t from, std::size_t to, const double *row, double mass) const
    {
        const std::size_t p = centres.n_variables;
        for (std::size_t j = 0; j < p; ++j) {
            if (std::isnan(row[j])) continue;
            const double x = row[j], mass_from = mass_of_variable(from, j), mass_to = mass_of_variable(to, j),
                         mean_from = centres.row(from)[j], mean_to = centres.row(to)[j];
            const bool used_up = is_used_up(from, j, mass);
            centres.set(from, j,
                        used_up ? not_a_number<double>
                                : (mean_from * mass_from - x * mass) / (mass_from - mass));
            // Nobody there has the variable. No distance leads here, but rounding of masses might.
            const bool first = std::isnan(mean_to);
            centres.set(to, j, first ? x : (x * mass + mean_to * mass_to) / (mass_to + mass));
            sums.masses[from * p + j] = used_up ? 0 : mass_from - mass;
            sums.masses[to * p + j] = first ? mass : mass_to + mass;
        }
    }

    void set_closest(const double *distances, int i) const
    {
        const auto at = [&](std::size_t c) {
            return std::isnan(distances[c]) ? infinity<double> : distances[c];
        };
        std::size_t closest = 0, next = 1;
        double least = at(0), second_least = at(1);
        if (second_least < least) {
            std::swap(closest, next);
            std::swap(least, second_least);
        }
        for (std::size_t c = 2; c < centres.n_clusters; ++c) {
            const double distance = at(c);
            if (!(distance < second_least)) continue;
            if (distance < least) {
                next = closest;
                second_least = least;
                closest = c;
                least = distance;
            } else {
                next = c;
                second_least = distance;
            }
        }
        cluster[i] = static_cast<int>(closest);
        second[i] = static_cast<int>(next);
    }
};

} // namespace tavik::multivariate
