// The checks of a regression's arguments, in their order. The first error ends them.
#pragma once

#include "fit.hpp"
#include "regress_options.hpp"

#include "frame/raise.hpp"

#include <climits>

namespace tavik::regression {

inline bool in_range(int value, const char *name, int lo, int hi)
{
    int position = 0;
    tavik_c1iarg(value, name, lo, hi, &position);
    return !error_pending();
}

constexpr int no_upper_bound = -1;

inline bool at_least(int value, const char *name, int lo)
{
    return in_range(value, name, lo, lo > no_upper_bound ? no_upper_bound : lo - 1);
}

// Columns in a row of x; the default may be more than an int holds.
template <class Real> std::int64_t row_width(int n_independent, const RegressionOptions<Real> &options)
{
    if (options.x_col_dim_given) return options.x_col_dim;
    if (!options.has_column_indices()) return n_independent;
    return std::int64_t{n_independent} + options.n_dependent + (options.frequency_column != -1) +
           (options.weight_column != -1);
}

// Every column that TAVIK_X_INDICES names must lie in the row, whoever has stated its width.
template <class Real> bool check_columns(int last, const RegressionOptions<Real> &options)
{
    if (options.frequency_column > last) return raise(terminal, 20467, options.frequency_column, last + 1);
    if (options.weight_column > last) return raise(terminal, 20468, options.weight_column, last + 1);
    return true;
}

template <class Real>
bool check_column_lists(int n_independent, int last, const RegressionOptions<Real> &options)
{
    for (int j = 0; j < n_independent; ++j) {
        if (!in_range(options.independent_columns[j], "indind", 0, last)) return false;
    }
    if (options.n_dependent > 0 && !check_not_null(options.dependent_columns, "inddep")) return false;
    for (int j = 0; j < options.n_dependent; ++j) {
        if (!in_range(options.dependent_columns[j], "inddep", 0, last)) return false;
    }
    return true;
}

inline bool check_stride(std::int64_t needed, const char *needed_name, int stride, const char *stride_name)
{
    int position = 0;
    tavik_c1dim(1, static_cast<int>(std::min<std::int64_t>(needed, INT_MAX)), needed_name, stride,
                stride_name, &position);
    return !error_pending();
}

inline bool check_exclusive(bool both, const char *names)
{
    if (!both) return true;
    tavik_e1stl(1, names);
    return raise(terminal, 11117);
}

template <class Real>
bool check_arguments(int n_rows, int n_independent, const Real *x, const Real *y,
                     const RegressionOptions<Real> &options)
{
    if (!at_least(n_independent, "n_independent", 1) || !at_least(options.n_dependent, "n_dependent", 0) ||
        !in_range(options.ido, "ido", 0, 3) || !at_least(options.frequency_column, "ifrq", -1) ||
        !at_least(options.weight_column, "iwt", -1))
        return false;
    const bool staged = options.ido != 0, indexed = options.has_column_indices();
    if (!staged && n_rows <= 0) return raise(terminal, 20463, n_rows);
    if (staged && n_rows < 0) return raise(terminal, 20464, n_rows);
    if (staged && (options.anova.wanted() || options.residuals.wanted() || options.leverages != nullptr))
        return raise(terminal, 20690);
    const std::int64_t width = row_width(n_independent, options);
    const int last_column = static_cast<int>(std::clamp<std::int64_t>(width, 0, INT_MAX)) - 1;
    if (indexed && options.x_col_dim_given && !at_least(options.x_col_dim, "x_col_dim", 1)) return false;
    if (indexed && !check_columns(last_column, options)) return false;
    if (options.covariance_col_dim_given && !options.covariances.wanted()) return raise(terminal, 11038);

    if (indexed) {
        if (!check_column_lists(n_independent, last_column, options)) return false;
    } else if (!check_stride(n_independent, "*n_independent", static_cast<int>(width), "x_col_dim")) {
        return false;
    }
    if (options.covariance_col_dim_given &&
        !check_stride(std::int64_t{n_independent} + options.intercept, "*n_coefficients",
                      options.covariance_col_dim, "cov_col_dim"))
        return false;
    if (!check_exclusive(options.frequencies != nullptr && options.frequency_column >= 0,
                         "TAVIK_FREQUENCIES and a frequency column of TAVIK_X_INDICES") ||
        !check_exclusive(options.weights != nullptr && options.weight_column >= 0,
                         "TAVIK_WEIGHTS and a weight column of TAVIK_X_INDICES"))
        return false;
    if (n_rows == 0) return true;
    return check_not_null(x, "x") && (indexed || options.n_dependent == 0 || check_not_null(y, "y"));
}

// Does the stage fit the thread's series?
inline bool check_stage(int ido, const Shape &shape, bool series_open, const Shape &shape_of_series)
{
    if (ido < 2) return true;
    if (!series_open) return raise(fatal, 20691, ido);
    if (shape == shape_of_series) return true;
    if (shape.n_independent != shape_of_series.n_independent)
        return raise(fatal, 11428, shape.n_independent, shape_of_series.n_independent);
    if (shape.n_dependent != shape_of_series.n_dependent)
        return raise(fatal, 11428, shape.n_dependent, shape_of_series.n_dependent);
    return raise(fatal, 11428, static_cast<int>(shape.n_coefficients()),
                 static_cast<int>(shape_of_series.n_coefficients()));
}

} // namespace tavik::regression
