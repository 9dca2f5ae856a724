// From moments to statistics: the formulas, the cases in which they are not defined, and their warnings.
#pragma once

#include "frame/checkers.hpp"
#include "frame/precision.hpp"
#include "moments.hpp"
#include "simple_statistics_options.hpp"

#include "probability/chi_squared_quantile.hpp"
#include "probability/normal_quantile.hpp"
#include "probability/student_t_quantile.hpp"

#include <algorithm>

namespace tavik::descriptive {

// Rows of the result, from 0.
enum StatisticRow {
    row_mean,
    row_variance,
    row_deviation,
    row_skewness,
    row_kurtosis,
    row_minimum,
    row_maximum,
    row_range,
    row_variation,
    row_count,
    row_mean_lower,
    row_mean_upper,
    row_variance_lower,
    row_variance_upper,
    row_median,
    row_median_deviation,
    row_scale
};

// Quantiles of both intervals. They depend on the count and the levels alone, which most variables share, and
// most calls of a program with small samples: for those, the quantiles would be most of the work.
struct IntervalQuantiles {
    double mean_level = 0, variance_level = 0, degrees_of_freedom = 0; // that the quantiles are for
    double t = 0, lower_chi_squared = 0, upper_chi_squared = 0;        // NaN where there is none

    void prepare(double new_mean_level, double new_variance_level, double new_degrees_of_freedom)
    {
        if (new_mean_level == mean_level && new_variance_level == variance_level &&
            new_degrees_of_freedom == degrees_of_freedom)
            return;
        degrees_of_freedom = 0; // for none, should a trapped signal end this halfway
        mean_level = new_mean_level;
        variance_level = new_variance_level;
        // Through the tails, since a level near 100 percent leaves no digits of them beside 1.
        const double mean_tail = (100 - mean_level) / 200, variance_tail = (100 - variance_level) / 200;
        if (mean_level > 0) t = -probability::student_t_quantile(mean_tail, new_degrees_of_freedom);
        if (variance_level > 0) {
            upper_chi_squared =
                probability::chi_squared_upper_quantile(variance_tail, new_degrees_of_freedom);
            lower_chi_squared = probability::chi_squared_quantile(variance_tail, new_degrees_of_freedom);
        }
        degrees_of_freedom = new_degrees_of_freedom;
    }
};

template <class Real> class Finish {
public:
    // The result has the rows of the options at their stride; `weighted` when weights took part.
    Finish(const Moments &moments, std::size_t n_variables, bool weighted,
           const SimpleStatisticsOptions<Real> &options, Real *result)
        : moments_(moments), p_(n_variables), weighted_(weighted), options_(options), result_(result),
          stride_(static_cast<std::size_t>(options.stat_col_dim))
    {
    }

    void all() const
    {
        const bool none_counts = largest(Moments::count) <= 1;
        const bool none_weighs = weighted_ && largest(Moments::mass) < least_mass;
        if (none_counts) tavik_ermes(warning_immediate, 11067);
        if (none_weighs) tavik_ermes(warning_immediate, 11068);

        thread_local IntervalQuantiles quantiles;
        for (std::size_t j = 0; j < p_; ++j) {
            const double n = of(Moments::count, j);
            const bool counts = n > 1, weighs = !weighted_ || of(Moments::mass, j) >= least_mass;
            if (!counts && !none_counts) warn(11072, j);
            if (!weighs && !none_weighs) warn(11069, j);
            const double range = of(Moments::maximum, j) - of(Moments::minimum, j);
            set(row_minimum, j, of(Moments::minimum, j));
            set(row_maximum, j, of(Moments::maximum, j));
            set(row_range, j, range);
            set(row_count, j, n);
            // Without mass there is no mean either; the extremes tell whether there was a value at all.
            const bool located = weighs && n > 0 && !(of(Moments::mass, j) <= 0);
            const double mean = of(Moments::mean, j) + mean_low(j);
            set(row_mean, j, located ? mean : not_a_number<double>);
            for (int row : {row_variance, row_deviation, row_skewness, row_kurtosis, row_variation,
                            row_mean_lower, row_mean_upper, row_variance_lower, row_variance_upper})
                set(row, j, not_a_number<double>);
            if (!counts || !weighs) continue;

            const double variance = set_dispersion(j, range), deviation = std::sqrt(variance);
            set_variation(j, deviation, mean);
            quantiles.prepare(static_cast<double>(options_.mean_level),
                              static_cast<double>(options_.variance_level), n - 1);
            if (options_.mean_level > 0) set_mean_limits(j, mean, deviation, n, quantiles);
            if (options_.variance_level > 0) set_variance_limits(j, variance, n, quantiles);
        }
    }

    void set_medians(const Real *center, const Real *deviation) const
    {
        static const Real normal_quartile = probability::normal_quantile(Real{0.75});
        for (std::size_t j = 0; j < p_; ++j) {
            at(row_median, j) = center[j];
            if (options_.medians != MedianRows::median_and_scale) continue;
            at(row_median_deviation, j) = deviation[j];
            at(row_scale, j) = deviation[j] / normal_quartile;
        }
    }

private:
    static constexpr double tiny = static_cast<double>(smallest_normal<Real>);
    static constexpr double least_mass = 10 * static_cast<double>(epsilon<Real>);

    double of(Moments::Field field, std::size_t j) const
    {
        return moments_[field][j];
    }

    double mean_low(std::size_t j) const
    {
        return std::isfinite(of(Moments::mean, j)) ? of(Moments::mean_low, j) : 0;
    }

    double largest(Moments::Field field) const
    {
        return *std::max_element(moments_[field], moments_[field] + p_);
    }

    Real &at(int row, std::size_t j) const
    {
        return result_[static_cast<std::size_t>(row) * stride_ + j];
    }

    void set(int row, std::size_t j, double value) const
    {
        at(row, j) = std::isnan(value) ? not_a_number<Real> : static_cast<Real>(value);
    }

    static void warn(long code, std::size_t j)
    {
        tavik_e1sti(1, static_cast<int>(j + 1));
        tavik_ermes(warning_immediate, code);
    }

    // Rows 2 to 5; returns the variance.
    double set_dispersion(std::size_t j, double range) const
    {
        const double n = of(Moments::count, j), m2 = of(Moments::m2, j);
        if (of(Moments::minimum, j) == of(Moments::maximum, j)) {
            for (int row : {row_variance, row_deviation, row_skewness, row_kurtosis}) set(row, j, 0);
            warn(11076, j);
            return 0;
        }
        if (range < std::sqrt(tiny)) {
            set(row_variance, j, 0);
            set(row_deviation, j, 0);
            warn(11073, j);
            return 0;
        }
        const double variance = m2 / (weighted_ ? of(Moments::divisor, j) : n - 1);
        set(row_variance, j, variance);
        set(row_deviation, j, std::sqrt(variance));
        if (m2 <= 0) warn(11077, j);
        else set_shape(j, range, m2, n);
        return variance;
    }

    // Rows 4 and 5. Successive divisions stand in where a power of the deviation would underflow.
    void set_shape(std::size_t j, double range, double m2, double n) const
    {
        static const double cube_root = std::cbrt(tiny), fourth_root = std::sqrt(std::sqrt(tiny));
        if (range < cube_root) {
            warn(11074, j);
            return;
        }
        const double m3 = of(Moments::m3, j), m4 = of(Moments::m4, j);
        const double s2 = m2 / n, s = std::sqrt(s2);
        const bool cube_underflows = 3 * std::log(s) < std::log(tiny);
        set(row_skewness, j, cube_underflows ? m3 / (n * s) / s / s : m3 / (n * (s * s2)));
        if (range < fourth_root) {
            warn(11075, j);
            return;
        }
        const bool square_underflows = 2 * std::log(s2) < std::log(tiny);
        set(row_kurtosis, j, (square_underflows ? m4 / (n * s2) / s2 : m4 / (n * (s2 * s2))) - 3);
    }

    void set_variation(std::size_t j, double deviation, double mean) const
    {
        const double quotient = tavik_dc1div(deviation, mean);
        set(row_variation, j, std::fabs(quotient) < tiny ? 0 : quotient);
        if (std::isnan(quotient)) warn(11078, j);
    }

    void set_mean_limits(std::size_t j, double mean, double deviation, double n,
                         const IntervalQuantiles &q) const
    {
        if (!(deviation >= 0)) {
            warn(11079, j);
        } else if (std::isnan(q.t)) {
            warn(11080, j);
        } else {
            const double half_width = deviation * q.t / std::sqrt(n);
            set(row_mean_lower, j, mean - half_width);
            set(row_mean_upper, j, mean + half_width);
        }
    }

    void set_variance_limits(std::size_t j, double variance, double n, const IntervalQuantiles &q) const
    {
        if (!(variance >= 0)) {
            warn(11081, j);
            return;
        }
        const double sum = (n - 1) * variance;
        if (std::isnan(q.upper_chi_squared) || std::isnan(q.lower_chi_squared)) warn(11082, j);
        set(row_variance_lower, j, sum / q.upper_chi_squared);
        set(row_variance_upper, j, sum / q.lower_chi_squared);
    }

    Moments moments_;
    std::size_t p_;
    bool weighted_;
    const SimpleStatisticsOptions<Real> &options_;
    Real *result_;
    std::size_t stride_;
};

} // namespace tavik::descriptive
