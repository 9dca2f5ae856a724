// Folding rows into upper-triangular factors by modified Givens rotations: the data that the leaf kernels work on.
//
// Four factors grow side by side, one a lane of a vector, so that rotations are set up four at a time. Each is
// fed from a part of the rows of its own; a factor is merged into another as if its rows were data.
// A rotation whose new row outweighs the pivot's first exchanges the two, so the multipliers are bounded unless squares
// overflow. What remains is always a pair of shears, each done in place: the pivot's row takes h12 times the new row,
// which then loses h21 times what has become of the pivot's. Against (1 h12; -h21 1) this moves a factor from the new
// row to its scale.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tavik::regression {

constexpr std::size_t side_by_side = 4;   // factors in a set, and columns in a vector
constexpr std::size_t rows_per_tile = 64; // of each factor
constexpr std::size_t rows_in_flight = 8; // whose rotations with a pivot are set up at once
constexpr std::size_t rows_at_once = 4;   // rows to which rotations are applied together

// Up to `most_in_one_panel` columns four factors are one panel, and all columns are rotated where rotations are set up.
// Wider ones have panels of panel_width, which strips of columns divide; columns behind a panel are rotated afterwards,
// many at once. A factor alone has no lanes to fill where rotations are set up, so its panels are narrower.
constexpr std::size_t pivots_at_once = 4; // whose rotations are set up together
constexpr std::size_t most_in_one_panel = 16, panel_width = 12, narrow_panel_width = pivots_at_once;

// From row to row in a panel, whatever its width, since kernels need a constant: an odd number of cache lines for four
// factors, so that rows find places all over the cache.
constexpr std::size_t panel_stride = most_in_one_panel + 2;

// Panels of so many pivots in all make a block, whose rotations are applied together to the columns behind it.
constexpr std::size_t pivots_in_block = 4 * panel_width;

constexpr std::size_t cache_line = 64 / sizeof(double); // numbers in a cache line

// h12 and h21 of every row of a tile and pivot of a block. Those of the next factor lie a line further than a round
// number, so that all do not fight for the same places in the cache.
constexpr std::size_t h_size = 2 * rows_per_tile * pivots_in_block + cache_line;

static_assert(side_by_side <= 8); // bits of a byte
static_assert(rows_per_tile % rows_in_flight == 0 && rows_in_flight % rows_at_once == 0);
static_assert(rows_per_tile * pivots_in_block % sizeof(double) == 0);
static_assert(panel_width % pivots_at_once == 0 && panel_width % side_by_side == 0 &&
              panel_width <= most_in_one_panel);
static_assert(panel_stride >= most_in_one_panel &&
              most_in_one_panel % side_by_side == 0); // whole vectors are taken
static_assert(pivots_in_block % panel_width == 0 && pivots_in_block % narrow_panel_width == 0);
static_assert(pivots_in_block % (2 * cache_line) ==
              0); // rows of all blocks stay an odd number of lines apart

constexpr std::size_t whole_vectors(std::size_t n)
{
    return (n + side_by_side - 1) / side_by_side * side_by_side;
}

constexpr std::size_t whole_lines(std::size_t n)
{
    return (n + cache_line - 1) / cache_line * cache_line;
}

// Wide rows are an odd number of cache lines apart, so that a strip of columns finds room in all sets of the cache.
constexpr std::size_t padded_columns(std::size_t n)
{
    return n <= most_in_one_panel ? whole_vectors(n) : (whole_lines(n) / cache_line | 1) * cache_line;
}

// One factor, or four of them; the index of the factor runs fastest in all but `behind`. Row i stands for d_i r_i
// r_i' with scale factor d_i = p_i / r_ii. Rotations leave p_i as it is, so only exchanges change it. An empty row is
// 0.
struct FactorSet {
    std::size_t n, padded, panel;               // columns, those with padding, pivots in a panel
    double *p, *diagonal;                       // n each: p_i and r_ii
    double *reciprocal_p, *reciprocal_diagonal; // of an empty row not used
    double *
        within; // n x panel_stride: r_ij for j behind i in the panel of i, at j less the panel's first column
    double *behind; // factor after factor, block after block: r_ij for j behind the panel of i

    // Rows of a block have no room for columns before it.
    std::size_t stride_behind(std::size_t i) const
    {
        return padded - i / pivots_in_block * pivots_in_block;
    }

    // Where r_ij lies that many elements behind, for j behind the panel of i.
    double *row_behind(std::size_t factor, std::size_t i) const
    {
        const std::size_t block = i / pivots_in_block, first = block * pivots_in_block;
        return behind + factor * size_behind(n, padded) + size_before(block, padded) +
               (i - first) * stride_behind(i) - first;
    }

    // Row i of one of `count` factors, from its diagonal on.
    template <class T> void copy_row(std::size_t i, std::size_t factor, std::size_t count, T *row) const
    {
        const std::size_t first = i / panel * panel, end = panel_end(i);
        row[i] = diagonal[i * count + factor];
        for (std::size_t j = i + 1; j < end; ++j)
            row[j] = within[(i * panel_stride + j - first) * count + factor];
        if (end == n) return;
        const double *rest = row_behind(factor, i);
        for (std::size_t j = end; j < n; ++j) row[j] = rest[j];
    }

    // The same of the only factor of a set, from a row that is not empty and its p.
    void set_row(std::size_t i, const double *row, double p_of_row) const
    {
        const std::size_t first = i / panel * panel, end = panel_end(i);
        p[i] = p_of_row;
        diagonal[i] = row[i];
        reciprocal_p[i] = 1 / p_of_row;
        reciprocal_diagonal[i] = 1 / row[i];
        for (std::size_t j = i + 1; j < end; ++j) within[i * panel_stride + j - first] = row[j];
        if (end == n) return;
        double *rest = row_behind(0, i);
        for (std::size_t j = end; j < n; ++j) rest[j] = row[j];
    }

    // One behind the last column in the panel of column i.
    std::size_t panel_end(std::size_t i) const
    {
        const std::size_t end = (i / panel + 1) * panel;
        return end < n ? end : n;
    }

    // Elements of one factor's rows in all blocks before block b.
    static constexpr std::size_t size_before(std::size_t b, std::size_t padded)
    {
        return b * pivots_in_block * padded - pivots_in_block * pivots_in_block * (b * (b - 1) / 2);
    }

    static constexpr std::size_t size_behind(std::size_t n, std::size_t padded)
    {
        const std::size_t whole = n / pivots_in_block, first = whole * pivots_in_block;
        return size_before(whole, padded) + (n - first) * (padded - first);
    }
};

constexpr std::size_t panel_of(std::size_t n, std::size_t count)
{
    if (n > most_in_one_panel) return panel_width;
    return count == 1 ? narrow_panel_width : n;
}

constexpr std::size_t factors_size(std::size_t n, std::size_t count)
{
    const std::size_t behind = n > panel_of(n, count) ? FactorSet::size_behind(n, padded_columns(n)) : 0;
    return whole_lines(count * n * (4 + panel_stride)) + count * behind;
}

// `count` factors in memory of that size, which is null when there is none. All 0 is empty.
constexpr FactorSet factors_in_memory(std::size_t n, std::size_t count, double *memory)
{
    if (memory == nullptr) return {};
    double *within = memory + 4 * n * count;
    return {n,
            padded_columns(n),
            panel_of(n, count),
            memory,
            memory + n * count,
            memory + 2 * n * count,
            memory + 3 * n * count,
            within,
            memory + whole_lines(count * n * (4 + panel_stride))};
}

// Rows on their way into factors: for each factor rows_per_tile rows of `padded` values and their weights. The rows
// are spent when they are folded in.
struct Tile {
    double *values;  // factor after factor
    double *weights; // row after row, the factors' side by side
    double *scratch; // tile_scratch_size
};

constexpr std::size_t tile_values_size(std::size_t n, std::size_t count)
{
    return count * rows_per_tile * padded_columns(n);
}

// The scratch begins with the rows in a panel, and h12 and h21 of their rotations with a few pivots. Bytes for exchanges
// with a block's pivots follow, and, where columns lie behind a panel, h12 and h21 of the block's rotations.
constexpr std::size_t tile_panel_size(std::size_t count)
{
    return count * rows_per_tile * (panel_stride + 2 * pivots_at_once);
}

constexpr std::size_t tile_exchanges_size = rows_per_tile * pivots_in_block / sizeof(double);

constexpr std::size_t tile_scratch_size(std::size_t n, std::size_t count)
{
    const std::size_t of_block = n > panel_of(n, count) ? count * h_size : 0;
    return tile_panel_size(count) + tile_exchanges_size + of_block;
}

// Rows of the caller's, and what is to be made of them. Columns of a row in the factor: 1 if there is an intercept,
// the independent variables, the responses.
template <class Real> struct RowSource {
    const Real *x, *y; // y is not read when there is a list of columns
    const std::size_t
        *columns; // of x: the independent variables, then the responses; null: the first n_independent
    std::size_t x_stride, y_stride, n_independent, n_dependent;
    const Real *frequencies, *weights; // null: all 1
    std::size_t frequency_stride, weight_stride;
    const double *shift; // what is subtracted from a row; as long as a row of the factor
    bool intercept, exclude_missing;
};

// What became of the rows that were read.
struct RowTally {
    std::int64_t missing = 0;
    std::int64_t first_bad = -1; // a row whose frequency or weight is negative or infinite; -1: none
    double frequencies = 0;
    double mass = 0;        // the next two without an intercept only, from which the means come otherwise
    double *sums = nullptr; // n: values times masses; null with an intercept
};

// Where rows go that are read: consecutive rows of `padded` values, their weights to every weight_stride-th element.
struct RowTarget {
    double *values, *weights;
    std::size_t padded, weight_stride;
};

struct RotationKernels {
    // Reads rows from `next` on until `most` are used or `end` is reached. Moves `next` behind what was read.
    std::size_t (*read_f)(const RowSource<float> &rows, std::int64_t &next, std::int64_t end,
                          std::size_t most, const RowTarget &to, RowTally &tally);
    std::size_t (*read_d)(const RowSource<double> &rows, std::int64_t &next, std::int64_t end,
                          std::size_t most, const RowTarget &to, RowTally &tally);
    // Fold the first n_rows rows of the tile, a multiple of rows_in_flight, into four factors, or one; the rows are 0
    // before column first_column.
    void (*fold_four)(const FactorSet &factors, const Tile &tile, std::size_t n_rows,
                      std::size_t first_column);
    void (*fold_one)(const FactorSet &factor, const Tile &tile, std::size_t n_rows, std::size_t first_column);
};

extern const RotationKernels baseline_rotation_kernels, avx2_rotation_kernels;

// Those for this processor.
const RotationKernels &rotation_kernels();

} // namespace tavik::regression
