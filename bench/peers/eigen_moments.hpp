// Peer of the simple statistics: mean, extremes and second to fourth central moments of each column with
// Eigen.
#pragma once

#include <cstdint>

namespace peers {

// Results of six rows by p columns: mean, minimum, maximum, M2, M3, M4.
// What a user writes: column-wise reductions of a row-major map, first location and extremes, then powers.
void eigen_moments(const double *x, std::int64_t n, std::int64_t p, double *result);

// The same fused by hand into two sweeps over the rows.
void eigen_moments_fused(const double *x, std::int64_t n, std::int64_t p, double *result);

} // namespace peers
