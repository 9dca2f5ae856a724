#!/usr/bin/env python3
"""Prints the coefficients of the normal quantile and of the reproducible log and exp (ten seconds).

A rational function P/Q is fitted to f on Chebyshev points of the interval: first by linear least squares,
reweighted by the previous Q (C. K. Sanathanan and J. Koerner, IEEE Trans. Autom. Control 8, 1963), then by
Remez's exchange until its largest weighted error is within 1 % of the levelled one. All in 50 digits; the
comments give the largest weighted error before the coefficients are rounded to double.
"""
from mpmath import (cos, erfc, erfinv, exp, expm1, fsum, log, lu_solve, matrix, mp, mpf, nstr, pi, polyval,
                    sqrt)

mp.dps = 50


def value(coefficients, x):
    return polyval(coefficients[::-1], x)


def least_squares(points, n, d):
    q_values = [mpf(1)] * len(points)
    for _ in range(6):
        rows = [([w * x**k for k in range(n + 1)] + [-w * f * x**k for k in range(1, d + 1)], w * f)
                for x, f, w in ((x, f, w / q) for (x, f, w), q in zip(points, q_values))]
        size = n + d + 1
        a = matrix([[fsum(r[i] * r[j] for r, _ in rows) for j in range(size)] for i in range(size)])
        c = list(lu_solve(a, matrix([fsum(r[i] * b for r, b in rows) for i in range(size)])))
        p, q = c[:n + 1], [mpf(1)] + c[n + 1:]
        q_values = [value(q, x) for x, _, _ in points]
    return p, q


def alternation(errors, size):
    """The largest error of each run of one sign, the least ones at the ends dropped."""
    found = []
    for j, e in enumerate(errors):
        if found and (errors[found[-1]] > 0) == (e > 0):
            if abs(e) > abs(errors[found[-1]]):
                found[-1] = j
        else:
            found.append(j)
    while len(found) > size:
        found.pop(0 if abs(errors[found[0]]) < abs(errors[found[-1]]) else -1)
    return found


def fit(points, n, d):
    size = n + d + 2
    p, q = least_squares(points, n, d)
    for _ in range(20):
        errors = [(f - value(p, x) / value(q, x)) * w for x, f, w in points]
        worst, at = max(map(abs, errors)), alternation(errors, size)
        assert len(at) == size
        level = fsum(errors[j] * (-1)**i for i, j in enumerate(at)) / size
        if worst < abs(level) * mpf('1.01'):
            return p, q, worst
        for _ in range(20):  # Newton on f - P/Q = (-1)^i level / w
            a, b = matrix(size, size), matrix(size, 1)
            for i, j in enumerate(at):
                x, f, w = points[j]
                sign, q_x = (-1)**i, value(q, x)
                due = f - sign * level / w
                a[i, :] = matrix([[x**k for k in range(n + 1)] + [-due * x**k for k in range(1, d + 1)]
                                  + [sign / w * q_x]])
                b[i] = f + sign * level / w * (q_x - 1)
            c = list(lu_solve(a, b))
            p, q, step, level = c[:n + 1], [mpf(1)] + c[n + 1:-1], abs(c[-1] - level), c[-1]
            if step < abs(level) * mpf(10)**-8:
                break
    raise ArithmeticError("no convergence")


def chebyshev(low, high, count=240):
    return [(mpf(low) + high) / 2 - (mpf(high) - low) / 2 * cos(pi * k / (count - 1)) for k in range(count)]


def z_of(t):
    """The root of log(P(Z > z)) = -t^2 / 2, by Newton's method."""
    z = t - mpf(1) / 2
    for _ in range(100):
        tail = erfc(z / sqrt(2)) / 2
        step = (log(tail) + t * t / 2) * tail / exp(-z * z / 2) * sqrt(2 * pi)
        z += step
        if abs(step) < mpf(10)**-42:
            return z
    raise ArithmeticError("no convergence")


def centre(seam, offset):  # z = q (offset + R(w)), w = p (1 - p) = 1/4 - q^2; the error relative to z
    points = []
    for w in chebyshev(seam * (1 - seam), mpf(1) / 4):
        q = sqrt(mpf(1) / 4 - w) if w < mpf(1) / 4 else mpf(0)
        slope = sqrt(mpf(2)) * erfinv(2 * q) / q if q else sqrt(2 * pi)
        points.append((w, slope - offset, 1 / slope))
    return points


def tail(m_high, m_low, slope, offset):  # z = offset + slope L + R(L), L = -log(m); the error relative to z
    points = []
    for level in chebyshev(-log(m_high), -log(m_low)):
        z = z_of(sqrt(2 * level))
        points.append((level, z - slope * level - offset, 1 / z))
    return points


def far_tail(m_high, m_low, shift):  # z = t - shift - S(t), t = sqrt(2 L); the error relative to z
    points = []
    for t in chebyshev(sqrt(-2 * log(m_high)), sqrt(-2 * log(m_low))):
        z = z_of(t)
        points.append((t, t - z - shift, 1 / z))
    return points


def logarithm():  # log((1 + s) / (1 - s)) = 2 s + s^3 L(s^2), the error of L relative
    def series(u):
        return fsum(2 * u**k / (2 * k + 3) for k in range(40))
    s = (sqrt(mpf(2)) - 1) / (sqrt(mpf(2)) + 1)
    return [(u, series(u), 1 / series(u)) for u in chebyshev(0, s * s)]


def exponential():  # exp(r) = 1 + r + r^2 X(r), the error relative to exp(r)
    half = log(mpf(2)) / 2 * mpf('1.0001')
    return [(r, (expm1(r) - r) / r**2, r**2 / exp(r)) for r in chebyshev(-half, half)]


def show(name, points, n, d):
    p, q, worst = fit(points, n, d)
    p, q = [x / q[-1] for x in p], [x / q[-1] for x in q]  # a leading 1 costs no multiplication
    print(f"// error 2^{nstr(log(worst, 2), 4)}")
    for suffix, c in (("_p", p), ("_q", q)) if d else (("", p),):
        print(f"constexpr double {name}{suffix}[] = {{{', '.join(float(x).hex() for x in c)}}};", flush=True)


seam, float_seam = mpf(1) / 16, mpf(21) / 512
far_from, farther_from, end = mpf(2)**-14, mpf(2)**-80, mpf(2)**-1074
show("log_series", logarithm(), 6, 0)
show("short_log_series", logarithm(), 3, 0)
show("exp_series", exponential(), 9, 0)
show("centre", centre(seam, mpf(45) / 16), 8, 8)
show("tail", tail(seam, far_from, mpf(3) / 8, mpf(7) / 16), 8, 7)
show("far_tail", far_tail(far_from, farther_from, mpf(1) / 2), 6, 6)
show("farther_tail", far_tail(farther_from, end, mpf(1) / 2), 7, 7)
show("float_centre", centre(float_seam, 0), 5, 4)
show("float_tail", tail(float_seam, far_from, 0, 0), 4, 4)
