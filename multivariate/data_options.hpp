// The options that say what the observations are, and the checks of the data.
#pragma once

#include "frame/options.hpp"
#include "frame/raise.hpp"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdint>

namespace tavik::multivariate {

// What observations are made of.
template <class Real> struct DataOptions {
    int x_col_dim;
    const Real *frequencies = nullptr, *weights = nullptr;
    const int *variables = nullptr;
};

// False when the code is none of these.
template <class Real> bool read_data_option(int code, OptionReader &reader, DataOptions<Real> &options)
{
    switch (code) {
    case TAVIK_X_COL_DIM: options.x_col_dim = reader.integer(); return true;
    case TAVIK_FREQUENCIES:
        options.frequencies = reader.pointer<const Real>("TAVIK_FREQUENCIES");
        return true;
    case TAVIK_WEIGHTS: options.weights = reader.pointer<const Real>("TAVIK_WEIGHTS"); return true;
    case TAVIK_CLUSTER_VARIABLES:
        options.variables = reader.pointer<const int>("TAVIK_CLUSTER_VARIABLES");
        return true;
    default: return false;
    }
}

inline bool check_positive(int value, const char *name)
{
    int position = 0;
    tavik_c1iarg(value, name, 1, -1, &position);
    return !error_pending();
}

inline bool check_stride(int n_variables, int stride, const char *name)
{
    int position = 0;
    tavik_c1dim(1, n_variables, "*n_variables", stride, name, &position);
    return !error_pending();
}

template <class Real> bool usable_mass(Real mass)
{
    return mass > 0 && !std::isinf(mass);
}

template <class Real> bool check_masses(int n_observations, const DataOptions<Real> &options)
{
    if (options.frequencies == nullptr && options.weights == nullptr) return true;
    for (int i = 0; i < n_observations; ++i) {
        const double f = options.frequencies != nullptr ? options.frequencies[i] : 1;
        const double w = options.weights != nullptr ? options.weights[i] : 1;
        if (!usable_mass(f)) return raise(terminal, 20081, i);
        if (!usable_mass(w) || !usable_mass(f * w)) return raise(terminal, 20082, i);
    }
    return true;
}

// Frequencies and weights count as columns behind those of x.
template <class Real> bool check_variables(int n_variables, const DataOptions<Real> &options)
{
    if (options.variables == nullptr) return true;
    const bool with_frequencies = options.frequencies != nullptr, with_weights = options.weights != nullptr;
    const std::int64_t frequency_column = options.x_col_dim,
                       weight_column = std::int64_t{options.x_col_dim} + with_frequencies,
                       width = weight_column + with_weights;
    const int *variables = options.variables;
    for (int j = 0; with_frequencies && j < n_variables; ++j) {
        if (variables[j] == frequency_column) return raise(terminal, 20090, variables[j], j);
    }
    for (int j = 0; with_weights && j < n_variables; ++j) {
        if (variables[j] == weight_column) return raise(terminal, 20091, variables[j], j);
    }
    for (int j = 0; j < n_variables; ++j) {
        if (variables[j] < 0 || variables[j] >= width)
            return raise(terminal, 20092 + with_frequencies + with_weights, variables[j],
                         static_cast<int>(std::min<std::int64_t>(width, INT_MAX)));
    }
    return true;
}

} // namespace tavik::multivariate
