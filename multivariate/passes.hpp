// How the passes of a stage go through the rows: which rows are looked at, and in what order work is done.
//
// Section by section, a pass scans the slacks of the rows for those that may be used up before drifts have grown by a
// margin, which is foreseen from the pass and the section before. What is used up is brought up to date; threads take
// turns at slots of rows for that. Then those where it did not help are looked at, in the order of the rows. Should
// drifts grow by more than the margin, the rest of the section is scanned again. Rows that the next few passes may need
// are listed, and as long as drifts keep to what was foreseen, these scan the list alone.
#pragma once

#include "slacks.hpp"

namespace tavik::multivariate {

// What a stage knows of its passes.
struct Course {
    int threads = 1;
    int rows_at_once = 0;
    int least_rows_at_once = 0; // in a section, for threads
    // A multiple of the rows at once. A new slack holds the longer the nearer the anchors are, while the sum of short
    // drifts from anchor to anchor is hardly greater than a long one, unless centres shiver.
    int rows_between_anchors = 0;
    double first_growth = infinity<double>; // of drifts, in the first pass of the stage before
    double last_growth = 0;                 // in the pass before
    // By which drifts may grow before rows that are not listed matter; less than 0 without a list.
    double room = -1;
    bool is_first = true;

    void start_stage()
    {
        last_growth = first_growth;
        room = -1;
        is_first = true;
    }
};

template <class Real> class Passes {
public:
    // False without memory.
    bool prepare(const Partition<Real> &partition, Workspace &workspace)
    {
        partition_ = &partition;
        n_ = partition.observations.n;
        set_courses();
        const auto at_once = [&](const Course &course) {
            return static_cast<std::size_t>(count_slots(std::min(n_, course.rows_at_once))) * rows_per_slot;
        };
        const std::size_t most_at_once = std::max(at_once(optimal), at_once(quick)),
                          n_slots = static_cast<std::size_t>(count_slots(n_)),
                          threads = static_cast<std::size_t>(std::max(optimal.threads, quick.threads));
        listed_ = workspace.array_or_null<int>(n_slots * list_stride);
        n_listed_ = workspace.array_or_null<int>(n_slots);
        near_ = workspace.array_or_null<int>(most_at_once);
        open_ = workspace.array_or_null<int>(threads * 2 * rows_per_slot);
        proposals_ = workspace.array_or_null<Proposal>(at_once(optimal));
        found_ = workspace.array_or_null<Found>(most_at_once / rows_per_slot);
        return listed_ != nullptr && n_listed_ != nullptr && near_ != nullptr && open_ != nullptr &&
               proposals_ != nullptr && found_ != nullptr && slacks.prepare(partition, workspace);
    }

    // Goes through all rows in their order. False when none moved.
    template <class Stage> bool go_through(const Stage &stage, Course &course)
    {
        slacks.start_pass(Stage::is_optimal);
        ScanMargins margins = {first_margin(course), passes_listed * course.last_growth};
        if (course.room >= 0) margins.kept = std::min(margins.kept, course.room);
        double growth = 0; // up to where the anchors were set last
        bool moved = false;
        for (int row = 0; row < n_;) {
            if (row > 0 && row % course.rows_between_anchors == 0) {
                growth += slacks.growth();
                slacks.set_anchors(Stage::is_optimal);
            }
            const int rows_left = course.rows_at_once - row % course.rows_at_once;
            const int end = row + std::min(n_ - row, rows_left);
            // Rows that this pass has dropped from the list may be near once the margin has grown.
            const double most_growth = slacks.growth() + margins.near;
            const bool from_list = growth + most_growth <= course.room && most_growth <= margins.kept;
            slacks.start_scan();
            scan<Stage>(row, end, course, from_list, margins);
            row = look_at_near(stage, row, end, margins.near, moved);
            margins.near = next_margin(course, slacks.growth_since_scan());
        }
        course.last_growth = growth + slacks.growth();
        if (course.is_first) course.first_growth = course.last_growth;
        course.is_first = false;
        course.room = margins.kept - course.last_growth;
        return moved;
    }

    // Runs all passes of a clustering, on threads if that pays.
    template <class Body> void run(const Body &body)
    {
        const int threads = std::max(optimal.threads, quick.threads);
        if (threads > 1) crew_.enlist(threads, body);
        else body();
    }

    Slacks<Real> slacks;
    Course optimal, quick;

private:
    // In a slot that has been scanned.
    struct Found {
        int near, proposals;
    };

    static constexpr int rows_ahead = 8; // that are fetched before they are looked at
    // What a thread scans at a time.
    static constexpr int rows_per_slot = 1024;
    static_assert(rows_per_slot % static_cast<int>(lanes) == 0); // scans store whole vectors
    // For how many passes a list shall be good, if drifts grow as in the pass before.
    static constexpr double passes_listed = 4;
    // Alone, looking is as fast as renewing where distances are most of the work; and some rows need both.
    static constexpr std::size_t most_renewed_alone = 512;
    // Scans store whole vectors.
    static constexpr int list_stride = rows_per_slot + static_cast<int>(lanes);
    // Below, handing work to threads costs more than it saves.
    static constexpr double least_work_of_threads = 1 << 24;
    static constexpr int least_rows_of_threads = 1 << 18;
    // The same for one section: scanned rows, and rows to look at beside all centres.
    static constexpr int least_rows_at_once = 1 << 12;
    static constexpr double least_work_at_once = 1 << 20;

    // Threads need more rows at once than slacks like where all clusters are looked at.
    void set_courses()
    {
        const int threads = partition_->threads;
        const double work = static_cast<double>(n_) * static_cast<double>(partition_->centres.rows_size());
        optimal.threads = work >= least_work_of_threads ? threads : 1;
        optimal.rows_at_once = optimal.threads > 1 ? 16 * rows_per_slot : rows_per_slot;
        optimal.rows_between_anchors = optimal.rows_at_once;
        optimal.least_rows_at_once =
            static_cast<int>(least_work_at_once / static_cast<double>(partition_->centres.rows_size())) + 1;
        renews_all_ = optimal.threads > 1 || partition_->centres.rows_size() <= most_renewed_alone;
        quick.threads = n_ >= least_rows_of_threads ? threads : 1;
        quick.rows_at_once = quick.threads > 1 ? 64 * rows_per_slot : 4 * rows_per_slot;
        quick.rows_between_anchors = 64 * rows_per_slot;
        quick.least_rows_at_once = least_rows_at_once;
    }

    // By which drifts may grow between a scan of a section and the end of its rows: at first twice a section's part of
    // what they have grown by in the pass before.
    double first_margin(const Course &course) const
    {
        return 2 * course.last_growth * std::min(1.0, static_cast<double>(course.rows_at_once) / n_);
    }

    // Afterwards twice what it was in the section before, but not so little that after a quiet section every move makes
    // the rest of the next one be scanned again. Where nothing holds any more, all rows are near.
    double next_margin(const Course &course, double growth) const
    {
        return std::isfinite(growth) ? std::max(2 * growth, first_margin(course) / 4) : infinity<double>;
    }

    static int slot_of(int row)
    {
        return row / rows_per_slot;
    }

    static int count_slots(int n)
    {
        return slot_of(n - 1) + 1;
    }

    // Finds the rows of a section that are near, and brings slacks up to date.
    template <class Stage>
    void scan(int row, int end, const Course &course, bool from_list, const ScanMargins &margins)
    {
        const int first_slot = slot_of(row);
        int n_rows = from_list ? 0 : end - row;
        for (int slot = first_slot; from_list && slot <= slot_of(end - 1); ++slot) n_rows += n_listed_[slot];
        OrderedPieces slots(slot_of(end - 1) - first_slot + 1);
        const auto scan_slots = [&](int thread) {
            for (std::int64_t k = slots.take(); k >= 0; k = slots.take()) {
                const int slot = first_slot + static_cast<int>(k), first = slot * rows_per_slot;
                scan_slot<Stage>(slot, k, std::max(row, first), std::min(end - first, rows_per_slot) + first,
                                 thread, from_list, margins);
            }
        };
        if (course.threads > 1 && n_rows >= course.least_rows_at_once) crew_.run(scan_slots);
        else scan_slots(0);
    }

    // The k-th slot of a section.
    template <class Stage>
    void scan_slot(int slot, std::int64_t k, int row, int end, int thread, bool from_list,
                   const ScanMargins &margins)
    {
        int *listed = listed_ + static_cast<std::ptrdiff_t>(slot) * list_stride;
        if (row % rows_per_slot == 0 && !from_list) n_listed_[slot] = 0;
        const auto n_before =
            static_cast<int>(std::lower_bound(listed, listed + n_listed_[slot], row) - listed);
        const int n_rows = from_list ? n_listed_[slot] - n_before : end - row;
        int *near = near_ + k * rows_per_slot, *own_open = open_ + std::ptrdiff_t{thread} * 2 * rows_per_slot,
            *others_open = own_open + rows_per_slot;
        const ScanCounts counts = distance_kernels().scan(
            slacks.table(), Stage::is_optimal, row, from_list ? listed + n_before : nullptr, n_rows, margins,
            {near, listed + n_before, own_open, others_open});
        n_listed_[slot] = n_before + counts.kept;
        slacks.renew_own(own_open, counts.own_open);
        int n_proposals = 0;
        if (Stage::is_optimal && renews_all_)
            n_proposals =
                slacks.renew_all(others_open, counts.others_open, thread, proposals_ + k * rows_per_slot);
        found_[k] = {
            distance_kernels().keep_near(slacks.table(), Stage::is_optimal, near, counts.near, margins.near),
            n_proposals};
    }

    // Another thread may have had the row last.
    void prefetch(int i) const
    {
        constexpr std::size_t line = 64 / sizeof(Real);
        const Observations<Real> &observations = partition_->observations;
        const Real *row = observations.row(i);
        for (std::size_t j = 0; j < observations.n_variables; j += line) __builtin_prefetch(row + j);
        const SlackTable &table = slacks.table();
        __builtin_prefetch(table.own_until + i);
        __builtin_prefetch(table.others_until + i);
        __builtin_prefetch(table.cluster + i);
        __builtin_prefetch(table.second + i);
    }

    // Looks at the near rows whose slack is used up, until drifts have grown by more than the margin. Returns the row
    // up to which all are done.
    template <class Stage> int look_at_near(const Stage &stage, int row, int end, double margin, bool &moved)
    {
        const SlackTable &table = slacks.table();
        for (int k = 0; k <= slot_of(end - 1) - slot_of(row); ++k) {
            const int *near = near_ + std::ptrdiff_t{k} * rows_per_slot;
            const std::ptrdiff_t first_proposal = Stage::is_optimal ? std::ptrdiff_t{k} * rows_per_slot : 0;
            const Proposal *proposal = proposals_ + first_proposal,
                           *proposals_end = proposal + found_[k].proposals;
            for (int j = 0; j < found_[k].near; ++j) {
                const int i = near[j];
                if (j + rows_ahead < found_[k].near) prefetch(near[j + rows_ahead]);
                if (Stage::slack(table, i) > 0) continue;
                while (proposal != proposals_end && proposal->row < i) ++proposal;
                const bool is_proposed = proposal != proposals_end && proposal->row == i;
                if (!stage.look(i, is_proposed ? proposal : nullptr)) continue;
                moved = true;
                if (slacks.growth_since_scan() > margin) return i + 1;
            }
        }
        return end;
    }

    const Partition<Real> *partition_ = nullptr;
    Crew crew_;
    int n_ = 0;
    bool renews_all_ = false; // in optimal stages; otherwise these slacks come from looking
    int *listed_ = nullptr, *n_listed_ = nullptr; // rows, slot by slot, and how many of each
    int *open_ = nullptr;                         // of each thread: rows whose slacks are used up
    int *near_ = nullptr;                         // of each slot of a section, with what else was found
    Proposal *proposals_ = nullptr;
    Found *found_ = nullptr;
};

} // namespace tavik::multivariate
