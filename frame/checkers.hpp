// Argument checks beyond those with a C name.
#pragma once

#include "error.hpp"
#include "precision.hpp"

namespace tavik {

// A required array or variable. 5, 150.
inline bool check_not_null(const void *pointer, const char *name)
{
    if (pointer != nullptr) return true;
    tavik_e1stl(1, name);
    tavik_ermes(terminal, 150);
    return false;
}

// The guarded division: a quotient that overflows is infinite, one that underflows 0, and 0 / 0 is NaN.
template <class Real> Real guarded_quotient(Real a, Real b)
{
    if (std::isnan(a) || std::isnan(b)) return not_a_number<Real>;
    const Real size_a = std::fabs(a), size_b = std::fabs(b);
    if (size_b <= 1 && size_a >= size_b * largest_number<Real>) {
        if (a == 0) return not_a_number<Real>;
        return (a >= 0 && b >= 0) || (a < 0 && b < 0) ? infinity<Real> : -infinity<Real>;
    }
    if (size_b > 1 && size_a < size_b * smallest_normal<Real>) return 0;
    return a / b;
}

// Parameters of 5, 132: an index outside lo to hi.
inline void set_range_parameters(int lo, int hi, int n, const char *name)
{
    tavik_e1sti(1, lo);
    tavik_e1sti(2, hi);
    tavik_e1sti(3, n);
    tavik_e1stl(1, name);
}

} // namespace tavik
