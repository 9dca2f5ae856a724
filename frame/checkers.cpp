// The argument checkers and the guarded division that every folder uses.

#include "checkers.hpp"

#include <algorithm>

namespace tavik {
namespace {

constexpr int no_upper_bound = -1;

// A lower bound alone, whatever it is: an upper one below it stands for none.
void check_at_least(int value, const char *name, int lo)
{
    int position = 0;
    tavik_c1iarg(value, name, lo, std::min(no_upper_bound, lo - 1), &position);
}

void raise_real(int type, long code, const char *name, double x)
{
    tavik_e1std(1, x);
    tavik_e1stl(1, name);
    tavik_ermes(type, code);
}

void check_not_negative(const char *name, double x)
{
    if (!(x >= 0)) raise_real(terminal, 11061, name, x);
}

// A level below one half is allowed, but more often a mistake for its complement or for a fraction.
void check_percentage(const char *name, double percentage)
{
    if (!(percentage >= 0 && percentage < 100)) raise_real(terminal, 20403, name, percentage);
    else if (percentage > 0 && percentage < 50) raise_real(warning_immediate, 20404, name, percentage);
}

} // namespace
} // namespace tavik

using namespace tavik;

extern "C" {

void tavik_c1iarg(int value, const char *name, int lo, int hi, int *position)
{
    ++*position;
    const bool bounded = lo <= hi;
    if (value >= lo && (!bounded || value <= hi)) return;
    tavik_e1sti(1, value);
    tavik_e1sti(2, lo);
    if (bounded) tavik_e1sti(3, hi);
    tavik_e1stl(1, name);
    tavik_ermes(terminal, bounded ? 602 : 603);
}

void tavik_c12ile(int value, const char *name, int limit, const char *limit_name, int *position)
{
    ++*position;
    if (value <= limit) return;
    tavik_e1sti(1, value);
    tavik_e1sti(2, limit);
    tavik_e1stl(1, name);
    tavik_e1stl(2, limit_name);
    tavik_ermes(terminal, 601);
}

// The compound checkers stand for one argument, so they advance the position once.

void tavik_c1ind(int lo, int value, const char *name, int limit, const char *limit_name, int *position)
{
    int inner = 0;
    check_at_least(value, name, lo);
    if (limit > 0) tavik_c12ile(value, name, limit, limit_name, &inner);
    ++*position;
}

void tavik_c1dim(int lo, int value, const char *name, int dimension, const char *dimension_name,
                 int *position)
{
    int inner = 0;
    if (name[0] == '*') ++name;
    else check_at_least(value, name, lo);
    check_at_least(dimension, dimension_name, 1);
    if (dimension > 0) tavik_c12ile(value, name, dimension, dimension_name, &inner);
    ++*position;
}

void tavik_c1ge0(const char *name, float x, int *position)
{
    ++*position;
    check_not_negative(name, x);
}

void tavik_dc1ge0(const char *name, double x, int *position)
{
    ++*position;
    check_not_negative(name, x);
}

void tavik_c1cip(const char *name, float percentage, int *position)
{
    ++*position;
    check_percentage(name, percentage);
}

void tavik_dc1cip(const char *name, double percentage, int *position)
{
    ++*position;
    check_percentage(name, percentage);
}

float tavik_c1div(float a, float b)
{
    return guarded_quotient(a, b);
}

double tavik_dc1div(double a, double b)
{
    return guarded_quotient(a, b);
}

} // extern "C"
