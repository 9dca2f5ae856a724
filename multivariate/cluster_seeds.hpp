// Seeds for a k-means clustering, by the k-means++ rule of Arthur and Vassilvitskii (2007): observations, each drawn
// with a probability proportional to its mass times its squared distance from the closest seed so far. Of several
// that are drawn for each seed, the one is taken that leaves the smallest sum of such squares.
#pragma once

#include "observations.hpp"

#include "frame/internal.h"

#include <cmath>

namespace tavik::multivariate {

template <class Real> struct SeedsOptions {
    DataOptions<Real> data;
    int seeds_col_dim, trials;
    Real *result = nullptr;

    SeedsOptions(int n_variables, int n_clusters)
        : data{n_variables}, seeds_col_dim(n_variables),
          trials(n_clusters > 0 ? 2 + static_cast<int>(std::log(n_clusters)) : 1)
    {
    }
};

template <class Real> bool read_options(OptionReader reader, SeedsOptions<Real> &options)
{
    while (const int code = reader.next()) {
        if (read_data_option(code, reader, options.data)) continue;
        switch (code) {
        case TAVIK_CLUSTER_SEEDS_COL_DIM: options.seeds_col_dim = reader.integer(); break;
        case TAVIK_CLUSTER_TRIALS: options.trials = reader.integer(); break;
        case TAVIK_RETURN_USER: options.result = reader.pointer<Real>("TAVIK_RETURN_USER"); break;
        default: reader.unknown(11001); return false;
        }
    }
    return !error_pending();
}

template <class Real>
bool check_arguments(int n_observations, int n_variables, const Real *x, int n_clusters,
                     const SeedsOptions<Real> &options)
{
    if (!check_positive(n_observations, "n_observations") || !check_positive(n_variables, "n_variables") ||
        !check_stride(n_variables, options.data.x_col_dim, "x_col_dim") ||
        !check_stride(n_variables, options.seeds_col_dim, "cluster_seeds_col_dim") ||
        !check_positive(options.trials, "cluster_trials"))
        return false;
    if (n_clusters < 2 || n_clusters > n_observations)
        return raise(terminal, 20080, n_clusters, n_observations);
    return check_not_null(x, "x") && check_masses(n_observations, options.data) &&
           check_variables(n_variables, options.data);
}

template <class Real> class SeedSearch {
public:
    // False without memory.
    bool prepare(const Observations<Real> &observations, int trials, Workspace &workspace)
    {
        observations_ = observations;
        const auto n = static_cast<std::size_t>(observations.n), t = static_cast<std::size_t>(trials);
        const std::size_t p = observations.n_variables,
                          n_pieces = static_cast<std::size_t>(count_pieces(observations.n));
        candidates_ = {t, p, whole_vectors(t), whole_vectors(p), nullptr, nullptr};
        threads_ = thread_count(count_pieces(observations.n), static_cast<std::int64_t>(n * p));
        const auto n_threads = static_cast<std::size_t>(threads_);
        squares_ = workspace.array_or_null<double>(n);
        piece_sums_ = workspace.array_or_null<double>(n_pieces);
        left_ = workspace.array_or_null<double>(t);
        means_ = workspace.array_or_null<double>(2 * p);
        candidates_.rows = workspace.array_or_null<double>(candidates_.rows_size());
        candidates_.by_variable = workspace.array_or_null<double>(p * candidates_.padded_clusters);
        thread_size_ =
            whole_line_pairs(candidates_.padded_variables + candidates_.padded_clusters + whole_vectors(t));
        thread_memory_ = workspace.array_or_null<double>(n_threads * thread_size_);
        if (squares_ == nullptr || piece_sums_ == nullptr || left_ == nullptr || means_ == nullptr ||
            candidates_.rows == nullptr || candidates_.by_variable == nullptr || thread_memory_ == nullptr)
            return false;
        std::fill_n(candidates_.rows, candidates_.rows_size(), 0.0);
        std::fill_n(candidates_.by_variable, p * candidates_.padded_clusters, 0.0);
        std::fill_n(thread_memory_, n_threads * thread_size_, 0.0);
        return true;
    }

    // Before the first seed every observation is as far as any other. One with an infinite value cannot be a seed.
    void start()
    {
        set_means();
        for (int i = 0; i < observations_.n; ++i) {
            const Real *row = observations_.row(i);
            squares_[i] =
                std::any_of(row, row + observations_.n_variables, [](Real x) { return std::isinf(x); })
                    ? 0
                    : infinity<double>;
        }
    }

    // Draws candidates and takes the best one. False when no observation is left that differs from all seeds.
    bool find(Real *seed)
    {
        const double total = sum_up();
        if (!(total > 0)) return false;
        for (std::size_t t = 0; t < candidates_.n_clusters; ++t) {
            double u = 0;
            tavik_drnun(1, &u);
            if (error_pending()) return true;
            set_candidate(t, row_at(std::min(u * total, largest_number<double>)));
        }
        const std::size_t best = best_candidate();
        std::transform(candidates_.row(best), candidates_.row(best) + observations_.n_variables, seed,
                       [](double value) { return static_cast<Real>(value); });
        come_closer_to(best);
        return true;
    }

private:
    // Of each variable over the observations that have it: what a seed gets where its observation has no value.
    void set_means() const
    {
        const std::size_t p = observations_.n_variables;
        double *sums = means_, *masses = means_ + p;
        std::fill_n(sums, 2 * p, 0.0);
        for (int i = 0; i < observations_.n && !observations_.complete; ++i) {
            for (std::size_t j = 0; j < p; ++j) {
                const double x = observations_.row(i)[j];
                if (!std::isfinite(x)) continue;
                sums[j] += observations_.mass(i) * x;
                masses[j] += observations_.mass(i);
            }
        }
        for (std::size_t j = 0; j < p; ++j) sums[j] = masses[j] > 0 ? sums[j] / masses[j] : 0;
    }

    double probability(int i) const
    {
        return observations_.mass(i) * (overflow_ ? std::isinf(squares_[i]) : squares_[i]);
    }

    // Sums of the probabilities, piece by piece. Before the first seed all squares are infinite; where some are
    // later, since they overflow, the others count as nothing beside them.
    double sum_up()
    {
        overflow_ = std::any_of(squares_, squares_ + observations_.n,
                                [](double square) { return std::isinf(square); });
        for_each_piece(observations_.n, threads_,
                       [&](int, OrderedPieces &, std::int64_t piece, int first, int end) {
                           double sum = 0;
                           for (int i = first; i < end; ++i) sum += probability(i);
                           piece_sums_[piece] = sum;
                       });
        double total = 0;
        for (int piece = 0; piece < count_pieces(observations_.n); ++piece) total += piece_sums_[piece];
        return total;
    }

    // The row in which the sum of the probabilities passes a value; rounding must not lead to one that cannot be
    // drawn.
    int row_at(double value) const
    {
        int piece = 0, last = -1;
        const int last_piece = count_pieces(observations_.n) - 1;
        double sum = 0;
        while (piece < last_piece && sum + piece_sums_[piece] < value) sum += piece_sums_[piece++];
        for (; piece <= last_piece; ++piece) {
            const int first = piece * rows_per_piece,
                      end = std::min(observations_.n - first, rows_per_piece) + first;
            for (int i = first; i < end; ++i) {
                if (!(probability(i) > 0)) continue;
                last = i;
                sum += probability(i);
                if (sum >= value) return i;
            }
        }
        return last;
    }

    void set_candidate(std::size_t t, int i) const
    {
        for (std::size_t j = 0; j < observations_.n_variables; ++j) {
            const double x = observations_.row(i)[j];
            candidates_.set(t, j, std::isnan(x) ? static_cast<double>(static_cast<Real>(means_[j])) : x);
        }
    }

    // The candidate that leaves the smallest sum of squares.
    std::size_t best_candidate() const
    {
        const std::size_t t = candidates_.n_clusters;
        if (t == 1) return 0;
        std::fill_n(left_, t, 0.0);
        for_each_piece(observations_.n, threads_,
                       [&](int thread, OrderedPieces &pieces, std::int64_t piece, int first, int end) {
                           double *row = thread_memory_ + static_cast<std::size_t>(thread) * thread_size_;
                           double *distances = row + candidates_.padded_variables,
                                  *sums = distances + candidates_.padded_clusters;
                           std::fill_n(sums, t, 0.0);
                           for (int i = first; i < end; ++i) {
                               observations_.read(i, row);
                               distance_kernels().to_all(row, candidates_, observations_.complete, distances);
                               for (std::size_t k = 0; k < t; ++k)
                                   sums[k] += observations_.mass(i) * std::min(squares_[i], distances[k]);
                           }
                           pieces.wait_for_turn(piece);
                           for (std::size_t k = 0; k < t; ++k) left_[k] += sums[k];
                           pieces.pass_turn(piece);
                       });
        return static_cast<std::size_t>(std::min_element(left_, left_ + t) - left_);
    }

    // Brings the squared distances up to date after a new seed.
    void come_closer_to(std::size_t candidate) const
    {
        for_each_piece(observations_.n, threads_,
                       [&](int, OrderedPieces &, std::int64_t, int first, int end) {
                           for (int i = first; i < end; ++i) {
                               const Pair to = to_two(observations_.row(i), candidates_, candidate, candidate,
                                                      observations_.complete);
                               squares_[i] = std::min(squares_[i], to.a);
                           }
                       });
    }

    Observations<Real> observations_{};
    Centres candidates_{};
    int threads_ = 1;
    double *squares_ =
        nullptr; // of the distance from each observation to the closest seed; infinite without one
    double *piece_sums_ = nullptr, *left_ = nullptr, *means_ = nullptr, *thread_memory_ = nullptr;
    std::size_t thread_size_ = 0;
    bool overflow_ = false; // some squares are infinite
};

template <class Real>
void l_cluster_seeds(int n_observations, int n_variables, const Real *x, int n_clusters, ArgumentList &list,
                     Workspace &workspace, Real *&result)
{
    SeedsOptions<Real> options(n_variables, n_clusters);
    if (!read_options(OptionReader(list, count_codes), options) ||
        !check_arguments(n_observations, n_variables, x, n_clusters, options))
        return;
    Observations<Real> observations{};
    SeedSearch<Real> search;
    if (!observe(x, n_observations, n_variables, options.data, workspace, observations)) return;
    const auto k = static_cast<std::size_t>(n_clusters),
               users_stride = static_cast<std::size_t>(options.seeds_col_dim);
    const std::size_t stride = options.result != nullptr ? observations.n_variables : users_stride;
    Real *seeds = workspace.result<Real>(k * stride, "n_clusters");
    if (seeds == nullptr) return;
    if (!search.prepare(observations, options.trials, workspace)) {
        raise_no_memory(n_observations, n_variables, n_clusters);
        return;
    }
    std::fill_n(seeds, k * stride, Real{0}); // the padding of its rows
    search.start();
    for (std::size_t c = 0; c < k; ++c) {
        if (!search.find(seeds + c * stride)) {
            raise(terminal, 20085, static_cast<int>(c), n_clusters);
            return;
        }
        if (error_pending()) return;
    }
    if (options.result == nullptr) {
        result = workspace.hand_over(seeds);
        return;
    }
    for (std::size_t c = 0; c < k; ++c)
        std::copy_n(seeds + c * stride, observations.n_variables, options.result + c * users_stride);
    result = options.result;
}

} // namespace tavik::multivariate
