// How far cluster centres can have moved: with that, what was certain about an observation stays certain for a while.
//
// Whoever has computed an observation's distances knows its slack: how far the centres concerned may move before a
// decision about it can change. A slack is stored as the drift at which it will be used up; while the drift is less,
// the observation need not be looked at, and decisions stay those of looking. The triangle inequality bounds the
// drift: within a span by the farthest that a centre has been from where it was when the span began, its anchor,
// and over spans by the sum of the distances from anchor to anchor.
#pragma once

#include "distances.hpp"

#include "frame/precision.hpp"
#include "frame/workspace.hpp"

#include <algorithm>
#include <cmath>

namespace tavik::multivariate {

class Drift {
public:
    // False without memory.
    bool prepare(const Centres &centres, Workspace &workspace)
    {
        centres_ = &centres;
        anchors_ = workspace.array_or_null<double>(centres.rows_size());
        reaches_ = workspace.array_or_null<double>(centres.n_clusters);
        sums_ = workspace.array_or_null<double>(centres.n_clusters + 1);
        now_ = workspace.array_or_null<double>(centres.n_clusters + 1);
        base_ = workspace.array_or_null<double>(centres.n_clusters + 1);
        marked_ = workspace.array_or_null<double>(centres.n_clusters + 1);
        return anchors_ != nullptr && reaches_ != nullptr && sums_ != nullptr && now_ != nullptr &&
               base_ != nullptr && marked_ != nullptr;
    }

    void start()
    {
        forget();
        set_anchors();
    }

    // Of the sums that distances are; generous.
    double rounding() const
    {
        return 4 * epsilon<double> * static_cast<double>(centres_->padded_variables + 16);
    }

    // The drift of some centres is the sum of theirs.
    DriftTable table() const
    {
        return {now_, base_, now_ + centres_->n_clusters, base_ + centres_->n_clusters};
    }

    static constexpr std::size_t copy_size(std::size_t n_clusters)
    {
        return 2 * (n_clusters + 1);
    }

    // A table of the drifts as they are now, in memory of that size.
    DriftTable copy(double *now) const
    {
        const std::size_t n = centres_->n_clusters;
        double *base = now + n + 1;
        std::copy_n(now_, n + 1, now);
        std::copy_n(base_, n + 1, base);
        return {now, base, now + n, base + n};
    }

    // How far centres have moved, at most, since the span began.
    double since_start() const
    {
        return std::sqrt(farthest_) * (1 + rounding());
    }

    // From here on since_mark() counts: rows are scanned more often than anchors are set.
    void mark()
    {
        std::copy_n(now_, centres_->n_clusters + 1, marked_);
        growth_ = 0;
    }

    // The most by which the drift of a centre has grown since the mark, within a span; with the rounding of drifts that
    // are subtracted.
    double since_mark() const
    {
        const double now = now_[centres_->n_clusters];
        return growth_ == 0 && std::isfinite(now) ? 0 : growth_ + 4 * epsilon<double> * now;
    }

    // A centre has moved to this square of a distance from its anchor.
    void move(std::size_t cluster, double square)
    {
        if (!(square > reaches_[cluster])) return;
        reaches_[cluster] = square;
        set_bounds(cluster, square);
        if (!(square > farthest_)) return;
        farthest_ = square;
        set_bounds(centres_->n_clusters, square);
    }

    // Nothing that is stored about a cluster holds any more.
    void lose(std::size_t cluster)
    {
        move(cluster, infinity<double>);
    }

    // A new span begins. False when all that is stored must be forgotten.
    bool start_span()
    {
        double farthest = farthest_ == infinity<double> ? farthest_ : 0;
        for (std::size_t cluster = 0; cluster < centres_->n_clusters; ++cluster) {
            const double square = square_from_anchor(cluster);
            farthest = std::max(farthest, square);
            add_span(cluster, square);
            reaches_[cluster] = 0;
        }
        add_span(centres_->n_clusters, farthest);
        farthest_ = 0;
        set_anchors();
        if (std::isfinite(sums_[centres_->n_clusters])) return true;
        forget();
        return false;
    }

    // Towards a mean that is NaN every distance is NaN, so nothing comes closer to it; a mean that is NaN no longer
    // may be anywhere. An infinite one may have stayed.
    double square_from_anchor(std::size_t cluster) const
    {
        const double *centre = centres_->row(cluster),
                     *anchor = anchors_ + cluster * centres_->padded_variables;
        const double square = distance_kernels().between(centre, anchor, centres_->padded_variables);
        if (!std::isnan(square)) return square;
        double sum = 0;
        for (std::size_t j = 0; j < centres_->n_variables; ++j) {
            const double difference = centre[j] - anchor[j];
            if (!std::isnan(difference)) sum += difference * difference;
            else if (!std::isnan(centre[j]) && centre[j] != anchor[j]) return infinity<double>;
        }
        return sum;
    }

private:
    // Rounded upwards, for there may be many spans.
    void add_span(std::size_t bound, double square)
    {
        sums_[bound] = (sums_[bound] + std::sqrt(square)) * (1 + 2 * epsilon<double>);
        set_bounds(bound, 0);
    }

    void set_bounds(std::size_t bound, double square)
    {
        const double reach = std::sqrt(square);
        now_[bound] = (sums_[bound] + reach) * (1 + rounding());
        base_[bound] = sums_[bound] - reach;
        growth_ = std::max(growth_, now_[bound] - marked_[bound]);
    }

    void forget()
    {
        const std::size_t n_bounds = centres_->n_clusters + 1;
        std::fill_n(reaches_, centres_->n_clusters, 0.0);
        std::fill_n(sums_, n_bounds, 0.0);
        std::fill_n(now_, n_bounds, 0.0);
        std::fill_n(base_, n_bounds, 0.0);
        std::fill_n(marked_, n_bounds, 0.0);
        farthest_ = 0;
    }

    void set_anchors()
    {
        std::copy_n(centres_->rows, centres_->rows_size(), anchors_);
    }

    const Centres *centres_ = nullptr;
    double *anchors_ = nullptr;
    // From the last anchor, of each centre and the greatest: the square of the farthest that it has been.
    double *reaches_ = nullptr, farthest_ = 0;
    // Of each centre and, last, of whichever moves farthest: from anchor to anchor, and with the reach.
    double *sums_ = nullptr, *now_ = nullptr, *base_ = nullptr;
    double *marked_ = nullptr, growth_ = 0; // drifts at the mark
};

} // namespace tavik::multivariate
