// The analysis-of-variance table of one response.
#pragma once

#include "solution.hpp"

#include "probability/tail_probabilities.hpp"

namespace tavik::regression {

inline float quotient(float a, float b)
{
    return tavik_c1div(a, b);
}

inline double quotient(double a, double b)
{
    return tavik_dc1div(a, b);
}

inline void check_not_negative(const char *name, float x, int *position)
{
    tavik_c1ge0(name, x, position);
}

inline void check_not_negative(const char *name, double x, int *position)
{
    tavik_dc1ge0(name, x, position);
}

namespace anova {
enum Entry {
    dfr,
    dfe,
    df_total,
    ssr,
    sse,
    ss_total,
    msr,
    mse,
    f,
    p,
    r2,
    adjusted_r2,
    sd,
    mean,
    cv,
    n_entries
};
} // namespace anova

template <class Real> Real p_of_f(Real f, Real dfr, Real dfe)
{
    if (f == infinity<Real>) return 1; // of a perfect fit, on purpose
    return static_cast<Real>(probability::f_upper_tail(f, dfr, dfe));
}

// The degrees of freedom and sums of squares. False when one is negative; that error is raised. NaN, which missing values
// that were kept leave, may pass.
template <class Real> bool set_sums(const Solution<Real> &solution, std::size_t c, Real *table)
{
    table[anova::dfr] = static_cast<Real>(solution.regression_degrees_of_freedom());
    table[anova::dfe] = static_cast<Real>(solution.error_degrees_of_freedom());
    table[anova::ssr] = static_cast<Real>(solution.regression_square(c));
    table[anova::sse] = static_cast<Real>(solution.error_crossproduct(c, c));
    const struct {
        const char *name;
        Real value;
    } checked[] = {{"DFR", table[anova::dfr]},
                   {"SSR", table[anova::ssr]},
                   {"DFE", table[anova::dfe]},
                   {"SSE", table[anova::sse]}};
    int position = 0;
    for (const auto &[name, value] : checked) {
        if (!std::isnan(value)) check_not_negative(name, value, &position);
        if (fatal_pending()) return false;
    }
    return true;
}

template <class Real> void set_anova(const Solution<Real> &solution, std::size_t c, Real *table)
{
    using namespace anova;
    if (!set_sums(solution, c, table)) return;
    table[df_total] = table[dfr] + table[dfe];
    table[ss_total] = table[ssr] + table[sse];
    table[msr] = quotient(table[ssr], table[dfr]);
    table[mse] = quotient(table[sse], table[dfe]);
    table[f] = quotient(table[msr], table[mse]);
    table[p] = p_of_f(table[f], table[dfr], table[dfe]);
    table[r2] = 100 * quotient(table[ssr], table[ss_total]);
    const Real ratio = quotient(table[mse], quotient(table[ss_total], table[df_total]));
    table[adjusted_r2] = ratio > 1 ? 0 : 100 * (1 - ratio);
    table[sd] = std::isnan(table[mse]) ? not_a_number<Real> : std::sqrt(table[mse]);
    table[mean] = static_cast<Real>(solution.mean(solution.n_coefficients() + c));
    table[cv] = std::isnan(table[mse]) ? not_a_number<Real> : 100 * quotient(table[sd], table[mean]);
}

} // namespace tavik::regression
