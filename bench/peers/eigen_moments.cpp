#include "eigen_moments.hpp"

#include <Eigen/Dense>

namespace peers {

using Rows = Eigen::Array<double, Eigen::Dynamic, Eigen::Dynamic, Eigen::RowMajor>;
using Row = Eigen::Array<double, 1, Eigen::Dynamic>;

void eigen_moments(const double *data, std::int64_t n, std::int64_t p, double *result)
{
    const Eigen::Map<const Rows> x(data, n, p);
    Eigen::Map<Rows> out(result, 6, p);
    out.row(0) = x.colwise().mean();
    out.row(1) = x.colwise().minCoeff();
    out.row(2) = x.colwise().maxCoeff();
    const Row mean = out.row(0);
    const auto d = x.rowwise() - mean;
    out.row(3) = d.square().colwise().sum();
    out.row(4) = d.cube().colwise().sum();
    out.row(5) = d.square().square().colwise().sum();
}

void eigen_moments_fused(const double *data, std::int64_t n, std::int64_t p, double *result)
{
    const Eigen::Map<const Rows> x(data, n, p);
    Eigen::Map<Rows> out(result, 6, p);
    Row sum = x.row(0), low = sum, high = sum;
    for (std::int64_t i = 1; i < n; ++i) {
        sum += x.row(i);
        low = low.min(x.row(i));
        high = high.max(x.row(i));
    }
    const Row mean = sum / static_cast<double>(n);
    Row d(p), d2(p), m2 = Row::Zero(p), m3 = Row::Zero(p), m4 = Row::Zero(p);
    for (std::int64_t i = 0; i < n; ++i) {
        d = x.row(i) - mean;
        d2 = d.square();
        m2 += d2;
        m3 += d2 * d;
        m4 += d2.square();
    }
    out.row(0) = mean;
    out.row(1) = low;
    out.row(2) = high;
    out.row(3) = m2;
    out.row(4) = m3;
    out.row(5) = m4;
}

} // namespace peers
