// The two stages of the transfer method (Hartigan and Wong 1979), extended by masses and missing values.
//
// A stage looks at one observation after another and moves it where that makes the objective smaller; every decision
// depends on the moves before, so stages are sequential. Here is what looking means. Which observations need not be
// looked at, since nothing about them can change, is the matter of passes.hpp.
#pragma once

#include "passes.hpp"

namespace tavik::multivariate {

template <class Real> class Transfers {
public:
    // False without memory.
    bool prepare(Partition<Real> &partition, Workspace &workspace)
    {
        partition_ = &partition;
        n_ = partition.observations.n;
        changes_ = workspace.array_or_null<Changes>(partition.centres.n_clusters);
        found_ = workspace.array_or_null<unsigned>(partition.centres.padded_clusters);
        return changes_ != nullptr && found_ != nullptr && passes_.prepare(partition, workspace);
    }

    // All clusters are live.
    void start()
    {
        std::fill_n(changes_, partition_->centres.n_clusters, Changes{0, 0, true});
        cycle_ = optimal_cycle_ = n_;
        slacks().start();
    }

    // The stages belong into body().
    template <class Body> void run(const Body &body)
    {
        passes_.run(body);
    }

    // Every observation may go to any cluster. False when none went.
    bool optimal_stage()
    {
        passes_.optimal.start_stage();
        const bool moved = passes_.go_through(Optimal{*this}, passes_.optimal);
        cycle_ += n_;
        optimal_cycle_ += n_;
        for (std::size_t c = 0; c < partition_->centres.n_clusters; ++c) changes_[c].in_quick_stage = false;
        return moved;
    }

    // Observations move between their two clusters until none does any more.
    void quick_stage()
    {
        passes_.quick.start_stage();
        double sum_before = infinity<double>;
        for (int pass = 1;; ++pass) {
            const bool moved = passes_.go_through(Quick{*this}, passes_.quick);
            cycle_ += n_;
            if (!moved) return;
            if (pass % passes_to_check != 0) continue;
            const double sum = partition_->sum_of_squares();
            if (!(sum < sum_before)) return;
            sum_before = sum;
        }
    }

private:
    // When a cluster changed last.
    struct Changes {
        std::int64_t step, optimal_step; // among all, and those of optimal stages
        bool in_quick_stage;             // the one before
    };

    // What the two stages do with a row: how much drift is left until it must be looked at, and looking.
    struct Optimal {
        static constexpr bool is_optimal = true;
        Transfers &transfers;

        static double slack(const SlackTable &slacks, int i)
        {
            return std::min(slacks.own(i), slacks.of_others(i));
        }

        bool look(int i, const Proposal *proposal) const
        {
            return transfers.look_at_all_clusters(i, proposal);
        }
    };

    struct Quick {
        static constexpr bool is_optimal = false;
        Transfers &transfers;

        static double slack(const SlackTable &slacks, int i)
        {
            return slacks.own(i);
        }

        bool look(int i, const Proposal *) const
        {
            return transfers.look_at_two_clusters(i);
        }
    };

    // Rounding can make observations change places for ever where they are equally far from two clusters. So after as
    // many passes it is checked that the moves still make the objective smaller.
    static constexpr int passes_to_check = 500;

    const Cluster &cluster(std::size_t c) const
    {
        return partition_->sums.clusters[c];
    }

    bool changed_within_a_cycle(std::size_t c) const
    {
        return step_ - changes_[c].step < n_;
    }

    bool is_live(std::size_t c) const
    {
        return changes_[c].in_quick_stage || optimal_step_ - changes_[c].optimal_step < n_;
    }

    double loss_factor(std::size_t c, double mass) const
    {
        const double left = cluster(c).mass - mass;
        if (!(left > 0)) return 0; // nobody leaves where rounding takes the others for nothing
        return cluster(c).mass / left;
    }

    double gain_factor(std::size_t c, double mass) const
    {
        return cluster(c).mass / (cluster(c).mass + mass);
    }

    // Only live clusters are compared, and a distance that has become NaN meanwhile never is the smaller one.
    bool can_be_taken(const Proposal &proposal, bool own_live) const
    {
        const auto proposed = static_cast<std::size_t>(proposal.second);
        if (!own_live && !is_live(proposed)) return false;
        const Observations<Real> &observations = partition_->observations;
        if (observations.complete) return true;
        const Pair to = to_two(observations.row(proposal.row), partition_->centres,
                               partition_->next(proposal.row), proposed, false);
        return !std::isnan(to.a) && !std::isnan(to.b);
    }

    bool look_at_all_clusters(int i, const Proposal *proposal)
    {
        step_ = cycle_ + i;
        optimal_step_ = optimal_cycle_ + i;
        const std::size_t own = partition_->own(i);
        if (cluster(own).count == 1) return false;
        const bool own_live = is_live(own);
        if (proposal != nullptr && can_be_taken(*proposal, own_live)) slacks().accept(*proposal);
        if (slacks().table().of_others(i) > 0)
            return !(slacks().table().own(i) > 0) && compare_two(i, own, true);

        std::size_t second = partition_->next(i);
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
        double rest = slacks().find_below(distances, gain, found_, n_found);
        const std::size_t second_before = second;
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
            rest = slacks().find_below(distances, -1, found_, n_found);
        }
        if (gain < loss) {
            move(i, own, second, row, mass, true);
            return true;
        }
        partition_->second[i] = static_cast<int>(second);
        slacks().set_own(i, own, second, to_own, to_second);
        slacks().set_others(i, second, to_second, rest);
        return false;
    }

    bool look_at_two_clusters(int i)
    {
        step_ = cycle_ + i;
        const std::size_t own = partition_->own(i), second = partition_->next(i);
        if (!changed_within_a_cycle(own) && !changed_within_a_cycle(second)) return false;
        return cluster(own).count > 1 && compare_two(i, own, false);
    }

    bool compare_two(int i, std::size_t own, bool is_optimal)
    {
        const std::size_t second = partition_->next(i);
        const Observations<Real> &observations = partition_->observations;
        const double mass = observations.mass(i);
        const Pair to = to_two(observations.row(i), partition_->centres, own, second, observations.complete);
        if (!(gain_factor(second, mass) * to.b < loss_factor(own, mass) * to.a)) {
            slacks().set_own(i, own, second, to.a, to.b);
            return false;
        }
        double *row = partition_->row_of_thread(0);
        observations.read(i, row);
        move(i, own, second, row, mass, is_optimal);
        return true;
    }

    void move(int i, std::size_t from, std::size_t to, const double *row, double mass, bool is_optimal)
    {
        partition_->move(i, from, to, row, mass);
        for (const std::size_t c : {from, to}) {
            changes_[c].step = step_;
            if (is_optimal) changes_[c].optimal_step = optimal_step_;
            else changes_[c].in_quick_stage = true;
        }
        slacks().move(i, from, to, is_optimal);
    }

    Slacks<Real> &slacks()
    {
        return passes_.slacks;
    }

    Partition<Real> *partition_ = nullptr;
    int n_ = 0;
    Passes<Real> passes_;
    Changes *changes_ = nullptr;
    unsigned *found_ = nullptr;
    // Steps are rows gone through, also in optimal stages alone; cycles begin at these.
    std::int64_t step_ = 0, optimal_step_ = 0, cycle_ = 0, optimal_cycle_ = 0;
};

} // namespace tavik::multivariate
