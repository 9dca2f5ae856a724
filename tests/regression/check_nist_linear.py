#!/usr/bin/env python3
"""Fits the data of nist_linear.hpp in rational arithmetic and holds the certified values against the fits.

A value is right when it is the exact one, rounded to the 15 digits that are given. Filip is fitted a second time as
the doubles that a program gets, for the values that the header gives for them; with --rounded every set is, and the
digits that are printed are what the certified values leave for any program to reach.
"""
import itertools
import math
import operator
import pathlib
import re
import sys
from fractions import Fraction

import mpmath

mpmath.mp.dps = 60
text = (pathlib.Path(__file__).parent / "nist_linear.hpp").read_text()
arrays = {name: values.replace("\n", " ").split(",")
          for name, values in re.findall(r"vector<double> (\w+) = \{([^}]*)\}", text)}
sets = re.findall(r'\{"(\w+)", (\w+), \w+, (\d+), (\d+), (true|false)\}', text)


def solve(a, b):
    """Gauss-Jordan on the rows of a and b, which are replaced by the unit matrix and the solutions."""
    for k in range(len(a)):
        pivot = a[k][k]
        a[k] = [v / pivot for v in a[k]]
        b[k] = [v / pivot for v in b[k]]
        for i in range(len(a)):
            if i != k and a[i][k] != 0:
                factor = a[i][k]
                a[i] = [v - factor * w for v, w in zip(a[i], a[k])]
                b[i] = [v - factor * w for v, w in zip(b[i], b[k])]
    return b


def number(value):
    return mpmath.mpf(value.numerator) / value.denominator


def fit(name, p, degree, ones, rounded):
    exact = [Fraction(v.strip()) for v in arrays[name]]
    columns = 2 if degree else p + 1
    rows = [exact[i:i + columns] for i in range(0, len(exact), columns)]
    y = [row[0] for row in rows]
    x = [[row[1]] * p if degree else row[1:] for row in rows]
    if rounded:
        y = [Fraction(float(v)) for v in y]
        x = [[float(v) for v in row] for row in x]
    if degree:
        x = [list(itertools.accumulate(row, operator.mul)) for row in x]
    x = [[Fraction(v) for v in row] for row in x]
    x = [[Fraction(1)] * ones + row for row in x]
    n, c = len(x), p + ones
    cross = [[sum(row[i] * row[j] for row in x) for j in range(c)] for i in range(c)]
    right = [[sum(row[i] * v for row, v in zip(x, y))] + [Fraction(i == j) for j in range(c)] for i in range(c)]
    solution = solve(cross, right)
    b = [row[0] for row in solution]
    sse = sum((v - sum(s * t for s, t in zip(b, row))) ** 2 for v, row in zip(y, x))
    mean = sum(y) / n if ones else 0
    sst = sum((v - mean) ** 2 for v in y)
    variance = sse / (n - c)
    values = []
    for i in range(c):
        values += [number(b[i]), mpmath.sqrt(number(variance * solution[i][1 + i]))]
    return values + [mpmath.sqrt(number(variance)), number(1 - sse / sst),
                     number((sst - sse) / p / variance) if sse else mpmath.inf]


def given(name):
    return [mpmath.mpf(v.strip().replace("infinite", "inf")) for v in arrays[name]]


def digits(value, due):
    return 99 if value == due or due == 0 else -float(mpmath.log10(abs(value - due) / abs(due)))


wrong = 0
for title, name, p, degree, intercept in sets:
    shape = int(p), int(degree), int(intercept == "true")
    certified = given(name + "_certified")
    for reference, rounded in ((name + "_certified", False), (name + "_of_doubles", True)):
        if reference not in arrays:
            continue
        exact = fit(name, *shape, rounded)
        assert len(exact) == len(arrays[reference])
        for i, (value, due) in enumerate(zip(given(reference), exact)):
            if mpmath.nstr(value, 15) != mpmath.nstr(due, 15):
                wrong += 1
                print(f"{title}: value {i} is {mpmath.nstr(value, 15)}, but {mpmath.nstr(due, 15)} in exact arithmetic")
    if "--rounded" in sys.argv:
        exact = fit(name, *shape, True)
        reachable = min(digits(value, due) for value, due in zip(exact, certified))
        print(title, "reachable:", math.floor(10 * reachable) / 10)
print(wrong, "values are wrong")
sys.exit(wrong > 0)
