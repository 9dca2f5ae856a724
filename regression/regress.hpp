// Linear regression by least squares, in one call or in stages.
//
// accumulate(rows) folds rows into a triangular factor by modified Givens rotations, solve() finds rank and
// coefficients in it, and the outputs follow from both. Methods: rotations.hpp, factor.hpp, solution.hpp.
#pragma once

#include "accumulate.hpp"
#include "anova.hpp"
#include "covariances.hpp"
#include "regress_checks.hpp"
#include "row_results.hpp"

namespace tavik::regression {

inline void raise_no_memory_for_rows(int n_rows, const Shape &shape)
{
    tavik_e1sti(1, n_rows);
    tavik_e1sti(2, shape.n_independent);
    tavik_e1sti(3, shape.n_dependent);
    tavik_e1stl(1, "n_observations");
    tavik_e1stl(2, "n_independent");
    tavik_e1stl(3, "n_dependent");
    tavik_ermes(terminal, 203);
}

inline bool follow_each_other(const int *columns, std::size_t n)
{
    for (std::size_t j = 1; j < n; ++j) {
        if (columns[j] != columns[j - 1] + 1) return false;
    }
    return true;
}

// Takes the variables from the columns that TAVIK_X_INDICES names: from a list of them, unless both the independent
// variables and the responses follow each other, and so lie like arrays of their own. False, with an error, without memory.
template <class Real>
bool choose_columns(const Shape &shape, const RegressionOptions<Real> &options, RowSource<Real> &rows,
                    Workspace &workspace)
{
    if (!options.has_column_indices()) return true;
    if (rows.x != nullptr && follow_each_other(options.independent_columns, rows.n_independent) &&
        follow_each_other(options.dependent_columns, rows.n_dependent)) {
        if (rows.n_dependent > 0) rows.y = rows.x + options.dependent_columns[0];
        rows.y_stride = rows.x_stride;
        rows.x += options.independent_columns[0];
        return true;
    }
    auto *columns = workspace.array_or_null<std::size_t>(rows.n_independent + rows.n_dependent);
    if (columns == nullptr) {
        tavik_e1sti(1, shape.n_independent);
        tavik_e1sti(2, shape.n_dependent);
        tavik_e1stl(1, "n_independent");
        tavik_e1stl(2, "n_dependent");
        tavik_ermes(terminal, 202);
        return false;
    }
    for (std::size_t j = 0; j < rows.n_independent; ++j)
        columns[j] = static_cast<std::size_t>(options.independent_columns[j]);
    for (std::size_t j = 0; j < rows.n_dependent; ++j)
        columns[rows.n_independent + j] = static_cast<std::size_t>(options.dependent_columns[j]);
    rows.columns = columns;
    return true;
}

template <class Real>
RowSource<Real> rows_of_call(const Real *x, const Real *y, const Shape &shape, const double *shift,
                             const RegressionOptions<Real> &options)
{
    const auto stride = static_cast<std::size_t>(row_width(shape.n_independent, options));
    const bool frequency_in_x = options.frequency_column >= 0, weight_in_x = options.weight_column >= 0;
    return {x,
            y,
            nullptr,
            stride,
            static_cast<std::size_t>(shape.n_dependent),
            static_cast<std::size_t>(shape.n_independent),
            static_cast<std::size_t>(shape.n_dependent),
            frequency_in_x && x != nullptr ? x + options.frequency_column : options.frequencies,
            weight_in_x && x != nullptr ? x + options.weight_column : options.weights,
            frequency_in_x ? stride : 1,
            weight_in_x ? stride : 1,
            shift,
            shape.intercept,
            options.exclude_missing};
}

// Columns count from 1; arrays of frequencies and weights count as columns behind the variables.
template <class Real>
void raise_bad_mass(const RowSource<Real> &rows, std::int64_t row, const Shape &shape,
                    const RegressionOptions<Real> &options)
{
    const auto i = static_cast<std::size_t>(row);
    const Real f = rows.frequencies != nullptr ? rows.frequencies[i * rows.frequency_stride] : 1;
    const Real w = rows.weights != nullptr ? rows.weights[i * rows.weight_stride] : 1;
    const bool is_frequency = f < 0 || std::isinf(f);
    const int column = is_frequency ? options.frequency_column : options.weight_column;
    const int behind = 1 + (!is_frequency && options.frequencies != nullptr);
    tavik_e1sti(1, column >= 0 ? column + 1 : shape.n_independent + shape.n_dependent + behind);
    tavik_e1std(1, is_frequency ? f : w);
    tavik_e1sti(2, static_cast<int>(row + 1));
    tavik_ermes(fatal, options.ido != 0 ? 11054 : 11055);
}

// Folds the rows of this call into the fit, or takes them out. False, with an error, when that cannot be.
template <class Real>
bool accumulate(const RowSource<Real> &rows, int n_rows, const RegressionOptions<Real> &options, Fit &fit,
                Workspace &workspace)
{
    const std::size_t n = fit.factor.n_columns();
    fit.with_frequencies = fit.with_frequencies || rows.frequencies != nullptr;
    const bool few = are_few(n_rows, n), very_few = are_very_few(n_rows, n);
    bool possible = true;
    std::int64_t first_bad = no_memory;
    if (find_shift(rows, n_rows, fit, workspace)) {
        if (options.deletes || very_few || (few && options.ido != 0)) {
            if (!options.deletes || unite(fit, workspace))
                first_bad = fold_directly(rows, n_rows, options.deletes, fit, workspace, possible);
        } else {
            first_bad = add_rows(rows, n_rows, fit, workspace);
            if (first_bad == -1 && few && !unite(fit, workspace)) first_bad = no_memory;
            if (first_bad == -1 && few && fit.factor.loses_digits()) {
                forget_rows(fit);
                fit.missing = 0;
                first_bad = fold_directly(rows, n_rows, false, fit, workspace, possible);
            }
        }
    }
    if (first_bad == no_memory) raise_no_memory_for_rows(n_rows, fit.shape);
    else if (first_bad >= 0) raise_bad_mass(rows, first_bad, fit.shape, options);
    else if (!possible) tavik_ermes(fatal, 11048);
    return !error_pending();
}

// The arrays of the outputs that are asked for: the caller's, or new ones.
template <class Real> struct OutputArrays {
    Real *coefficients, *covariances, *anova, *residuals, *means, *r_factor, *crossproducts, *statistics;

    // False, with an error, without memory.
    bool prepare(const Shape &shape, std::size_t n_rows, std::size_t covariance_stride,
                 const RegressionOptions<Real> &options, Workspace &workspace)
    {
        const std::size_t n = shape.n_coefficients(), q = static_cast<std::size_t>(shape.n_dependent);
        coefficients =
            options.result != nullptr ? options.result : workspace.result<Real>(coefficients_size(shape));
        const auto array = [&](const Output<Real> &output, std::size_t size, const char *governed_by) {
            if (output.pointer == nullptr || fatal_pending()) return output.array;
            return workspace.result<Real>(size, governed_by);
        };
        std::size_t covariances_size = 0; // the stride may be any int
        if (__builtin_mul_overflow(q * n, covariance_stride, &covariances_size)) covariances_size = SIZE_MAX;
        covariances = array(options.covariances, covariances_size, "n_independent");
        if (covariances != nullptr && options.covariances.pointer != nullptr)
            std::fill_n(covariances, covariances_size, Real{0}); // the padding of its rows
        anova = array(options.anova, q * anova::n_entries, "n_dependent");
        residuals = array(options.residuals, n_rows * q, "n_rows");
        means = array(options.means, n - shape.intercept + q, "n_independent");
        r_factor = array(options.r_factor, n * n, "n_independent");
        crossproducts = array(options.crossproducts, q * q, "n_dependent");
        statistics = array(options.statistics, q * n * 4, "n_independent");
        return !fatal_pending();
    }

    static std::size_t coefficients_size(const Shape &shape)
    {
        return (static_cast<std::size_t>(shape.n_independent) + 1) *
               static_cast<std::size_t>(std::max(1, shape.n_dependent));
    }
};

template <class Real>
void set_coefficients(const Solution<Real> &solution, const Shape &shape, Real *coefficients)
{
    std::fill_n(coefficients, OutputArrays<Real>::coefficients_size(shape), Real{0});
    for (std::size_t c = 0; c < solution.n_responses(); ++c) {
        const long double *b = solution.coefficients(c);
        std::transform(b, b + solution.n_coefficients(),
                       coefficients + c * (static_cast<std::size_t>(shape.n_independent) + 1),
                       [](long double value) { return static_cast<Real>(value); });
    }
}

template <class Real> void set_means(const Solution<Real> &solution, bool intercept, Real *means)
{
    for (std::size_t j = intercept; j < solution.n_coefficients() + solution.n_responses(); ++j)
        *means++ = static_cast<Real>(solution.mean(j));
}

template <class Real> void set_r_factor(const Solution<Real> &solution, Real *r_factor)
{
    const std::size_t n = solution.n_coefficients();
    std::fill_n(r_factor, n * n, Real{0});
    for (std::size_t i = 0; i < n; ++i) {
        if (solution.is_dependent(i)) continue;
        const long double *row = solution.row(i);
        const long double root = std::copysign(std::sqrt(solution.scale(i)), row[i]);
        for (std::size_t j = i; j < n; ++j) r_factor[i * n + j] = static_cast<Real>(root * row[j]);
    }
}

template <class Real> void set_crossproducts(const Solution<Real> &solution, Real *crossproducts)
{
    const std::size_t q = solution.n_responses();
    for (std::size_t a = 0; a < q; ++a) {
        for (std::size_t b = 0; b < q; ++b)
            crossproducts[a * q + b] = static_cast<Real>(solution.error_crossproduct(a, b));
    }
}

// Completes the fit. Nothing of the caller's is written before nothing can fail any more.
template <class Real>
void finish(Fit &fit, const RowSource<Real> &rows, int n_rows, const RegressionOptions<Real> &options,
            Workspace &workspace, Real *&result)
{
    const Shape &shape = fit.shape;
    const std::size_t n = shape.n_coefficients();
    const std::size_t stride =
        options.covariance_col_dim_given ? static_cast<std::size_t>(options.covariance_col_dim) : n;
    OutputArrays<Real> out;
    Solution<Real> solution;
    InverseFactor<Real> inverse;
    Leverages<Real> leverages;
    if (!out.prepare(shape, static_cast<std::size_t>(n_rows), stride, options, workspace)) return;
    const bool needs_inverse = out.covariances != nullptr || out.statistics != nullptr;
    if ((needs_inverse && !inverse.prepare(n, workspace)) ||
        (options.leverages != nullptr && !leverages.prepare(fit, n_rows, workspace)) ||
        !solution.solve(fit, options.tolerance, workspace))
        return;
    for (std::size_t c = 0; out.anova != nullptr && c < solution.n_responses(); ++c) {
        if (!check_sums(solution, c)) return;
    }

    if (needs_inverse) inverse.compute(solution);
    if (out.covariances != nullptr) set_covariances(solution, inverse, stride, out.covariances);
    if (out.statistics != nullptr) set_statistics(solution, inverse, out.statistics);
    if (options.leverages != nullptr) leverages.write(rows, solution, options.leverages);
    for (std::size_t c = 0; out.anova != nullptr && c < solution.n_responses(); ++c)
        set_anova(solution, c, out.anova + c * anova::n_entries);
    if (out.residuals != nullptr) set_residuals(rows, n_rows, solution, out.residuals);
    if (out.means != nullptr) set_means(solution, shape.intercept, out.means);
    if (out.r_factor != nullptr) set_r_factor(solution, out.r_factor);
    if (out.crossproducts != nullptr) set_crossproducts(solution, out.crossproducts);
    set_coefficients(solution, shape, out.coefficients);
    if (options.rank != nullptr) *options.rank = static_cast<int>(solution.rank());
    if (options.n_missing != nullptr)
        *options.n_missing = static_cast<int>(std::min<std::int64_t>(fit.missing, INT_MAX));

    const auto hand_over = [&](const Output<Real> &output, Real *array) {
        if (output.pointer != nullptr) *output.pointer = workspace.hand_over(array);
    };
    hand_over(options.covariances, out.covariances);
    hand_over(options.anova, out.anova);
    hand_over(options.residuals, out.residuals);
    hand_over(options.means, out.means);
    hand_over(options.r_factor, out.r_factor);
    hand_over(options.crossproducts, out.crossproducts);
    hand_over(options.statistics, out.statistics);
    result = workspace.hand_over(out.coefficients);
    if (solution.rank() < n) {
        tavik_e1sti(1, static_cast<int>(solution.rank()));
        tavik_ermes(warning, 11047);
    }
}

// A new series for the thread. False, with an error, without memory.
inline bool open_series(Series &series, const Shape &shape, int n_rows)
{
    close_series(series);
    const std::size_t n = shape.n_columns();
    if (n <= most_columns && release_at_thread_exit(series.at_thread_exit))
        series.memory = tavik_aligned_malloc(fit_memory_size(n));
    if (series.memory == nullptr) {
        raise_no_memory_for_rows(n_rows, shape);
        return false;
    }
    start(series.fit, shape, series.memory);
    return true;
}

template <class Real>
void l_regression(int n_rows, int n_independent, const Real *x, const Real *y, ArgumentList &list,
                  Workspace &workspace, Real *&result)
{
    RegressionOptions<Real> options;
    const bool options_read = read_options(OptionReader(list, count_codes), options);

    // The series counts as closed while one of its calls works, so that whatever ends the call early ends the series,
    // too. A call of stage 0 has nothing to do with it; but behind an unknown code, no one knows the stage.
    Series &series = thread_series<Real>();
    const bool series_was_open = series.open, staged = options.ido != 0 || options.unknown_code;
    if (staged) series.open = false;
    const Shape shape{n_independent, options.n_dependent, options.intercept};
    if (!options_read || !check_arguments(n_rows, n_independent, x, y, options) ||
        !check_stage(options.ido, shape, series_was_open, series.fit.shape)) {
        if (staged) close_series(series);
        return;
    }

    Fit fit_of_call{};
    Fit &fit = staged ? series.fit : fit_of_call;
    if (options.ido == 1) {
        if (!open_series(series, shape, n_rows)) return;
    } else if (!staged) {
        const std::size_t n = shape.n_columns();
        void *memory = nullptr;
        if (n <= most_columns && workspace.reserve(fit_memory_size(n) + accumulation_size<Real>(n_rows, n)))
            memory = workspace.array_or_null<char>(fit_memory_size(n));
        if (memory == nullptr) {
            raise_no_memory_for_rows(n_rows, shape);
            return;
        }
        start(fit, shape, memory);
    }
    if (options.callers_pointer != nullptr) fit.callers_pointer = options.callers_pointer;
    RowSource<Real> rows = rows_of_call(x, y, shape, fit.shift, options);
    const bool accumulated = choose_columns(shape, options, rows, workspace) &&
                             (n_rows == 0 || accumulate(rows, n_rows, options, fit, workspace));
    if (accumulated && (options.ido == 1 || options.ido == 2)) {
        series.open = true;
        return;
    }
    if (accumulated && !unite(fit, workspace)) raise_no_memory_for_rows(n_rows, shape);
    else if (accumulated) finish(fit, rows, n_rows, options, workspace, result);
    if (staged) close_series(series);
}

} // namespace tavik::regression
