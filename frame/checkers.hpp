// Argument checks beyond those with a C name.
#pragma once

#include "error.hpp"

namespace tavik {

// A required array or variable. 5, 150.
inline bool check_not_null(const void *pointer, const char *name)
{
    if (pointer != nullptr) return true;
    tavik_e1stl(1, name);
    tavik_ermes(terminal, 150);
    return false;
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
