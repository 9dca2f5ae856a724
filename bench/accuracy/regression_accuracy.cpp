// Prints, as a markdown table, how many digits of the certified values of the NIST linear regression sets are reached by
// tavik_d_regression, by LAPACK's dgels and by lm of R (tol = 1e-12, so that it keeps all columns of Filip): least
// -log10 of the relative error, of the absolute one where 0 is certified, from 0 to 15. All three get the same doubles.
#include "regression/nist_linear.hpp"

#include "tavikstat.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include <unistd.h>

extern "C" {
void dgels_(const char *trans, const int *m, const int *n, const int *nrhs, double *a, const int *lda,
            double *b, const int *ldb, double *work, const int *lwork, int *info);
void dtrtri_(const char *uplo, const char *diag, const int *n, double *a, const int *lda, int *info);
}

namespace {

using Values = std::vector<double>; // in the order of the certified ones

Values ours(const nist::LinearSet &set)
{
    const auto x = set.x(), y = set.y();
    double *table, *statistics;
    double *b = tavik_d_regression(set.n_rows(), set.n_independent, x.data(), y.data(), TAVIK_ANOVA_TABLE,
                                   &table, TAVIK_COEF_STATISTICS, &statistics,
                                   set.intercept ? TAVIK_INTERCEPT : TAVIK_NO_INTERCEPT, 0);
    if (b == nullptr) return {};
    Values values;
    for (int i = 0; i < set.n_coefficients(); ++i) values.insert(values.end(), {b[i], statistics[4 * i + 1]});
    values.insert(values.end(), {table[12], table[10] / 100, table[8]});
    for (double *array : {b, table, statistics}) tavik_free(array);
    return values;
}

Values dgels(const nist::LinearSet &set)
{
    const auto x = set.x();
    auto y = set.y();
    const int n = set.n_rows(), p = set.n_independent, c = set.n_coefficients(), one = 1, work_size = 4096;
    double mean = 0, total = 0;
    for (const double v : y) mean += set.intercept ? v / n : 0;
    for (const double v : y) total += (v - mean) * (v - mean);
    Values a(static_cast<std::size_t>(n * c), 1), work(static_cast<std::size_t>(work_size)), values;
    for (int j = 0; j < p; ++j) {
        for (int i = 0; i < n; ++i)
            a[static_cast<std::size_t>((c - p + j) * n + i)] = x[static_cast<std::size_t>(i * p + j)];
    }
    int info = 0, inverse_info = 0;
    dgels_("N", &n, &c, &one, a.data(), &n, y.data(), &n, work.data(), &work_size, &info);
    dtrtri_("U", "N", &c, a.data(), &n, &inverse_info); // of R
    if (info != 0 || inverse_info != 0) return {};
    double left = 0;
    for (int i = c; i < n; ++i) left += y[static_cast<std::size_t>(i)] * y[static_cast<std::size_t>(i)];
    const double variance = left / (n - c);
    for (int i = 0; i < c; ++i) {
        double sum = 0;
        for (int j = i; j < c; ++j) sum += std::pow(a[static_cast<std::size_t>(j * n + i)], 2);
        values.insert(values.end(), {y[static_cast<std::size_t>(i)], std::sqrt(variance * sum)});
    }
    values.insert(values.end(), {std::sqrt(variance), 1 - left / total, (total - left) / p / variance});
    return values;
}

Values lm(const nist::LinearSet &set)
{
    std::string name = std::filesystem::temp_directory_path() / "tavikstat_accuracy_XXXXXX";
    const int descriptor = mkstemp(name.data());
    if (descriptor < 0) return {};
    FILE *data = fdopen(descriptor, "w");
    const auto x = set.x(), y = set.y();
    const auto p = static_cast<std::size_t>(set.n_independent);
    for (std::size_t i = 0; i < y.size(); ++i) {
        std::fprintf(data, "%.17g", y[i]);
        for (std::size_t j = 0; j < p; ++j) std::fprintf(data, " %.17g", x[i * p + j]);
        std::fputs("\n", data);
    }
    std::fclose(data);
    const std::string script =
        std::string("d <- as.matrix(read.table(\"") + name + "\")); x <- d[, -1]; " +
        "s <- summary(lm(d[, 1] ~ x" + (set.intercept ? "" : " - 1") +
        ", tol = 1e-12)); cat(sprintf(\"%.17g\", c(t(s$coefficients[, 1:2]), s$sigma, " +
        "s$r.squared, s$fstatistic[1])))";
    FILE *pipe = popen(("Rscript --vanilla -e '" + script + "' 2>/dev/null").c_str(), "r");
    Values values;
    char text[64];
    while (pipe != nullptr && std::fscanf(pipe, "%63s", text) == 1)
        values.push_back(std::strtod(text, nullptr));
    if (pipe != nullptr) pclose(pipe);
    unlink(name.c_str());
    return values;
}

// Digits of coefficients, standard errors, residual deviation, R-squared and F.
std::string cells(const nist::LinearSet &set, const Values &values)
{
    const std::size_t n = set.certified.size();
    if (values.size() != n) return " - | - | - | - | - |";
    std::array<double, 5> digits;
    digits.fill(15);
    for (std::size_t i = 0; i < n; ++i) {
        double &least = digits[i + 3 < n ? i % 2 : i + 5 - n];
        const double due = set.certified[i], error = std::fabs(values[i] - due);
        const double reached =
            values[i] == due ? 15 : -std::log10(due == 0 || std::isinf(due) ? error : error / std::fabs(due));
        least = std::clamp(reached, 0.0, least); // an infinite F is reached or not
    }
    std::string text;
    for (const double d : digits) {
        char cell[16];
        std::snprintf(cell, sizeof cell, " %.1f |", d);
        text += cell;
    }
    return text;
}

} // namespace

int main()
{
    std::puts("| set | with | coefficients | standard errors | residual deviation | R-squared | F |\n"
              "|---|---|---|---|---|---|---|");
    for (const nist::LinearSet &set : nist::linear_sets) {
        std::printf("| %s | tavik_d_regression |%s\n", set.name, cells(set, ours(set)).c_str());
        std::printf("| | dgels |%s\n", cells(set, dgels(set)).c_str());
        std::printf("| | lm |%s\n", cells(set, lm(set)).c_str());
    }
}
