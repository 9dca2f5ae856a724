#include "regression_peers.hpp"

#include <algorithm>
#include <cstdio>
#include <stdexcept>
#include <string>

extern "C" {
void dgels_(const char *trans, const int *m, const int *n, const int *nrhs, double *a, const int *lda,
            double *b, const int *ldb, double *work, const int *lwork, int *info, std::size_t trans_length);
void openblas_set_num_threads(int n);
}

namespace {

void dgels(int n, int p, std::vector<double> &a, std::vector<double> &b, double *work, int work_size)
{
    const int one = 1;
    int info;
    dgels_("N", &n, &p, &one, a.data(), &n, b.data(), &n, work, &work_size, &info, 1);
    if (info != 0) throw std::runtime_error("dgels failed");
}

} // namespace

namespace peers {

void set_openblas_threads(int n)
{
    openblas_set_num_threads(n);
}

Dgels::Dgels(const double *x, const double *y, int n, int p)
    : n_(n), p_(p + 1), matrix_(static_cast<std::size_t>(n) * (p + 1), 1.0), response_(y, y + n)
{
    for (std::size_t i = 0, rows = n; i < rows; ++i) {
        for (int j = 0; j < p; ++j) matrix_[(j + 1) * rows + i] = x[i * p + j];
    }
    restore();
    double best_size;
    dgels(n_, p_, factors_, solution_, &best_size, -1);
    work_.resize(static_cast<std::size_t>(best_size));
}

void Dgels::restore()
{
    factors_ = matrix_;
    solution_ = response_;
}

void Dgels::fit()
{
    dgels(n_, p_, factors_, solution_, work_.data(), static_cast<int>(work_.size()));
}

std::vector<double> lm_wfit_seconds(int n, int p, int fits)
{
    // One thread, like ours.
    std::string command = "OPENBLAS_NUM_THREADS=1 Rscript --vanilla '" LM_WFIT_SCRIPT "'";
    for (const int argument : {n, p, fits}) command += ' ' + std::to_string(argument);
    FILE *output = popen(command.c_str(), "r");
    if (output == nullptr) return {};
    std::vector<double> seconds;
    for (double s; std::fscanf(output, "%lf", &s) == 1;) seconds.push_back(s);
    if (pclose(output) != 0) seconds.clear();
    return seconds;
}

} // namespace peers
