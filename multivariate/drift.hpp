// How far cluster centres can have moved: with that, what was certain about an observation stays certain for a while.
//
// Whoever has computed an observation's distances knows its slack: how far the centres concerned may move before a
// decision about it can change. A slack is stored as the drift at which it will be used up; while the drift is less,
// the observation need not be looked at, and decisions stay those of looking. The triangle inequality bounds the
// drift: within a stage by the farthest that a centre has been from where it was when the stage began, its anchor,
// and over stages by the sum of the distances from anchor to anchor.
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
        bounds_ = workspace.array_or_null<Bound>(centres.n_clusters);
        now_ = workspace.array_or_null<double>(centres.n_clusters);
        return anchors_ != nullptr && bounds_ != nullptr && now_ != nullptr;
    }

    void start()
    {
        // Of the sums that distances are; generous.
        rounding_ = 4 * epsilon<double> * static_cast<double>(centres_->padded_variables + 16);
        forget();
        set_anchors();
    }

    // The drift of each centre, and of whichever it is that has moved farthest. That of some centres is the sum of
    // theirs.
    const double *of_centres() const
    {
        return now_;
    }

    double of_any() const
    {
        return now_any_;
    }

    // How far centres have moved, at most, since the stage began.
    double since_start() const
    {
        return any_.reach * (1 + rounding_);
    }

    // As what to store a slack of now. `scale` is the size of the distances that it came from; NaN is no slack.
    double until_of_pair(double slack, double scale, std::size_t a, std::size_t b) const
    {
        return until(slack, scale, bounds_[a], bounds_[b]);
    }

    double until_of_all(double slack, double scale, std::size_t a) const
    {
        return until(slack, scale, bounds_[a], any_);
    }

    // A centre has moved.
    void move(std::size_t cluster)
    {
        extend(cluster, from_anchor(cluster));
    }

    // Nothing that is stored about a cluster holds any more.
    void lose(std::size_t cluster)
    {
        extend(cluster, infinity<double>);
    }

    // A new stage begins. False when all that is stored must be forgotten.
    bool start_stage()
    {
        double farthest = any_.reach == infinity<double> ? any_.reach : 0;
        for (std::size_t cluster = 0; cluster < centres_->n_clusters; ++cluster) {
            const double distance = from_anchor(cluster);
            farthest = std::max(farthest, distance);
            set(bounds_[cluster], {sum_of(bounds_[cluster].sum, distance), 0}, now_[cluster]);
        }
        set(any_, {sum_of(any_.sum, farthest), 0}, now_any_);
        set_anchors();
        if (std::isfinite(any_.sum)) return true;
        forget();
        return false;
    }

private:
    struct Bound {
        double sum, reach; // from anchor to anchor, and from the last one
    };

    // Rounded upwards, for there may be many stages.
    static double sum_of(double sum, double distance)
    {
        return (sum + distance) * (1 + 2 * epsilon<double>);
    }

    void set(Bound &bound, Bound value, double &now) const
    {
        bound = value;
        now = (value.sum + value.reach) * (1 + rounding_);
    }

    void forget()
    {
        std::fill_n(bounds_, centres_->n_clusters, Bound{});
        std::fill_n(now_, centres_->n_clusters, 0.0);
        any_ = {};
        now_any_ = 0;
    }

    double until(double slack, double scale, const Bound &a, const Bound &b) const
    {
        constexpr double least_scale = 1e-140; // squares of less lose digits, or vanish
        const double drift = slack - rounding_ * scale + (a.sum - a.reach) + (b.sum - b.reach);
        return std::isnan(drift) || !(scale > least_scale) ? -infinity<double> : drift;
    }

    void extend(std::size_t cluster, double distance)
    {
        Bound &bound = bounds_[cluster];
        if (distance > bound.reach) set(bound, {bound.sum, distance}, now_[cluster]);
        if (distance > any_.reach) set(any_, {any_.sum, distance}, now_any_);
    }

    void set_anchors()
    {
        std::copy_n(centres_->rows, centres_->rows_size(), anchors_);
    }

    // Towards a mean that is NaN every distance is NaN, so nothing comes closer to it; a mean that is NaN no longer
    // may be anywhere.
    double from_anchor(std::size_t cluster) const
    {
        const double *centre = centres_->row(cluster),
                     *anchor = anchors_ + cluster * centres_->padded_variables;
        const double square = distance_kernels().between(centre, anchor, centres_->padded_variables);
        if (!std::isnan(square)) return std::sqrt(square);
        double sum = 0;
        for (std::size_t j = 0; j < centres_->n_variables; ++j) {
            const double difference = centre[j] - anchor[j];
            if (!std::isnan(difference)) sum += difference * difference;
            else if (!std::isnan(centre[j])) return infinity<double>;
        }
        return std::sqrt(sum);
    }

    const Centres *centres_ = nullptr;
    double *anchors_ = nullptr;
    Bound *bounds_ = nullptr, any_{};     // of each centre, and of whichever moves farthest
    double *now_ = nullptr, now_any_ = 0; // the bounds as one number
    double rounding_ = 0;
};

} // namespace tavik::multivariate
