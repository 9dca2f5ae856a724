// The rotation kernels, written once. A file of a few lines compiles them for each instruction level; everything
// here and in the kernels it is made of has internal linkage, so that no level's code can stand in for another's at
// link time.
#pragma once

#include "reading_kernel.hpp"
#include "strip_kernel.hpp"

namespace tavik::regression {
namespace {

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
    for (std::size_t first = first_column / f.panel * f.panel, block_end; first < f.n; first = block_end) {
        block_end = (first / pivots_in_block + 1) * pivots_in_block;
        unsigned exchanged[rows_per_tile / rows_at_once] = {};
        const Block block = {first, h, exchanges, exchanged};
        __builtin_memset(exchanges, 0, n_rows * pivots_in_block);
        const auto rotate_columns_behind = [&](std::size_t from, std::size_t to) {
            to = to < all_columns ? to : all_columns;
            for (std::size_t factor = 0; factor < factors; ++factor)
                rotate_strips(f, tile, block, from - first, n_rows, factor, from, to);
        };
        for (std::size_t column = first; column < block_end; column += f.panel) {
            if (column > first) rotate_columns_behind(column, column + f.panel);
            const bool is_last = column + f.panel >= f.n;
            const Panel<T> panel(f, tile, block, column);
            take_rows(panel, f, tile, n_rows);
            rotate_panel(panel, block, n_rows, is_last);
            if (is_last) return;
        }
        rotate_columns_behind(block_end, all_columns);
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
