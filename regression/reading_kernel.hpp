// Kernels that read the caller's rows: consecutive rows of finite values in one go, and where that fails the same rows
// one by one, leaving out what is missing or has no mass.

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
inline V shifted(V values, V shift, V &not_finite)
{
    not_finite = not_finite + (values - values);
    return values - shift;
}

template <class Real>
inline void take_finite_values(const Real *from, std::size_t n, const double *shift, double *to,
                               V &not_finite)
{
    const auto take = [&](std::size_t j) {
        store(to + j, shifted(load(from + j), load(shift + j), not_finite));
    };
    std::size_t j = 0;
    for (; j + side_by_side <= n; j += side_by_side) take(j);
    if (j == n) return;
    if (n > side_by_side) return take(n - side_by_side); // again in part
    for (; j < n; ++j) to[j] = shifted(V{static_cast<double>(from[j])}, V{shift[j]}, not_finite)[0];
}

// Reads n consecutive rows. False when some value is not finite. The source is copied so that the compiler sees it
// unchanged by what is written.
template <class Real>
inline bool take_finite_rows(const RowSource<Real> rows, std::int64_t first, std::size_t n,
                             std::size_t padded, double *values)
{
    const auto row = static_cast<std::size_t>(first), one = static_cast<std::size_t>(rows.intercept);
    const std::size_t n_independent = rows.n_independent, n_dependent = rows.n_dependent;
    const Real *x = rows.x + row * rows.x_stride, *y = rows.y + row * n_dependent;
    const double *shift = rows.shift + one;
    V not_finite = {};
    for (std::size_t k = 0; k < n; ++k, x += rows.x_stride, y += n_dependent, values += padded) {
        values[0] = 1; // or, without an intercept, what follows
        take_finite_values(x, n_independent, shift, values + one, not_finite);
        take_finite_values(y, n_dependent, shift + n_independent, values + one + n_independent, not_finite);
    }
    return !any(not_finite != V{});
}

// Returns false when a value is NaN.
template <class Real> inline bool take_row(const RowSource<Real> &rows, std::size_t i, double *to)
{
    const Real *x = rows.x + i * rows.x_stride, *y = rows.y + i * rows.n_dependent;
    const double *shift = rows.shift;
    const std::size_t n = rows.n_independent + rows.n_dependent;
    if (rows.intercept) {
        *to++ = 1;
        ++shift;
    }
    bool complete = true;
    for (std::size_t j = 0; j < n; ++j) {
        const double v = rows.columns != nullptr  ? x[rows.columns[j]]
                         : j < rows.n_independent ? x[j]
                                                  : y[j - rows.n_independent];
        complete &= v == v;
        to[j] = shifted(v, shift[j]);
    }
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

// The masses of n rows. False when one is not positive.
template <class Real>
inline bool take_masses(const RowSource<Real> &rows, std::size_t first, std::size_t n, const RowTarget &to)
{
    bool positive = true;
    for (std::size_t k = 0; k < n; ++k) {
        const double f = frequency(rows, first + k), w = weight(rows, first + k);
        positive &= kind_of_mass(f, w) == MassKind::positive;
        to.weights[k * to.weight_stride] = f * w;
    }
    return positive;
}

template <class Real>
inline void count_row(const RowSource<Real> &rows, std::size_t i, const double *values, double mass,
                      RowTally &tally)
{
    tally.frequencies += frequency(rows, i);
    if (tally.sums == nullptr) return;
    tally.mass += mass;
    for (std::size_t j = 0; j < rows.n_independent + rows.n_dependent; ++j) tally.sums[j] += mass * values[j];
}

// Reads n consecutive rows. False when some row is to be left out, or looked at more closely.
template <class Real>
inline bool read_together(const RowSource<Real> &rows, std::int64_t first, std::size_t n, const RowTarget &to,
                          RowTally &tally)
{
    const auto row = static_cast<std::size_t>(first);
    if (rows.columns != nullptr || !take_masses(rows, row, n, to) ||
        !take_finite_rows(rows, first, n, to.padded, to.values))
        return false;
    for (std::size_t k = 0; k < n; ++k)
        count_row(rows, row + k, to.values + k * to.padded, to.weights[k * to.weight_stride], tally);
    return true;
}

template <class Real>
std::size_t read_rows(const RowSource<Real> &rows, std::int64_t &next, std::int64_t end, std::size_t most,
                      const RowTarget &to, RowTally &tally)
{
    const auto left = static_cast<std::size_t>(end - next), together = most < left ? most : left;
    if (read_together(rows, next, together, to, tally)) {
        next += static_cast<std::int64_t>(together);
        return together;
    }
    std::size_t used = 0;
    for (; used < most && next < end; ++next) {
        const auto i = static_cast<std::size_t>(next);
        const double f = frequency(rows, i), w = weight(rows, i);
        const MassKind kind = kind_of_mass(f, w);
        if (kind == MassKind::bad && (tally.first_bad < 0 || next < tally.first_bad)) tally.first_bad = next;
        if (kind == MassKind::bad || kind == MassKind::none) continue;
        double *values = to.values + used * to.padded;
        const bool missing = !take_row(rows, i, values) || kind == MassKind::missing;
        if (missing && rows.exclude_missing) {
            ++tally.missing;
            continue;
        }
        to.weights[used * to.weight_stride] = f * w;
        count_row(rows, i, values, f * w, tally);
        ++used;
    }
    return used;
}

} // namespace
} // namespace tavik::regression
