// Normal deviates by the ziggurat of Marsaglia and Tsang (2000) with 128 layers: a point of a random layer lies
// below the density unless it is in the layer's wedge or, in the base strip, beyond its end r.
#pragma once

#include "numerical/reproducible.hpp"
#include "probability/normal_quantile.hpp"
#include "uniform_buffer.hpp"
#include "ziggurat_tables.hpp"

#include <cmath>

namespace tavik::random {

template <class Real> class Ziggurat {
public:
    explicit Ziggurat(UniformBuffer<Real> &uniforms) : uniforms_(uniforms)
    {
    }

    // While three uniforms are there for each deviate. How many one takes does not depend on whether its wedge
    // accepts it, so that this, which no processor can foresee, need not be waited for.
    __attribute__((noinline)) static Run<Real> make(Run<Real> run)
    {
        while (run.has(3)) {
            const Point point(run.u[0], run.u[1]);
            *run.r = point.z;
            if (point.is_below()) [[likely]] {
                ++run.r;
                run.u += 2;
            } else {
                run.r += accept(point, run.u[2], run.r);
                run.u += 3;
            }
        }
        return run;
    }

    Real deviate(std::int64_t to_make)
    {
        for (;;) {
            const Real u1 = uniforms_.first_of_deviate(to_make), u2 = uniforms_.further(to_make);
            const Point point(u1, u2);
            if (point.is_below()) return point.z;
            Real z = point.z;
            if (accept(point, uniforms_.further(to_make), &z)) return z;
        }
    }

private:
    // Layer 128 comes from a uniform that is exactly 1. There is no such layer: the point is not accepted.
    struct Point {
        Point(Real u1, Real u2)
            : a(2 * u1 - 1), layer(static_cast<std::size_t>(static_cast<int>(ziggurat_layers * u2))),
              z(a * lv_ziggurat_x<Real>[layer])
        {
        }

        // In the part of the layer that is below the density everywhere.
        bool is_below() const
        {
            return std::fabs(a) < lv_ziggurat_ratio<Real>[layer];
        }

        // Is a height between the layer's two below the density at z?
        bool wedge_accepts(Real u) const
        {
            if (layer >= ziggurat_layers) return false;
            const Real low = lv_ziggurat_f<Real>[layer], high = lv_ziggurat_f<Real>[layer + 1];
            const Real x = lv_ziggurat_x<Real>[layer], height = high + (low - high) * u;
            // Mostly the first powers of the exponential series tell: from the layer's end the density grows by
            // exp(d), 0 <= d < 0.74, whose fifth power and later ones are below d^5 / 50.
            const Real d = (x * x - z * z) / 2, d2 = d * d;
            const Real series = 1 + d + d2 * (Real(1) / 2 + d * (Real(1) / 6) + d2 * (Real(1) / 24));
            const Real excess = low * series - height, doubt = d2 * d2 * d / 50 + Real(0x1p-18);
            return std::fabs(excess) > doubt ? excess > 0 : wedge_accepts_exactly(u);
        }

        __attribute__((noinline)) bool wedge_accepts_exactly(Real u) const
        {
            const auto density = static_cast<Real>(numerical::reproducible_exp(-z * z / 2));
            const Real f = lv_ziggurat_f<Real>[layer] / density;
            const Real f_above = lv_ziggurat_f<Real>[layer + 1] / density;
            return f_above + (f - f_above) * u < 1;
        }

        Real a;
        std::size_t layer;
        Real z;
    };

    // A point that is not below for sure: in the base strip *z is drawn from the tail instead. Not inline, so that
    // the loop above keeps its registers.
    __attribute__((noinline)) static bool accept(const Point &point, Real u, Real *z)
    {
        if (point.layer > 0) return point.wedge_accepts(u);
        *z = tail(u, point.z < 0);
        return true;
    }

    // Beyond the base strip's end r, by inversion. Saved streams rest on these figures, which begin the tail at
    // 3.442606, 1.4e-5 inside of r. In float, p can be 1, and 5.5 stands for what lies
    // beyond the last p before, whose quantile is 5.29.
    static Real tail(Real u, bool negative)
    {
        constexpr double below_r = 0.9997119307518005, beyond_r = 0.0002880692481994629; // 1 - below_r
        const auto p = static_cast<Real>(u * beyond_r + below_r);
        const Real z = p < 1 ? probability::normal_quantile(p) : Real(5.5);
        return negative ? -z : z;
    }

    UniformBuffer<Real> &uniforms_;
};

template <class Real, class Finish> bool l_ziggurat(int nr, Real *r, const Finish &finish)
{
    return make_deviates<Ziggurat<Real>>(nr, r, finish);
}

} // namespace tavik::random
