// The rotation kernels, written once. A file of a few lines compiles them for each instruction level; everything
// here has internal linkage, so that no level's code can stand in for another's at link time.

#include "rotations.hpp"

namespace tavik::regression {
namespace {

using V = double __attribute__((vector_size(side_by_side * sizeof(double))));
using VMask = decltype(V{} < V{});
using F4 = float __attribute__((vector_size(side_by_side * sizeof(float))));

// What rotations are set up with: V for four factors at a time, and for one S, of which only the first lane counts.
// So both are selected by masks, without branches.
using S = double __attribute__((vector_size(2 * sizeof(double))));
using SMask = decltype(S{} < S{});

template <class T> constexpr std::size_t factors_in = sizeof(T) == sizeof(V) ? side_by_side : 1;

template <class T> inline T load_as(const double *from)
{
    T v = {};
    __builtin_memcpy(&v, from, factors_in<T> * sizeof *from);
    return v;
}

template <class T> inline void store(double *to, T v)
{
    __builtin_memcpy(to, &v, factors_in<T> * sizeof *to);
}

inline V load(const double *from)
{
    return load_as<V>(from);
}

inline V load(const float *from)
{
    F4 v;
    __builtin_memcpy(&v, from, sizeof v);
    return __builtin_convertvector(v, V);
}

inline V broadcast(double value)
{
    return V{value, value, value, value};
}

// Bit k is set when lane k is true.
inline unsigned true_lanes(VMask mask)
{
    return static_cast<unsigned>((mask[0] & 1) | (mask[1] & 2) | (mask[2] & 4) | (mask[3] & 8));
}

inline bool any(VMask mask)
{
#ifdef __AVX2__
    return __builtin_ia32_movmskpd256(__builtin_bit_cast(V, mask)) != 0;
#else
    return (mask[0] | mask[1] | mask[2] | mask[3]) != 0;
#endif
}

inline unsigned true_lanes(SMask mask)
{
    return static_cast<unsigned>(mask[0] & 1);
}

inline bool any(SMask mask)
{
    return mask[0] != 0;
}

template <class Mask, class T> inline void exchange_where(Mask mask, T &a, T &b)
{
    const T old = a;
    a = mask ? b : a;
    b = mask ? old : b;
}

// The rows of a tile within one panel, and the rotations that are set up for it.
template <class T> struct Panel {
    static constexpr std::size_t factors = factors_in<T>;

    Panel(const FactorSet &f, const Tile &tile, std::size_t first_column)
        : first(first_column), pivots(f.n - first < f.panel ? f.n - first : f.panel),
          p(f.p + first * factors), diagonal(f.diagonal + first * factors),
          reciprocal_p(f.reciprocal_p + first * factors),
          reciprocal_diagonal(f.reciprocal_diagonal + first * factors),
          within(f.within + first * panel_stride * factors), weights(tile.weights), rows(tile.scratch),
          h(rows + rows_per_tile * panel_stride * factors),
          exchanges(reinterpret_cast<unsigned char *>(h + 2 * rows_per_tile * panel_stride * factors)),
          apart(h + (2 * factors + 1) * rows_per_tile * panel_stride)
    {
    }

    std::size_t first, pivots;
    double *p, *diagonal, *reciprocal_p, *reciprocal_diagonal, *within; // of the panel's first row on
    double *weights;
    double *rows;             // rows_per_tile x panel_stride x factors
    double *h;                // row after row, pivot after pivot: h12, h21, of all factors each
    unsigned char *exchanges; // row after row, pivot after pivot: lanes whose rows change places, as bits
    double *apart;            // the same as h, factor after factor

    double *row(std::size_t k) const
    {
        return rows + k * panel_stride * factors;
    }

    double *rotation(std::size_t k, std::size_t i) const
    {
        return h + 2 * (k * panel_stride + i) * factors;
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
inline void exchange_rows(const Panel<T> &panel, std::size_t k, std::size_t i, std::size_t end, Mask lanes)
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
}

// A square below this counts as 0. What equal columns leave of each other shrinks from column to column by the
// rounding, and must end before its reciprocal overflows.
constexpr double least_square = 1e-280;

// A pivot of the panel and its row up to the end of a block of `count` columns, while rows of a group meet it one
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

    void store_all() const
    {
        store(x_at, x);
        store(reciprocal_x_at, reciprocal_x);
        for (std::size_t j = 1; j < count; ++j) store(r_at + j * Panel<T>::factors, r[j]);
    }
};

// Sets up the rotation of row k with pivot i of the panel and applies it to the `count` columns from the pivot's on.
// Returns the lanes in which the two rows change places before. There is one division, and the multipliers do not
// wait for it.
template <class T, std::size_t count>
inline unsigned rotate(const Panel<T> &panel, std::size_t k, std::size_t i, Pivot<T, count> &pivot)
{
    constexpr std::size_t factors = Panel<T>::factors;
    double *row = panel.row(k) + i * factors;
    T w = load_as<T>(panel.weights + k * factors), y = load_as<T>(row), p2 = w * y;
    const T zero = {}, square = p2 * y;
    const auto idle = square < least_square; // NaN is not
    const auto outweighs = (square >= pivot.p * pivot.x) & ~idle;
    unsigned exchanged = 0;
    if (__builtin_expect(any(outweighs), 0)) {
        exchanged = true_lanes(outweighs);
        pivot.store_all();
        exchange_rows(panel, k, i, i + count, outweighs);
        pivot.load_all();
        w = load_as<T>(panel.weights + k * factors);
        y = load_as<T>(row);
        p2 = w * y;
    }
    // A row without weight in this column is left as it is: nothing is to be rotated, and if it has none at all, it
    // could grow on and on.
    const T h12 = idle ? zero : p2 * pivot.reciprocal_p;
    const T h21 = idle ? zero : -y * pivot.reciprocal_x;
    const T rotated_x = pivot.x + h12 * y;
    pivot.reciprocal_x = 1 / rotated_x; // of an empty row infinite, and not used
    store(panel.weights + k * factors, idle ? w : w * (pivot.x * pivot.reciprocal_x));
    pivot.x = rotated_x;
    store(panel.rotation(k, i), h12);
    store(panel.rotation(k, i) + factors, h21);
    for (std::size_t j = 1; j < count; ++j) {
        const T v = load_as<T>(row + j * factors);
        store(row + j * factors, T(v + h21 * pivot.r[j]));
        pivot.r[j] = pivot.r[j] + h12 * v;
    }
    return exchanged;
}

// Rotations of a group of rows from row k on with pivot i and, after it, with those behind it up to the end of a
// block of `count` columns. All rows meet a pivot before the first meets the next: only the pivot's own sum passes
// from row to row, so their divisions overlap. Returns the lanes in which rows changed places.
template <class T, std::size_t count>
inline unsigned rotate_block(const Panel<T> &panel, std::size_t k, std::size_t i)
{
    unsigned exchanged = 0;
    Pivot<T, count> pivot(panel, i);
#pragma GCC unroll 8
    for (std::size_t r = 0; r < rows_in_flight; ++r) {
        const unsigned lanes = rotate(panel, k + r, i, pivot);
        panel.exchanges[(k + r) * panel_stride + i] = static_cast<unsigned char>(lanes);
        exchanged |= lanes;
    }
    pivot.store_all();
    if constexpr (count > 1) exchanged |= rotate_block<T, count - 1>(panel, k, i + 1);
    return exchanged;
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

// Applies the rotations of a block to `columns` columns of the panel from j on: the rows stay in registers from the
// first pivot to the last, a pivot's row while all rows meet it.
template <class T, std::size_t columns, bool with_exchanges>
inline void rotate_columns(const Panel<T> &panel, std::size_t k, std::size_t first, std::size_t end,
                           std::size_t j)
{
    constexpr std::size_t factors = Panel<T>::factors;
    T y[rows_at_once][columns];
    for (std::size_t r = 0; r < rows_at_once; ++r) {
        for (std::size_t c = 0; c < columns; ++c) y[r][c] = load_as<T>(panel.row(k + r) + (j + c) * factors);
    }
    for (std::size_t i = first; i < end; ++i) {
        double *pivot_row = panel.within + (i * panel_stride + j) * factors;
        T pivot[columns];
        for (std::size_t c = 0; c < columns; ++c) pivot[c] = load_as<T>(pivot_row + c * factors);
        for (std::size_t r = 0; r < rows_at_once; ++r) {
            const double *h = panel.rotation(k + r, i);
            const T h12 = load_as<T>(h), h21 = load_as<T>(h + factors);
            for (std::size_t c = 0; c < columns; ++c) {
                if constexpr (with_exchanges)
                    exchange_where(lanes_of(panel.exchanges[(k + r) * panel_stride + i], T{} < T{}), pivot[c],
                                   y[r][c]);
                const T rotated = pivot[c] + h12 * y[r][c];
                y[r][c] = y[r][c] + h21 * pivot[c];
                pivot[c] = rotated;
            }
        }
        for (std::size_t c = 0; c < columns; ++c) store(pivot_row + c * factors, pivot[c]);
    }
    for (std::size_t r = 0; r < rows_at_once; ++r) {
        for (std::size_t c = 0; c < columns; ++c) store(panel.row(k + r) + (j + c) * factors, y[r][c]);
    }
}

template <class T, bool with_exchanges>
inline void rotate_rest_of_panel(const Panel<T> &panel, std::size_t k, std::size_t first, std::size_t end)
{
    for (std::size_t half = k; half < k + rows_in_flight; half += rows_at_once) {
        std::size_t j = end;
        for (; j + 2 <= panel.pivots; j += 2)
            rotate_columns<T, 2, with_exchanges>(panel, half, first, end, j);
        if (j < panel.pivots) rotate_columns<T, 1, with_exchanges>(panel, half, first, end, j);
    }
}

// All rotations of a group of rows with the panel, a block of pivots after the other. Returns the lanes in which rows
// changed places.
template <class T> inline unsigned rotate_group(const Panel<T> &panel, std::size_t k)
{
    static_assert(narrow_panel_width == 4);
    unsigned exchanged = 0;
    for (std::size_t first = 0; first < panel.pivots; first += narrow_panel_width) {
        unsigned lanes = 0;
        switch (panel.pivots - first) {
        case 1: lanes = rotate_block<T, 1>(panel, k, first); break;
        case 2: lanes = rotate_block<T, 2>(panel, k, first); break;
        case 3: lanes = rotate_block<T, 3>(panel, k, first); break;
        default: lanes = rotate_block<T, 4>(panel, k, first);
        }
        const std::size_t end = first + narrow_panel_width;
        if (lanes != 0) rotate_rest_of_panel<T, true>(panel, k, first, end);
        else rotate_rest_of_panel<T, false>(panel, k, first, end);
        exchanged |= lanes;
    }
    return exchanged;
}

// From row to row of one factor's rotations: h12 and h21 of every pivot of a panel.
constexpr std::size_t h_stride = 2 * panel_stride;

// A strip of columns behind the panel, and the rotations of one factor that are applied to it.
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
                with_exchanges && (strip.exchanges[(k + r) * panel_stride + i] & strip.lane_bit) != 0;
            for (std::size_t v = 0; v < vectors; ++v) {
                if (exchange) {
                    const V old = pivot[v];
                    pivot[v] = y[r][v];
                    y[r][v] = old;
                }
                const V rotated = pivot[v] + h12 * y[r][v];
                y[r][v] = y[r][v] + h21 * pivot[v];
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

// Four rows' vectors become four columns' vectors.
inline void transpose(V &a, V &b, V &c, V &d)
{
    const V ab_low = __builtin_shufflevector(a, b, 0, 4, 2, 6),
            ab_high = __builtin_shufflevector(a, b, 1, 5, 3, 7);
    const V cd_low = __builtin_shufflevector(c, d, 0, 4, 2, 6),
            cd_high = __builtin_shufflevector(c, d, 1, 5, 3, 7);
    a = __builtin_shufflevector(ab_low, cd_low, 0, 1, 4, 5);
    b = __builtin_shufflevector(ab_high, cd_high, 0, 1, 4, 5);
    c = __builtin_shufflevector(ab_low, cd_low, 2, 3, 6, 7);
    d = __builtin_shufflevector(ab_high, cd_high, 2, 3, 6, 7);
}

// Rotations of a panel, one factor's together: read again and again, they stay in the first-level cache.
inline const double *set_apart(const Panel<V> &panel, std::size_t n_rows)
{
    static_assert(panel_width % 2 == 0);
    constexpr std::size_t size = rows_per_tile * h_stride;
    for (std::size_t k = 0; k < n_rows; ++k) {
        for (std::size_t i = 0; i < panel_width; i += 2) { // columns follow whole panels only
            const double *from = panel.rotation(k, i);
            V a = load(from), b = load(from + side_by_side), c = load(from + 2 * side_by_side),
              d = load(from + 3 * side_by_side);
            transpose(a, b, c, d);
            double *to = panel.apart + k * h_stride + 2 * i;
            store(to, a);
            store(to + size, b);
            store(to + 2 * size, c);
            store(to + 3 * size, d);
        }
    }
    return panel.apart;
}

inline const double *set_apart(const Panel<S> &panel, std::size_t)
{
    return panel.h;
}

// Applies the rotations of a panel to the columns behind it, for one factor. Strips are taken one after the other, so
// that a strip of the pivots' rows stays in the first-level cache while all rows pass.
template <class T>
inline void rotate_behind(const Panel<T> &panel, const FactorSet &f, const Tile &tile, std::size_t factor,
                          const double *h, std::size_t n_rows, const unsigned *exchanged)
{
    double *values = tile.values + factor * rows_per_tile * f.padded;
    double *pivot_rows = f.row_behind(factor, panel.first);
    h += factor * rows_per_tile * h_stride;
    std::size_t column = panel.first + panel.pivots;
    const std::size_t end = whole_vectors(f.n);
    for (; column + side_by_side < end; column += 2 * side_by_side)
        rotate_strip_of_all<2>(
            {values + column, pivot_rows + column, f.padded, panel.pivots, h, panel.exchanges, 1u << factor},
            n_rows, exchanged);
    if (column < end)
        rotate_strip_of_all<1>(
            {values + column, pivot_rows + column, f.padded, panel.pivots, h, panel.exchanges, 1u << factor},
            n_rows, exchanged);
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
template <class T> inline bool spent(const Panel<T> &panel, std::size_t n_rows)
{
    for (std::size_t k = 0; k < n_rows * Panel<T>::factors; ++k) {
        if (panel.weights[k] != 0) return false;
    }
    return true;
}

template <class T>
inline void fold(const FactorSet &f, const Tile &tile, std::size_t n_rows, std::size_t first_column)
{
    for (std::size_t first = first_column / f.panel * f.panel; first < f.n; first += f.panel) {
        const Panel<T> panel(f, tile, first);
        take_panel(panel, f, tile, n_rows);
        unsigned exchanged[rows_per_tile / rows_in_flight]; // lanes in which some rows changed places
        for (std::size_t k = 0; k < n_rows; k += rows_in_flight)
            exchanged[k / rows_in_flight] = rotate_group(panel, k);
        if (first + f.panel >= f.n) break;
        const double *h = set_apart(panel, n_rows);
        for (std::size_t factor = 0; factor < Panel<T>::factors; ++factor)
            rotate_behind(panel, f, tile, factor, h, n_rows, exchanged);
        if (spent(panel, n_rows)) break;
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

// A value less its shift; an infinite one becomes NaN, since it would otherwise pass for a pivot beside which all
// other rows vanish.
template <class T> inline T shifted(T value, T shift)
{
    return (value - shift) + (value - value);
}

// Copies n values less their shifts. False when one is NaN.
template <class Real>
inline bool take_values(const Real *from, std::size_t n, const double *shift, double *to)
{
    if (n >= side_by_side) {
        VMask missing = {};
        for (std::size_t j = 0; j < n; j += side_by_side) {
            j = j + side_by_side <= n ? j : n - side_by_side; // the last vector may overlap the one before
            const V v = load(from + j);
            missing |= v != v;
            store(to + j, shifted(v, load(shift + j)));
        }
        return !any(missing);
    }
    bool missing = false;
    for (std::size_t j = 0; j < n; ++j) {
        const double v = from[j];
        missing |= v != v;
        to[j] = shifted(v, shift[j]);
    }
    return !missing;
}

template <class Real> inline bool take_row(const RowSource<Real> &rows, std::int64_t i, double *to)
{
    const Real *x = rows.x + static_cast<std::size_t>(i) * rows.x_stride;
    const double *shift = rows.shift;
    bool complete = true;
    // The four parts of a piece are read in turns: the next turn's row is fetched in time.
    constexpr std::size_t line = 64 / sizeof(Real);
    // Perhaps behind the last row, where no pointer may point.
    const auto ahead = reinterpret_cast<std::uintptr_t>(x) + rows_per_tile * rows.x_stride * sizeof(Real);
    for (std::size_t j = 0; j < rows.n_independent; j += line) {
        // NOLINTNEXTLINE(performance-no-int-to-ptr): the address is never read
        __builtin_prefetch(reinterpret_cast<const void *>(ahead + j * sizeof(Real)));
    }
    if (rows.intercept) {
        *to++ = 1;
        ++shift;
    }
    if (rows.columns != nullptr) {
        for (std::size_t j = 0; j < rows.n_independent + rows.n_dependent; ++j) {
            const double v = x[rows.columns[j]];
            complete &= v == v;
            to[j] = shifted(v, shift[j]);
        }
        return complete;
    }
    complete = take_values(x, rows.n_independent, shift, to);
    if (rows.n_dependent > 0) {
        const Real *y = rows.y + static_cast<std::size_t>(i) * rows.n_dependent;
        complete &= take_values(y, rows.n_dependent, shift + rows.n_independent, to + rows.n_independent);
    }
    return complete;
}

enum class MassKind { positive, none, missing, bad };

inline MassKind kind_of_mass(double f, double w)
{
    const double mass = f * w;
    if (mass > 0 && mass <= __DBL_MAX__ && f > 0) return MassKind::positive;
    if (f != f || w != w) return MassKind::missing;
    const bool finite = f <= __DBL_MAX__ && w <= __DBL_MAX__ && (mass <= __DBL_MAX__);
    return f >= 0 && w >= 0 && finite ? MassKind::none : MassKind::bad;
}

inline void add_sums(const double *values, double mass, std::size_t n, double *sums)
{
    for (std::size_t j = 0; j < n; ++j) sums[j] += mass * values[j];
}

// The plain case: every row without a NaN counts once. The source is copied so that the compiler sees it unchanged by
// what is written.
template <class Real>
std::size_t read_plain_rows(RowSource<Real> rows, std::int64_t &next, std::int64_t end, std::size_t most,
                            std::size_t padded, double *values, double *weights, std::size_t weight_stride,
                            RowTally &tally)
{
    std::size_t used = 0;
    std::int64_t i = next;
    for (; used < most && i < end; ++i) {
        const bool complete = take_row(rows, i, values + used * padded);
        weights[used * weight_stride] = 1;
        used += complete;
    }
    tally.missing += i - next - static_cast<std::int64_t>(used);
    tally.frequencies += static_cast<double>(used);
    next = i;
    return used;
}

template <class Real>
std::size_t read_rows(const RowSource<Real> &rows, std::int64_t &next, std::int64_t end, std::size_t most,
                      std::size_t padded, double *values, double *weights, std::size_t weight_stride,
                      RowTally &tally)
{
    const bool with_masses = rows.frequencies != nullptr || rows.weights != nullptr;
    if (!with_masses && rows.exclude_missing && tally.sums == nullptr)
        return read_plain_rows(rows, next, end, most, padded, values, weights, weight_stride, tally);
    std::size_t used = 0;
    for (; used < most && next < end; ++next) {
        const auto i = static_cast<std::size_t>(next);
        const double f = rows.frequencies != nullptr ? rows.frequencies[i * rows.frequency_stride] : 1;
        const double w = rows.weights != nullptr ? rows.weights[i * rows.weight_stride] : 1;
        const double mass = f * w;
        const MassKind kind = kind_of_mass(f, w);
        if (kind == MassKind::bad && (tally.first_bad < 0 || next < tally.first_bad)) tally.first_bad = next;
        if (kind == MassKind::bad || kind == MassKind::none) continue;
        double *to = values + used * padded;
        const bool complete = take_row(rows, next, to) && kind != MassKind::missing;
        if (!complete && rows.exclude_missing) {
            ++tally.missing;
            continue;
        }
        weights[used * weight_stride] = mass;
        tally.frequencies += f;
        if (tally.sums != nullptr) {
            tally.mass += mass;
            add_sums(to, mass, rows.n_independent + rows.n_dependent, tally.sums);
        }
        ++used;
    }
    return used;
}

constexpr RotationKernels kernels_of_this_level = {read_rows<float>, read_rows<double>, fold_four, fold_one};

} // namespace
} // namespace tavik::regression
