// The options of a regression, as they are read from the list.
#pragma once

#include "frame/options.hpp"
#include "frame/precision.hpp"

namespace tavik::regression {

template <class Real> struct RegressionOptions {
    int x_col_dim = 0;
    bool x_col_dim_given = false;
    const int *independent_columns = nullptr, *dependent_columns = nullptr;
    int frequency_column = -1, weight_column = -1;
    int n_dependent = 1, ido = 0;
    bool intercept = true, deletes = false, exclude_missing = true;
    Real tolerance = 100 * epsilon<Real>;
    const Real *frequencies = nullptr, *weights = nullptr;
    void *callers_pointer = nullptr;
    bool unknown_code = false;

    Real *result = nullptr;
    Output<Real> covariances, anova, residuals, means, r_factor, crossproducts, statistics;
    int covariance_col_dim = 0;
    bool covariance_col_dim_given = false;
    Real *leverages = nullptr;
    int *rank = nullptr, *n_missing = nullptr;

    bool has_column_indices() const
    {
        return independent_columns != nullptr;
    }
};

template <class Real> bool read_options(OptionReader reader, RegressionOptions<Real> &options)
{
    while (const int code = reader.next()) {
        switch (code) {
        case TAVIK_X_COL_DIM:
            options.x_col_dim = reader.integer();
            options.x_col_dim_given = true;
            break;
        case TAVIK_X_INDICES:
            options.independent_columns =
                reader.pointer<const int>("TAVIK_X_INDICES (independent variables)");
            options.dependent_columns = reader.pointer_or_null<const int>();
            options.frequency_column = reader.integer();
            options.weight_column = reader.integer();
            break;
        case TAVIK_N_DEPENDENT: options.n_dependent = reader.integer(); break;
        case TAVIK_IDO: options.ido = reader.integer(); break;
        case TAVIK_INTERCEPT: options.intercept = true; break;
        case TAVIK_NO_INTERCEPT: options.intercept = false; break;
        case TAVIK_TOLERANCE: options.tolerance = static_cast<Real>(reader.real()); break;
        case TAVIK_TOLERANCE_ADR: {
            const Real *tolerance = reader.pointer<const Real>("TAVIK_TOLERANCE_ADR");
            if (tolerance != nullptr) options.tolerance = *tolerance;
            break;
        }
        case TAVIK_FREQUENCIES: options.frequencies = reader.pointer<const Real>("TAVIK_FREQUENCIES"); break;
        case TAVIK_WEIGHTS: options.weights = reader.pointer<const Real>("TAVIK_WEIGHTS"); break;
        case TAVIK_ROWS_ADD: options.deletes = false; break;
        case TAVIK_ROWS_DELETE: options.deletes = true; break;
        case TAVIK_EXCLUDE_MISSING: options.exclude_missing = true; break;
        case TAVIK_KEEP_MISSING: options.exclude_missing = false; break;
        case TAVIK_FIT_POINTER: options.callers_pointer = reader.pointer_or_null<void>(); break;

        case TAVIK_RETURN_USER: options.result = reader.pointer<Real>("TAVIK_RETURN_USER"); break;
        case TAVIK_COEF_COVARIANCES:
            options.covariances.read_pointer(reader, "TAVIK_COEF_COVARIANCES");
            break;
        case TAVIK_COEF_COVARIANCES_USER:
            options.covariances.read_array(reader, "TAVIK_COEF_COVARIANCES_USER");
            break;
        case TAVIK_COV_COL_DIM:
            options.covariance_col_dim = reader.integer();
            options.covariance_col_dim_given = true;
            break;
        case TAVIK_ANOVA_TABLE: options.anova.read_pointer(reader, "TAVIK_ANOVA_TABLE"); break;
        case TAVIK_ANOVA_TABLE_USER: options.anova.read_array(reader, "TAVIK_ANOVA_TABLE_USER"); break;
        case TAVIK_RESIDUALS: options.residuals.read_pointer(reader, "TAVIK_RESIDUALS"); break;
        case TAVIK_RESIDUALS_USER: options.residuals.read_array(reader, "TAVIK_RESIDUALS_USER"); break;
        case TAVIK_VARIABLE_MEANS: options.means.read_pointer(reader, "TAVIK_VARIABLE_MEANS"); break;
        case TAVIK_VARIABLE_MEANS_USER: options.means.read_array(reader, "TAVIK_VARIABLE_MEANS_USER"); break;
        case TAVIK_R_FACTOR: options.r_factor.read_pointer(reader, "TAVIK_R_FACTOR"); break;
        case TAVIK_R_FACTOR_USER: options.r_factor.read_array(reader, "TAVIK_R_FACTOR_USER"); break;
        case TAVIK_ERROR_CROSSPRODUCTS:
            options.crossproducts.read_pointer(reader, "TAVIK_ERROR_CROSSPRODUCTS");
            break;
        case TAVIK_ERROR_CROSSPRODUCTS_USER:
            options.crossproducts.read_array(reader, "TAVIK_ERROR_CROSSPRODUCTS_USER");
            break;
        case TAVIK_COEF_STATISTICS: options.statistics.read_pointer(reader, "TAVIK_COEF_STATISTICS"); break;
        case TAVIK_LEVERAGES_USER: options.leverages = reader.pointer<Real>("TAVIK_LEVERAGES_USER"); break;
        case TAVIK_RANK: options.rank = reader.pointer<int>("TAVIK_RANK"); break;
        case TAVIK_N_ROWS_MISSING: options.n_missing = reader.pointer<int>("TAVIK_N_ROWS_MISSING"); break;
        default:
            reader.unknown(11001);
            options.unknown_code = true;
            return false;
        }
    }
    return !error_pending();
}

} // namespace tavik::regression
