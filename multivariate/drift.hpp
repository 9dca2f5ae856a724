// How far cluster centres can have moved: with that, what was certain about an observation stays certain for a while.
//
// Whoever has computed an observation's distances knows how far every centre may move before its two closest clusters
// can change, its slack. A slack is stored as the drift at which it will be used up; while the drift is
// less, the observation need not be looked at, and decisions stay those of looking. The triangle inequality bounds the drift:
// within a stage by the farthest that any centre has been from where it was when the stage began, the anchor, and over
// stages by the sum of the distances from anchor to anchor.
#pragma once

#include "distances.hpp"

#include "frame/precision.hpp"

#include <algorithm>
#include <cmath>

namespace tavik::multivariate {

class Drift {
public:
    void start(const Centres &centres, double *anchors)
    {
        centres_ = &centres;
        anchors_ = anchors;
        // Of the sums that distances are; generous.
        rounding_ = 4 * epsilon<double> * static_cast<double>(centres.padded_variables + 16);
        set_anchors();
    }

    // The drift now: a slack stored as more is left.
    double now() const
    {
        return now_;
    }

    // As what to store a slack that is known now. `scale` is the size of the distances that it came from. NaN is no slack.
    double until(double slack, double scale) const
    {
        const double drift = slack - rounding_ * scale + sum_ - reach_;
        return std::isnan(drift) ? -infinity<double> : drift;
    }

    // A centre has moved.
    void move(std::size_t cluster)
    {
        const double distance = from_anchor(cluster);
        if (distance > reach_) set(sum_, distance);
    }

    // Nothing that is stored holds any more.
    void lose()
    {
        set(sum_, infinity<double>);
    }

    // A new stage begins. False when all that is stored must be forgotten.
    bool start_stage()
    {
        double farthest = reach_ == infinity<double> ? reach_ : 0;
        for (std::size_t cluster = 0; cluster < centres_->n_clusters; ++cluster)
            farthest = std::max(farthest, from_anchor(cluster));
        const double sum = sum_ + farthest;
        set_anchors();
        set(std::isfinite(sum) ? sum : 0, 0);
        return std::isfinite(sum);
    }

private:
    void set_anchors()
    {
        std::copy_n(centres_->rows, centres_->n_clusters * centres_->padded_variables, anchors_);
    }

    void set(double sum, double reach)
    {
        sum_ = sum;
        reach_ = reach;
        now_ = (sum + reach) * (1 + rounding_);
    }

    // Towards a mean that is NaN every distance is NaN, so nothing comes closer to it; a mean that is NaN no longer may be
    // anywhere.
    double from_anchor(std::size_t cluster) const
    {
        const double *centre = centres_->row(cluster), *anchor = anchors_ + cluster * centres_->padded_variables;
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
    double sum_ = 0, reach_ = 0, now_ = 0, rounding_ = 0;
};

} // namespace tavik::multivariate
