// Least squares by dgels of LAPACK, as OpenBLAS has it, and by lm.wfit of R.
#pragma once

#include <cstddef>
#include <vector>

namespace peers {

void set_openblas_threads(int n);

// Householder QR of a matrix that holds the column of ones and lies by columns, as LAPACK wants it.
class Dgels {
public:
    // x is by rows, without the column of ones.
    Dgels(const double *x, const double *y, int n, int p);

    // A fit destroys the data; this brings them back.
    void restore();
    void fit();

    // The intercept first.
    const double *coefficients() const
    {
        return solution_.data();
    }

private:
    int n_, p_;
    std::vector<double> matrix_, response_, factors_, solution_, work_;
};

// Seconds of each of so many weighted fits of n x p data of the same kind, which R draws itself; none when there
// is no R.
std::vector<double> lm_wfit_seconds(int n, int p, int fits);

} // namespace peers
