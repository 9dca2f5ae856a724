// Uniform deviates from the calling thread's generator: what every random routine of the library draws from.
#pragma once

#include "generator_state.hpp"

namespace tavik::random {

// Draws n >= 1 deviates. False, with error 5, 200, when there is no memory for the generator's state; after one
// success of a call, further draws of that call cannot fail.
template <class Real> bool draw_uniforms(Real *r, std::size_t n);

// Fills the shuffle table from the seed. A generator without shuffling fills nothing, but the table counts as
// filled.
template <class Real> void fill_shuffle_table(GeneratorState &state);

// The check of the internal routines that draw, which the library's other folders call, too: raises 5, 603 under
// the routine's name unless n >= 1. Names and argument names are fixed, blanks and capitals included.
bool check_draw_count(const char *routine, int n, const char *argument);

} // namespace tavik::random
