// How the passes of a stage go through the rows: which rows are looked at, and in what order work is done.
//
// Section by section, a pass scans the slacks of the rows for those that may be used up before drifts have grown by a
// margin, which is foreseen from the pass and the section before. What is used up is brought up to date. Then those
// where it did not help are looked at, in the order of the rows. Should drifts grow by more than the margin, the rest of
// the section is scanned again. Rows that the next few passes may need are listed, and as long as drifts keep to what
// was foreseen, these scan the list alone.
//
// With threads, one of them looks at a section while the others scan the next, from a copy of the centres and drifts; it
// joins them when it is through. They take turns at slots of rows.
#pragma once

#include "slacks.hpp"

#include <numeric>
#include <optional>

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
        open_ = workspace.array_or_null<int>(threads * 2 * rows_per_slot);
        bool prepared = listed_ != nullptr && n_listed_ != nullptr && open_ != nullptr;
        const bool goes_ahead = threads > 1; // otherwise one section is enough
        for (int k = 0; k <= goes_ahead; ++k) {
            Section &section = sections_[k];
            section.near = workspace.array_or_null<int>(most_at_once);
            section.proposals = workspace.array_or_null<Proposal>(at_once(optimal));
            section.found = workspace.array_or_null<Found>(most_at_once / rows_per_slot);
            prepared = prepared && section.near != nullptr && section.proposals != nullptr &&
                       section.found != nullptr;
        }
        return prepared && slacks.prepare(partition, goes_ahead, workspace);
    }

    // Goes through all rows in their order. False when none moved.
    template <class Stage> bool go_through(const Stage &stage, Course &course)
    {
        slacks.start_pass(Stage::is_optimal);
        kept_ = passes_listed * course.last_growth;
        if (course.room >= 0) kept_ = std::min(kept_, course.room);
        growth_ = 0;
        bool moved = false;
        if (course.threads > 1) go_ahead(stage, course, moved);
        else go_step_by_step(stage, course, moved);
        course.last_growth = growth_ + slacks.growth();
        if (course.is_first) course.first_growth = course.last_growth;
        course.is_first = false;
        course.room = kept_ - course.last_growth;
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

    // Consecutive rows that are scanned together, and what that has found, slot by slot.
    struct Section {
        int first = 0, end = 0;
        double margin = 0; // by which drifts may grow from the scan to the last row
        double growth = 0; // by which they have, at most, up to the last mark
        bool from_list = false;
        int *near = nullptr; // rows
        Proposal *proposals = nullptr;
        Found *found = nullptr;
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
        optimal.rows_between_anchors = optimal.rows_at_once; // as always with threads
        optimal.least_rows_at_once =
            static_cast<int>(least_work_at_once / static_cast<double>(partition_->centres.rows_size())) + 1;
        renews_all_ = optimal.threads > 1 || partition_->centres.rows_size() <= most_renewed_alone;
        quick.threads = n_ >= least_rows_of_threads ? threads : 1;
        quick.rows_at_once = quick.threads > 1 ? 64 * rows_per_slot : 4 * rows_per_slot;
        quick.rows_between_anchors = 64 * rows_per_slot;
        quick.least_rows_at_once = least_rows_at_once;
    }

    // By which drifts may grow between a scan of a section and the end of its rows: at first twice a section's part of
    // what they have grown by in the pass before, and of two sections when one is scanned ahead.
    double first_margin(const Course &course) const
    {
        const double sections = course.threads > 1 ? 2 : 1;
        return 2 * course.last_growth * std::min(1.0, sections * course.rows_at_once / n_);
    }

    // Afterwards twice what it was in the section before, but not so little that after a quiet section every move makes
    // the rest of the next one be scanned again. Where nothing holds any more, all rows are near.
    double next_margin(const Course &course, double growth) const
    {
        return std::isfinite(growth) ? std::max(2 * growth, first_margin(course) / 4) : infinity<double>;
    }

    // Of the section that this row begins, or lies in.
    int end_of_section(int row, const Course &course) const
    {
        return row + std::min(n_ - row, course.rows_at_once - row % course.rows_at_once);
    }

    // A section is about to be scanned, or the rest of one anew. Rows that this pass has dropped from the list may be
    // near once the margin has grown.
    void set_out(Section &section, int first, int end, double margin, const Course &course)
    {
        section.first = first;
        section.end = end;
        section.margin = margin;
        section.from_list =
            growth_ + slacks.growth() + margin <= course.room && section.growth + margin <= kept_;
    }

    // Scans a section, then looks at it. Its growth is that since the anchors were set, which is no less.
    template <class Stage> void go_step_by_step(const Stage &stage, Course &course, bool &moved)
    {
        Section &section = sections_[0];
        double margin = first_margin(course);
        for (int row = 0; row < n_;) {
            if (row > 0 && row % course.rows_between_anchors == 0) set_anchors(Stage::is_optimal);
            section.growth = slacks.growth();
            slacks.mark();
            set_out(section, row, end_of_section(row, course), margin, course);
            scan_alone<Stage>(section);
            row = look_at_near(stage, section, margin, moved);
            margin = next_margin(course, slacks.growth_since_mark());
        }
    }

    // Looks at a section while the crew scans the next. Anchors are set where no scan is in work.
    template <class Stage> void go_ahead(const Stage &stage, Course &course, bool &moved)
    {
        Section *section = &sections_[1], *next = &sections_[0];
        SlackSource source{};
        std::optional<OrderedPieces> slots;
        bool in_work = false;
        const auto scan_part = [&](int thread) { scan_slots<Stage>(*next, source, *slots, thread); };
        const auto start = [&](int row, double margin) {
            next->growth = 0;
            set_out(*next, row, end_of_section(row, course), margin, course);
            in_work = count_rows(*next) >= course.least_rows_at_once;
            if (!in_work) return scan_alone<Stage>(*next);
            source = slacks.copy_source();
            slots.emplace(count_slots(*next));
            crew_.start(scan_part);
        };
        slacks.mark();
        start(0, first_margin(course));
        double growth_of_section = 0;
        for (int row = 0; row < n_; row = section->end) {
            if (in_work) crew_.finish();
            std::swap(section, next);
            if (row > 0 && !set_anchors(Stage::is_optimal)) section->growth = infinity<double>;
            slacks.mark();
            Section *ahead = section->end < n_ ? next : nullptr;
            if (ahead != nullptr)
                start(section->end, row > 0 ? next_margin(course, growth_of_section) : first_margin(course));
            double margin = section->margin - section->growth;
            int done = margin >= 0 ? look_at_near(stage, *section, margin, moved) : row;
            for (; done < section->end; done = look_at_near(stage, *section, margin, moved)) {
                count_growth(*section, ahead);
                margin = next_margin(course, section->growth);
                set_out(*section, done, section->end, margin, course);
                scan_alone<Stage>(*section);
            }
            count_growth(*section, ahead);
            growth_of_section = section->growth;
        }
    }

    // Drifts have grown since the scans of these sections, of which there may be one.
    void count_growth(Section &section, Section *ahead)
    {
        const double growth = slacks.growth_since_mark();
        section.growth += growth;
        if (ahead != nullptr) ahead->growth += growth;
        slacks.mark();
    }

    // False when slacks had to be forgotten.
    bool set_anchors(bool is_optimal)
    {
        growth_ += slacks.growth();
        return slacks.set_anchors(is_optimal);
    }

    static int slot_of(int row)
    {
        return row / rows_per_slot;
    }

    static int count_slots(int n)
    {
        return slot_of(n - 1) + 1;
    }

    static int count_slots(const Section &section)
    {
        return slot_of(section.end - 1) - slot_of(section.first) + 1;
    }

    int count_rows(const Section &section) const
    {
        if (!section.from_list) return section.end - section.first;
        const int *of_slots = n_listed_ + slot_of(section.first);
        return std::accumulate(of_slots, of_slots + count_slots(section), 0);
    }

    // Finds the rows of a section that are near, and brings slacks up to date.
    template <class Stage> void scan_alone(const Section &section)
    {
        OrderedPieces slots(count_slots(section));
        scan_slots<Stage>(section, slacks.source(), slots, 0);
    }

    // The part of one of the threads that do this together.
    template <class Stage>
    void scan_slots(const Section &section, const SlackSource &source, OrderedPieces &slots, int thread)
    {
        for (std::int64_t k = slots.take(); k >= 0; k = slots.take())
            scan_slot<Stage>(section, static_cast<int>(k), source, thread);
    }

    // The k-th slot of a section.
    template <class Stage>
    void scan_slot(const Section &section, int k, const SlackSource &source, int thread)
    {
        const int slot = slot_of(section.first) + k, first = slot * rows_per_slot,
                  row = std::max(section.first, first),
                  end = std::min(section.end - first, rows_per_slot) + first;
        int *listed = listed_ + static_cast<std::ptrdiff_t>(slot) * list_stride;
        if (row == first && !section.from_list) n_listed_[slot] = 0;
        const auto n_before =
            static_cast<int>(std::lower_bound(listed, listed + n_listed_[slot], row) - listed);
        const int n_rows = section.from_list ? n_listed_[slot] - n_before : end - row;
        const std::ptrdiff_t at = std::ptrdiff_t{k} * rows_per_slot;
        int *near = section.near + at, *own_open = open_ + std::ptrdiff_t{thread} * 2 * rows_per_slot,
            *others_open = own_open + rows_per_slot;
        const ScanCounts counts = distance_kernels().scan(
            source.table, Stage::is_optimal, row, section.from_list ? listed + n_before : nullptr, n_rows,
            {section.margin, kept_}, {near, listed + n_before, own_open, others_open});
        n_listed_[slot] = n_before + counts.kept;
        slacks.renew_own(source, own_open, counts.own_open);
        int n_proposals = 0;
        if (Stage::is_optimal && renews_all_)
            n_proposals =
                slacks.renew_all(source, others_open, counts.others_open, thread, section.proposals + at);
        section.found[k] = {
            distance_kernels().keep_near(source.table, Stage::is_optimal, near, counts.near, section.margin),
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

    // Looks at the near rows whose slack is used up, until drifts have grown by more than the margin since they were
    // counted last. Returns the row up to which all are done.
    template <class Stage>
    int look_at_near(const Stage &stage, const Section &section, double margin, bool &moved)
    {
        const SlackTable &table = slacks.table();
        for (int k = 0; k < count_slots(section); ++k) {
            const int *near = section.near + std::ptrdiff_t{k} * rows_per_slot,
                      n_near = section.found[k].near;
            const std::ptrdiff_t first_proposal = Stage::is_optimal ? std::ptrdiff_t{k} * rows_per_slot : 0;
            const Proposal *proposal = section.proposals + first_proposal,
                           *proposals_end = proposal + section.found[k].proposals;
            for (int j = 0; j < n_near; ++j) {
                const int i = near[j];
                if (j + rows_ahead < n_near) prefetch(near[j + rows_ahead]);
                if (Stage::slack(table, i) > 0) continue;
                while (proposal != proposals_end && proposal->row < i) ++proposal;
                const bool is_proposed = proposal != proposals_end && proposal->row == i;
                if (!stage.look(i, is_proposed ? proposal : nullptr)) continue;
                moved = true;
                if (slacks.growth_since_mark() > margin) return i + 1;
            }
        }
        return section.end;
    }

    const Partition<Real> *partition_ = nullptr;
    Crew crew_;
    int n_ = 0;
    bool renews_all_ = false; // in optimal stages; otherwise these slacks come from looking
    int *listed_ = nullptr, *n_listed_ = nullptr; // rows, slot by slot, and how many of each
    int *open_ = nullptr;                         // of each thread: rows whose slacks are used up
    Section sections_[2];                         // that is looked at, and that is scanned meanwhile
    double kept_ = 0;                             // rows with less slack are listed
    double growth_ = 0; // of drifts in this pass, up to where the anchors were set last
};

} // namespace tavik::multivariate
