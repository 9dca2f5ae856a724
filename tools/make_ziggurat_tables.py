#!/usr/bin/env python3
"""Writes random/ziggurat_tables.hpp: the layers of the normal ziggurat of Marsaglia and Tsang (2000).

128 layers of equal area v under exp(-x^2/2), the base strip ending at r. Computed in 40 digits and written
with 17. The widths of the first and last strip and the tiny x[128] are fixed figures: streams that users have
saved rest on every bit of these tables, so nothing here may change. Format the output with clang-format.
"""
from mpmath import exp, log, mp, mpf, sqrt

mp.dps = 40
layers = 128
r = mpf("3.4426198558968952")
v = mpf("9.9125630353287564636e-3")  # r exp(-r^2/2) + the area of the tail, to the 15th digit
base_width = mpf("3.71308624674059")  # v / exp(-r^2/2) to 15 digits
tip = mpf("3.0056790906549268e-06")


def density(x):
    return exp(-x * x / 2)


x = [base_width, r]
while len(x) < layers:
    x.append(sqrt(-2 * log(v / x[-1] + density(x[-1]))))
x.append(tip)
f = [density(t) for t in x]
f[layers] = mpf(1)
ratio = [x[i + 1] / x[i] for i in range(layers)] + [mpf(0)]


def rows(values):
    texts = ["%.17g" % float(t) for t in values]
    return ",\n".join("    " + ", ".join(texts[i : i + 4]) for i in range(0, len(texts), 4))


print("""// The layers of the normal ziggurat: widths x, densities f at the widths, ratios of neighbouring widths.
// Written by tools/make_ziggurat_tables.py, which says how the figures come about.
#pragma once

#include <array>
#include <cstddef>

namespace tavik::random {

constexpr int ziggurat_layers = 128;

template <class Real> using ZigguratTable = std::array<Real, ziggurat_layers + 1>;

template <class Real> constexpr ZigguratTable<Real> ziggurat_table(const double (&values)[ziggurat_layers + 1])
{
    ZigguratTable<Real> table{};
    for (std::size_t i = 0; i < table.size(); ++i) table[i] = static_cast<Real>(values[i]);
    return table;
}""")
for name, values in (("x", x), ("f", f), ("ratio", ratio)):
    print(f"""
inline constexpr double ziggurat_{name}_values[ziggurat_layers + 1] = {{
{rows(values)}}};
template <class Real> constexpr ZigguratTable<Real> lv_ziggurat_{name} = ziggurat_table<Real>(ziggurat_{name}_values);""")
print("\n} // namespace tavik::random")
