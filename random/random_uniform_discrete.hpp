// Integers that are uniform on 1 to k, each from one float uniform in both variants.
#pragma once

#include "random_uniform.hpp"

#include <algorithm>

namespace tavik::random {

// The product is rounded to float, so its integer part can come out as k + 1, in particular from a uniform that
// is exactly 1; this counts as k.
inline void scale_to_integers(const float *u, int k, int *integers, int n)
{
    const auto factor = static_cast<float>(k);
    for (int i = 0; i < n; ++i) {
        const float scaled = factor * u[i] + 1.0F;
        integers[i] = scaled < 0x1p31F ? std::min(static_cast<int>(scaled), k) : k;
    }
}

// Uniforms are turned into integers while they are in the cache, part by part. To have other threads do this costs
// more than it is: one multiplication and one addition each.
inline bool l_rnund(int nr, int k, int *integers)
{
    int position = 0;
    tavik_c1iarg(k, "K", 1, -1, &position);
    if (error_pending() || !check_draw_count("l_rnund", nr, "NR")) return false;
    constexpr int part = 1024;
    float u[part];
    for (int first = 0, n = 0; first < nr; first += n) {
        n = std::min(part, nr - first);
        if (!draw_uniforms(u, static_cast<std::size_t>(n))) return false;
        scale_to_integers(u, k, integers + first, n);
    }
    return true;
}

inline void l_random_uniform_discrete(int n_random, int k, ArgumentList &list, Workspace &workspace,
                                      int *&result)
{
    int *integers = read_return_user<int>(list, PositionRule{3, 1, 1});
    if (error_pending()) return;
    int position = 0;
    tavik_c1iarg(n_random, "n_random", 1, -1, &position);
    if (error_pending()) return;
    if (integers == nullptr) integers = workspace.result<int>(static_cast<std::size_t>(n_random));
    if (integers != nullptr && l_rnund(n_random, k, integers)) result = workspace.hand_over(integers);
}

} // namespace tavik::random
