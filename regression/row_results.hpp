// Results for each row of the call: residuals and leverages.
#pragma once

#include "solution.hpp"

#include "frame/parallel.hpp"

namespace tavik::regression {

// The caller's rows, one element at a time: rows without mass, too, have a residual.
template <class Real> struct RowReader {
    const RowSource<Real> &rows;

    Real element(std::size_t i, std::size_t j) const // the independent variables, then the responses
    {
        if (rows.columns != nullptr) return rows.x[i * rows.x_stride + rows.columns[j]];
        return j < rows.n_independent ? rows.x[i * rows.x_stride + j]
                                      : rows.y[i * rows.y_stride + j - rows.n_independent];
    }

    Real weight(std::size_t i) const
    {
        return rows.weights != nullptr ? rows.weights[i * rows.weight_stride] : 1;
    }

    bool is_missing(std::size_t i) const
    {
        if (rows.frequencies != nullptr && std::isnan(rows.frequencies[i * rows.frequency_stride]))
            return true;
        if (std::isnan(weight(i))) return true;
        for (std::size_t j = 0; j < rows.n_independent + rows.n_dependent; ++j) {
            if (std::isnan(element(i, j))) return true;
        }
        return false;
    }
};

// Calls body(i, thread) for every row; rows are cut into pieces for several threads.
template <class Body> void for_each_row(std::int64_t n_rows, int threads, const Body &body)
{
    constexpr std::int64_t piece = 1024;
    OrderedPieces pieces((n_rows + piece - 1) / piece);
    parallel(threads, [&](int thread) {
        for (std::int64_t k = pieces.take(); k >= 0; k = pieces.take()) {
            const std::int64_t end = std::min((k + 1) * piece, n_rows);
            for (std::int64_t i = k * piece; i < end; ++i) body(static_cast<std::size_t>(i), thread);
        }
    });
}

inline int row_threads(std::int64_t n_rows, std::size_t values_per_row)
{
    constexpr std::int64_t least_rows = 1024;
    return thread_count(n_rows / least_rows, n_rows * static_cast<std::int64_t>(values_per_row));
}

template <class Real>
void set_residuals(const RowSource<Real> &rows, std::int64_t n_rows, const Solution<Real> &solution,
                   Real *residuals)
{
    const RowReader<Real> reader{rows};
    const std::size_t p = rows.n_independent, q = rows.n_dependent, first = rows.intercept ? 1 : 0;
    const auto shifted = [&](std::size_t i, std::size_t j) {
        return static_cast<long double>(reader.element(i, j)) -
               static_cast<long double>(solution.shift()[first + j]);
    };
    for_each_row(n_rows, row_threads(n_rows, p + q), [&](std::size_t i, int) {
        const bool missing = reader.is_missing(i);
        for (std::size_t c = 0; c < q; ++c) {
            const long double *b = solution.coefficients(c) + first;
            long double rest = shifted(i, p + c) - solution.shifted_intercept(c);
            for (std::size_t j = 0; j < p; ++j) rest -= b[j] * shifted(i, j);
            residuals[i * q + c] = missing ? not_a_number<Real> : static_cast<Real>(rest);
        }
    });
}

// Leverages, w |D^-1/2 R'^-1 x|^2, from shifted data by forward substitution.
template <class Real> class Leverages {
public:
    // False, with an error, without memory.
    bool prepare(const Fit &fit, std::int64_t n_rows, Workspace &workspace)
    {
        n_ = fit.shape.n_coefficients();
        n_rows_ = n_rows;
        threads_ = row_threads(n_rows, n_ * n_ / 4 + 1);
        in_long_double_ = fit.factor.loses_digits();
        const std::size_t size = in_long_double_ ? memory_size<long double>() : memory_size<double>();
        memory_ = workspace.array<char>(size, "n_independent");
        return memory_ != nullptr;
    }

    void write(const RowSource<Real> &rows, const Solution<Real> &solution, Real *leverages) const
    {
        if (in_long_double_) write_by<long double>(rows, solution, leverages);
        else write_by<double>(rows, solution, leverages);
    }

private:
    // A row a thread, in cache lines of its own.
    template <class T> std::size_t row_stride() const
    {
        constexpr std::size_t line = 64 / sizeof(T);
        return (n_ + line - 1) / line * line;
    }

    // The factor, the reciprocals of its diagonal and scale factors, the rows.
    template <class T> std::size_t memory_size() const
    {
        return (n_ + 2 + static_cast<std::size_t>(threads_)) * row_stride<T>() * sizeof(T);
    }

    template <class T>
    void write_by(const RowSource<Real> &rows, const Solution<Real> &solution, Real *leverages) const
    {
        const RowReader<Real> reader{rows};
        const std::size_t n = n_, stride = row_stride<T>(), first = rows.intercept ? 1 : 0;
        T *factor = reinterpret_cast<T *>(memory_);
        T *reciprocal_diagonal = factor + n * stride, *reciprocal_scale = reciprocal_diagonal + stride;
        for (std::size_t i = 0; i < n; ++i) { // 0 for dependent columns, which have no part in the leverage
            const long double *r = solution.shifted_row(i);
            const bool dependent = solution.is_dependent(i);
            reciprocal_diagonal[i] = dependent ? 0 : static_cast<T>(1 / r[i]);
            reciprocal_scale[i] = dependent ? 0 : static_cast<T>(1 / solution.scale(i));
            for (std::size_t j = i; j < n; ++j) factor[i * stride + j] = static_cast<T>(r[j]);
        }
        for_each_row(n_rows_, threads_, [&](std::size_t i, int thread) {
            T *rest = reciprocal_scale + (1 + static_cast<std::size_t>(thread)) * stride, sum = 0;
            if (rows.intercept) rest[0] = 1;
            for (std::size_t j = first; j < n; ++j)
                rest[j] = static_cast<T>(reader.element(i, j - first)) - static_cast<T>(solution.shift()[j]);
            for (std::size_t j = 0; j < n; ++j) {
                const T *r = factor + j * stride, z = rest[j] * reciprocal_diagonal[j];
                sum += z * z * reciprocal_scale[j];
                for (std::size_t k = j + 1; k < n; ++k) rest[k] -= z * r[k];
            }
            leverages[i] = reader.is_missing(i) ? not_a_number<Real>
                                                : static_cast<Real>(sum * static_cast<T>(reader.weight(i)));
        });
    }

    std::size_t n_ = 0;
    std::int64_t n_rows_ = 0;
    int threads_ = 1;
    bool in_long_double_ = false;
    char *memory_ = nullptr;
};

} // namespace tavik::regression
