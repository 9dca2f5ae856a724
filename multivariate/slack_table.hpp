// The slacks of all observations, in the plain arrays that kernels and decisions share.
//
// A slack is how far centres may move before a decision about an observation can change (drift.hpp). It is stored as
// the drift at which it will be used up, so whoever moves a centre need not touch the observations.
#pragma once

#include <cstddef>

namespace tavik::multivariate {

// Drifts as slacks are read: up to now; and as they are stored: up to where the centres are now.
struct DriftTable {
    const double *now, *base;         // of each centre
    const double *now_any, *base_any; // of whichever has moved farthest
};

struct SlackTable {
    int *cluster, *second; // of each observation, as in the partition
    double *own_until, *others_until;
    DriftTable drift, drift_of_cycles;
    const double *root_of_gain;    // of each cluster: at most the root of the factor of a gain
    const double *inverse_of_loss; // at most the inverse root of the factor of a loss
    const double *shares;          // a gain is at least this part of the distance, whatever the observation
    double rounding;               // of the sums that distances are
    bool has_others;               // more than two clusters

    // What is left until the observation may want to go to its second cluster.
    double own(int i) const
    {
        return own_until[i] - (drift.now[cluster[i]] + drift.now[second[i]]);
    }

    // What is left until another cluster may be closer than the second.
    double of_others(int i) const
    {
        return others_until[i] - (drift_of_cycles.now[second[i]] + *drift_of_cycles.now_any);
    }

    // As what to store the first slack of an observation, given roots of distances. It leaves when the loss, at most,
    // reaches the gain, at least. Both are squares of distances that change by the drift, times factors of the masses;
    // dividing by that of the loss, which is not less than 1, leaves factors not greater than 1.
    double own_until_from(double root_own, double root_second, std::size_t from, std::size_t to) const
    {
        const double gain = root_of_gain[to] * inverse_of_loss[from] * root_second;
        return until(gain - root_own, gain + root_own, drift.base[from] + drift.base[to]);
    }

    // The second slack: before another cluster can offer a smaller gain than the second. `root_rest` is that of the
    // least of shares times distances of the others.
    double others_until_from(double root_second, double root_rest, std::size_t to) const
    {
        if (!has_others) return __builtin_inf();
        return until(root_rest - root_second, root_rest + root_second,
                     drift_of_cycles.base[to] + *drift_of_cycles.base_any);
    }

private:
    // `scale` is the size of the roots that a slack comes from; NaN is no slack.
    double until(double slack, double scale, double base) const
    {
        constexpr double least_scale = 1e-140; // squares of less lose digits, or vanish
        const double sum = slack - rounding * scale + base;
        return sum == sum && scale > least_scale ? sum : -__builtin_inf();
    }
};

// What a scan of rows looks for. A row that is near may have to be looked at before drifts have grown by the margin.
struct ScanMargins {
    double near, kept;
};

// Where the rows go that are near, that shall be scanned again, and whose first or second slacks are used up.
struct ScanLists {
    int *near, *kept, *own_open, *others_open;
};

struct ScanCounts {
    int near, kept, own_open, others_open;
};

// That another cluster be an observation's second, with the slacks that it has then.
struct Proposal {
    int row, second;
    double own_until, others_until;
};

} // namespace tavik::multivariate
