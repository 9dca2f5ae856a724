// Normal deviates by the acceptance-rejection method of Kinderman and Ramage (1976), in their notation: a
// triangle of half-width xi carries most of the density, three wedges above it and the tail the rest. The
// constants have eight digits in both precisions, and saved streams rest on them: the density of the deviates is right
// to about 1e-8.
#pragma once

#include "numerical/reproducible.hpp"
#include "uniform_buffer.hpp"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace tavik::random {

template <class Real> class KindermanRamage {
public:
    explicit KindermanRamage(UniformBuffer<Real> &uniforms) : uniforms_(uniforms)
    {
    }

    // As far as deviates come from the triangle.
    static Run<Real> make(Run<Real> run)
    {
        for (; run.has(2) && is_in_triangle(run.u[0]); run.u += 2) *run.r++ = of_triangle(run.u[0], run.u[1]);
        return run;
    }

    Real deviate(std::int64_t to_make)
    {
        const Real u = uniforms_.first_of_deviate(to_make);
        if (is_in_triangle(u)) return of_triangle(u, uniforms_.further(to_make));
        if (u >= Real(0.97331095)) return tail(u, to_make);
        if (u >= Real(0.9587208))
            return wedge({xi, Real(-0.6308348), Real(0.7555915), Real(0.034240503)}, to_make);
        if (u >= Real(0.91131276))
            return wedge({start, Real(1.1054736), Real(0.872835), Real(0.049264498)}, to_make);
        return wedge({start, Real(-0.59550714), Real(0.80557793), Real(0.05337755)}, to_make);
    }

private:
    static constexpr auto xi = Real(2.2160358), half_xi_squared = Real(2.4554074), start = Real(0.47972742);

    static bool is_in_triangle(Real u)
    {
        return u < Real(0.8840704);
    }

    static Real of_triangle(Real u1, Real u2)
    {
        return xi * (Real(1.1311316) * u1 + u2 - 1);
    }

    Real tail(Real u, std::int64_t to_make)
    {
        for (;;) {
            const Real v = uniforms_.further(to_make), w = uniforms_.further(to_make);
            const Real t = half_xi_squared - static_cast<Real>(numerical::reproducible_log(w));
            if (v * v * t <= half_xi_squared) {
                const Real z = std::sqrt(2 * t);
                return u < Real(0.9866555) ? z : -z;
            }
        }
    }

    // t runs linearly from `start` with the smaller uniform; a larger uniform up to `quick` lies below the
    // density without looking.
    struct Wedge {
        Real start, slope, quick, height;
    };

    Real wedge(const Wedge &of, std::int64_t to_make)
    {
        for (;;) {
            const Real u1 = uniforms_.further(to_make), u2 = uniforms_.further(to_make);
            const Real t = of.start + of.slope * std::min(u1, u2);
            if (t < 0) continue; // below the wedge; the method is not right without this
            if (std::max(u1, u2) <= of.quick || of.height * std::fabs(u1 - u2) <= above_triangle(t))
                return u1 < u2 ? t : -t;
        }
    }

    // The density less the triangle.
    Real above_triangle(Real t) const
    {
        const auto density = static_cast<Real>(numerical::reproducible_exp(Real(-0.5) * t * t));
        return density * per_root_two_pi_ - Real(0.18002519) * (xi - t);
    }

    UniformBuffer<Real> &uniforms_;
    const Real per_root_two_pi_ = 1 / std::sqrt(2 * std::numbers::pi_v<Real>);
};

template <class Real, class Finish> bool l_rnnoa(int nr, Real *r, const Finish &finish)
{
    if (!check_draw_count("l_rnnoa  ", nr, "NR")) return false;
    return make_deviates<KindermanRamage<Real>>(nr, r, finish);
}

} // namespace tavik::random
