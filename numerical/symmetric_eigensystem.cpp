// Eigensystems by Eigen. Its objects hold memory that the long jump of a trapped signal would leak; but nothing of the
// caller's is read while they exist, so nothing faults there.
#define EIGEN_DONT_PARALLELIZE // results do not depend on threads

#include "numerical/symmetric_eigensystem.hpp"

#include <Eigen/Eigenvalues>

namespace tavik::numerical {
namespace {

using Matrix = Eigen::Matrix<double, Eigen::Dynamic, Eigen::Dynamic, Eigen::RowMajor>;

bool decompose(std::size_t n, double *a, double *values, int what)
{
    const auto size = static_cast<Eigen::Index>(n);
    Eigen::Map<Matrix> matrix(a, size, size);
    const Eigen::SelfAdjointEigenSolver<Matrix> solver(matrix, what);
    if (solver.info() != Eigen::Success) return false;
    Eigen::Map<Eigen::VectorXd>(values, size) = solver.eigenvalues().reverse();
    if (what == Eigen::EigenvaluesOnly) return true;
    matrix = solver.eigenvectors().rowwise().reverse();
    for (Eigen::Index k = 0; k < size; ++k) {
        Eigen::Index largest = 0;
        matrix.col(k).cwiseAbs().maxCoeff(&largest);
        if (matrix(largest, k) < 0) matrix.col(k) = -matrix.col(k);
    }
    return true;
}

} // namespace

bool eigenvectors(std::size_t n, double *a, double *values)
{
    return decompose(n, a, values, Eigen::ComputeEigenvectors);
}

bool eigenvalues(std::size_t n, double *a, double *values)
{
    return decompose(n, a, values, Eigen::EigenvaluesOnly);
}

} // namespace tavik::numerical
