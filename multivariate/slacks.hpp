// What is known of every observation's slacks, and what uses them up: moving centres and changing masses.
//
// A slack must hold while masses change, too. So it is made from a mass that the cluster will not fall below for a
// while, and from the greatest mass that anybody has; when a cluster has lost too much, the slacks that counted on it
// are given up.
#pragma once

#include "drift.hpp"
#include "partition.hpp"

#include <utility>

namespace tavik::multivariate {

// What slacks are made of and compared with. As a copy, it stands still while centres move: a slack from it holds as if
// it had been made when it was copied.
struct SlackSource {
    SlackTable table; // of which rows are never copied
    Centres centres;
};

template <class Real> class Slacks {
public:
    // False without memory. Only on request will sources be copied.
    bool prepare(const Partition<Real> &partition, bool copies_sources, Workspace &workspace)
    {
        partition_ = &partition;
        const Centres &centres = partition.centres;
        until_ = workspace.array_or_null<double>(2 * static_cast<std::size_t>(partition.observations.n));
        factors_ = workspace.array_or_null<double>(3 * centres.padded_clusters);
        certain_masses_ = workspace.array_or_null<double>(centres.n_clusters);
        copies_ = workspace.array_or_null<double>(copies_sources ? copy_size() : 0);
        return until_ != nullptr && factors_ != nullptr && certain_masses_ != nullptr && copies_ != nullptr &&
               drift_.prepare(centres, workspace) && drift_of_cycles_.prepare(centres, workspace);
    }

    // Nothing is known of any slack.
    void start()
    {
        const Observations<Real> &observations = partition_->observations;
        const std::size_t padded_clusters = partition_->centres.padded_clusters;
        from_ = {observations.x, observations.stride, observations.complete};
        shares_ = factors_;
        root_of_gain_ = shares_ + padded_clusters;
        inverse_of_loss_ = root_of_gain_ + padded_clusters;
        std::fill_n(shares_, padded_clusters, 1.0);
        std::fill_n(certain_masses_, partition_->centres.n_clusters, 0.0);
        drift_.start();
        drift_of_cycles_.start();
        table_ = {partition_->cluster,
                  partition_->second,
                  until_,
                  until_ + observations.n,
                  drift_.table(),
                  drift_of_cycles_.table(),
                  root_of_gain_,
                  inverse_of_loss_,
                  shares_,
                  drift_.rounding(),
                  partition_->centres.n_clusters > 2};
        forget(table_.own_until);
        forget(table_.others_until);
    }

    const SlackTable &table() const
    {
        return table_;
    }

    SlackSource source() const
    {
        return {table_, partition_->centres};
    }

    // The one copy that there is, as of now.
    SlackSource copy_source()
    {
        SlackSource copy = source();
        const Centres &centres = partition_->centres;
        double *to = copies_;
        const auto put = [&](const double *from, std::size_t size) {
            std::copy_n(from, size, to);
            return std::exchange(to, to + size);
        };
        copy.centres.rows = put(centres.rows, centres.rows_size());
        copy.centres.by_variable = put(centres.by_variable, centres.n_variables * centres.padded_clusters);
        const double *factors = put(factors_, 3 * centres.padded_clusters);
        copy.table.shares = factors + (shares_ - factors_);
        copy.table.root_of_gain = factors + (root_of_gain_ - factors_);
        copy.table.inverse_of_loss = factors + (inverse_of_loss_ - factors_);
        copy.table.drift = drift_.copy(to);
        copy.table.drift_of_cycles = drift_of_cycles_.copy(to + Drift::copy_size(centres.n_clusters));
        return copy;
    }

    // A pass over the rows begins. The second slacks are for passes of optimal stages.
    void start_pass(bool is_optimal)
    {
        for (std::size_t c = 0; c < partition_->centres.n_clusters; ++c) set_certain_mass(c);
        set_anchors(is_optimal);
    }

    // From here on growth() counts anew. Outside optimal stages, second slacks are left alone. False when slacks had to be
    // forgotten: what was derived from drifts before does not hold any more.
    bool set_anchors(bool is_optimal)
    {
        const bool own_hold = drift_.start_span(), others_hold = !is_optimal || drift_of_cycles_.start_span();
        if (!own_hold) forget(table_.own_until);
        if (!others_hold) forget(table_.others_until);
        return own_hold && others_hold;
    }

    // The most by which a slack has shrunk since. In an optimal stage both drifts have the same anchors.
    double growth() const
    {
        return 2 * drift_.since_start();
    }

    // From here on growth_since_mark() counts.
    void mark()
    {
        drift_.mark();
    }

    // The most by which a slack has shrunk since the mark, within a span.
    double growth_since_mark() const
    {
        return 2 * drift_.since_mark();
    }

    // An observation has moved, and with it two centres. Outside optimal stages, what centres do between their
    // beginnings does not matter to drifts from one to the next.
    void move(int i, std::size_t from, std::size_t to, bool is_optimal)
    {
        table_.own_until[i] = table_.others_until[i] = -infinity<double>;
        for (const std::size_t c : {from, to}) {
            const double square = drift_.square_from_anchor(c);
            drift_.move(c, square);
            if (is_optimal) drift_of_cycles_.move(c, square);
        }
        if (partition_->sums.clusters[from].mass < certain_masses_[from]) {
            set_certain_mass(from);
            drift_.lose(from);
            drift_of_cycles_.lose(from);
        }
    }

    void set_own(int i, std::size_t own, std::size_t second, double to_own, double to_second) const
    {
        table_.own_until[i] = table_.own_until_from(std::sqrt(to_own), std::sqrt(to_second), own, second);
    }

    // `rest` is the least of shares times distances of the others.
    void set_others(int i, std::size_t second, double to_second, double rest) const
    {
        table_.others_until[i] = table_.others_until_from(std::sqrt(to_second), std::sqrt(rest), second);
    }

    // The least of shares times distances, and those for which it is less than `below`.
    double find_below(const double *distances, double below, unsigned *found, std::size_t &n_found) const
    {
        return distance_kernels().find_below(distances, shares_, partition_->centres.padded_clusters, below,
                                             found, n_found);
    }

    // Bring slacks of rows up to date, from a source that stands still. Only slacks change, and no decision depends on
    // them.
    void renew_own(const SlackSource &source, const int *rows, int n) const
    {
        slack_kernels<Real>().renew_own(source.table, from_, source.centres, rows, n);
    }

    int renew_all(const SlackSource &source, const int *rows, int n, int thread, Proposal *proposals) const
    {
        return slack_kernels<Real>().renew_all(source.table, from_, source.centres, rows, n,
                                               partition_->row_of_thread(thread),
                                               partition_->distances_of_thread(thread), proposals);
    }

    // Makes a proposal true if nobody else can have come closer since.
    void accept(const Proposal &proposal) const
    {
        const DriftTable &drift = table_.drift_of_cycles;
        if (!(proposal.others_until - (drift.now[proposal.second] + *drift.now_any) > 0)) return;
        table_.second[proposal.row] = proposal.second;
        table_.own_until[proposal.row] = proposal.own_until;
        table_.others_until[proposal.row] = proposal.others_until;
    }

private:
    std::size_t copy_size() const
    {
        const Centres &centres = partition_->centres;
        return centres.rows_size() + (centres.n_variables + 3) * centres.padded_clusters +
               2 * Drift::copy_size(centres.n_clusters);
    }

    void forget(double *until) const
    {
        std::fill_n(until, partition_->observations.n, -infinity<double>);
    }

    // Large clusters seldom lose half of their members; small ones keep one.
    void set_certain_mass(std::size_t c)
    {
        constexpr double large = 64;
        const double mass = partition_->sums.clusters[c].mass,
                     greatest = partition_->observations.greatest_mass;
        double &certain = certain_masses_[c];
        const double now = mass >= large * greatest
                               ? mass / 2
                               : std::max(0.0, std::min(mass, partition_->observations.least_mass));
        certain = certain > mass ? now : std::max(certain, now); // a greater one would not spoil a slack
        const double share = certain / (certain + greatest);
        shares_[c] = share * (1 - 4 * epsilon<double>); // rounding must not raise it
        root_of_gain_[c] = std::sqrt(shares_[c]);
        inverse_of_loss_[c] = certain > greatest ? std::sqrt((certain - greatest) / certain) : 0;
    }

    const Partition<Real> *partition_ = nullptr;
    RowSource<Real> from_{};
    SlackTable table_{};
    double *until_ = nullptr, *factors_ = nullptr, *certain_masses_ = nullptr, *copies_ = nullptr;
    double *shares_ = nullptr, *root_of_gain_ = nullptr, *inverse_of_loss_ = nullptr;
    Drift drift_; // as long as anything moves
    // Of the same moves in optimal stages, with the same anchors, and of a quick stage as one.
    Drift drift_of_cycles_;
};

} // namespace tavik::multivariate
