// The BLAS routines rotmg and rotm behind the call frame.
#include "numerical/modified_givens.hpp"

#include "frame/call.hpp"
#include "frame/checkers.hpp"

using namespace tavik;

namespace {

using numerical::ModifiedGivens, numerical::RotationForm;

// Elements that the form does not store are neither written nor read: callers may leave them unset.
template <class T> void store(const ModifiedGivens<T> &h, T param[])
{
    param[0] = static_cast<T>(static_cast<int>(h.form));
    if (h.form == RotationForm::full || h.form == RotationForm::unit_antidiagonal) {
        param[1] = h.h11;
        param[4] = h.h22;
    }
    if (h.form == RotationForm::full || h.form == RotationForm::unit_diagonal) {
        param[2] = h.h21;
        param[3] = h.h12;
    }
}

// A flag that is none of the four counts as the BLAS takes it, by its sign.
template <class T> ModifiedGivens<T> load(const T param[])
{
    if (param[0] == -2) return {RotationForm::identity, 1, 0, 0, 1};
    if (param[0] < 0) return {RotationForm::full, param[1], param[2], param[3], param[4]};
    if (param[0] == 0) return {RotationForm::unit_diagonal, 1, param[2], param[3], 1};
    return {RotationForm::unit_antidiagonal, param[1], -1, 1, param[4]};
}

template <class T> void l_rotmg(T *d1, T *d2, T *x1, T y1, T *param)
{
    if (check_not_null(d1, "d1") && check_not_null(d2, "d2") && check_not_null(x1, "x1") &&
        check_not_null(param, "param"))
        store(numerical::rotmg(*d1, *d2, *x1, y1), param);
}

template <class T> void l_rotm(int n, T *x, int incx, T *y, int incy, const T *param)
{
    if (n < 1 || !check_not_null(x, "x") || !check_not_null(y, "y") || !check_not_null(param, "param"))
        return;
    const auto first = [n](T *v, std::ptrdiff_t stride) { return stride < 0 ? v + (1 - n) * stride : v; };
    numerical::rotm(n, first(x, incx), incx, first(y, incy), incy, load(param));
}

} // namespace

extern "C" {

void tavik_srotmg(float *d1, float *d2, float *x1, float y1, float param[])
{
    public_call("tavik_srotmg", [=](Workspace &) { l_rotmg(d1, d2, x1, y1, param); });
}

void tavik_drotmg(double *d1, double *d2, double *x1, double y1, double param[])
{
    public_call("tavik_drotmg", [=](Workspace &) { l_rotmg(d1, d2, x1, y1, param); });
}

void tavik_srotm(int n, float x[], int incx, float y[], int incy, const float param[])
{
    public_call("tavik_srotm", [=](Workspace &) { l_rotm(n, x, incx, y, incy, param); });
}

void tavik_drotm(int n, double x[], int incx, double y[], int incy, const double param[])
{
    public_call("tavik_drotm", [=](Workspace &) { l_rotm(n, x, incx, y, incy, param); });
}

} // extern "C"
