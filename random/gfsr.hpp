// Generalised feedback shift register with lags 1563 and 96, after Fushimi (1990).
//
// The table holds the last 1563 words of w_k = w_{k-1563} xor w_{k-96}; a word is given out when it is replaced,
// so the stream lags the recurrence by one table.
#pragma once

#include "generator_state.hpp"

#include <cstddef>

namespace tavik::random {

constexpr int gfsr_words = 1563;

// Builds the table from the seed, and sets both positions to their start.
void l_r1inf(random_common_structure &record);

// Draws from a table that is built.
template <class Real> void draw_gfsr(random_common_structure &record, Real *r, std::size_t n);

} // namespace tavik::random
