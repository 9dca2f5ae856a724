// solve(): from a fit's factor to its rank and coefficients, and the sums that all other results are made of.
#pragma once

#include "fit.hpp"
#include "regress_options.hpp"

#include "frame/error.hpp"
#include "frame/workspace.hpp"

#include <algorithm>
#include <cmath>

namespace tavik::regression {

template <class Real> class Solution {
public:
    // Uses the fit's factor up: rows of dependent columns are dissolved. False, with an error, without memory.
    bool solve(Fit &fit, Real tolerance, Workspace &workspace)
    {
        fit_ = &fit;
        n_ = fit.shape.n_coefficients();
        first_ = fit.shape.intercept ? 1 : 0;
        responses_ = static_cast<std::size_t>(fit.shape.n_dependent);
        const std::size_t columns = n_ + responses_;
        first_row_ = workspace.array<long double>(2 * columns + (n_ + 1) * responses_, "n_independent");
        dependent_ = workspace.array<bool>(n_, "n_independent");
        if (fatal_pending()) return false;
        squares_ = first_row_ + columns;
        coefficients_ = squares_ + columns;
        shifted_intercepts_ = coefficients_ + n_ * responses_;
        unshift_first_row();
        find_rank(static_cast<long double>(tolerance));
        for (std::size_t c = 0; c < responses_; ++c) find_coefficients(c);
        return true;
    }

    std::size_t n_coefficients() const
    {
        return n_;
    }

    std::size_t n_responses() const
    {
        return responses_;
    }

    std::size_t rank() const
    {
        return rank_;
    }

    bool is_dependent(std::size_t j) const
    {
        return dependent_[j];
    }

    // Of response c, for data as the caller has them.
    const long double *coefficients(std::size_t c) const
    {
        return coefficients_ + c * n_;
    }

    // The first of them for shifted data; 0 without an intercept.
    long double shifted_intercept(std::size_t c) const
    {
        return shifted_intercepts_[c];
    }

    // Row i of the factor of the data as the caller has them.
    const long double *row(std::size_t i) const
    {
        return i == 0 ? first_row_ : fit_->factor.row(i);
    }

    long double scale(std::size_t i) const
    {
        return fit_->factor.scale(i);
    }

    // Row i of the factor of shifted data.
    const long double *shifted_row(std::size_t i) const
    {
        return fit_->factor.row(i);
    }

    const double *shift() const
    {
        return fit_->shift;
    }

    long double mean(std::size_t column) const
    {
        if (first_ == 1) return dependent_[0] ? std::nanl("") : first_row_[column] / first_row_[0];
        return fit_->mass != 0 ? fit_->sums[column] / fit_->mass : std::nanl("");
    }

    // Sum of squares that the independent variables account for.
    long double regression_square(std::size_t c) const
    {
        return fit_->factor.crossproduct(first_, n_, n_ + c, n_ + c);
    }

    // The rank less the intercept; -1 with an intercept, but no row to fit it to.
    long double regression_degrees_of_freedom() const
    {
        return static_cast<long double>(rank_) - static_cast<long double>(first_);
    }

    // Crossproduct of the residuals of two responses. Residuals below half a unit in the last place of their response
    // are its rounding, and count as 0; how it is shifted, the rounding has been as small as that.
    long double error_crossproduct(std::size_t a, std::size_t b) const
    {
        const auto of = [this](std::size_t c, std::size_t d) {
            return fit_->factor.crossproduct(n_, n_ + responses_, n_ + c, n_ + d);
        };
        constexpr long double rounding = static_cast<long double>(epsilon<double>) / 2; // of the arithmetic
        for (const std::size_t c : {a, b}) {
            const long double square = fit_->factor.crossproduct(0, n_ + c + 1, n_ + c, n_ + c);
            if (of(c, c) <= rounding * rounding * square) return 0;
        }
        return of(a, b);
    }

    long double error_degrees_of_freedom() const
    {
        constexpr long double rounding = 1e-12L; // of a sum of fractional frequencies
        const long double left = fit_->frequencies - static_cast<long double>(rank_);
        return std::fabs(left) <= rounding * fit_->frequencies ? 0 : left;
    }

private:
    void unshift_first_row()
    {
        const long double *row = fit_->factor.row(0);
        for (std::size_t j = 0; j < n_ + responses_; ++j)
            first_row_[j] = row[j] + row[0] * static_cast<long double>(j < first_ ? 0 : fit_->shift[j]);
    }

    // A column whose own square is nothing beside the whole is dependent on those before it; before the intercept there
    // is none, whatever the tolerance. What a dependent column's row holds of later columns belongs to their squares.
    void find_rank(long double tolerance)
    {
        const auto &factor = fit_->factor;
        const std::size_t columns = n_ + responses_;
        for (std::size_t j = 0; j < columns; ++j)
            squares_[j] = factor.scale(0) * first_row_[j] * first_row_[j];
        for (std::size_t i = 1; i < columns; ++i) {
            for (std::size_t j = i; j < columns; ++j)
                squares_[j] += factor.scale(i) * factor.row(i)[j] * factor.row(i)[j];
        }
        rank_ = n_;
        for (std::size_t j = 0; j < n_; ++j) {
            const long double diagonal = factor.row(j)[j], own = factor.scale(j) * diagonal * diagonal;
            dependent_[j] = own == 0 || (j >= first_ && own <= tolerance * tolerance * squares_[j]);
            if (!dependent_[j]) continue;
            --rank_;
            fit_->factor.dissolve_row(j);
            if (j == 0) std::fill_n(first_row_, columns, 0.0L);
        }
    }

    // By back substitution from shifted data; then the intercept makes up for the shift.
    void find_coefficients(std::size_t c)
    {
        long double *b = coefficients_ + c * n_;
        for (std::size_t j = n_; j-- > 0;) {
            const long double *r = fit_->factor.row(j);
            long double rest = r[n_ + c];
            for (std::size_t k = j + 1; k < n_; ++k) rest -= r[k] * b[k];
            b[j] = dependent_[j] ? 0 : rest / r[j];
        }
        shifted_intercepts_[c] = first_ == 1 ? b[0] : 0;
        if (first_ == 0 || dependent_[0]) return;
        b[0] += static_cast<long double>(fit_->shift[n_ + c]);
        for (std::size_t k = 1; k < n_; ++k) b[0] -= b[k] * static_cast<long double>(fit_->shift[k]);
    }

    Fit *fit_ = nullptr;
    std::size_t n_ = 0, first_ = 0, responses_ = 0, rank_ = 0;
    long double *first_row_ = nullptr, *squares_ = nullptr, *coefficients_ = nullptr,
                *shifted_intercepts_ = nullptr;
    bool *dependent_ = nullptr;
};

} // namespace tavik::regression
