// Basic univariate statistics of the columns of a data matrix, in one call or in stages.
//
// accumulate(rows) folds rows into running moments, block by block on several threads: blocks are cut by
// their rows alone and joined in order, so results do not depend on the number of threads. finish() turns
// moments into statistics. Moments are kept in double for both element types. Methods: moments.hpp.
#pragma once

#include "frame/options.hpp"
#include "frame/parallel.hpp"
#include "median.hpp"
#include "row_reader.hpp"
#include "series.hpp"
#include "simple_statistics_finish.hpp"

namespace tavik::descriptive {

template <class Real> bool read_options(OptionReader reader, SimpleStatisticsOptions<Real> &options)
{
    while (const int code = reader.next()) {
        switch (code) {
        case TAVIK_CONFIDENCE_MEAN: options.mean_level = static_cast<Real>(reader.real()); break;
        case TAVIK_CONFIDENCE_VARIANCE: options.variance_level = static_cast<Real>(reader.real()); break;
        case TAVIK_CONFIDENCE_MEAN_ADR:
        case TAVIK_CONFIDENCE_VARIANCE_ADR: {
            const Real *level = reader.pointer<const Real>("The confidence level");
            if (level == nullptr) return false;
            (code == TAVIK_CONFIDENCE_MEAN_ADR ? options.mean_level : options.variance_level) = *level;
            break;
        }
        case TAVIK_FREQUENCIES: options.frequencies = reader.pointer<const Real>("TAVIK_FREQUENCIES"); break;
        case TAVIK_WEIGHTS: options.weights = reader.pointer<const Real>("TAVIK_WEIGHTS"); break;
        case TAVIK_MEDIAN:
        case TAVIK_MEDIAN_AND_SCALE:
            options.medians = code == TAVIK_MEDIAN ? MedianRows::median : MedianRows::median_and_scale;
            ++options.n_median_options;
            break;
        case TAVIK_RETURN_USER: options.user_result = reader.pointer<Real>("TAVIK_RETURN_USER"); break;
        case TAVIK_STAT_COL_DIM: options.stat_col_dim = reader.integer(); break;
        case TAVIK_X_COL_DIM: options.x_col_dim = reader.integer(); break;
        case TAVIK_MISSING_ELEMENTWISE: options.listwise = false; break;
        case TAVIK_MISSING_LISTWISE: options.listwise = true; break;
        case TAVIK_IDO: options.ido = reader.integer(); break;
        default: reader.unknown(11001); return false;
        }
    }
    if (options.n_median_options > 1) {
        tavik_e1stl(1, "TAVIK_MEDIAN and TAVIK_MEDIAN_AND_SCALE");
        tavik_ermes(terminal, 11117);
    }
    return !error_pending();
}

template <class Real> void check_or_raise(Real level, long code)
{
    if (level < 100) return; // a NaN level is an error, too
    tavik_e1std(1, static_cast<double>(level));
    tavik_ermes(terminal, code);
}

template <class Real>
bool check_arguments(int n_observations, int n_variables, const Real *x,
                     const SimpleStatisticsOptions<Real> &options)
{
    int position = 0;
    tavik_c1iarg(n_variables, "n_variables", 1, -1, &position);
    tavik_c1iarg(options.ido, "ido", 0, 3, &position);
    tavik_c1iarg(n_observations, "n_observations", options.ido == 0 ? 1 : 0, -1, &position);
    if (n_variables >= 1) {
        tavik_c1dim(1, n_variables, "*n_variables", options.x_col_dim, "x_col_dim", &position);
        tavik_c1dim(1, n_variables, "*n_variables", options.stat_col_dim, "stat_col_dim", &position);
    }
    if (error_pending()) return false;
    if (options.ido > 0 && options.medians != MedianRows::none) {
        tavik_e1sti(1, options.ido);
        tavik_ermes(terminal, 11426);
    }
    check_or_raise(options.mean_level, 11064);
    check_or_raise(options.variance_level, 11065);
    if (n_observations > 0) check_not_null(x, "x");
    return !error_pending();
}

// Does the stage fit the thread's series?
inline bool check_stage(int ido, int n_variables, bool series_open, const Series &series)
{
    if (ido <= 1 && series_open) {
        tavik_e1sti(1, ido);
        tavik_ermes(fatal, 20692);
    } else if (ido >= 2 && !series_open) {
        tavik_e1sti(1, ido);
        tavik_ermes(fatal, 20691);
    } else if (ido >= 2 && series.n_variables != n_variables) {
        tavik_e1sti(1, n_variables);
        tavik_e1sti(2, series.n_variables);
        tavik_ermes(fatal, 11428);
    }
    return !error_pending();
}

// Folds rows into the moments. On error, which is raised, the moments are of no more use.
template <class Real>
bool accumulate(const Rows<Real> &rows, bool staged, const Moments &moments, Workspace &workspace)
{
    if (moments.data == nullptr || rows.n < 0 || rows.n_variables < 1 || rows.stride < rows.n_variables) {
        tavik_ermes(terminal, 11063);
        return false;
    }
    if (rows.n == 0) return true;
    if (!check_masses(rows, staged)) return false;

    const auto p = static_cast<std::int64_t>(rows.n_variables);
    const std::int64_t block = rows_per_block(p), piece = block * blocks_per_piece(p);
    const std::int64_t n_pieces = (rows.n + piece - 1) / piece;
    const int threads = thread_count(n_pieces, rows.n * p);
    auto *readers = workspace.array<RowReader<Real>>(static_cast<std::size_t>(threads));
    if (readers == nullptr) return false;
    for (int t = 0; t < threads; ++t) {
        if (!(new (readers + t) RowReader<Real>)->prepare(rows, workspace)) return false;
    }

    OrderedPieces pieces(n_pieces);
    parallel(threads, [&](int thread) {
        RowReader<Real> &reader = readers[thread];
        for (std::int64_t k = pieces.take(); k >= 0; k = pieces.take()) {
            const std::int64_t first = k * piece, end = std::min(first + piece, rows.n);
            for (std::int64_t row = first; row < end; row += block)
                reader.read(row, std::min(block, end - row), (row - first) / block);
            pieces.wait_for_turn(k);
            for (std::int64_t row = first; row < end; row += block)
                moment_kernels().merge(moments, reader.moments_of((row - first) / block));
            pieces.pass_turn(k);
        }
    });

    const double *count = moments[Moments::count];
    if (std::any_of(count, count + rows.n_variables, [](double n) { return n < 0; })) {
        tavik_ermes(terminal, 11066);
        return false;
    }
    if (std::any_of(readers, readers + threads, [](const RowReader<Real> &r) { return r.met_missing(); }))
        tavik_ermes(warning_immediate, rows.listwise ? 11288 : 11062);
    return true;
}

// Medians and, where asked for, median deviations of all variables. One column a thread.
template <class Real> struct Medians {
    Real *center = nullptr, *deviation = nullptr; // null when not asked for

    bool compute(const Rows<Real> &rows, MedianRows wanted, Workspace &workspace)
    {
        if (wanted == MedianRows::none) return true;
        const auto n = static_cast<std::size_t>(rows.n);
        const auto p = static_cast<std::int64_t>(rows.n_variables);
        const int threads = thread_count(p, rows.n * p);
        center = workspace.array<Real>(rows.n_variables, "n_variables");
        deviation = workspace.array<Real>(rows.n_variables, "n_variables");
        auto *columns = workspace.array<Real>(n * static_cast<std::size_t>(threads));
        const bool selects = rows.has_masses() || rows.listwise;
        auto *used = selects ? workspace.array<unsigned char>(n) : nullptr; // null: all rows
        if (center == nullptr || deviation == nullptr || columns == nullptr || fatal_pending()) return false;
        for (std::int64_t i = 0; selects && i < rows.n; ++i) used[i] = use_of_row(rows, i) == RowUse::used;

        OrderedPieces variables(p);
        parallel(threads, [&](int thread) {
            Real *column = columns + static_cast<std::size_t>(thread) * n;
            for (std::int64_t j = variables.take(); j >= 0; j = variables.take()) {
                std::int64_t count = 0;
                for (std::size_t i = 0; i < n; ++i) {
                    const Real value = rows.x[i * rows.stride + static_cast<std::size_t>(j)];
                    if ((used == nullptr || used[i] != 0) && !std::isnan(value)) column[count++] = value;
                }
                center[j] = median(column, count);
                if (wanted == MedianRows::median_and_scale)
                    deviation[j] = median_deviation(column, count, center[j]);
            }
        });
        return true;
    }
};

template <class Real>
void l_simple_statistics(int n_observations, int n_variables, const Real *x, ArgumentList &list,
                         Workspace &workspace, Real *&result)
{
    SimpleStatisticsOptions<Real> options;
    options.stat_col_dim = options.x_col_dim = n_variables;
    const bool options_read = read_options(OptionReader(list, count_codes), options);

    // The series counts as closed while a call works, so that whatever ends the call early ends the series,
    // too. What a jump left behind goes with the next call.
    Series &series = thread_series<Real>();
    const bool staged = options.ido != 0, series_was_open = series.open;
    if (!series_was_open) close_series(series);
    series.open = false;
    if (!options_read || !check_arguments(n_observations, n_variables, x, options) ||
        !check_stage(options.ido, n_variables, series_was_open, series)) {
        close_series(series);
        return;
    }

    const auto p = static_cast<std::size_t>(n_variables);
    const Rows<Real> rows{x,
                          n_observations,
                          p,
                          static_cast<std::size_t>(options.x_col_dim),
                          options.frequencies,
                          options.weights,
                          options.listwise};
    Moments moments{};
    bool weighted = options.weights != nullptr;
    if (!staged) {
        moments = {workspace.array<double>(moments_size(p), "n_variables"), padded_size(p)};
    } else if (options.ido == 1) {
        moments = open_series(series, n_variables);
    } else {
        moments = series.moments;
    }
    if (moments.data == nullptr) return;
    if (options.ido <= 1) reset_moments(moments, p);
    if (!accumulate(rows, staged, moments, workspace)) {
        close_series(series);
        return;
    }
    if (staged) weighted = series.weighted = series.weighted || weighted;
    if (options.ido == 1 || options.ido == 2) {
        series.open = true;
        return;
    }

    Medians<Real> medians;
    const auto stride = static_cast<std::size_t>(options.stat_col_dim);
    const std::size_t size = static_cast<std::size_t>(options.n_rows()) * stride;
    Real *statistics = options.user_result;
    if (medians.compute(rows, options.medians, workspace) && statistics == nullptr)
        statistics = workspace.result<Real>(size, "n_variables");
    if (!fatal_pending()) {
        if (statistics != options.user_result)
            std::fill_n(statistics, size, Real{0}); // the padding of its rows
        const Finish<Real> finish(moments, p, weighted, options, statistics);
        finish.all();
        if (options.medians != MedianRows::none) finish.set_medians(medians.center, medians.deviation);
        result = workspace.hand_over(statistics);
    }
    close_series(series);
}

} // namespace tavik::descriptive
