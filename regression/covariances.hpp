// What rests on the inverse of X'WX: covariances of the coefficients, their standard errors and tests.
#pragma once

#include "solution.hpp"

#include "probability/tail_probabilities.hpp"

namespace tavik::regression {

// The inverse of R, its column k as row k of an array; columns of dependent variables are 0.
template <class Real> class InverseFactor {
public:
    // False, with an error, without memory.
    bool prepare(std::size_t n_coefficients, Workspace &workspace)
    {
        n_ = n_coefficients;
        inverse_ = workspace.array<long double>(n_ * n_, "n_independent");
        product_ = workspace.array<long double>(n_ * n_, "n_independent");
        return !fatal_pending();
    }

    void compute(const Solution<Real> &solution)
    {
        solution_ = &solution;
        std::fill_n(inverse_, n_ * n_, 0.0L);
        for (std::size_t k = 0; k < n_; ++k) {
            if (solution.is_dependent(k)) continue;
            long double *column = inverse_ + k * n_;
            column[k] = 1 / solution.row(k)[k];
            for (std::size_t i = k; i-- > 0;) {
                if (solution.is_dependent(i)) continue;
                const long double *r = solution.row(i);
                long double sum = 0;
                for (std::size_t j = i + 1; j <= k; ++j) sum += r[j] * column[j];
                column[i] = -sum / r[i];
            }
        }
    }

    // Element (i, i) of the inverse of X'WX.
    long double diagonal(std::size_t i) const
    {
        long double sum = 0;
        for (std::size_t k = i; k < n_; ++k) {
            const long double u = inverse_[k * n_ + i];
            if (u != 0) sum += u * u / solution_->scale(k);
        }
        return sum;
    }

    // That whole inverse, its lower triangle.
    const long double *product() const
    {
        std::fill_n(product_, n_ * n_, 0.0L);
        for (std::size_t k = 0; k < n_; ++k) {
            if (solution_->is_dependent(k)) continue;
            const long double *u = inverse_ + k * n_;
            for (std::size_t i = 0; i <= k; ++i) {
                const long double factor = u[i] / solution_->scale(k);
                for (std::size_t j = 0; j <= i; ++j) product_[i * n_ + j] += factor * u[j];
            }
        }
        return product_;
    }

private:
    const Solution<Real> *solution_ = nullptr;
    std::size_t n_ = 0;
    long double *inverse_ = nullptr, *product_ = nullptr;
};

// NaN with fewer rows, by frequency, than coefficients.
template <class Real> long double error_variance(const Solution<Real> &solution, std::size_t c)
{
    const long double df = solution.error_degrees_of_freedom();
    return df < 0 ? not_a_number<long double> : guarded_quotient(solution.error_crossproduct(c, c), df);
}

template <class Real>
void set_covariances(const Solution<Real> &solution, const InverseFactor<Real> &inverse, std::size_t stride,
                     Real *covariances)
{
    const std::size_t n = solution.n_coefficients();
    const long double *product = inverse.product();
    for (std::size_t c = 0; c < solution.n_responses(); ++c, covariances += n * stride) {
        const long double variance = error_variance(solution, c);
        for (std::size_t i = 0; i < n; ++i) {
            for (std::size_t j = 0; j < n; ++j) {
                const bool dependent = solution.is_dependent(i) || solution.is_dependent(j);
                const long double element = i >= j ? product[i * n + j] : product[j * n + i];
                covariances[i * stride + j] = dependent ? 0 : static_cast<Real>(variance * element);
            }
        }
    }
}

// Estimate, standard error, t and two-sided p of every coefficient.
template <class Real>
void set_statistics(const Solution<Real> &solution, const InverseFactor<Real> &inverse, Real *statistics)
{
    const auto df = static_cast<double>(solution.error_degrees_of_freedom());
    for (std::size_t c = 0; c < solution.n_responses(); ++c) {
        const long double variance = error_variance(solution, c);
        for (std::size_t j = 0; j < solution.n_coefficients(); ++j, statistics += 4) {
            const bool dependent = solution.is_dependent(j);
            const long double estimate = solution.coefficients(c)[j];
            const long double error = dependent ? 0 : std::sqrt(variance * inverse.diagonal(j));
            const auto t = static_cast<double>(dependent ? not_a_number<long double>
                                                         : guarded_quotient(estimate, error));
            statistics[0] = static_cast<Real>(estimate);
            statistics[1] = static_cast<Real>(error);
            statistics[2] = static_cast<Real>(t);
            statistics[3] = static_cast<Real>(probability::student_t_two_sided(t, df));
        }
    }
}

} // namespace tavik::regression
