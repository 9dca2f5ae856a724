// Uniform and normal deviates by GSL and by the engines of the C++ standard library.
#pragma once

#include <cstddef>

namespace peers {

using Fill = void (*)(double *r, std::size_t n);

void gsl_minstd(double *r, std::size_t n);
void gsl_gfsr4(double *r, std::size_t n);
void gsl_mt19937(double *r, std::size_t n);

// The engine's words, turned into a double by one multiplication.
void std_mt19937(double *r, std::size_t n);
void std_mt19937_64(double *r, std::size_t n);

// Integers from 1 to 6.
void std_dice(int *r, std::size_t n);

// Normal deviates; the uniforms are those of GSL's mt19937.
void gsl_inversion(double *r, std::size_t n);
void gsl_ziggurat(double *r, std::size_t n);
void gsl_ratio_method(double *r, std::size_t n);

} // namespace peers
