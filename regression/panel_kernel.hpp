// Sets up the rotations of a tile's rows with the pivots of a panel, and applies them within the panel.
#pragma once

#include "kernel_vectors.hpp"

namespace tavik::regression {
namespace {

template <class Mask, class T> inline void exchange_where(Mask mask, T &a, T &b)
{
    const T old = a;
    a = mask ? b : a;
    b = mask ? old : b;
}

// The rotations of a tile's rows with the pivots of a block.
struct Block {
    std::size_t first;        // pivot
    double *h;                // factor after factor: h12 and h21, at twice rotation_index
    unsigned char *exchanges; // lanes whose rows change places, as bits: at rotation_index
    unsigned *exchanged;      // of every rows_at_once rows: all lanes in which some do

    // The same of the tile's first n_rows.
    unsigned exchanged_in(std::size_t n_rows) const
    {
        unsigned lanes = 0;
        for (std::size_t k = 0; k < n_rows; k += rows_at_once) lanes |= exchanged[k / rows_at_once];
        return lanes;
    }
};

// Of row k and pivot i of a block: rows that rotations are applied to together stand together.
inline std::size_t rotation_index(std::size_t k, std::size_t i)
{
    return (k / rows_at_once * pivots_in_block + i) * rows_at_once + k % rows_at_once;
}

// A tile's rows within one panel, and the rotations that are set up for them.
template <class T> struct Panel {
    static constexpr std::size_t factors = factors_in<T>;

    Panel(const FactorSet &f, const Tile &tile, const Block &block, std::size_t first_column)
        : first(first_column), pivots(f.n - first < f.panel ? f.n - first : f.panel),
          p(f.p + first * factors), diagonal(f.diagonal + first * factors),
          reciprocal_p(f.reciprocal_p + first * factors),
          reciprocal_diagonal(f.reciprocal_diagonal + first * factors),
          within(f.within + first * panel_stride * factors), weights(tile.weights), rows(tile.scratch),
          h(rows + rows_per_tile * panel_stride * factors),
          exchanges(block.exchanges + rotation_index(0, first - block.first)), exchanged(block.exchanged)
    {
    }

    std::size_t first, pivots;
    double *p, *diagonal, *reciprocal_p, *reciprocal_diagonal, *within; // of the panel's first row on
    double *weights;
    double *rows;             // rows_per_tile x panel_stride x factors
    double *h;                // row after row, of pivots_at_once pivots h12, h21, of all factors each
    unsigned char *exchanges; // of the block, from the panel's first pivot on
    unsigned *exchanged;

    double *row(std::size_t k) const
    {
        return rows + k * panel_stride * factors;
    }

    // Until rotations with other pivots are set up.
    double *rotation(std::size_t k, std::size_t i) const
    {
        return h + 2 * (k * pivots_at_once + i % pivots_at_once) * factors;
    }

    unsigned char &exchange(std::size_t k, std::size_t i) const
    {
        return exchanges[rotation_index(k, i)];
    }
};

// 1 / x, but 0 of 0. Where it overflows, the results shall show that.
template <class T> inline T reciprocal_or_zero(T x)
{
    const T zero = {};
    return x == zero ? zero : 1 / x;
}

// Exchanges row k and row i of the factor up to column `end` in the lanes of the mask, and the numbers that belong to
// them.
template <class T, class Mask>
__attribute__((noinline)) void exchange_rows(const Panel<T> &panel, std::size_t k, std::size_t i,
                                             std::size_t end, Mask lanes)
{
    constexpr std::size_t factors = Panel<T>::factors;
    double *row = panel.row(k), *pivot_row = panel.within + i * panel_stride * factors;
    T p = load_as<T>(panel.p + i * factors), x = load_as<T>(panel.diagonal + i * factors);
    T w = load_as<T>(panel.weights + k * factors), y = load_as<T>(row + i * factors);
    const T zero = {};
    T scale = x == zero ? zero : p / x, p_of_row = w * y;
    exchange_where(lanes, scale, w);
    exchange_where(lanes, p, p_of_row);
    exchange_where(lanes, x, y);
    store(panel.weights + k * factors, w);
    store(panel.p + i * factors, p);
    store(panel.reciprocal_p + i * factors, reciprocal_or_zero(p));
    store(panel.diagonal + i * factors, x);
    store(panel.reciprocal_diagonal + i * factors, reciprocal_or_zero(x));
    store(row + i * factors, y);
    for (std::size_t j = i + 1; j < end; ++j) {
        T r = load_as<T>(pivot_row + j * factors), v = load_as<T>(row + j * factors);
        exchange_where(lanes, r, v);
        store(pivot_row + j * factors, r);
        store(row + j * factors, v);
    }
    panel.exchange(k, i) = static_cast<unsigned char>(true_lanes(lanes));
    panel.exchanged[k / rows_at_once] |= true_lanes(lanes);
}

// A square below this counts as 0. What equal columns leave of each other shrinks from column to column by the
// rounding, and must end before its reciprocal overflows.
constexpr double least_square = 1e-280;

// A pivot of the panel and its row up to the end of a triangle of `count` columns, while rows of a group meet it one
// after the other.
template <class T, std::size_t count> struct Pivot {
    T p, x, reciprocal_p, reciprocal_x, r[count];
    double *p_at, *x_at, *reciprocal_p_at, *reciprocal_x_at, *r_at;

    Pivot(const Panel<T> &panel, std::size_t i)
        : p_at(panel.p + i * Panel<T>::factors), x_at(panel.diagonal + i * Panel<T>::factors),
          reciprocal_p_at(panel.reciprocal_p + i * Panel<T>::factors),
          reciprocal_x_at(panel.reciprocal_diagonal + i * Panel<T>::factors),
          r_at(panel.within + (i * panel_stride + i) * Panel<T>::factors)
    {
        load_all();
    }

    void load_all()
    {
        p = load_as<T>(p_at);
        x = load_as<T>(x_at);
        reciprocal_p = load_as<T>(reciprocal_p_at);
        reciprocal_x = load_as<T>(reciprocal_x_at);
        for (std::size_t j = 1; j < count; ++j) r[j] = load_as<T>(r_at + j * Panel<T>::factors);
    }

    // But for p, which rotations do not change.
    void store_all() const
    {
        store(x_at, x);
        store(reciprocal_x_at, reciprocal_x);
        for (std::size_t j = 1; j < count; ++j) store(r_at + j * Panel<T>::factors, r[j]);
    }
};

// 0 in the lanes of the mask.
template <class T, class Mask> inline T zero_where(Mask mask, T x)
{
    return __builtin_bit_cast(T, ~mask & __builtin_bit_cast(Mask, x));
}

// A group of rows from a pivot's column on, and where its rotations with that pivot go: addresses that differ from row
// to row by constants.
template <class T> struct Group {
    double *values, *weights, *h;

    Group(const Panel<T> &panel, std::size_t k, std::size_t i)
        : values(panel.row(k) + i * Panel<T>::factors), weights(panel.weights + k * Panel<T>::factors),
          h(panel.rotation(k, i))
    {
    }
};

template <class T> inline T smaller(T a, T b)
{
    return a < b ? a : b;
}

template <class T> inline T larger(T a, T b)
{
    return a > b ? a : b;
}

// What the rotations of a group of rows with a pivot are made of, provided that all rows are plain: each weighs something
// in the pivot's column, and less than the pivot alone. One look at all of them saves many at each. A row that is NaN
// counts as plain, since it spoils all that it meets in any case; beside a pivot that is NaN all do, even those without
// weight, in columns that are lost anyway. So the second of two numbers must win in `smaller` and `larger` when one is
// NaN.
template <class T> struct PlainRotations {
    T x[rows_in_flight + 1]; // of the pivot, before and behind each row
    bool all;                // rows are plain

    // Writes h12 of each row; h21 waits for a division.
    template <std::size_t count> PlainRotations(const Group<T> &group, const Pivot<T, count> &pivot)
    {
        constexpr std::size_t factors = factors_in<T>;
        const T least = T{} + least_square, own_square = pivot.p * pivot.x;
        T smallest = own_square, largest = least;
        x[0] = pivot.x;
#pragma GCC unroll 8
        for (std::size_t r = 0; r < rows_in_flight; ++r) {
            const T y = load_as<T>(group.values + r * panel_stride * factors),
                    p2 = load_as<T>(group.weights + r * factors) * y, square = p2 * y,
                    h12 = p2 * pivot.reciprocal_p;
            smallest = smaller(square, smallest);
            largest = larger(square, largest);
            x[r + 1] = x[r] + h12 * y;
            store(group.h + 2 * r * pivots_at_once * factors, h12);
        }
        all = !any((smallest < least) | (largest >= own_square));
    }
};

// Rotates a group of plain rows with the pivot, as `rotate` does one.
template <class T, std::size_t count>
inline void rotate_plain_rows(const Group<T> &group, const PlainRotations<T> &plain, Pivot<T, count> &pivot)
{
    constexpr std::size_t factors = factors_in<T>;
    T reciprocal_x[rows_in_flight + 1];
    reciprocal_x[0] = pivot.reciprocal_x;
#pragma GCC unroll 8
    for (std::size_t r = 0; r < rows_in_flight; ++r) reciprocal_x[r + 1] = 1 / plain.x[r + 1];
#pragma GCC unroll 8
    for (std::size_t r = 0; r < rows_in_flight; ++r) {
        double *row = group.values + r * panel_stride * factors, *weight = group.weights + r * factors,
               *h = group.h + 2 * r * pivots_at_once * factors;
        const T h21 = load_as<T>(row) * reciprocal_x[r + 1], h12 = load_as<T>(h);
        store(weight, T(load_as<T>(weight) * (plain.x[r + 1] * reciprocal_x[r])));
        store(h + factors, h21);
        for (std::size_t j = 1; j < count; ++j) {
            const T v = load_as<T>(row + j * factors);
            pivot.r[j] = pivot.r[j] + h12 * v;
            store(row + j * factors, T(v - h21 * pivot.r[j]));
        }
    }
    pivot.x = plain.x[rows_in_flight];
    pivot.reciprocal_x = reciprocal_x[rows_in_flight];
}

// Sets up the rotation of row r of the group with the pivot and applies it to the `count` columns from the pivot's on.
// There is one division. `exchange` makes a row that outweighs the pivot and the pivot's
// change places in memory, since that happens too seldom for the pivot to leave its registers otherwise; and a row
// without weight in this column is left as it is: nothing is to be rotated, and if it has none at all, it could grow
// on and on.
template <class T, std::size_t count, class Exchange>
inline void rotate(const Group<T> &group, std::size_t r, Pivot<T, count> &pivot, const Exchange &exchange)
{
    constexpr std::size_t factors = factors_in<T>;
    double *row = group.values + r * panel_stride * factors, *weight = group.weights + r * factors,
           *h = group.h + 2 * r * pivots_at_once * factors;
    T w = load_as<T>(weight), y = load_as<T>(row), p2 = w * y;
    const T least = T{} + least_square, square = p2 * y, own_square = pivot.p * pivot.x;
    const auto outweighs = square >= (own_square < least ? least : own_square), // never beside NaN
        idle = square < least;                                                  // NaN is not
    if (any(outweighs)) {
        pivot.store_all();
        exchange(r, outweighs);
        pivot.load_all();
        w = load_as<T>(weight);
        y = load_as<T>(row);
        p2 = w * y;
    }
    const T h12 = zero_where(idle, T(p2 * pivot.reciprocal_p));
    const T rotated_x = pivot.x + h12 * y;
    store(weight, idle ? w : w * (rotated_x * pivot.reciprocal_x));
    pivot.x = rotated_x;
    pivot.reciprocal_x = 1 / rotated_x; // of an empty row infinite, and not used
    const T h21 = zero_where(idle, T(y * pivot.reciprocal_x));
    store(h, h12);
    store(h + factors, h21);
    for (std::size_t j = 1; j < count; ++j) {
        const T v = load_as<T>(row + j * factors);
        pivot.r[j] = pivot.r[j] + h12 * v;
        store(row + j * factors, T(v - h21 * pivot.r[j]));
    }
}

// Rotations of the tile's rows with pivot i and, after it, with those behind it: a triangle of `count` columns. All rows
// meet a pivot before the first meets the next: only the pivot's own sum passes from row to row, so their divisions
// overlap.
template <class T, std::size_t count>
inline void rotate_triangle(const Panel<T> &panel, std::size_t n_rows, std::size_t i)
{
    Pivot<T, count> pivot(panel, i);
    for (std::size_t k = 0; k < n_rows; k += rows_in_flight) {
        const Group<T> group(panel, k, i);
        const PlainRotations<T> plain(group, pivot);
        if (__builtin_expect(plain.all, 1)) {
            rotate_plain_rows(group, plain, pivot);
        } else {
            const auto exchange = [&panel, k, i](std::size_t r, auto lanes) {
                exchange_rows(panel, k + r, i, i + count, lanes);
            };
            for (std::size_t r = 0; r < rows_in_flight; ++r) rotate(group, r, pivot, exchange);
        }
    }
    pivot.store_all();
    if constexpr (count > 1) rotate_triangle<T, count - 1>(panel, n_rows, i + 1);
}

inline VMask lanes_of(unsigned bits, VMask)
{
    const VMask lane = {1, 2, 4, 8}, all = {static_cast<int>(bits), static_cast<int>(bits),
                                            static_cast<int>(bits), static_cast<int>(bits)};
    return (all & lane) == lane;
}

inline SMask lanes_of(unsigned bits, SMask)
{
    return SMask{bits != 0 ? -1 : 0, 0};
}

// Applies the rotations of the tile's rows with pivots_at_once pivots from `first` on to `columns` columns of the panel
// from j on. The pivots' rows stay in registers while all rows pass.
template <class T, std::size_t columns, bool with_exchanges>
inline void rotate_columns(const Panel<T> &panel, std::size_t n_rows, std::size_t first, std::size_t j)
{
    constexpr std::size_t factors = factors_in<T>, row_stride = panel_stride * factors,
                          h_stride = 2 * pivots_at_once * factors;
    double *pivot_rows = panel.within + (first * panel_stride + j) * factors;
    T pivot[pivots_at_once][columns];
    for (std::size_t i = 0; i < pivots_at_once; ++i) {
        for (std::size_t c = 0; c < columns; ++c)
            pivot[i][c] = load_as<T>(pivot_rows + i * row_stride + c * factors);
    }
    double *row = panel.row(0) + j * factors;
    const double *h = panel.rotation(0, first);
    for (std::size_t k = 0; k < n_rows; ++k, row += row_stride, h += h_stride) {
        T y[columns];
        for (std::size_t c = 0; c < columns; ++c) y[c] = load_as<T>(row + c * factors);
        for (std::size_t i = 0; i < pivots_at_once; ++i) {
            if constexpr (with_exchanges) {
                const auto lanes = lanes_of(panel.exchange(k, first + i), T{} < T{});
                for (std::size_t c = 0; c < columns; ++c) exchange_where(lanes, pivot[i][c], y[c]);
            }
            const T h12 = load_as<T>(h + 2 * i * factors);
            for (std::size_t c = 0; c < columns; ++c) pivot[i][c] = pivot[i][c] + h12 * y[c];
            const T h21 = load_as<T>(h + (2 * i + 1) * factors);
            for (std::size_t c = 0; c < columns; ++c) y[c] = y[c] - h21 * pivot[i][c];
        }
        for (std::size_t c = 0; c < columns; ++c) store(row + c * factors, y[c]);
    }
    for (std::size_t i = 0; i < pivots_at_once; ++i) {
        for (std::size_t c = 0; c < columns; ++c)
            store(pivot_rows + i * row_stride + c * factors, pivot[i][c]);
    }
}

template <class T, bool with_exchanges>
inline void rotate_rest_of_panel(const Panel<T> &panel, std::size_t n_rows, std::size_t first)
{
    std::size_t j = first + pivots_at_once;
    for (; j + 3 <= panel.pivots && j + 4 != panel.pivots; j += 3)
        rotate_columns<T, 3, with_exchanges>(panel, n_rows, first, j);
    for (; j + 2 <= panel.pivots; j += 2) rotate_columns<T, 2, with_exchanges>(panel, n_rows, first, j);
    if (j < panel.pivots) rotate_columns<T, 1, with_exchanges>(panel, n_rows, first, j);
}

// Takes the tile's rows into the panel.
inline void take_rows(const Panel<V> &panel, const FactorSet &f, const Tile &tile, std::size_t n_rows)
{
    const std::size_t factor_stride = rows_per_tile * f.padded;
    for (std::size_t r = 0; r < n_rows; ++r) {
        const double *from = tile.values + r * f.padded + panel.first;
        for (std::size_t j = 0; j < panel.pivots; j += side_by_side) {
            V a = load(from + j), b = load(from + factor_stride + j), c = load(from + 2 * factor_stride + j),
              d = load(from + 3 * factor_stride + j);
            transpose(a, b, c, d);
            double *to = panel.row(r) + j * side_by_side;
            store(to, a);
            store(to + side_by_side, b);
            store(to + 2 * side_by_side, c);
            store(to + 3 * side_by_side, d);
        }
    }
}

inline void take_rows(const Panel<S> &panel, const FactorSet &f, const Tile &tile, std::size_t n_rows)
{
    for (std::size_t r = 0; r < n_rows; ++r)
        __builtin_memcpy(panel.row(r), tile.values + r * f.padded + panel.first,
                         panel.pivots * sizeof(double));
}

// Puts the rotations of the tile's rows with pivots_at_once pivots from `first` on among those of the block, one
// factor's together: read again and again there, they stay in the nearest caches. Whole lines are written at a time.
inline void set_apart(const Panel<V> &panel, const Block &block, std::size_t n_rows, std::size_t first)
{
    static_assert(rows_at_once == 4);
    for (std::size_t r = 0; r < n_rows; r += rows_at_once) {
        for (std::size_t i = first; i < first + pivots_at_once; ++i) {
            V of_factor[2][side_by_side]; // two rows' h12 and h21 each
            for (std::size_t half = 0; half < 2; ++half) {
                V(&v)[side_by_side] = of_factor[half];
                for (std::size_t q = 0; q < side_by_side; ++q)
                    v[q] = load(panel.rotation(r + 2 * half + q / 2, i) + q % 2 * side_by_side);
                transpose(v[0], v[1], v[2], v[3]);
            }
            double *to = block.h + 2 * rotation_index(r, panel.first - block.first + i);
            for (std::size_t factor = 0; factor < side_by_side; ++factor, to += h_size) {
                store(to, of_factor[0][factor]);
                store(to + side_by_side, of_factor[1][factor]);
            }
        }
    }
}

inline void set_apart(const Panel<S> &panel, const Block &block, std::size_t n_rows, std::size_t first)
{
    for (std::size_t r = 0; r < n_rows; ++r) {
        for (std::size_t i = first; i < first + pivots_at_once; ++i)
            __builtin_memcpy(block.h + 2 * rotation_index(r, panel.first - block.first + i),
                             panel.rotation(r, i), 2 * sizeof(double));
    }
}

// All rotations of the tile's rows with the panel, a few pivots after the other.
template <class T>
inline void rotate_panel(const Panel<T> &panel, const Block &block, std::size_t n_rows, bool is_last)
{
    static_assert(pivots_at_once == 4);
    for (std::size_t first = 0; first < panel.pivots; first += pivots_at_once) {
        switch (panel.pivots - first) {
        case 1: rotate_triangle<T, 1>(panel, n_rows, first); break;
        case 2: rotate_triangle<T, 2>(panel, n_rows, first); break;
        case 3: rotate_triangle<T, 3>(panel, n_rows, first); break;
        default: rotate_triangle<T, 4>(panel, n_rows, first);
        }
        if (!is_last) set_apart(panel, block, n_rows, first);
        if (block.exchanged_in(n_rows) != 0) rotate_rest_of_panel<T, true>(panel, n_rows, first);
        else rotate_rest_of_panel<T, false>(panel, n_rows, first);
    }
}

} // namespace
} // namespace tavik::regression
