// The two stages of the transfer method (Hartigan and Wong 1979), extended by masses and missing values.
//
// A stage looks at one observation after another and moves it where that makes the objective smaller; every decision
// depends on the moves before, so stages are sequential. Two things save most of the work without changing a
// decision: an observation is passed over while its slacks show that nothing can change (drift.hpp), and with several
// threads the slacks of the next rows are brought up to date by all of them before the stage goes over these rows.
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
        listed_ = workspace.array_or_null<int>(n);
        n_listed_ = workspace.array_or_null<int>(static_cast<std::size_t>(count_pieces(n_)));
        return own_until_ != nullptr && shares_ != nullptr && bookkeeping_ != nullptr && found_ != nullptr &&
               listed_ != nullptr && n_listed_ != nullptr && drift_.prepare(centres, workspace) &&
               drift_of_cycles_.prepare(centres, workspace);
    }

    // All clusters are live, nothing is known of any slack.
    void start()
    {
        const Observations<Real> &observations = partition_->observations;
        others_until_ = own_until_ + n_;
        forget(own_until_);
        forget(others_until_);
        std::fill_n(shares_, partition_->centres.padded_clusters, 1.0);
        std::fill_n(bookkeeping_, partition_->centres.n_clusters, Bookkeeping{0, 0, 0, 0, 0, true});
        cycle_ = optimal_cycle_ = n_;
        const double work = static_cast<double>(n_) * static_cast<double>(partition_->centres.rows_size());
        // Slacks that threads bring up to date are good for few rows, where all clusters are looked at.
        const int optimal_threads = work >= least_work_of_threads ? partition_->threads : 1;
        optimal_course_ = {optimal_threads, optimal_threads > 1 ? 8 * rows_per_piece : n_, 1};
        quick_course_ = {n_ >= least_rows_of_threads ? partition_->threads : 1, n_, 4};
        least_mass_ = observations.least_mass();
        greatest_mass_ = observations.greatest_mass();
        drift_.start();
        drift_of_cycles_.start();
    }

    // Every observation may go to any cluster. False when none went.
    bool optimal_stage()
    {
        optimal_course_.is_listed = false; // slacks have changed in between, and drift
        const bool moved = go_through(Optimal{*this}, optimal_course_);
        optimal_cycle_ += n_;
        for (std::size_t c = 0; c < partition_->centres.n_clusters; ++c)
            bookkeeping_[c].quickly_changed = false;
        return moved;
    }

    // Observations move between their two clusters until none does any more.
    void quick_stage()
    {
        quick_course_.is_listed = false;
        double sum_before = infinity<double>;
        for (int pass = 1;; ++pass) {
            const bool moved = go_through(Quick{*this}, quick_course_);
            if (!moved) return;
            if (pass % passes_to_check != 0) continue;
            const double sum = partition_->sum_of_squares();
            if (!(sum < sum_before)) return;
            sum_before = sum;
        }
    }

private:
    struct Bookkeeping {
        double certain_mass;       // what the cluster's mass does not fall below while slacks hold
        double root_of_loss;       // at most the root of the factor of a loss
        double root_of_gain;       // at least that of a gain
        std::int64_t changed;      // the step of the last change
        std::int64_t changed_live; // the same in steps of optimal stages
        bool quickly_changed;      // in the quick stage before
    };

    // Rounding can make observations change places for ever where they are equally far from two clusters. So after as
    // many passes it is checked that the moves still make the objective smaller.
    static constexpr int passes_to_check = 500;
    // Below, handing work to threads costs more than it saves.
    static constexpr double least_work_of_threads = 1 << 24;
    static constexpr int least_rows_of_threads = 1 << 18;

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
        const double left = cluster(c).mass - mass;
        if (!(left > 0)) return 0; // nobody leaves where rounding takes the others for nothing
        return cluster(c).mass / left;
    }

    double gain_factor(std::size_t c, double mass) const
    {
        return cluster(c).mass / (cluster(c).mass + mass);
    }

    // Slacks as they are stored, and the drift that uses them up. Held by value, so that the compiler keeps it in
    // registers while rows are gone through.
    struct Slacks {
        const double *own_until, *others_until;
        const int *cluster, *second;
        const double *drift, *drift_of_cycles; // of each centre
        double drift_of_any;

        // What is left until the observation may want to go to its second cluster.
        double own(int i) const
        {
            return own_until[i] - (drift[cluster[i]] + drift[second[i]]);
        }

        // What is left until another cluster may be closer than the second.
        double of_others(int i) const
        {
            return others_until[i] - (drift_of_cycles[second[i]] + drift_of_any);
        }
    };

    Slacks slacks() const
    {
        return {own_until_,
                others_until_,
                partition_->cluster,
                partition_->second,
                drift_.of_centres(),
                drift_of_cycles_.of_centres(),
                drift_of_cycles_.of_any()};
    }

    // What the two stages do with a row: how much drift is left until it must be looked at, and looking.
    struct Optimal {
        Transfers &transfers;

        static double slack(const Slacks &slacks, int i)
        {
            return std::min(slacks.own(i), slacks.of_others(i));
        }

        void refresh(int i, double *row, double *distances) const
        {
            transfers.refresh_slacks(i, row, distances);
        }

        bool look(int i) const
        {
            return transfers.look_at_all_clusters(i);
        }

        void start() const
        {
            if (!transfers.drift_of_cycles_.start_stage()) transfers.forget(transfers.others_until_);
        }

        // The most by which a slack has shrunk since.
        double growth() const
        {
            return 2 * std::max(transfers.drift_.since_start(), transfers.drift_of_cycles_.since_start());
        }
    };

    struct Quick {
        Transfers &transfers;

        static double slack(const Slacks &slacks, int i)
        {
            return slacks.own(i);
        }

        void refresh(int i, double *, double *) const
        {
            transfers.refresh_own_slack(i);
        }

        bool look(int i) const
        {
            return transfers.look_at_two_clusters(i);
        }

        void start() const
        {
        }

        double growth() const
        {
            return 2 * transfers.drift_.since_start();
        }
    };

    // How the passes of a stage go through the rows: those are listed which must be looked at before drifts have
    // grown by more than a margin, and as long as they have not, passes look at these alone.
    struct Course {
        int threads = 1;
        int rows_listed = 0;      // at once, at most
        double passes_listed = 0; // for which a list shall be good
        double margin = infinity<double>;
        double growth = 0;      // of drifts since the rows were listed, up to this pass
        bool is_listed = false; // all rows, with this margin
    };

    // Goes through all rows in their order. False when none moved.
    template <class Stage> bool go_through(const Stage &stage, Course &course)
    {
        for (std::size_t c = 0; c < partition_->centres.n_clusters; ++c) set_certain_mass(c);
        start_pass(stage);
        if (course.is_listed && course.threads > 1) refresh_list(stage, course);
        double growth_of_pass = 0;
        bool moved = false;
        for (int row = 0; row < n_;) {
            if (!course.is_listed) list(stage, course, row);
            row = look_at_listed(stage, course, moved);
            growth_of_pass += stage.growth();
            course.growth += stage.growth();
            if (row == n_) break;
            if (row < end_listed_) course.margin = 2 * course.growth; // used up
            course.is_listed = false;
            start_pass(stage);
        }
        if (!course.is_listed || course.growth > course.margin || std::isinf(course.margin)) {
            course.is_listed = false;
            course.margin = course.passes_listed * growth_of_pass;
        }
        cycle_ += n_;
        return moved;
    }

    template <class Stage> void start_pass(const Stage &stage)
    {
        if (!drift_.start_stage()) forget(own_until_);
        stage.start();
    }

    template <class Stage> void list(const Stage &stage, Course &course, int first_row)
    {
        course.growth = 0;
        first_listed_ = first_row;
        end_listed_ = first_row + std::min(n_ - first_row, course.rows_listed);
        course.is_listed = first_row == 0 && end_listed_ == n_;
        for_each_piece(end_listed_ - first_row, course.threads,
                       [&](int thread, OrderedPieces &, std::int64_t piece, int first, int end) {
                           list_piece(stage, course, first_row + first, first_row + end, listed_ + first,
                                      n_listed_[piece]);
                           if (course.threads > 1)
                               refresh_piece(stage, course, thread, listed_ + first, n_listed_[piece]);
                       });
    }

    // On several threads, slacks of listed rows are brought up to date before one goes over these rows.
    template <class Stage> void refresh_list(const Stage &stage, const Course &course)
    {
        for_each_piece(end_listed_ - first_listed_, course.threads,
                       [&](int thread, OrderedPieces &, std::int64_t piece, int first, int) {
                           refresh_piece(stage, course, thread, listed_ + first, n_listed_[piece]);
                       });
    }

    template <class Stage>
    void list_piece(const Stage &stage, const Course &course, int first, int end, int *listed,
                    int &n_listed) const
    {
        const Slacks slacks = this->slacks();
        const double margin = course.margin;
        int count = 0;
        for (int i = first; i < end; ++i) {
            listed[count] = i;
            count += !(stage.slack(slacks, i) > margin);
        }
        n_listed = count;
    }

    template <class Stage>
    void refresh_piece(const Stage &stage, const Course &course, int thread, int *listed, int &n_listed)
    {
        const Slacks slacks = this->slacks();
        const double margin = course.margin - course.growth;
        double *row = partition_->row_of_thread(thread), *distances = partition_->distances_of_thread(thread);
        int count = 0;
        for (int k = 0; k < n_listed; ++k) {
            const int i = listed[k];
            if (!(stage.slack(slacks, i) > 0)) stage.refresh(i, row, distances);
            listed[count] = i;
            count += !(stage.slack(slacks, i) > margin);
        }
        n_listed = count;
    }

    // Returns the row up to which the list has been good.
    template <class Stage> int look_at_listed(const Stage &stage, const Course &course, bool &moved)
    {
        constexpr int rows_ahead = 8;
        const double least_growth = course.margin - course.growth; // that makes the list useless
        for (int piece = 0; piece < count_pieces(end_listed_ - first_listed_); ++piece) {
            const int *listed = listed_ + piece * rows_per_piece;
            for (int k = 0; k < n_listed_[piece]; ++k) {
                if (k + rows_ahead < n_listed_[piece])
                    partition_->observations.prefetch(listed[k + rows_ahead]);
                if (stage.slack(slacks(), listed[k]) > 0 || !stage.look(listed[k])) continue;
                moved = true;
                if (stage.growth() > least_growth) return listed[k] + 1;
            }
        }
        return end_listed_;
    }

    bool look_at_all_clusters(int i)
    {
        step_ = cycle_ + i;
        optimal_step_ = optimal_cycle_ + i;
        const bool others_open = !(slacks().of_others(i) > 0);
        const std::size_t own = partition_->own(i);
        if (cluster(own).count == 1) return false;
        if (!others_open) return compare_two(i, own, true);

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
        set_slacks(i, own, second, to_own, to_second, rest);
        return false;
    }

    bool look_at_two_clusters(int i)
    {
        step_ = cycle_ + i;
        const std::size_t own = partition_->own(i), second = partition_->next(i);
        if (!changed_within_a_cycle(own) && !changed_within_a_cycle(second)) return false;
        return cluster(own).count > 1 && compare_two(i, own, false);
    }

    bool compare_two(int i, std::size_t own, bool in_optimal_stage)
    {
        const std::size_t second = partition_->next(i);
        const Observations<Real> &observations = partition_->observations;
        const double mass = observations.mass(i);
        const Pair to = to_two(observations.row(i), partition_->centres, own, second, observations.complete);
        if (!(gain_factor(second, mass) * to.b < loss_factor(own, mass) * to.a)) {
            set_own_slack(i, own, second, to.a, to.b);
            return false;
        }
        double *row = partition_->row_of_thread(0);
        observations.read(i, row);
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
            drift_of_cycles_.move(c);
        }
        if (cluster(from).mass < bookkeeping_[from].certain_mass) {
            set_certain_mass(from);
            drift_.lose(from);
            drift_of_cycles_.lose(from);
        }
    }

    // The least of shares times distances, and in found_ those for which it is less than `below`.
    double find_below(const double *distances, double below, std::size_t &n_found)
    {
        return distance_kernels().find_below(distances, shares_, partition_->centres.padded_clusters, below,
                                             found_, n_found);
    }

    // How far centres may move before an observation leaves its cluster for its second: the loss, at most, has to
    // reach the gain, at least. Both are squares of distances that change by the drift, times factors of the masses.
    void set_own_slack(int i, std::size_t own, std::size_t second, double to_own, double to_second)
    {
        const double factor = bookkeeping_[own].root_of_loss, share = bookkeeping_[second].root_of_gain;
        const double loss = factor * std::sqrt(to_own), gain = share * std::sqrt(to_second);
        own_until_[i] =
            drift_.until_of_pair((gain - loss) / std::max(factor, share), loss + gain, own, second);
    }

    // The second slack: before another cluster than these can offer a smaller gain than the second. `rest` is the
    // least of shares times distances of the others.
    void set_slacks(int i, std::size_t own, std::size_t second, double to_own, double to_second, double rest)
    {
        set_own_slack(i, own, second, to_own, to_second);
        const double to_rest = std::sqrt(rest), root = std::sqrt(to_second);
        const bool has_others = partition_->centres.n_clusters > 2;
        others_until_[i] = has_others ? drift_of_cycles_.until_of_all(to_rest - root, to_rest + root, second)
                                      : infinity<double>;
    }

    // Bring slacks up to date. Only slacks change, and no decision depends on them.
    void refresh_own_slack(int i)
    {
        const std::size_t own = partition_->own(i), second = partition_->next(i);
        const Observations<Real> &observations = partition_->observations;
        const Pair to = to_two(observations.row(i), partition_->centres, own, second, observations.complete);
        set_own_slack(i, own, second, to.a, to.b);
    }

    void refresh_slacks(int i, double *row, double *distances)
    {
        if (slacks().of_others(i) > 0) return refresh_own_slack(i);
        const std::size_t own = partition_->own(i), second = partition_->next(i);
        partition_->observations.read(i, row);
        distance_kernels().to_all(row, partition_->centres, partition_->observations.complete, distances);
        const double to_own = distances[own], to_second = distances[second];
        distances[own] = distances[second] = infinity<double>;
        std::size_t none = 0;
        const double rest = distance_kernels().find_below(
            distances, shares_, partition_->centres.padded_clusters, -1, nullptr, none);
        set_slacks(i, own, second, to_own, to_second, rest);
    }

    void forget(double *slacks) const
    {
        std::fill_n(slacks, n_, -infinity<double>);
    }

    // Large clusters seldom lose half of their members; small ones keep one.
    void set_certain_mass(std::size_t c)
    {
        constexpr double large = 64;
        const double mass = cluster(c).mass;
        double &certain = bookkeeping_[c].certain_mass;
        const double now =
            mass >= large * greatest_mass_ ? mass / 2 : std::max(0.0, std::min(mass, least_mass_));
        certain = certain > mass ? now : std::max(certain, now); // a greater one would not spoil a slack
        const double share = certain / (certain + greatest_mass_);
        shares_[c] = share * (1 - 4 * epsilon<double>); // rounding must not raise it
        bookkeeping_[c].root_of_gain = std::sqrt(shares_[c]);
        bookkeeping_[c].root_of_loss =
            certain > greatest_mass_ ? std::sqrt(certain / (certain - greatest_mass_)) : infinity<double>;
    }

    Partition<Real> *partition_ = nullptr;
    int n_ = 0;
    Course optimal_course_, quick_course_;
    // Rows, piece by piece from the first on, and how many in each piece.
    int *listed_ = nullptr, *n_listed_ = nullptr, first_listed_ = 0, end_listed_ = 0;
    double *own_until_ = nullptr, *others_until_ = nullptr; // the drifts at which the slacks are used up
    double *shares_ = nullptr; // a gain is at least this part of the distance, whatever the observation
    Bookkeeping *bookkeeping_ = nullptr;
    unsigned *found_ = nullptr;
    // Steps are rows gone through, also in optimal stages alone; cycles begin at these.
    std::int64_t step_ = 0, optimal_step_ = 0, cycle_ = 0, optimal_cycle_ = 0;
    double least_mass_ = 1, greatest_mass_ = 1;
    Drift drift_;           // in stages that are the passes
    Drift drift_of_cycles_; // the same in stages from optimal stage to optimal stage
};

} // namespace tavik::multivariate
