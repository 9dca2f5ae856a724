// Applies the rotations that are set up for a block of pivots to the columns behind it.
#pragma once

#include "panel_kernel.hpp"

namespace tavik::regression {
namespace {

// A strip of columns behind pivots of a block, and the rotations of one factor that are applied to it.
struct Strip {
    double *values; // of the first row
    double *pivot_rows;
    std::size_t stride, pivot_stride; // from row to row
    std::size_t pivots;
    const double *h;                // of the factor: the block's
    const unsigned char *exchanges; // of all factors: the block's; lane_bit is this one's
    unsigned lane_bit;
};

// Applies a rotation. One factor is loaded after the other has done its work, since registers are just enough.
template <std::size_t vectors> inline void shear(V (&pivot)[vectors], V (&y)[vectors], const double *h)
{
    const V h12 = broadcast(h[0]);
    for (std::size_t v = 0; v < vectors; ++v) pivot[v] = pivot[v] + h12 * y[v];
    const V h21 = broadcast(h[1]);
    for (std::size_t v = 0; v < vectors; ++v) y[v] = y[v] - h21 * pivot[v];
}

template <std::size_t vectors> inline void load_vectors(const double *from, V (&v)[vectors])
{
    for (std::size_t k = 0; k < vectors; ++k) v[k] = load(from + k * side_by_side);
}

template <std::size_t vectors> inline void store_vectors(double *to, const V (&v)[vectors])
{
    for (std::size_t k = 0; k < vectors; ++k) store(to + k * side_by_side, v[k]);
}

// Applies the rotations of rows k to rows_end - 1 with pivots first to end - 1, one at least, to the `vectors` vectors of
// a strip; no rows change places. Of rows_at_once rows at a time, the values stay in registers from the first pivot to
// the last, a pivot's row while all of them meet it. `ahead` fetches what follows in the pivots' rows, mostly the next
// strip: they lie too far apart for the processor to guess them.
template <std::size_t vectors, bool ahead>
__attribute__((noinline)) void rotate_rows(const Strip &strip, std::size_t k, std::size_t rows_end,
                                           std::size_t first, std::size_t end)
{
    const std::size_t stride = strip.stride, pivot_stride = strip.pivot_stride;
    for (; k < rows_end; k += rows_at_once) {
        double *values = strip.values + k * stride, *pivot_row = strip.pivot_rows + first * pivot_stride;
        const double *h = strip.h + 2 * rotation_index(k, first);
        const double *const h_end = strip.h + 2 * rotation_index(k, end);
        V y[rows_at_once][vectors];
        for (std::size_t r = 0; r < rows_at_once; ++r) load_vectors(values + r * stride, y[r]);
        do {
            if constexpr (ahead) {
                __builtin_prefetch(pivot_row + vectors * side_by_side);
                __builtin_prefetch(pivot_row + 2 * vectors * side_by_side - 1);
            }
            V pivot[vectors];
            load_vectors(pivot_row, pivot);
            for (std::size_t r = 0; r < rows_at_once; ++r) shear(pivot, y[r], h + 2 * r);
            store_vectors(pivot_row, pivot);
            pivot_row += pivot_stride;
            h += 2 * rows_at_once;
        } while (h != h_end);
        for (std::size_t r = 0; r < rows_at_once; ++r) store_vectors(values + r * stride, y[r]);
    }
}

// The same with one pivot, some of whose rotations make rows change places.
template <std::size_t vectors> void rotate_with_exchanges(const Strip &strip, std::size_t k, std::size_t i)
{
    double *pivot_row = strip.pivot_rows + i * strip.pivot_stride;
    V pivot[vectors];
    load_vectors(pivot_row, pivot);
    for (std::size_t r = k; r < k + rows_at_once; ++r) {
        V y[vectors];
        load_vectors(strip.values + r * strip.stride, y);
        if ((strip.exchanges[rotation_index(r, i)] & strip.lane_bit) != 0) {
            for (std::size_t v = 0; v < vectors; ++v) {
                const V old = pivot[v];
                pivot[v] = y[v];
                y[v] = old;
            }
        }
        shear(pivot, y, strip.h + 2 * rotation_index(r, i));
        store_vectors(strip.values + r * strip.stride, y);
    }
    store_vectors(pivot_row, pivot);
}

template <std::size_t vectors> void rotate_rows_with_exchanges(const Strip &strip, std::size_t k)
{
    const auto any_at = [&](std::size_t i) {
        unsigned lanes;
        static_assert(sizeof lanes == rows_at_once);
        __builtin_memcpy(&lanes, strip.exchanges + rotation_index(k, i), sizeof lanes);
        return (lanes & strip.lane_bit * 0x01010101U) != 0;
    };
    std::size_t first = 0;
    for (std::size_t i = 0; i < strip.pivots; ++i) {
        if (!any_at(i)) continue;
        if (first < i) rotate_rows<vectors, false>(strip, k, k + rows_at_once, first, i);
        rotate_with_exchanges<vectors>(strip, k, i);
        first = i + 1;
    }
    if (first < strip.pivots) rotate_rows<vectors, false>(strip, k, k + rows_at_once, first, strip.pivots);
}

// All rows of the tile. The last but rows_at_once fetch ahead, so that what they fetch comes in time and is not driven
// out again.
template <std::size_t vectors>
inline void rotate_strip(const Strip &strip, const Block &block, std::size_t n_rows)
{
    if (__builtin_expect((block.exchanged_in(n_rows) & strip.lane_bit) != 0, 0)) {
        for (std::size_t k = 0; k < n_rows; k += rows_at_once) {
            if ((block.exchanged[k / rows_at_once] & strip.lane_bit) != 0)
                rotate_rows_with_exchanges<vectors>(strip, k);
            else rotate_rows<vectors, false>(strip, k, k + rows_at_once, 0, strip.pivots);
        }
        return;
    }
    static_assert(rows_in_flight >= 2 * rows_at_once); // and there are as many rows at least
    const std::size_t ahead = n_rows - 2 * rows_at_once;
    rotate_rows<vectors, false>(strip, 0, ahead, 0, strip.pivots);
    rotate_rows<vectors, true>(strip, ahead, ahead + rows_at_once, 0, strip.pivots);
    rotate_rows<vectors, false>(strip, ahead + rows_at_once, n_rows, 0, strip.pivots);
}

// Applies the rotations with the first `pivots` pivots of a block to the columns from `column` to `end`, for one
// factor. Strips are taken one after the other, so that a strip of the pivots' rows stays in the first-level cache
// while all rows pass.
inline void rotate_strips(const FactorSet &f, const Tile &tile, const Block &block, std::size_t pivots,
                          std::size_t n_rows, std::size_t factor, std::size_t column, std::size_t end)
{
    double *values = tile.values + factor * rows_per_tile * f.padded,
           *pivot_rows = f.row_behind(factor, block.first);
    const double *h = block.h + factor * h_size;
    const std::size_t pivot_stride = f.stride_behind(block.first);
    const auto strip = [&] {
        return Strip{values + column, pivot_rows + column, f.padded, pivot_stride, pivots, h,
                     block.exchanges, 1u << factor};
    };
    for (; column + 3 * side_by_side <= end && column + 4 * side_by_side != end; column += 3 * side_by_side)
        rotate_strip<3>(strip(), block, n_rows);
    for (; column + 2 * side_by_side <= end; column += 2 * side_by_side)
        rotate_strip<2>(strip(), block, n_rows);
    if (column < end) rotate_strip<1>(strip(), block, n_rows);
}

} // namespace
} // namespace tavik::regression
