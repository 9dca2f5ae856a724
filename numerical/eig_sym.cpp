// Eigensystems by Eigen, behind the call frame. Eigen's objects hold memory that a long jump would leak; but all that
// could fault has been read before they come into being.
#define EIGEN_DONT_PARALLELIZE // results do not depend on threads

#include "numerical/eig_sym.hpp"

#include "frame/call.hpp"
#include "frame/options.hpp"
#include "frame/raise.hpp"

#include <Eigen/Eigenvalues>
#include <algorithm>

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

template <class Real> struct Options {
    int a_col_dim;
    Real *result = nullptr, *user_vectors = nullptr, **vectors = nullptr;
};

template <class Real> bool read_options(OptionReader reader, Options<Real> &options)
{
    while (const int code = reader.next()) {
        switch (code) {
        case TAVIK_A_COL_DIM: options.a_col_dim = reader.integer(); break;
        case TAVIK_VECTORS:
            options.vectors = reader.output<Real>("TAVIK_VECTORS");
            options.user_vectors = nullptr;
            break;
        case TAVIK_VECTORS_USER:
            options.user_vectors = reader.pointer<Real>("TAVIK_VECTORS_USER");
            options.vectors = nullptr;
            break;
        case TAVIK_RETURN_USER: options.result = reader.pointer<Real>("TAVIK_RETURN_USER"); break;
        default: reader.unknown(11001); return false;
        }
    }
    return !error_pending();
}

template <class Real> bool check_arguments(int n, const Real *a, const Options<Real> &options)
{
    int position = 0;
    tavik_c1iarg(n, "n", 1, -1, &position);
    if (error_pending()) return false;
    tavik_c1dim(1, n, "*n", options.a_col_dim, "a_col_dim", &position);
    return !error_pending() && check_not_null(a, "a");
}

// The lower triangle in double.
template <class Real> bool copy_finite(int n, const Real *a, int stride, double *to)
{
    for (int i = 0; i < n; ++i) {
        const Real *row = a + static_cast<std::size_t>(i) * static_cast<std::size_t>(stride);
        for (int j = 0; j <= i; ++j) {
            if (!std::isfinite(row[j])) return raise(terminal, 11210, i, j);
            to[j] = row[j];
        }
        std::fill(to + i + 1, to + n, 0.0);
        to += n;
    }
    return true;
}

template <class Real>
void l_eig_sym(int n, const Real *a, ArgumentList &list, Workspace &workspace, Real *&result)
{
    Options<Real> options{n};
    if (!read_options(OptionReader(list, count_codes), options) || !check_arguments(n, a, options)) return;
    const auto size = static_cast<std::size_t>(n);
    const bool with_vectors = options.vectors != nullptr || options.user_vectors != nullptr;
    double *matrix = workspace.array<double>(size * size, "n"),
           *wide_values = workspace.array<double>(size, "n");
    Real *values = options.result != nullptr ? options.result : workspace.result<Real>(size, "n");
    Real *vectors =
        options.vectors != nullptr ? workspace.result<Real>(size * size, "n") : options.user_vectors;
    if (error_pending() || !copy_finite(n, a, options.a_col_dim, matrix)) return;

    if (!decompose(size, matrix, wide_values,
                   with_vectors ? Eigen::ComputeEigenvectors : Eigen::EigenvaluesOnly)) {
        tavik_ermes(terminal, 11211);
        return;
    }
    const auto narrow = [](double value) { return static_cast<Real>(value); };
    std::transform(wide_values, wide_values + size, values, narrow);
    if (with_vectors) std::transform(matrix, matrix + size * size, vectors, narrow);
    if (options.vectors != nullptr) *options.vectors = workspace.hand_over(vectors);
    result = workspace.hand_over(values);
}

} // namespace

bool eigenvectors(std::size_t n, double *a, double *values)
{
    return decompose(n, a, values, Eigen::ComputeEigenvectors);
}

} // namespace tavik::numerical

using namespace tavik;

extern "C" {

float *tavik_f_eig_sym(int n, const float a[], ...)
{
    ArgumentList list;
    va_start(list.arguments, a);
    float *result = public_call<float *>("tavik_f_eig_sym", [&](Workspace &workspace, float *&values) {
        numerical::l_eig_sym(n, a, list, workspace, values);
    });
    va_end(list.arguments);
    return result;
}

double *tavik_d_eig_sym(int n, const double a[], ...)
{
    ArgumentList list;
    va_start(list.arguments, a);
    double *result = public_call<double *>("tavik_d_eig_sym", [&](Workspace &workspace, double *&values) {
        numerical::l_eig_sym(n, a, list, workspace, values);
    });
    va_end(list.arguments);
    return result;
}

} // extern "C"
