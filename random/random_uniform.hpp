// Uniform deviates on (0, 1).
#pragma once

#include "frame/call.hpp"
#include "return_user.hpp"
#include "uniform.hpp"

namespace tavik::random {

template <class Real>
void l_random_uniform(int n_random, ArgumentList &list, Workspace &workspace, Real *&result)
{
    Real *users = read_return_user<Real>(list, PositionRule{2, 1, 1});
    if (error_pending()) return;
    if (n_random < 1) {
        int position = 0;
        tavik_c1iarg(n_random, "n_random", 1, -1, &position);
        return;
    }
    const auto n = static_cast<std::size_t>(n_random);
    if (users != nullptr) {
        if (draw_uniforms(users, n)) result = users;
        return;
    }
    Real *made = workspace.result<Real>(n);
    if (made != nullptr && draw_uniforms(made, n)) result = workspace.hand_over(made);
}

} // namespace tavik::random
