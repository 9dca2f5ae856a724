// The analysis-of-variance table of one response.
#pragma once

#include "solution.hpp"

#include "probability/tail_probabilities.hpp"

namespace tavik::regression {

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

// False when one of degrees of freedom and sums of squares is negative; that error is raised. NaN, which missing
// values that were kept leave, may pass.
template <class Real> bool check_sums(const Solution<Real> &solution, std::size_t c)
{
    const struct {
        const char *name;
        long double value;
    } checked[] = {{"DFR", solution.regression_degrees_of_freedom()},
                   {"SSR", solution.regression_square(c)},
                   {"DFE", solution.error_degrees_of_freedom()},
                   {"SSE", solution.error_crossproduct(c, c)}};
    int position = 0;
    for (const auto &[name, value] : checked) {
        if (!std::isnan(value)) check_not_negative(name, static_cast<Real>(value), &position);
        if (fatal_pending()) return false;
    }
    return true;
}

// In long double to the end: a square may not fit the type, and what follows from it does.
template <class Real> void set_anova(const Solution<Real> &solution, std::size_t c, Real *entries)
{
    using namespace anova;
    constexpr long double nan = not_a_number<long double>;
    long double table[n_entries];
    table[dfr] = solution.regression_degrees_of_freedom();
    table[dfe] = solution.error_degrees_of_freedom();
    table[df_total] = table[dfr] + table[dfe];
    table[ssr] = solution.regression_square(c);
    table[sse] = solution.error_crossproduct(c, c);
    table[ss_total] = table[ssr] + table[sse];
    table[msr] = guarded_quotient(table[ssr], table[dfr]);
    table[mse] = guarded_quotient(table[sse], table[dfe]);
    table[f] = guarded_quotient(table[msr], table[mse]);
    const auto f_of_type = static_cast<Real>(table[f]);
    table[p] = f_of_type == infinity<Real> // of a perfect fit 1, on purpose
                   ? 1
                   : probability::f_upper_tail(static_cast<double>(table[f]), static_cast<double>(table[dfr]),
                                               static_cast<double>(table[dfe]));
    table[r2] = 100 * guarded_quotient(table[ssr], table[ss_total]);
    const long double ratio =
        guarded_quotient(table[mse], guarded_quotient(table[ss_total], table[df_total]));
    table[adjusted_r2] = ratio > 1 ? 0 : 100 * (1 - ratio);
    table[sd] = std::isnan(table[mse]) ? nan : std::sqrt(table[mse]);
    table[mean] = solution.mean(solution.n_coefficients() + c);
    table[cv] = std::isnan(table[mse]) ? nan : guarded_quotient(100 * table[sd], table[mean]);
    std::transform(table, table + n_entries, entries,
                   [](long double entry) { return static_cast<Real>(entry); });
}

} // namespace tavik::regression
