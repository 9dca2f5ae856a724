// accumulate(rows): folds the caller's rows into a fit.
//
// Many rows are cut into pieces by their number alone; a thread folds a piece into four factors side by side, and
// pieces are merged in their order, so results do not depend on the number of threads. Few rows are folded into one
// factor; when that shows columns which nearly depend on each other, they are folded again in long double, which
// costs no time that matters and keeps all digits. Few rows of a stage, and rows to be deleted, always go that way.
#pragma once

#include "fit.hpp"

#include "frame/error.hpp"
#include "frame/parallel.hpp"
#include "frame/precision.hpp"
#include "frame/workspace.hpp"

#include <cmath>
#include <new>

namespace tavik::regression {

inline std::size_t read_rows(const RowSource<float> &rows, std::int64_t &next, std::int64_t end,
                             std::size_t most, const RowTarget &to, RowTally &tally)
{
    return rotation_kernels().read_f(rows, next, end, most, to, tally);
}

inline std::size_t read_rows(const RowSource<double> &rows, std::int64_t &next, std::int64_t end,
                             std::size_t most, const RowTarget &to, RowTally &tally)
{
    return rotation_kernels().read_d(rows, next, end, most, to, tally);
}

// Rows so few that it costs no time to fold them in long double; the second, at once.
constexpr bool are_few(std::int64_t n_rows, std::size_t n_columns)
{
    return static_cast<std::size_t>(n_rows) <= 65536 / (n_columns * n_columns);
}

constexpr bool are_very_few(std::int64_t n_rows, std::size_t n_columns)
{
    return static_cast<std::size_t>(n_rows) <= 256 / (n_columns * n_columns);
}

constexpr std::int64_t rows_per_piece(std::size_t n_columns)
{
    return n_columns <= 64 ? 8192 : 16384;
}

// Even, so that two threads have the same share.
constexpr std::int64_t count_pieces(std::int64_t n_rows, std::size_t n_columns)
{
    const std::int64_t most = rows_per_piece(n_columns);
    return n_rows <= most ? 1 : (n_rows + 2 * most - 1) / (2 * most) * 2;
}

inline int threads_for(std::int64_t n_rows, std::size_t n_columns)
{
    return thread_count(count_pieces(n_rows, n_columns), n_rows * static_cast<std::int64_t>(n_columns));
}

inline void clear(const FactorSet &factors, std::size_t count)
{
    std::fill_n(factors.p, factors_size(factors.n, count), 0.0);
}

// Factors that are not cleared; their memory is null when there is none.
inline FactorSet make_factors(std::size_t n, std::size_t count, Workspace &workspace)
{
    return factors_in_memory(n, count, workspace.array_or_null<double>(factors_size(n, count)));
}

constexpr std::size_t tile_size(std::size_t n, std::size_t count)
{
    return tile_values_size(n, count) + count * rows_per_tile + tile_scratch_size(n, count);
}

// A tile whose memory is null when there is none.
inline Tile make_tile(std::size_t n, std::size_t count, Workspace &workspace)
{
    const std::size_t values = tile_values_size(n, count), weights = count * rows_per_tile;
    auto *memory = workspace.array_or_null<double>(tile_size(n, count));
    if (memory == nullptr) return {};
    return {memory, memory + values, memory + values + weights};
}

// Rows are folded in groups.
constexpr std::size_t with_rest(std::size_t n_rows)
{
    return (n_rows + rows_in_flight - 1) / rows_in_flight * rows_in_flight;
}

// Makes rows of one of `count` factors in a tile empty.
inline void clear_rows(const Tile &tile, std::size_t padded, std::size_t factor, std::size_t count,
                       std::size_t first, std::size_t end)
{
    double *values = tile.values + factor * rows_per_tile * padded;
    std::fill(values + first * padded, values + end * padded, 0.0);
    for (std::size_t k = first; k < end; ++k) tile.weights[k * count + factor] = 0;
}

// The same of the rows that are filled when so many are folded. Columns behind the last are folded, too: that changes
// no other, but they must hold some number.
inline void clear_tile(const Tile &tile, std::size_t padded, std::size_t count, std::int64_t n_rows)
{
    const auto used = static_cast<std::size_t>(std::min(n_rows, static_cast<std::int64_t>(rows_per_tile)));
    for (std::size_t factor = 0; factor < count; ++factor)
        clear_rows(tile, padded, factor, count, 0, with_rest(used));
}

// The scale of a row of one of four factors; NaN when it is lost.
inline double scale_of_row(const FactorSet &four, std::size_t which, std::size_t i)
{
    const double scale = four.p[i * side_by_side + which] / four.diagonal[i * side_by_side + which];
    return std::isfinite(scale) ? scale : not_a_number<double>;
}

// Nothing of an empty row is worth copying, nor of a lost one, since zero times NaN would spoil what stands before it.
inline bool is_worth_copying(const FactorSet &four, std::size_t which, std::size_t i)
{
    return four.diagonal[i * side_by_side + which] != 0 && !std::isnan(scale_of_row(four, which, i));
}

// Rows of one factor are merged into another so few at a time, since a row is rotated with pivots before its own, too,
// from the first row's on.
constexpr std::size_t rows_per_merge = 16;
static_assert(rows_per_merge <= rows_per_tile && rows_per_merge % rows_in_flight == 0);

// Fills the tile of one of `count` factors with rows of one of four factors, from row `first` on, each with its scale
// as weight. Returns how many rows that makes, with empty ones behind them.
inline std::size_t fill_tile(const FactorSet &four, std::size_t which, std::size_t first, const Tile &tile,
                             std::size_t factor, std::size_t count)
{
    const std::size_t rows = std::min(rows_per_merge, four.n - first);
    double *values = tile.values + factor * rows_per_tile * four.padded;
    clear_rows(tile, four.padded, factor, count, 0, with_rest(rows));
    for (std::size_t k = 0; k < rows; ++k) {
        if (!is_worth_copying(four, which, first + k)) continue;
        four.copy_row(first + k, which, side_by_side, values + k * four.padded);
        tile.weights[k * count + factor] = scale_of_row(four, which, first + k);
    }
    return with_rest(rows);
}

// Rows that are lost in one of four factors are lost in another, too, which is one of `count`.
inline void lose_rows(const FactorSet &four, std::size_t which, const FactorSet &other, std::size_t factor,
                      std::size_t count)
{
    for (std::size_t i = 0; i < four.n; ++i) {
        if (four.diagonal[i * side_by_side + which] == 0 || !std::isnan(scale_of_row(four, which, i)))
            continue;
        for (double *of_rows : {other.p, other.diagonal, other.reciprocal_p, other.reciprocal_diagonal})
            of_rows[i * count + factor] = not_a_number<double>;
    }
}

// Folds pieces of rows into four factors. Each thread has one, with a cache line of its own for the tally.
template <class Real> class alignas(64) PieceFolder {
public:
    bool prepare(const RowSource<Real> &rows, std::size_t n, Workspace &workspace)
    {
        rows_ = &rows;
        factors_ = make_factors(n, side_by_side, workspace);
        sums_ = rows.intercept ? nullptr : workspace.array_or_null<double>(n);
        tile_ = make_tile(n, side_by_side, workspace);
        return factors_.p != nullptr && tile_.values != nullptr && (rows.intercept || sums_ != nullptr);
    }

    // Into factors that may hold rows, or into empty ones of its own.
    void fold(std::int64_t first, std::int64_t end, const FactorSet &factors)
    {
        tally_ = {};
        tally_.sums = sums_;
        if (sums_ != nullptr) std::fill_n(sums_, factors_.n, 0.0);
        std::int64_t next[side_by_side], part_end[side_by_side];
        for (std::size_t part = 0; part < side_by_side; ++part) {
            const auto k = static_cast<std::int64_t>(part), parts = static_cast<std::int64_t>(side_by_side);
            next[part] = first + (end - first) * k / parts;
            part_end[part] = first + (end - first) * (k + 1) / parts;
        }
        clear_tile(tile_, factors_.padded, side_by_side, part_end[side_by_side - 1] - next[side_by_side - 1]);
        for (;;) {
            std::size_t used[side_by_side], most = 0;
            for (std::size_t part = 0; part < side_by_side; ++part) {
                used[part] = read_part(part, next[part], part_end[part]);
                most = std::max(most, used[part]);
            }
            if (most == 0) return;
            for (std::size_t part = 0; part < side_by_side; ++part)
                clear_rows(tile_, factors_.padded, part, side_by_side, used[part], with_rest(most));
            rotation_kernels().fold_four(factors, tile_, with_rest(most), 0);
        }
    }

    void fold(std::int64_t first, std::int64_t end)
    {
        clear(factors_, side_by_side);
        fold(first, end, factors_);
    }

    // Merges what it has folded into factors that stand for rows before.
    void merge_into(const FactorSet &factors)
    {
        for (std::size_t which = 0; which < side_by_side; ++which)
            lose_rows(factors_, which, factors, which, side_by_side);
        for (std::size_t first = 0; first < factors.n; first += rows_per_merge) {
            std::size_t n_rows = 0;
            for (std::size_t which = 0; which < side_by_side; ++which)
                n_rows = fill_tile(factors_, which, first, tile_, which, side_by_side);
            rotation_kernels().fold_four(factors, tile_, n_rows, first);
        }
    }

    const RowTally &tally() const
    {
        return tally_;
    }

private:
    std::size_t read_part(std::size_t part, std::int64_t &next, std::int64_t end)
    {
        return read_rows(*rows_, next, end, rows_per_tile,
                         {tile_.values + part * rows_per_tile * factors_.padded, tile_.weights + part,
                          factors_.padded, side_by_side},
                         tally_);
    }

    const RowSource<Real> *rows_ = nullptr;
    FactorSet factors_{};
    Tile tile_{};
    RowTally tally_{};
    double *sums_ = nullptr;
};

inline void join(Fit &fit, const RowTally &tally)
{
    fit.missing += tally.missing;
    fit.frequencies += tally.frequencies;
    fit.most_frequencies = std::max(fit.most_frequencies, fit.frequencies);
    fit.mass += tally.mass;
    for (std::size_t j = 0; tally.sums != nullptr && j < fit.factor.n_columns(); ++j)
        fit.sums[j] += tally.sums[j];
}

// Both return the first row whose mass is bad, -1 when all are good; no_memory without memory.
constexpr std::int64_t no_memory = -2;

// The first piece goes on where the rows before ended, so that a series of calls does not start anew each time.
template <class Real>
std::int64_t add_pieces(const RowSource<Real> &rows, std::int64_t n_rows, Fit &fit, Workspace &workspace)
{
    const std::size_t n = fit.factor.n_columns();
    const std::int64_t n_pieces = count_pieces(n_rows, n), piece = (n_rows + n_pieces - 1) / n_pieces;
    const int threads = threads_for(n_rows, n);
    auto *folders = workspace.array_or_null<PieceFolder<Real>>(static_cast<std::size_t>(threads));
    if (folders == nullptr) return no_memory;
    for (int t = 0; t < threads; ++t) {
        if (!(new (folders + t) PieceFolder<Real>)->prepare(rows, n, workspace)) return no_memory;
    }

    if (!fit.has_many) clear(fit.many, side_by_side);
    fit.has_many = true;
    std::int64_t first_bad = -1;
    OrderedPieces pieces(n_pieces);
    parallel(threads, [&](int thread) {
        PieceFolder<Real> &folder = folders[thread];
        for (std::int64_t k = pieces.take(); k >= 0; k = pieces.take()) {
            const std::int64_t first = std::min(k * piece, n_rows), end = std::min((k + 1) * piece, n_rows);
            if (k == 0) folder.fold(first, end, fit.many);
            else folder.fold(first, end);
            pieces.wait_for_turn(k);
            if (k > 0) folder.merge_into(fit.many);
            join(fit, folder.tally());
            if (first_bad < 0) first_bad = folder.tally().first_bad;
            pieces.pass_turn(k);
        }
    });
    return first_bad;
}

// Brings all rows into the one factor of the fit. False without memory.
inline bool unite(Fit &fit, Workspace &workspace)
{
    if (!fit.has_many) return true;
    const std::size_t n = fit.factor.n_columns();
    const FactorSet one = make_factors(n, 1, workspace);
    const Tile tile = make_tile(n, 1, workspace);
    if (one.p == nullptr || tile.values == nullptr) return false;
    clear(one, 1);
    double *const row = tile.values; // which is filled anew
    for (std::size_t i = 0; i < n; ++i) {
        if (!is_worth_copying(fit.many, 0, i)) continue;
        fit.many.copy_row(i, 0, side_by_side, row);
        one.set_row(i, row, fit.many.p[i * side_by_side]);
    }
    lose_rows(fit.many, 0, one, 0, 1);
    for (std::size_t which = 1; which < side_by_side; ++which) {
        lose_rows(fit.many, which, one, 0, 1);
        for (std::size_t first = 0; first < n; first += rows_per_merge)
            rotation_kernels().fold_one(one, tile, fill_tile(fit.many, which, first, tile, 0, 1), first);
    }
    fit.factor.add(one);
    fit.has_many = false;
    return true;
}

// Rows into one factor.
template <class Real>
std::int64_t add_few(const RowSource<Real> &rows, std::int64_t n_rows, Fit &fit, Workspace &workspace)
{
    const std::size_t n = fit.factor.n_columns();
    const FactorSet factor = make_factors(n, 1, workspace);
    const Tile tile = make_tile(n, 1, workspace);
    RowTally tally;
    if (!rows.intercept) tally.sums = workspace.array_or_null<double>(n);
    if (factor.p == nullptr || tile.values == nullptr || (!rows.intercept && tally.sums == nullptr))
        return no_memory;
    clear(factor, 1);
    clear_tile(tile, factor.padded, 1, n_rows);
    if (tally.sums != nullptr) std::fill_n(tally.sums, n, 0.0);
    for (std::int64_t next = 0; next < n_rows;) {
        const std::size_t used = read_rows(rows, next, n_rows, rows_per_tile,
                                           {tile.values, tile.weights, factor.padded, 1}, tally);
        if (used == 0) break;
        clear_rows(tile, factor.padded, 0, 1, used, with_rest(used));
        rotation_kernels().fold_one(factor, tile, with_rest(used), 0);
    }
    join(fit, tally);
    fit.factor.add(factor);
    return tally.first_bad;
}

// Below, merging four factors costs more than folding the rows of each.
constexpr bool enough_for_four(std::int64_t n_rows, std::size_t n_columns)
{
    return n_rows >= static_cast<std::int64_t>(8 * n_columns);
}

// Bytes that find_shift, add_rows and unite take of a workspace, and some more; were it too little, that would only
// cost time.
template <class Real> std::size_t accumulation_size(std::int64_t n_rows, std::size_t n)
{
    if (are_very_few(n_rows, n)) return 0;
    std::size_t size = factors_size(n, 1) + tile_size(n, 1) + 12 * padded_columns(n);
    if (enough_for_four(n_rows, n))
        size += static_cast<std::size_t>(threads_for(n_rows, n)) *
                (factors_size(n, side_by_side) + tile_size(n, side_by_side) + padded_columns(n) +
                 sizeof(PieceFolder<Real>) / sizeof(double));
    return (size + 64) * sizeof(double);
}

template <class Real>
std::int64_t add_rows(const RowSource<Real> &rows, std::int64_t n_rows, Fit &fit, Workspace &workspace)
{
    return enough_for_four(n_rows, fit.factor.n_columns()) ? add_pieces(rows, n_rows, fit, workspace)
                                                           : add_few(rows, n_rows, fit, workspace);
}

// Takes one row out. False when it cannot have been added.
inline bool delete_row(Fit &fit, long double *row, long double weight)
{
    constexpr long double rounding = 1e-12L; // of sums of frequencies
    const long double left = fit.frequencies / fit.most_frequencies;
    if (!(left >= -rounding)) return false;
    if (left <= rounding) {
        forget_rows(fit);
        forget_shift(fit);
        return true;
    }
    const bool few_left = fit.frequencies < static_cast<long double>(fit.factor.n_columns());
    if (!fit.factor.delete_row(row, weight, few_left)) return false;
    if (!fit.with_frequencies) fit.factor.limit_rank(static_cast<std::size_t>(fit.frequencies));
    return true;
}

// Rows one by one. False in `possible` when a row to be deleted cannot have been added.
template <class Real>
std::int64_t fold_directly(RowSource<Real> rows, std::int64_t n_rows, bool deletes, Fit &fit,
                           Workspace &workspace, bool &possible)
{
    const std::size_t n = fit.factor.n_columns(), padded = padded_columns(n);
    auto *values = workspace.array_or_null<double>(padded);
    auto *no_shift = workspace.array_or_null<double>(n);
    auto *sums = rows.intercept ? nullptr : workspace.array_or_null<double>(n);
    if (values == nullptr || no_shift == nullptr || (!rows.intercept && sums == nullptr)) return no_memory;
    std::fill_n(no_shift, n, 0.0);
    rows.shift = no_shift; // in long double, the difference from the shift has all digits
    for (std::int64_t next = 0; next < n_rows && possible;) {
        RowTally tally;
        tally.sums = sums;
        double weight = 0;
        if (sums != nullptr) std::fill_n(sums, n, 0.0);
        const bool used = read_rows(rows, next, n_rows, 1, {values, &weight, padded, 1}, tally) > 0;
        if (tally.first_bad >= 0) return tally.first_bad;
        if (deletes) {
            tally.missing = -std::min(tally.missing, fit.missing);
            tally.frequencies = -tally.frequencies;
            tally.mass = -tally.mass;
            for (std::size_t j = 0; sums != nullptr && j < n; ++j) sums[j] = -sums[j];
        }
        join(fit, tally);
        if (!used) continue;
        long double *row = fit.factor.scratch_row();
        for (std::size_t j = 0; j < n; ++j)
            row[j] = static_cast<long double>(values[j]) - static_cast<long double>(fit.shift[j]);
        if (deletes) possible = delete_row(fit, row, weight);
        else fit.factor.add_row(row, weight);
    }
    return -1;
}

// Data are taken relative to a value of each column, and an intercept makes up for it: where data lie close together
// but far from zero, their differences are exact. The value is the least in magnitude of some rows spread over the
// call, so that it is never large beside the others.
template <class Real>
bool find_shift(RowSource<Real> rows, std::int64_t n_rows, Fit &fit, Workspace &workspace)
{
    constexpr std::int64_t most_looked_at = 64;
    constexpr std::size_t most_together = 8;
    if (fit.shift_known || !rows.intercept) return true;
    const std::size_t n = fit.factor.n_columns(), padded = padded_columns(n);
    const std::int64_t step = (n_rows + most_looked_at - 1) / most_looked_at;
    const std::size_t most = step == 1 ? most_together : 1;
    auto *values = workspace.array_or_null<double>(most * padded + n);
    if (values == nullptr) return false;
    double *no_shift = values + most * padded;
    std::fill_n(no_shift, n, 0.0);
    rows.shift = no_shift;
    rows.exclude_missing = true; // a NaN is no value to start from
    std::fill_n(fit.shift + 1, n - 1, infinity<double>);
    std::int64_t next = 0;
    for (std::int64_t row = 0; row < n_rows; row = std::max(row + step, next)) {
        RowTally tally;
        double weights[most_together] = {};
        next = row;
        const std::size_t used = read_rows(rows, next, n_rows, most, {values, weights, padded, 1}, tally);
        if (used > 0) fit.shift_known = true;
        for (const double *of_row = values; of_row < values + used * padded; of_row += padded) {
            for (std::size_t j = 1; j < n; ++j) {
                if (std::fabs(of_row[j]) < std::fabs(fit.shift[j])) fit.shift[j] = of_row[j];
            }
        }
    }
    std::replace(fit.shift + 1, fit.shift + n, infinity<double>, 0.0);
    return true;
}

} // namespace tavik::regression
