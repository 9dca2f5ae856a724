// Applies the rotations that are set up for a block of pivots to the columns behind it.
#pragma once

#include "panel_kernel.hpp"

namespace tavik::regression {
namespace {

// A strip of columns behind pivots of a block, and the rotations of one factor that are applied to it.
struct Strip {
    double *values; // of the first row
    double *pivot_rows;
    std::size_t stride; // from row to row, of both
    std::size_t pivots;
    const double *h;                // of the factor: row after row, pivot after pivot h12 and h21
    const unsigned char *exchanges; // of all factors; lane_bit is this one's
    unsigned lane_bit;
};

// Applies the rotations of rows_at_once rows from row k on to the `vectors` vectors of a strip. The rows stay in
// registers from the first pivot to the last, a pivot's row while all rows meet it. `ahead` fetches the pivots' rows of
// the next strip, which lie too far apart for the processor to guess them. A function of its own, since the compiler
// runs out of registers where it joins several.
template <std::size_t vectors, bool with_exchanges, bool ahead>
__attribute__((noinline)) void rotate_strip(const Strip &strip, std::size_t k)
{
    const std::size_t stride = strip.stride;
    double *values = strip.values + k * stride, *pivot_row = strip.pivot_rows;
    const double *h = strip.h + k * h_stride, *const h_end = h + 2 * strip.pivots;
    const unsigned char *exchanges = strip.exchanges + k * pivots_in_block;
    V y[rows_at_once][vectors];
    for (std::size_t r = 0; r < rows_at_once; ++r) {
        for (std::size_t v = 0; v < vectors; ++v) y[r][v] = load(values + r * stride + side_by_side * v);
    }
    do {
        if constexpr (ahead) {
            __builtin_prefetch(pivot_row + vectors * side_by_side);
            __builtin_prefetch(pivot_row + 2 * vectors * side_by_side - 1);
        }
        V pivot[vectors];
        for (std::size_t v = 0; v < vectors; ++v) pivot[v] = load(pivot_row + side_by_side * v);
        for (std::size_t r = 0; r < rows_at_once; ++r) {
            if (with_exchanges && (exchanges[r * pivots_in_block] & strip.lane_bit) != 0) {
                for (std::size_t v = 0; v < vectors; ++v) {
                    const V old = pivot[v];
                    pivot[v] = y[r][v];
                    y[r][v] = old;
                }
            }
            const V h12 = broadcast(h[r * h_stride]);
            for (std::size_t v = 0; v < vectors; ++v) pivot[v] = pivot[v] + h12 * y[r][v];
            const V h21 = broadcast(h[r * h_stride + 1]);
            for (std::size_t v = 0; v < vectors; ++v) y[r][v] = y[r][v] - h21 * pivot[v];
        }
        for (std::size_t v = 0; v < vectors; ++v) store(pivot_row + side_by_side * v, pivot[v]);
        pivot_row += stride;
        h += 2;
        ++exchanges;
    } while (h != h_end);
    for (std::size_t r = 0; r < rows_at_once; ++r) {
        for (std::size_t v = 0; v < vectors; ++v) store(values + r * stride + side_by_side * v, y[r][v]);
    }
}

// `exchanged` has the lanes in which some row of a group changed places.
template <std::size_t vectors>
inline void rotate_strip_of_all(const Strip &strip, std::size_t n_rows, const unsigned *exchanged)
{
    for (std::size_t k = 0; k < n_rows; k += rows_at_once) {
        if (__builtin_expect((exchanged[k / rows_in_flight] & strip.lane_bit) != 0, 0))
            rotate_strip<vectors, true, false>(strip, k);
        else if (k + 2 * rows_at_once == n_rows) rotate_strip<vectors, false, true>(strip, k);
        else rotate_strip<vectors, false, false>(strip, k);
    }
}

// Applies the rotations with the first `pivots` pivots of a block to the columns from `column` to `end`, for one
// factor. Strips are taken one after the other, so that a strip of the pivots' rows stays in the first-level cache
// while all rows pass.
inline void rotate_strips(const FactorSet &f, const Tile &tile, const Block &block, std::size_t pivots,
                          std::size_t n_rows, std::size_t factor, std::size_t column, std::size_t end)
{
    double *values = tile.values + factor * rows_per_tile * f.padded,
           *pivot_rows = f.row_behind(factor, block.first);
    const double *h = block.h + factor * rows_per_tile * h_stride;
    const auto strip = [&] {
        return Strip{values + column, pivot_rows + column, f.padded, pivots, h,
                     block.exchanges, 1u << factor};
    };
    for (; column + 3 * side_by_side <= end && column + 4 * side_by_side != end; column += 3 * side_by_side)
        rotate_strip_of_all<3>(strip(), n_rows, block.exchanged);
    for (; column + 2 * side_by_side <= end; column += 2 * side_by_side)
        rotate_strip_of_all<2>(strip(), n_rows, block.exchanged);
    if (column < end) rotate_strip_of_all<1>(strip(), n_rows, block.exchanged);
}

} // namespace
} // namespace tavik::regression
