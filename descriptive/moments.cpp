#include "moments.hpp"
#include "frame/precision.hpp"
#include "frame/processor.hpp"

#include <algorithm>

namespace tavik::descriptive {

const MomentKernels &moment_kernels()
{
    static const MomentKernels &chosen = processor_has_avx2() ? avx2_moment_kernels : baseline_moment_kernels;
    return chosen;
}

void reset_moments(const Moments &total, std::size_t n_variables)
{
    std::fill_n(total.data, moments_size(n_variables), 0.0);
    std::fill_n(total[Moments::minimum], total.padded, not_a_number<double>);
    std::fill_n(total[Moments::maximum], total.padded, not_a_number<double>);
}

void set_extraordinary_moments(const double *x, const double *mass, std::size_t n, const Moments &block,
                               std::size_t j)
{
    double total = 0, pairs = 0, infinite_sum = 0, low = not_a_number<double>, high = not_a_number<double>;
    bool infinite = false;
    for (std::size_t i = 0; i < n; ++i) {
        const double m = mass != nullptr ? mass[i] : 1;
        pairs += 2 * m * total;
        total += m;
        low = low <= x[i] ? low : x[i];
        high = high >= x[i] ? high : x[i];
        if (m > 0 && std::isinf(x[i])) {
            infinite = true;
            infinite_sum += x[i];
        }
    }
    double mean = 0, p2 = 0, p3 = 0, p4 = 0;
    if (infinite) {
        mean = infinite_sum;
        p2 = p3 = p4 = not_a_number<double>;
    } else if (total > 0) {
        for (std::size_t i = 0; i < n; ++i) {
            const double m = mass != nullptr ? mass[i] : 1;
            if (m > 0) mean += x[i] * (m / total); // cannot overflow
        }
        for (std::size_t i = 0; i < n; ++i) {
            const double m = mass != nullptr ? mass[i] : 1, d = x[i] - mean, d2 = d * d;
            if (!(m > 0)) continue;
            p2 += m * d2;
            p3 += m * d2 * d;
            p4 += m * d2 * d2;
        }
    }
    block[Moments::mass][j] = total;
    block[Moments::divisor][j] = total > 0 ? pairs / total : 0;
    block[Moments::mean][j] = mean;
    block[Moments::mean_low][j] = 0;
    block[Moments::m2][j] = p2;
    block[Moments::m3][j] = p3;
    block[Moments::m4][j] = p4;
    block[Moments::minimum][j] = low;
    block[Moments::maximum][j] = high;
}

} // namespace tavik::descriptive
