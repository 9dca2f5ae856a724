// Modified (square-root free) Givens rotations, as the BLAS routines rotmg and rotm define them: Lawson,
// Hanson, Kincaid and Krogh (1979), ACM TOMS 5, 308-323. The vector (sqrt(d1) x, sqrt(d2) y) is rotated by
// way of H (x, y) and new scale factors.
#pragma once

#include <cmath>
#include <cstddef>

namespace tavik::numerical {

// Which elements of H are stored; the others are those of the identity or of (0 1; -1 0).
enum class RotationForm { identity = -2, full = -1, unit_diagonal = 0, unit_antidiagonal = 1 };

template <class T> struct ModifiedGivens {
    RotationForm form;
    T h11, h21, h12, h22;
};

// Scale factors stay within gamma^-2 and gamma^2; gamma is a power of 2, so that scaling is exact.
template <class T> constexpr T givens_gamma = 4096;

namespace detail {

template <class T> void store_full(ModifiedGivens<T> &h)
{
    if (h.form == RotationForm::unit_diagonal) h.h11 = h.h22 = 1;
    if (h.form == RotationForm::unit_antidiagonal) {
        h.h21 = -1;
        h.h12 = 1;
    }
    h.form = RotationForm::full;
}

// One row of H, and what it multiplies, brought into range together with its scale factor d. Zero, infinity
// and NaN cannot be.
template <class T> void bring_into_range(T &d, T *component, T &left, T &right, ModifiedGivens<T> &h)
{
    constexpr T gamma = givens_gamma<T>, gamma2 = gamma * gamma;
    if (d == 0 || !std::isfinite(d)) return;
    while (std::fabs(d) <= 1 / gamma2 || std::fabs(d) >= gamma2) {
        store_full(h);
        const T scale = std::fabs(d) <= 1 / gamma2 ? 1 / gamma : gamma;
        d /= scale * scale;
        if (component != nullptr) *component *= scale;
        left *= scale;
        right *= scale;
    }
}

} // namespace detail

// The rotation that makes y zero. Replaces d1, d2 and x by their values after it.
template <class T> ModifiedGivens<T> rotmg(T &d1, T &d2, T &x, T y)
{
    ModifiedGivens<T> h{RotationForm::full, 0, 0, 0, 0};
    const auto fail = [&] {
        d1 = d2 = x = 0;
        return ModifiedGivens<T>{RotationForm::full, 0, 0, 0, 0};
    };
    if (d1 < 0) return fail();
    const T p2 = d2 * y;
    if (p2 == 0) {
        h.form = RotationForm::identity;
        return h;
    }
    const T p1 = d1 * x, q2 = p2 * y, q1 = p1 * x;
    if (std::fabs(q1) > std::fabs(q2)) {
        h.h21 = -y / x;
        h.h12 = p2 / p1;
        const T u = 1 - h.h12 * h.h21;
        if (u <= 0) return fail();
        h.form = RotationForm::unit_diagonal;
        d1 /= u;
        d2 /= u;
        x *= u;
    } else {
        h.form = RotationForm::unit_antidiagonal;
        h.h11 = p1 / p2;
        h.h22 = x / y;
        const T u = 1 + h.h11 * h.h22, d = d2 / u;
        // q2 can lose the sign of d2 by underflow. A NaN is not to become the zeros of a failure.
        if ((q2 < 0 && !std::isnan(u)) || d < 0) return fail();
        d2 = d1 / u;
        d1 = d;
        x = y * u;
    }
    detail::bring_into_range(d1, &x, h.h11, h.h12, h);
    detail::bring_into_range<T>(d2, nullptr, h.h21, h.h22, h);
    return h;
}

// (x_i, y_i) becomes H (x_i, y_i). The strides may be negative or 0 and count from the first element used.
template <class T>
void rotm(std::ptrdiff_t n, T *x, std::ptrdiff_t x_stride, T *y, std::ptrdiff_t y_stride,
          const ModifiedGivens<T> &h)
{
    const auto apply = [=](auto rotate) {
        if (x_stride == 1 && y_stride == 1) // what compilers vectorise
            for (std::ptrdiff_t i = 0; i < n; ++i) rotate(x[i], y[i]);
        else
            for (std::ptrdiff_t i = 0; i < n; ++i) rotate(x[i * x_stride], y[i * y_stride]);
    };
    switch (h.form) {
    case RotationForm::identity: break;
    case RotationForm::full:
        apply([h](T &a, T &b) {
            const T rotated = h.h11 * a + h.h12 * b;
            b = h.h21 * a + h.h22 * b;
            a = rotated;
        });
        break;
    case RotationForm::unit_diagonal:
        apply([h](T &a, T &b) {
            const T rotated = a + h.h12 * b;
            b = h.h21 * a + b;
            a = rotated;
        });
        break;
    case RotationForm::unit_antidiagonal:
        apply([h](T &a, T &b) {
            const T rotated = h.h11 * a + b;
            b = h.h22 * b - a;
            a = rotated;
        });
        break;
    }
}

} // namespace tavik::numerical
