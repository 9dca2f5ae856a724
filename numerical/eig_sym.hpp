// Eigenvalues and eigenvectors of a symmetric matrix behind the call frame.
#pragma once

#include "symmetric_eigensystem.hpp"

#include "frame/call.hpp"
#include "frame/options.hpp"
#include "frame/raise.hpp"

#include <algorithm>
#include <cmath>

namespace tavik::numerical {

template <class Real> struct EigSymOptions {
    int a_col_dim;
    Output<Real> vectors;
    Real *result = nullptr;
};

template <class Real> bool read_options(OptionReader reader, EigSymOptions<Real> &options)
{
    while (const int code = reader.next()) {
        switch (code) {
        case TAVIK_A_COL_DIM: options.a_col_dim = reader.integer(); break;
        case TAVIK_VECTORS: options.vectors.read_pointer(reader, "TAVIK_VECTORS"); break;
        case TAVIK_VECTORS_USER: options.vectors.read_array(reader, "TAVIK_VECTORS_USER"); break;
        case TAVIK_RETURN_USER: options.result = reader.pointer<Real>("TAVIK_RETURN_USER"); break;
        default: reader.unknown(11001); return false;
        }
    }
    return !error_pending();
}

template <class Real> bool check_arguments(int n, const Real *a, const EigSymOptions<Real> &options)
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
    EigSymOptions<Real> options{n, {}};
    if (!read_options(OptionReader(list, count_codes), options) || !check_arguments(n, a, options)) return;
    const auto size = static_cast<std::size_t>(n);
    const bool with_vectors = options.vectors.wanted();
    double *matrix = workspace.array<double>(size * size, "n"),
           *wide_values = workspace.array<double>(size, "n");
    Real *values = options.result != nullptr ? options.result : workspace.result<Real>(size, "n");
    Real *vectors = options.vectors.array;
    if (options.vectors.pointer != nullptr) vectors = workspace.result<Real>(size * size, "n");
    if (error_pending() || !copy_finite(n, a, options.a_col_dim, matrix)) return;

    if (!(with_vectors ? eigenvectors(size, matrix, wide_values) : eigenvalues(size, matrix, wide_values))) {
        tavik_ermes(terminal, 11211);
        return;
    }
    const auto narrow = [](double value) { return static_cast<Real>(value); };
    std::transform(wide_values, wide_values + size, values, narrow);
    if (with_vectors) std::transform(matrix, matrix + size * size, vectors, narrow);
    if (options.vectors.pointer != nullptr) *options.vectors.pointer = workspace.hand_over(vectors);
    result = workspace.hand_over(values);
}

} // namespace tavik::numerical
