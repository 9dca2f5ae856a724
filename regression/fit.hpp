// A fit in progress, and the series of staged calls that a thread may have open.
#pragma once

#include "factor.hpp"

#include "frame/internal.h"
#include "frame/thread_exit.hpp"

#include <algorithm>
#include <cstdint>

namespace tavik::regression {

// What rows are: their numbers of variables, and whether a column of ones stands before them.
struct Shape {
    int n_independent, n_dependent;
    bool intercept;

    std::size_t n_coefficients() const
    {
        return static_cast<std::size_t>(n_independent) + intercept;
    }

    std::size_t n_columns() const
    {
        return n_coefficients() + static_cast<std::size_t>(n_dependent);
    }

    bool operator==(const Shape &) const = default;
};

// Wider factors would not fit the address space.
constexpr std::size_t most_columns = std::size_t{1} << 23;

struct Fit {
    Shape shape;
    Factor factor;
    FactorSet many;    // four factors of rows that came many at once, and are not in `factor` yet
    bool has_many;     // or they are not even cleared
    double *shift;     // of the columns, subtracted from every row; 0 without an intercept
    bool shift_known;  // some row was used
    long double *sums; // of values times masses, without an intercept
    long double mass, frequencies, most_frequencies; // the last is the most that there have been
    bool with_frequencies;                           // not every row counted once
    std::int64_t missing;                            // rows left out because of a NaN
    void *callers_pointer;                           // kept for the caller
};

// Bytes of a fit's arrays; n_columns is at most most_columns.
constexpr std::size_t fit_memory_size(std::size_t n_columns)
{
    return factors_size(n_columns, side_by_side) * sizeof(double) +
           (Factor::memory_size(n_columns) + n_columns) * sizeof(long double) + n_columns * sizeof(double);
}

// A fit without rows in memory of that size.
inline void start(Fit &fit, const Shape &shape, void *memory)
{
    const std::size_t n = shape.n_columns();
    auto *four_factors = static_cast<double *>(memory); // first, since vectors want aligned memory
    auto *numbers = reinterpret_cast<long double *>(four_factors + factors_size(n, side_by_side));
    fit = {};
    fit.shape = shape;
    fit.many = factors_in_memory(n, side_by_side, four_factors);
    fit.factor.start(n, numbers);
    fit.sums = numbers + Factor::memory_size(n);
    fit.shift = reinterpret_cast<double *>(fit.sums + n);
    std::fill_n(fit.sums, n, 0.0L);
    std::fill_n(fit.shift, n, 0.0);
}

// Back to no rows, exactly.
inline void forget_rows(Fit &fit)
{
    fit.factor.clear();
    fit.has_many = false;
    std::fill_n(fit.sums, fit.factor.n_columns(), 0.0L);
    fit.mass = fit.frequencies = fit.most_frequencies = 0;
}

inline void forget_shift(Fit &fit)
{
    std::fill_n(fit.shift, fit.factor.n_columns(), 0.0);
    fit.shift_known = false;
}

struct Series {
    bool open;
    Fit fit;
    void *memory;
    ThreadExit at_thread_exit;
};

inline void close_series(Series &series)
{
    tavik_aligned_free(series.memory);
    series.memory = nullptr;
    series.open = false;
}

// One series a thread and element type.
template <class Real> Series &thread_series()
{
    thread_local Series series{
        false, {}, nullptr, {[] { close_series(thread_series<Real>()); }, false, nullptr}};
    return series;
}

} // namespace tavik::regression
