// The rotation kernels, written once. A file of a few lines compiles them for each instruction level; everything
// here has internal linkage, so that no level's code can stand in for another's at link time.

#include "reading_kernel.hpp"

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
    double *h;                // factor after factor, row after row, pivot after pivot: h12, h21
    unsigned char *exchanges; // row after row, pivot after pivot: lanes whose rows change places, as bits
    unsigned *exchanged;      // of each group of rows: all lanes in which some do
};

// The rows of a tile within one panel, and the rotations that are set up for it.
template <class T> struct Panel {
    static constexpr std::size_t factors = factors_in<T>;

    Panel(const FactorSet &f, const Tile &tile, const Block &block, std::size_t first_column)
        : first(first_column), pivots(f.n - first < f.panel ? f.n - first : f.panel),
          p(f.p + first * factors), diagonal(f.diagonal + first * factors),
          reciprocal_p(f.reciprocal_p + first * factors),
          reciprocal_diagonal(f.reciprocal_diagonal + first * factors),
          within(f.within + first * panel_stride * factors), weights(tile.weights), rows(tile.scratch),
          h(rows + rows_per_tile * panel_stride * factors),
          exchanges(block.exchanges + (first - block.first)), exchanged(block.exchanged)
    {
    }

    std::size_t first, pivots;
    double *p, *diagonal, *reciprocal_p, *reciprocal_diagonal, *within; // of the panel's first row on
    double *weights;
    double *rows;             // rows_per_tile x panel_stride x factors
    double *h;                // of a group of rows: pivot after pivot h12, h21, of all factors each
    unsigned char *exchanges; // of the block, from the panel's first pivot on
    unsigned *exchanged;

    double *row(std::size_t k) const
    {
        return rows + k * panel_stride * factors;
    }

    // Of row k and pivot i, while the row's group is at work.
    double *rotation(std::size_t k, std::size_t i) const
    {
        return h + 2 * (k % rows_in_flight * panel_stride + i) * factors;
    }

    unsigned char &exchange(std::size_t k, std::size_t i) const
    {
        return exchanges[k * pivots_in_block + i];
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
    panel.exchanged[k / rows_in_flight] |= true_lanes(lanes);
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

// Sets up the rotation of row r of the group with the pivot and applies it to the `count` columns from the pivot's on.
// There is one division, and the multipliers do not wait for it. `exchange` makes the row and the pivot's change places
// in memory, since that happens too seldom for the pivot to leave its registers otherwise.
template <class T, std::size_t count, class Exchange>
inline void rotate(const Group<T> &group, std::size_t r, Pivot<T, count> &pivot, const Exchange &exchange)
{
    constexpr std::size_t factors = factors_in<T>;
    double *row = group.values + r * panel_stride * factors, *weight = group.weights + r * factors,
           *h = group.h + 2 * r * panel_stride * factors;
    T w = load_as<T>(weight), y = load_as<T>(row), p2 = w * y;
    const T least = T{} + least_square, square = p2 * y, own_square = pivot.p * pivot.x;
    const auto outweighs = square >= (own_square < least ? least : own_square); // never beside NaN
    if (__builtin_expect(any(outweighs), 0)) {
        pivot.store_all();
        exchange(r, outweighs);
        pivot.load_all();
        w = load_as<T>(weight);
        y = load_as<T>(row);
        p2 = w * y;
    }
    // A row without weight in this column is left as it is: nothing is to be rotated, and if it has none at all, it
    // could grow on and on.
    const auto idle = square < least; // NaN is not
    const T h12 = zero_where(idle, T(p2 * pivot.reciprocal_p));
    const T h21 = zero_where(idle, T(y * pivot.reciprocal_x));
    const T rotated_x = pivot.x + h12 * y;
    pivot.reciprocal_x = 1 / rotated_x; // of an empty row infinite, and not used
    store(weight, idle ? w : w * (pivot.x * pivot.reciprocal_x));
    pivot.x = rotated_x;
    store(h, h12);
    store(h + factors, h21);
    for (std::size_t j = 1; j < count; ++j) {
        const T v = load_as<T>(row + j * factors);
        store(row + j * factors, T(v - h21 * pivot.r[j]));
        pivot.r[j] = pivot.r[j] + h12 * v;
    }
}

// Rotations of a group of rows from row k on with pivot i and, after it, with those behind it: a triangle of `count`
// columns. All rows meet a pivot before the first meets the next: only the pivot's own sum passes
// from row to row, so their divisions overlap.
template <class T, std::size_t count>
inline void rotate_triangle(const Panel<T> &panel, std::size_t k, std::size_t i)
{
    const Group<T> group(panel, k, i);
    Pivot<T, count> pivot(panel, i);
    const auto exchange = [&panel, k, i](std::size_t r, auto lanes) {
        exchange_rows(panel, k + r, i, i + count, lanes);
    };
#pragma GCC unroll 8
    for (std::size_t r = 0; r < rows_in_flight; ++r) rotate(group, r, pivot, exchange);
    pivot.store_all();
    if constexpr (count > 1) rotate_triangle<T, count - 1>(panel, k, i + 1);
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

// Applies the rotations of a group of rows with pivots_at_once pivots from `first` on to `columns` columns of the
// panel from j on. The pivots' rows stay in registers while all rows pass.
template <class T, std::size_t columns, bool with_exchanges>
inline void rotate_columns(const Panel<T> &panel, std::size_t k, std::size_t first, std::size_t j)
{
    constexpr std::size_t factors = factors_in<T>, row_stride = panel_stride * factors;
    double *pivot_rows = panel.within + (first * panel_stride + j) * factors;
    T pivot[pivots_at_once][columns];
    for (std::size_t i = 0; i < pivots_at_once; ++i) {
        for (std::size_t c = 0; c < columns; ++c)
            pivot[i][c] = load_as<T>(pivot_rows + i * row_stride + c * factors);
    }
    double *row = panel.row(k) + j * factors;
    const double *h = panel.rotation(k, first);
    for (std::size_t r = 0; r < rows_in_flight; ++r, row += row_stride, h += 2 * row_stride) {
        T y[columns];
        for (std::size_t c = 0; c < columns; ++c) y[c] = load_as<T>(row + c * factors);
        for (std::size_t i = 0; i < pivots_at_once; ++i) {
            const T h12 = load_as<T>(h + 2 * i * factors), h21 = load_as<T>(h + (2 * i + 1) * factors);
            for (std::size_t c = 0; c < columns; ++c) {
                if constexpr (with_exchanges)
                    exchange_where(lanes_of(panel.exchange(k + r, first + i), T{} < T{}), pivot[i][c], y[c]);
                const T rotated = pivot[i][c] + h12 * y[c];
                y[c] = y[c] - h21 * pivot[i][c];
                pivot[i][c] = rotated;
            }
        }
        for (std::size_t c = 0; c < columns; ++c) store(row + c * factors, y[c]);
    }
    for (std::size_t i = 0; i < pivots_at_once; ++i) {
        for (std::size_t c = 0; c < columns; ++c)
            store(pivot_rows + i * row_stride + c * factors, pivot[i][c]);
    }
}

template <class T, bool with_exchanges>
inline void rotate_rest_of_panel(const Panel<T> &panel, std::size_t k, std::size_t first)
{
    std::size_t j = first + pivots_at_once;
    for (; j + 2 <= panel.pivots; j += 2) rotate_columns<T, 2, with_exchanges>(panel, k, first, j);
    if (j < panel.pivots) rotate_columns<T, 1, with_exchanges>(panel, k, first, j);
}

// All rotations of a group of rows with the panel, a few pivots after the other.
template <class T> inline void rotate_group(const Panel<T> &panel, std::size_t k)
{
    static_assert(pivots_at_once == 4);
    for (std::size_t first = 0; first < panel.pivots; first += pivots_at_once) {
        switch (panel.pivots - first) {
        case 1: rotate_triangle<T, 1>(panel, k, first); break;
        case 2: rotate_triangle<T, 2>(panel, k, first); break;
        case 3: rotate_triangle<T, 3>(panel, k, first); break;
        default: rotate_triangle<T, 4>(panel, k, first);
        }
        if (panel.exchanged[k / rows_in_flight] != 0) rotate_rest_of_panel<T, true>(panel, k, first);
        else rotate_rest_of_panel<T, false>(panel, k, first);
    }
}

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
// registers from the first pivot to the last, a pivot's row while all rows meet it.
template <std::size_t vectors, bool with_exchanges>
inline void rotate_strip(const Strip &strip, std::size_t k)
{
    double *values = strip.values + k * strip.stride, *pivot_row = strip.pivot_rows;
    const double *h = strip.h + k * h_stride;
    V y[rows_at_once][vectors];
    for (std::size_t r = 0; r < rows_at_once; ++r) {
        for (std::size_t v = 0; v < vectors; ++v)
            y[r][v] = load(values + r * strip.stride + side_by_side * v);
    }
    for (std::size_t i = 0; i < strip.pivots; ++i, pivot_row += strip.stride, h += 2) {
        V pivot[vectors];
        for (std::size_t v = 0; v < vectors; ++v) pivot[v] = load(pivot_row + side_by_side * v);
        for (std::size_t r = 0; r < rows_at_once; ++r) {
            const V h12 = broadcast(h[r * h_stride]), h21 = broadcast(h[r * h_stride + 1]);
            const bool exchange =
                with_exchanges && (strip.exchanges[(k + r) * pivots_in_block + i] & strip.lane_bit) != 0;
            for (std::size_t v = 0; v < vectors; ++v) {
                if (exchange) {
                    const V old = pivot[v];
                    pivot[v] = y[r][v];
                    y[r][v] = old;
                }
                const V rotated = pivot[v] + h12 * y[r][v];
                y[r][v] = y[r][v] - h21 * pivot[v];
                pivot[v] = rotated;
            }
        }
        for (std::size_t v = 0; v < vectors; ++v) store(pivot_row + side_by_side * v, pivot[v]);
    }
    for (std::size_t r = 0; r < rows_at_once; ++r) {
        for (std::size_t v = 0; v < vectors; ++v)
            store(values + r * strip.stride + side_by_side * v, y[r][v]);
    }
}

// `exchanged` has the lanes in which some row of a group changed places.
template <std::size_t vectors>
inline void rotate_strip_of_all(const Strip &strip, std::size_t n_rows, const unsigned *exchanged)
{
    for (std::size_t k = 0; k < n_rows; k += rows_at_once) {
        if (__builtin_expect((exchanged[k / rows_in_flight] & strip.lane_bit) != 0, 0))
            rotate_strip<vectors, true>(strip, k);
        else rotate_strip<vectors, false>(strip, k);
    }
}

// Puts the rotations of a group of rows among those of the block, one factor's together: read again and again there,
// they stay in the first-level cache.
inline void set_apart(const Panel<V> &panel, const Block &block, std::size_t k)
{
    static_assert(panel_width % 2 == 0);
    constexpr std::size_t size = rows_per_tile * h_stride;
    for (std::size_t r = k; r < k + rows_in_flight; ++r) {
        for (std::size_t i = 0; i < panel_width; i += 2) { // columns follow whole panels only
            const double *from = panel.rotation(r, i);
            V a = load(from), b = load(from + side_by_side), c = load(from + 2 * side_by_side),
              d = load(from + 3 * side_by_side);
            transpose(a, b, c, d);
            double *to = block.h + r * h_stride + 2 * (panel.first - block.first + i);
            store(to, a);
            store(to + size, b);
            store(to + 2 * size, c);
            store(to + 3 * size, d);
        }
    }
}

inline void set_apart(const Panel<S> &panel, const Block &block, std::size_t k)
{
    for (std::size_t r = k; r < k + rows_in_flight; ++r)
        __builtin_memcpy(block.h + r * h_stride + 2 * (panel.first - block.first), panel.rotation(r, 0),
                         2 * panel.pivots * sizeof(double));
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
    for (; column + side_by_side < end; column += 2 * side_by_side)
        rotate_strip_of_all<2>(strip(), n_rows, block.exchanged);
    if (column < end) rotate_strip_of_all<1>(strip(), n_rows, block.exchanged);
}

inline void take_panel(const Panel<V> &panel, const FactorSet &f, const Tile &tile, std::size_t n_rows)
{
    const std::size_t factor_stride = rows_per_tile * f.padded;
    for (std::size_t k = 0; k < n_rows; ++k) {
        const double *from = tile.values + k * f.padded + panel.first;
        for (std::size_t j = 0; j < panel.pivots; j += side_by_side) {
            V a = load(from + j), b = load(from + factor_stride + j), c = load(from + 2 * factor_stride + j),
              d = load(from + 3 * factor_stride + j);
            transpose(a, b, c, d);
            double *to = panel.row(k) + j * side_by_side;
            store(to, a);
            store(to + side_by_side, b);
            store(to + 2 * side_by_side, c);
            store(to + 3 * side_by_side, d);
        }
    }
}

inline void take_panel(const Panel<S> &panel, const FactorSet &f, const Tile &tile, std::size_t n_rows)
{
    for (std::size_t k = 0; k < n_rows; ++k) {
        for (std::size_t j = 0; j < panel.pivots; ++j)
            panel.row(k)[j] = tile.values[k * f.padded + panel.first + j];
    }
}

// Has every row found an empty place in its factor? Nothing is left of it then.
template <class T> inline bool spent(const Tile &tile, std::size_t n_rows)
{
    for (std::size_t k = 0; k < n_rows * factors_in<T>; ++k) {
        if (tile.weights[k] != 0) return false;
    }
    return true;
}

template <class T>
inline void fold(const FactorSet &f, const Tile &tile, std::size_t n_rows, std::size_t first_column)
{
    constexpr std::size_t factors = factors_in<T>;
    double *exchanges_at = tile.scratch + tile_panel_size(factors), *h = exchanges_at + tile_exchanges_size;
    auto *exchanges = reinterpret_cast<unsigned char *>(exchanges_at);
    const std::size_t all_columns = whole_vectors(f.n);
    for (std::size_t first = first_column / f.panel * f.panel; first < f.n; first += pivots_in_block) {
        unsigned exchanged[rows_per_tile / rows_in_flight] = {};
        const Block block = {first, h, exchanges, exchanged};
        __builtin_memset(exchanges, 0, rows_per_tile * pivots_in_block);
        const auto rotate_columns_behind = [&](std::size_t column, std::size_t end) {
            end = end < all_columns ? end : all_columns;
            for (std::size_t factor = 0; factor < factors; ++factor)
                rotate_strips(f, tile, block, column - first, n_rows, factor, column, end);
        };
        for (std::size_t column = first; column < first + pivots_in_block; column += f.panel) {
            if (column > first) rotate_columns_behind(column, column + f.panel);
            const bool is_last = column + f.panel >= f.n;
            const Panel<T> panel(f, tile, block, column);
            take_panel(panel, f, tile, n_rows);
            for (std::size_t k = 0; k < n_rows; k += rows_in_flight) {
                rotate_group(panel, k);
                if (!is_last) set_apart(panel, block, k);
            }
            if (is_last) return;
        }
        rotate_columns_behind(first + pivots_in_block, all_columns);
        if (spent<T>(tile, n_rows)) return;
    }
}

void fold_four(const FactorSet &factors, const Tile &tile, std::size_t n_rows, std::size_t first_column)
{
    fold<V>(factors, tile, n_rows, first_column);
}

void fold_one(const FactorSet &factor, const Tile &tile, std::size_t n_rows, std::size_t first_column)
{
    fold<S>(factor, tile, n_rows, first_column);
}

constexpr RotationKernels kernels_of_this_level = {read_rows<float>, read_rows<double>, fold_four, fold_one};

} // namespace
} // namespace tavik::regression
