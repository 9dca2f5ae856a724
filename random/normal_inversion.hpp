// Normal deviates by inversion: the normal quantile of one uniform each.
#pragma once

#include "draw_and_transform.hpp"
#include "probability/normal_quantile.hpp"
#include "uniform_kernels.hpp"

#include <limits>

namespace tavik::random {

// finish(deviates, n) is applied to every part of the result as it is made.
template <class Real, class Finish> bool l_rnnor(int nr, Real *r, const Finish &finish)
{
    if (!check_draw_count("l_rnnor", nr, "nr")) return false;
    // Generators 8 and 9 can give a uniform that is rounded to 0 or 1, from which no finite deviate follows. It counts
    // as the smallest step of generator 9, or as the last number below 1.
    constexpr auto first_inside = Real(0x1p-53), last_inside = 1 - std::numeric_limits<Real>::epsilon() / 2;
    return draw_and_transform(r, nr, transform_threads(nr), [&](std::int64_t first, std::int64_t n) {
        Real *part = r + first;
        const auto size = static_cast<std::size_t>(n);
        generator_kernels().uniform<Real>().leave_ends(part, size, first_inside, last_inside);
        probability::normal_quantiles(part, part, size);
        finish(part, n);
    });
}

} // namespace tavik::random
