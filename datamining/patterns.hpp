// Training patterns as inputs of a network.
#pragma once

#include "frame/workspace.hpp"

#include <algorithm>
#include <cmath>

namespace tavik::datamining {

// The root of the sum of n squares over n - 1; squares are taken beside the largest, so none leaves the range.
template <class Value> double standard_deviation(int n, const Value &deviation_of)
{
    double largest = 0, sum = 0;
    for (int k = 0; k < n; ++k) largest = std::max(largest, std::fabs(deviation_of(k)));
    for (int k = 0; k < n && largest > 0; ++k) {
        const double part = deviation_of(k) / largest;
        sum += part * part;
    }
    return n > 1 ? largest * std::sqrt(sum / (n - 1)) : 0;
}

// Inputs are the nominal columns, 0 or 1, then the continuous ones.
template <class Real> struct Patterns {
    int n, n_nominal, n_continuous;
    const int *nominal;
    const Real *continuous;
    int *used = nullptr; // those whose values are all finite
    int n_used = 0;
    double *means = nullptr; // of the inputs over these

    int n_inputs() const
    {
        return n_nominal + n_continuous;
    }

    // False, with an error, without memory.
    bool prepare(Workspace &workspace)
    {
        used = workspace.array<int>(static_cast<std::size_t>(n));
        means = workspace.array<double>(static_cast<std::size_t>(n_inputs()));
        if (used == nullptr || means == nullptr) return false;
        for (int p = 0; p < n; ++p) {
            const Real *row = continuous + at(p, n_continuous);
            if (std::all_of(row, row + n_continuous, [](Real x) { return std::isfinite(x); }))
                used[n_used++] = p;
        }
        for (int input = 0; input < n_inputs(); ++input) means[input] = mean(input);
        return true;
    }

    double value(int pattern, int input) const
    {
        if (input < n_nominal) return nominal[at(pattern, n_nominal) + static_cast<std::size_t>(input)];
        return continuous[at(pattern, n_continuous) + static_cast<std::size_t>(input - n_nominal)];
    }

    // Of a used pattern from the mean.
    double deviation(int k, int input) const
    {
        return value(used[k], input) - means[input];
    }

private:
    static std::size_t at(int pattern, int columns)
    {
        return static_cast<std::size_t>(pattern) * static_cast<std::size_t>(columns);
    }

    // Exact for a constant input, and corrected by what rounding left.
    double mean(int input) const
    {
        double mean = 0, rest = 0;
        for (int k = 0; k < n_used; ++k) mean += (value(used[k], input) - mean) / (k + 1);
        for (int k = 0; k < n_used; ++k) rest += (value(used[k], input) - mean) / n_used;
        return mean + rest;
    }
};

} // namespace tavik::datamining
