// The two stages of the transfer method (Hartigan and Wong 1979), extended by masses and missing values.
//
// A stage looks at one observation after another and moves it where that makes the objective smaller; every decision
// depends on the moves before, so stages are sequential. Two things save most of the work without changing a decision:
// an observation is passed over while its slacks show that nothing can change (drift.hpp), and with several threads the
// slacks of the next rows are brought up to date by all of them before the stage goes over these rows.
#pragma once

#include "drift.hpp"
#include "partition.hpp"

namespace tavik::multivariate {

template <class Real> class Transfers {
public:
    // False without memory.
    bool prepare(Partition<Real> &partition, Workspace &workspace)
    {
        partition_ = &partition;
        const Centres &centres = partition.centres;
        const auto n = static_cast<std::size_t>(partition.observations.n);
        n_ = partition.observations.n;
        own_until_ = workspace.array_or_null<double>(2 * n);
        shares_ = workspace.array_or_null<double>(centres.padded_clusters);
        bookkeeping_ = workspace.array_or_null<Bookkeeping>(centres.n_clusters);
        found_ = workspace.array_or_null<unsigned>(centres.padded_clusters);
        anchors_ = workspace.array_or_null<double>(centres.n_clusters * centres.padded_variables);
        return own_until_ != nullptr && shares_ != nullptr && bookkeeping_ != nullptr && found_ != nullptr &&
               anchors_ != nullptr;
    }

    // All clusters are live, nothing is known of any slack.
    void start()
    {
        const Observations<Real> &observations = partition_->observations;
        others_until_ = own_until_ + n_;
        forget_slacks();
        std::fill_n(shares_, partition_->centres.padded_clusters, 1.0);
        std::fill_n(bookkeeping_, partition_->centres.n_clusters, Bookkeeping{0, 0, 0, true});
        step_ = optimal_step_ = n_;
        n_looked_at_ = n_;
        least_mass_ = observations.least_mass();
        greatest_mass_ = observations.greatest_mass();
        drift_.start(partition_->centres, anchors_);
    }

    // Every observation may go to any cluster. False when none went.
    bool optimal_stage()
    {
        start_stage();
        const bool refreshes = partition_->threads > 1 && n_looked_at_ > n_ / 8;
        n_looked_at_ = 0;
        bool moved = false;
        for (int first = 0; first < n_; first += std::min(n_ - first, rows_refreshed)) {
            const int end = first + std::min(n_ - first, rows_refreshed);
            if (refreshes) refresh_slacks(first, end);
            for (int i = first; i < end; ++i) moved |= look_at_all_clusters(i);
        }
        for (std::size_t c = 0; c < partition_->centres.n_clusters; ++c) bookkeeping_[c].quickly_changed = false;
        return moved;
    }

    // Observations move between their two clusters until none does any more.
    void quick_stage()
    {
        for (int pass = 0; pass < most_quick_passes; ++pass) {
            start_stage();
            bool moved = false;
            for (int i = 0; i < n_; ++i) moved |= look_at_two_clusters(i);
            if (!moved) return;
        }
    }

private:
    struct Bookkeeping {
        double certain_mass;       // what the cluster's mass does not fall below while slacks hold
        std::int64_t changed;      // the step of the last change
        std::int64_t changed_live; // the same in steps of optimal stages
        bool quickly_changed;      // in the quick stage before
    };

    // Rounding can make observations change places for ever where they are equally far from two clusters.
    static constexpr int most_quick_passes = 500;
    static constexpr int rows_refreshed = 8 * rows_per_piece;

    const Cluster &cluster(std::size_t c) const
    {
        return partition_->sums.clusters[c];
    }

    bool changed_within_a_cycle(std::size_t c) const
    {
        return step_ - bookkeeping_[c].changed < n_;
    }

    bool is_live(std::size_t c) const
    {
        return bookkeeping_[c].quickly_changed || optimal_step_ - bookkeeping_[c].changed_live < n_;
    }

    double loss_factor(std::size_t c, double mass) const
    {
        return cluster(c).mass / (cluster(c).mass - mass);
    }

    double gain_factor(std::size_t c, double mass) const
    {
        return cluster(c).mass / (cluster(c).mass + mass);
    }

    double to_one(const double *row, std::size_t c) const
    {
        const Centres &centres = partition_->centres;
        return distance_kernels().to_one(row, centres.row(c), centres.padded_variables,
                                         partition_->observations.complete);
    }

    bool look_at_all_clusters(int i)
    {
        ++step_;
        ++optimal_step_;
        const double drift = drift_.now();
        if (own_until_[i] > drift && others_until_[i] > drift) return false;
        const auto own = static_cast<std::size_t>(partition_->cluster[i]);
        if (cluster(own).count == 1) return false;
        ++n_looked_at_;
        if (others_until_[i] > drift) return compare_two(i, own, true);

        auto second = static_cast<std::size_t>(partition_->second[i]);
        const Observations<Real> &observations = partition_->observations;
        double *row = partition_->row_of_thread(0), *distances = partition_->distances_of_thread(0);
        observations.read(i, row);
        const double mass = observations.mass(i);
        distance_kernels().to_all(row, partition_->centres, observations.complete, distances);
        const double to_own = distances[own];
        double to_second = distances[second];
        const double loss = loss_factor(own, mass) * to_own;
        double gain = gain_factor(second, mass) * to_second;
        distances[own] = distances[second] = infinity<double>;
        std::size_t n_found = 0;
        double rest = find_below(distances, gain, n_found);
        const std::size_t second_before = second;
        const bool own_live = is_live(own);
        for (std::size_t k = 0; k < n_found; ++k) {
            const std::size_t c = found_[k];
            if (!own_live && !is_live(c)) continue;
            const double gain_of_c = gain_factor(c, mass) * distances[c];
            if (!(gain_of_c < gain)) continue;
            gain = gain_of_c;
            second = c;
        }
        if (second != second_before) {
            distances[second_before] = to_second;
            to_second = distances[second];
            distances[second] = infinity<double>;
            rest = find_below(distances, -1, n_found);
        }
        if (gain < loss) {
            move(i, own, second, row, mass);
            bookkeeping_[own].changed_live = bookkeeping_[second].changed_live = optimal_step_;
            return true;
        }
        partition_->second[i] = static_cast<int>(second);
        set_slacks(i, own, second, mass, to_own, to_second, rest);
        return false;
    }

    bool look_at_two_clusters(int i)
    {
        ++step_;
        if (own_until_[i] > drift_.now()) return false;
        const auto own = static_cast<std::size_t>(partition_->cluster[i]),
                   second = static_cast<std::size_t>(partition_->second[i]);
        if (!changed_within_a_cycle(own) && !changed_within_a_cycle(second)) return false;
        return cluster(own).count > 1 && compare_two(i, own, false);
    }

    bool compare_two(int i, std::size_t own, bool in_optimal_stage)
    {
        const auto second = static_cast<std::size_t>(partition_->second[i]);
        const Observations<Real> &observations = partition_->observations;
        double *row = partition_->row_of_thread(0);
        observations.read(i, row);
        const double mass = observations.mass(i), to_own = to_one(row, own), to_second = to_one(row, second);
        if (!(gain_factor(second, mass) * to_second < loss_factor(own, mass) * to_own)) {
            own_until_[i] = own_slack(own, second, mass, to_own, to_second);
            return false;
        }
        move(i, own, second, row, mass);
        for (const std::size_t c : {own, second}) {
            if (in_optimal_stage) bookkeeping_[c].changed_live = optimal_step_;
            else bookkeeping_[c].quickly_changed = true;
        }
        return true;
    }

    void move(int i, std::size_t from, std::size_t to, const double *row, double mass)
    {
        partition_->move(i, from, to, row, mass);
        own_until_[i] = others_until_[i] = -infinity<double>;
        for (const std::size_t c : {from, to}) {
            bookkeeping_[c].changed = step_;
            drift_.move(c);
        }
        if (cluster(from).mass < bookkeeping_[from].certain_mass) {
            set_certain_mass(from);
            drift_.lose();
        }
    }

    // The least of shares times distances, and in found_ those for which it is less than `below`.
    double find_below(const double *distances, double below, std::size_t &n_found)
    {
        return distance_kernels().find_below(distances, shares_, partition_->centres.padded_clusters, below,
                                             found_, n_found);
    }

    // How far centres may move before an observation leaves its cluster for its second: the loss, at most, has to reach the
    // gain, at least. Both are squares of distances that change by the drift, times factors of the masses.
    double own_slack(std::size_t own, std::size_t second, double mass, double to_own, double to_second) const
    {
        const double certain = bookkeeping_[own].certain_mass;
        const double factor = certain > mass ? std::sqrt(certain / (certain - mass)) : infinity<double>;
        const double share = std::sqrt(shares_[second]);
        const double loss = factor * std::sqrt(to_own), gain = share * std::sqrt(to_second);
        return drift_.until((gain - loss) / (factor + share), loss + gain);
    }

    // The second slack: before another cluster than these can offer a smaller gain than the second. `rest` is the least
    // of shares times distances of the others.
    void set_slacks(int i, std::size_t own, std::size_t second, double mass, double to_own, double to_second,
                    double rest)
    {
        own_until_[i] = own_slack(own, second, mass, to_own, to_second);
        const double to_rest = std::sqrt(rest), root = std::sqrt(to_second);
        const bool has_others = partition_->centres.n_clusters > 2;
        others_until_[i] =
            has_others ? drift_.until((to_rest - root) / 2, to_rest + root) : infinity<double>;
    }

    // Computes the slacks that are used up. Only slacks change, and no decision depends on them.
    void refresh_slacks(int first_row, int end_row)
    {
        const Observations<Real> &observations = partition_->observations;
        for_each_piece(end_row - first_row, partition_->threads,
                       [&](int thread, OrderedPieces &, std::int64_t, int first, int end) {
                           double *row = partition_->row_of_thread(thread);
                           double *distances = partition_->distances_of_thread(thread);
                           for (int i = first_row + first; i < first_row + end; ++i) refresh(observations, i, row, distances);
                       });
    }

    void refresh(const Observations<Real> &observations, int i, double *row, double *distances)
    {
        if (own_until_[i] > drift_.now() && others_until_[i] > drift_.now()) return;
        const auto own = static_cast<std::size_t>(partition_->cluster[i]),
                   second = static_cast<std::size_t>(partition_->second[i]);
        observations.read(i, row);
        distance_kernels().to_all(row, partition_->centres, observations.complete, distances);
        const double to_own = distances[own], to_second = distances[second];
        distances[own] = distances[second] = infinity<double>;
        std::size_t none = 0;
        const double rest = distance_kernels().find_below(distances, shares_, partition_->centres.padded_clusters,
                                                          -1, nullptr, none);
        set_slacks(i, own, second, observations.mass(i), to_own, to_second, rest);
    }

    void start_stage()
    {
        if (!drift_.start_stage()) forget_slacks();
        for (std::size_t c = 0; c < partition_->centres.n_clusters; ++c) set_certain_mass(c);
    }

    void forget_slacks()
    {
        std::fill_n(own_until_, 2 * static_cast<std::size_t>(n_), -infinity<double>);
    }

    // Large clusters seldom lose half of their members; small ones keep one.
    void set_certain_mass(std::size_t c)
    {
        constexpr double large = 64;
        const double mass = cluster(c).mass;
        double &certain = bookkeeping_[c].certain_mass;
        const double now = mass >= large * greatest_mass_ ? mass / 2 : std::min(mass, least_mass_);
        certain = certain > mass ? now : std::max(certain, now); // a greater one would not spoil a slack
        shares_[c] = certain / (certain + greatest_mass_);
    }

    Partition<Real> *partition_ = nullptr;
    int n_ = 0;
    int n_looked_at_ = 0;     // in the last optimal stage
    double *own_until_ = nullptr, *others_until_ = nullptr; // the drifts at which the slacks are used up
    double *shares_ = nullptr; // of the distance to each cluster that a gain is at least, whatever the observation
    Bookkeeping *bookkeeping_ = nullptr;
    unsigned *found_ = nullptr;
    double *anchors_ = nullptr;
    std::int64_t step_ = 0, optimal_step_ = 0;
    double least_mass_ = 1, greatest_mass_ = 1;
    Drift drift_;
};

} // namespace tavik::multivariate
