// Kernels that read the caller's rows: a few rows of finite values in one go, and where that fails the same rows one by
// one, leaving out what is missing or has no mass.
#pragma once

#include "kernel_vectors.hpp"

namespace tavik::regression {
namespace {

// A value less its shift; an infinite one becomes NaN, since it would otherwise pass for a pivot beside which all
// other rows vanish.
inline double shifted(double value, double shift)
{
    return (value - shift) + (value - value);
}

// The same for values that are read again unless all are finite: `not_finite` is 0 as long as they are.
inline V shifted_if_finite(V values, V shift, V &not_finite)
{
    not_finite = not_finite + (values - values);
    return values - shift;
}

// Where `lead` is given, `to` is so many elements before an aligned one: vectors that are written must not lie across
// cache lines, which costs more than to read such.
template <class Real>
inline void take_finite_values(const Real *from, std::size_t n, const double *shift, double *to,
                               std::size_t lead, V &not_finite)
{
    const auto take = [&](std::size_t j) {
        store(to + j, shifted_if_finite(load(from + j), load(shift + j), not_finite));
    };
    std::size_t j = 0;
    if (lead > 0 && n > 4 * side_by_side) { // what is written twice shall be little
        take(0);
        j = lead;
    }
    for (; j + side_by_side <= n; j += side_by_side) take(j);
    if (j < n && n > side_by_side) {
        take(n - side_by_side); // again in part
        return;
    }
    for (; j < n; ++j) to[j] = shifted_if_finite(V{static_cast<double>(from[j])}, V{shift[j]}, not_finite)[0];
}

template <class Real>
inline void take_chosen_values(const Real *from, const std::size_t *columns, std::size_t n,
                               const double *shift, double *to, V &not_finite)
{
    const auto at = [&](std::size_t j) { return static_cast<double>(from[columns[j]]); };
    std::size_t j = 0;
    for (; j + side_by_side <= n; j += side_by_side)
        store(to + j,
              shifted_if_finite(V{at(j), at(j + 1), at(j + 2), at(j + 3)}, load(shift + j), not_finite));
    for (; j < n; ++j) to[j] = shifted_if_finite(V{at(j)}, V{shift[j]}, not_finite)[0];
}

// Reads n consecutive rows. False when some value is not finite. The source is copied so that the compiler sees it
// unchanged by what is written.
template <class Real>
inline bool take_finite_rows(const RowSource<Real> rows, std::size_t first, std::size_t n, std::size_t padded,
                             double *values)
{
    const auto one = static_cast<std::size_t>(rows.intercept);
    const std::size_t n_independent = rows.n_independent, n_dependent = rows.n_dependent;
    const double *shift = rows.shift + one;
    V not_finite = {};
    for (std::size_t k = 0; k < n; ++k, values += padded) {
        values[0] = 1; // what follows goes there without an intercept
        const Real *x = rows.x + (first + k) * rows.x_stride;
        if (rows.columns != nullptr) {
            take_chosen_values(x, rows.columns, n_independent + n_dependent, shift, values + one, not_finite);
            continue;
        }
        take_finite_values(x, n_independent, shift, values + one, one * (side_by_side - 1), not_finite);
        if (n_dependent > 0)
            take_finite_values(rows.y + (first + k) * rows.y_stride, n_dependent, shift + n_independent,
                               values + one + n_independent, 0, not_finite);
    }
    return !any(not_finite != V{});
}

// Returns false when a value is NaN.
template <class Real> inline bool take_row(const RowSource<Real> &rows, std::size_t i, double *to)
{
    if (take_finite_rows(rows, i, 1, 0, to)) return true;
    const bool chosen = rows.columns != nullptr;
    const Real *x = rows.x + i * rows.x_stride;
    const double *shift = rows.shift;
    bool complete = true;
    const auto take = [&](double value) {
        complete &= value == value;
        *to++ = shifted(value, *shift++);
    };
    if (rows.intercept) take(1);
    const std::size_t n_of_x = rows.n_independent + (chosen ? rows.n_dependent : 0);
    for (std::size_t j = 0; j < n_of_x; ++j) take(x[chosen ? rows.columns[j] : j]);
    for (std::size_t j = n_of_x; j < rows.n_independent + rows.n_dependent; ++j)
        take(rows.y[i * rows.y_stride + (j - n_of_x)]);
    return complete;
}

enum class MassKind { positive, none, missing, bad };

inline MassKind kind_of_mass(double f, double w)
{
    const double mass = f * w;
    if (mass > 0 && mass <= __DBL_MAX__ && f > 0) return MassKind::positive;
    if (f != f || w != w) return MassKind::missing;
    const bool finite = f <= __DBL_MAX__ && w <= __DBL_MAX__ && (mass <= __DBL_MAX__);
    return f >= 0 && w >= 0 && finite ? MassKind::none : MassKind::bad;
}

template <class Real> inline double frequency(const RowSource<Real> &rows, std::size_t i)
{
    return rows.frequencies != nullptr ? rows.frequencies[i * rows.frequency_stride] : 1;
}

template <class Real> inline double weight(const RowSource<Real> &rows, std::size_t i)
{
    return rows.weights != nullptr ? rows.weights[i * rows.weight_stride] : 1;
}

// The masses of n rows, 1 without frequencies and weights. False when one is not positive.
template <class Real>
inline bool take_masses(const RowSource<Real> &rows, std::size_t first, std::size_t n, const RowTarget &to)
{
    if (rows.frequencies == nullptr && rows.weights == nullptr) {
        for (std::size_t k = 0; k < n; ++k) to.weights[k * to.weight_stride] = 1;
        return true;
    }
    bool positive = true;
    for (std::size_t k = 0; k < n; ++k) {
        const double f = frequency(rows, first + k), w = weight(rows, first + k);
        positive &= kind_of_mass(f, w) == MassKind::positive;
        to.weights[k * to.weight_stride] = f * w;
    }
    return positive;
}

template <class Real>
inline void add_to_sums(const RowSource<Real> &rows, const double *values, double mass, RowTally &tally)
{
    tally.mass += mass;
    for (std::size_t j = 0; j < rows.n_independent + rows.n_dependent; ++j) tally.sums[j] += mass * values[j];
}

// Reads n consecutive rows. False when some row is to be left out, or looked at more closely.
template <class Real>
inline bool read_together(const RowSource<Real> &rows, std::size_t first, std::size_t n, const RowTarget &to,
                          RowTally &tally)
{
    if (!take_masses(rows, first, n, to) || !take_finite_rows(rows, first, n, to.padded, to.values))
        return false;
    double frequencies = 0; // apart, since for all the compiler knows the tally lies among the rows
    for (std::size_t k = 0; k < n; ++k) frequencies += frequency(rows, first + k);
    tally.frequencies += frequencies;
    for (std::size_t k = 0; tally.sums != nullptr && k < n; ++k)
        add_to_sums(rows, to.values + k * to.padded, to.weights[k * to.weight_stride], tally);
    return true;
}

// Reads row i unless it is to be left out. Returns how many rows that makes.
template <class Real>
inline std::size_t read_row(const RowSource<Real> &rows, std::size_t i, const RowTarget &to, RowTally &tally)
{
    const double f = frequency(rows, i), w = weight(rows, i);
    const MassKind kind = kind_of_mass(f, w);
    const auto row = static_cast<std::int64_t>(i);
    if (kind == MassKind::bad && (tally.first_bad < 0 || row < tally.first_bad)) tally.first_bad = row;
    if (kind == MassKind::bad || kind == MassKind::none) return 0;
    const bool missing = !take_row(rows, i, to.values) || kind == MassKind::missing;
    if (missing && rows.exclude_missing) {
        ++tally.missing;
        return 0;
    }
    *to.weights = f * w;
    tally.frequencies += f;
    if (tally.sums != nullptr) add_to_sums(rows, to.values, f * w, tally);
    return 1;
}

// A function that only fetched would be dropped as one without effect, were it not inlined.
template <class Real>
__attribute__((always_inline)) inline void fetch_row(const RowSource<Real> &rows, std::size_t i)
{
    const Real *x = rows.x + i * rows.x_stride;
    if (rows.columns != nullptr) {
        for (std::size_t j = 0; j < rows.n_independent + rows.n_dependent; ++j)
            __builtin_prefetch(x + rows.columns[j]);
    } else {
        for (std::size_t j = 0; j < rows.n_independent; j += 64 / sizeof(Real)) __builtin_prefetch(x + j);
        if (rows.n_dependent > 0) __builtin_prefetch(rows.y + i * rows.y_stride);
    }
}

template <class Real>
std::size_t read_rows(const RowSource<Real> &rows, std::int64_t &next, std::int64_t end, std::size_t most,
                      const RowTarget &to, RowTally &tally)
{
    constexpr std::size_t most_together = 8; // of which, with gaps in the data, not many are complete
    std::size_t used = 0;
    auto row = static_cast<std::size_t>(next);
    const auto rows_end = static_cast<std::size_t>(end);
    // The next tile's rows, since narrow rows are folded faster than they come from memory.
    const bool fetches = most == rows_per_tile && to.padded <= most_in_one_panel;
    const auto target = [&] {
        return RowTarget{to.values + used * to.padded, to.weights + used * to.weight_stride, to.padded,
                         to.weight_stride};
    };
    while (used < most && row < rows_end) {
        std::size_t n = most - used < rows_end - row ? most - used : rows_end - row;
        if (n > most_together) n = most_together;
        if (fetches && row + n + rows_per_tile <= rows_end) {
            for (std::size_t k = 0; k < n; ++k) fetch_row(rows, row + k + rows_per_tile);
        }
        if (read_together(rows, row, n, target(), tally)) {
            used += n;
            row += n;
            continue;
        }
        for (const std::size_t some_end = row + n; row < some_end; ++row)
            used += read_row(rows, row, target(), tally);
    }
    next = static_cast<std::int64_t>(row);
    return used;
}

} // namespace
} // namespace tavik::regression
