#!/usr/bin/env python3
"""Prints quantile_reference.hpp: quantiles of exactly these binary p and degrees of freedom, by mpmath.

Each is the root of log F = log p (F the smaller tail, or P(|T| < t) near the median) as a function of the
logarithm of the argument, by Newton's method at 60 digits; the last step must be below 1e-50. F comes from
the incomplete beta and gamma functions, and from 2e4 degrees of freedom by quadrature of the density.
"""
import struct

from mpmath import mp, mpf, betainc, erfinv, exp, expm1, gammainc, inf, log, log1p, loggamma, pi, quad, sqrt

mp.dps = 60


def f32(x):
    """The float nearest to x, as a double: such rows serve both precisions."""
    return struct.unpack("f", struct.pack("f", x))[0]


def solve(w, log_excess_and_slope):
    for _ in range(200):
        excess, slope = log_excess_and_slope(w)
        step = excess / slope
        w -= step
        if abs(step) < mpf(10) ** -50:
            return w
    raise ArithmeticError("no convergence")


def tail_integral(density, start, width, sign):
    """Integral of a bell-shaped density from start to its end, in pieces that double from width."""
    top = density(start)
    ends = [start] + [start + sign * width * 2**k for k in range(-3, 9)]
    return top * sum(quad(lambda s: density(s) / top, sorted(e)) for e in zip(ends, ends[1:]))


def normal(p):
    if 0.25 < p < 0.75:
        return sqrt(2) * erfinv(2 * mpf(p) - 1)
    tail = min(mpf(p), 1 - mpf(p))

    def curve(w):
        z = exp(w)
        value, density = mp.erfc(z / sqrt(2)) / 2, exp(-z * z / 2) / sqrt(2 * pi)
        return log(value / tail), -z * density / value

    return (1 if p > 0.5 else -1) * exp(solve(log(sqrt(-2 * log(tail))), curve))


def student_t(p, nu):
    nu, a, tail, central = mpf(nu), mpf(nu) / 2, 2 * min(mpf(p), 1 - mpf(p)), abs(2 * mpf(p) - 1)
    inside = central < tail
    mp.dps = 100  # loggamma(1e15) is large
    constant = 2 * exp(loggamma(a + 0.5) - loggamma(a)) / sqrt(pi * nu)
    mp.dps = 60

    def density(t):
        return constant * exp(-(nu + 1) / 2 * log1p(t * t / nu))

    def curve(w):
        t = exp(w)
        x, y = nu / (nu + t * t), t * t / (nu + t * t)
        if nu >= 2e4:
            value = t * quad(lambda u: density(t * u), [0, 0.5, 1]) if inside else \
                tail_integral(density, t, 1 / (1 + t), 1)
        else:
            value = betainc(0.5, a, 0, y, True) if inside else betainc(a, 0.5, 0, x, True)
        return log(value / (central if inside else tail)), (1 if inside else -1) * t * density(t) / value
    if inside:
        start = log(central / density(0))
    else:
        start = log(sqrt(nu)) - log(tail) / nu if nu < 5 else log(sqrt(-2 * log(tail)) + 1)
    return (1 if p > 0.5 else -1) * exp(solve(start, curve))


def chi_squared(p, nu):
    a, lower = mpf(nu) / 2, p < 0.5
    target = mpf(p) if lower else 1 - mpf(p)
    mp.dps = 100
    log_constant = a * log(a) - a - loggamma(a)
    mp.dps = 60

    def density(w):  # of x = a exp(w), times x
        return exp(log_constant - a * (expm1(w) - w))

    def curve(w):
        x, mu = a * exp(w), expm1(w)
        if nu >= 2e4:
            width = 1 / (sqrt(a) + abs(mu) * a)
            value = tail_integral(lambda m: density(log1p(m)) / (1 + m), mu, width, -1 if lower else 1)
        else:
            value = gammainc(a, 0, x, True) if lower else gammainc(a, x, inf, True)
        return log(value / target), (1 if lower else -1) * density(w) / value
    root = sqrt(-2 * log(target) / a)
    if lower:
        start = log1p(-root) if nu >= 2e4 else (log(target) + loggamma(a + 1)) / a - log(a)
    else:
        start = log1p(root + root**2 / 2)
    return 2 * a * exp(solve(start, curve))


up, down, least, tiny, t1 = 1 - 2.0**-53, 1 - 2.0**-24, 2.0**-1074, 2.0**-149, f32(0.025)
normal_rows = [least, 1e-300, 1e-100, tiny, 2.0**-24, t1, 0.25, 0.5 - 2.0**-25, 0.5 + 2.0**-52, 0.625, down,
               up]
t_rows = [(t1, 2.0**-10), (0.5 + 2.0**-13, f32(1e-3)), (0.5 - 2.0**-30, 2.0**-30), (0.125, 2.0**-7),
          (0.4375, 0.125), (2.0**-100, 0.25), (f32(0.9), 0.5), (least, 3), (0.5 - 2.0**-54, 4),
          (0.5 + 2.0**-24, 6), (t1, 7.5), (1e-300, 10), (t1, 30), (least, 300), (tiny, 499), (1e-250, 2500),
          (f32(0.7), 5000), (least, 99999), (f32(0.6), 99999), (least, 100000), (t1, 100000), (up, 2.0**20),
          (1e-30, 1e10), (down, f32(1e15))]
chi_rows = [(t1, 2.0**-7), (f32(0.00712942006), f32(0.0141805327)), (down, f32(1e-3)), (0.9375, 2.0**-6),
            (0.5, f32(0.1)), (1e-300, 2.5), (t1, 0.5), (0.5, 0.8125), (f32(0.9), 1), (tiny, 3), (up, 5),
            (f32(0.975), 10), (least, 30), (1e-200, 100), (least, 330), (0.25, 999), (least, 4000),
            (f32(0.6), 30001), (least, 99999), (0.5, 99999), (least, 100000), (0.5, 100000), (up, 2.0**20),
            (1e-30, 1e10), (f32(0.975), f32(1e15))]


def table(name, function, rows):
    print(f"\nconstexpr QuantileRow {name}_rows[] = {{")
    for row in rows:
        p, nu = row if isinstance(row, tuple) else (row, 0)
        value = mp.nstr(function(*row) if nu else function(p), 28, min_fixed=0, max_fixed=0)
        print(f"    {{{float(p)!r}, {float(nu)!r}, {value}L}},")
    print("};")


print("""// Made by make_quantile_reference.py: quantiles by mpmath, 60 digits, printed to 28. Each row is
// {p, degrees of freedom, quantile} for exactly the double p written here.
#pragma once

struct QuantileRow {
    double p, degrees_of_freedom;
    long double quantile;
};""")
table("normal", normal, normal_rows)
table("student_t", student_t, t_rows)
table("chi_squared", chi_squared, chi_rows)
