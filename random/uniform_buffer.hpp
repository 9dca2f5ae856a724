// Uniforms drawn ahead for rejection methods, which do not know how many they need. Never more are drawn than
// the deviates still to be made are certain to take, at least two each, so the generator ends where draws one by
// one would have left it.
#pragma once

#include "uniform.hpp"

#include <algorithm>

namespace tavik::random {

// Uniforms at hand, which a method turns into deviates from the front. A copy in registers is what makes the plain
// case fast.
template <class Real> struct Run {
    const Real *u, *u_end;
    Real *r; // has room for one deviate from every two uniforms

    bool has(int uniforms) const
    {
        return u_end - u >= uniforms;
    }
};

template <class Real> class UniformBuffer {
public:
    // Draws the first ones for n deviates. False when that fails, which is raised.
    bool start(std::int64_t n)
    {
        return refill(2 * n);
    }

    // `to_make` counts the deviates that are not finished, the current one included.
    Real first_of_deviate(std::int64_t to_make)
    {
        return take(2 * to_make);
    }

    Real further(std::int64_t to_make)
    {
        return take(2 * to_make - 1);
    }

    // Makes deviates from r on, by Method::make, as far as the uniforms at hand are enough. Gives the first place
    // that is left.
    template <class Method> Real *make_from_those_at_hand(Real *r)
    {
        const Run<Real> run = Method::make({next_, end_, r});
        next_ = run.u;
        return run.r;
    }

private:
    static constexpr std::int64_t size = 2048;

    Real take(std::int64_t certain)
    {
        if (next_ == end_) refill(certain);
        return *next_++;
    }

    __attribute__((noinline)) bool refill(std::int64_t certain)
    {
        const std::int64_t n = std::min(size, certain);
        next_ = values_;
        end_ = values_ + n;
        return draw_uniforms(values_, static_cast<std::size_t>(n));
    }

    const Real *next_ = nullptr, *end_ = nullptr;
    Real values_[size];
};

// n deviates by a method with the members make and deviate. finish(part, count) is applied to all parts, while they
// are in the cache.
template <class Method, class Real, class Finish>
bool make_deviates(std::int64_t n, Real *r, const Finish &finish)
{
    UniformBuffer<Real> uniforms;
    if (!uniforms.start(n)) return false;
    Method method(uniforms);
    constexpr std::int64_t part = 512;
    Real *finished = r, *const end = r + n;
    while (r < end) {
        r = uniforms.template make_from_those_at_hand<Method>(r);
        if (r < end) {
            *r = method.deviate(end - r);
            ++r;
        }
        if (r - finished >= part || r == end) {
            finish(finished, r - finished);
            finished = r;
        }
    }
    return true;
}

} // namespace tavik::random
