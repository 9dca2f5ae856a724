// Eigenvalues and eigenvectors of real symmetric matrices.
#pragma once

#include <cstddef>

namespace tavik::numerical {

// Replaces a symmetric n x n matrix, of which the lower triangle is read, by its eigenvectors: column k belongs to
// values[k], the largest first. Each has length 1, and its component of largest size is positive. False when the
// steps do not converge. The elements are finite. Throws std::bad_alloc.
bool eigenvectors(std::size_t n, double *a, double *values);

// The values alone; what becomes of the matrix is open.
bool eigenvalues(std::size_t n, double *a, double *values);

} // namespace tavik::numerical
