// Central moments of many variables at once, and the leaf kernels that compute and join them.
//
// One sweep over a block of rows gives power sums about a point near its mean, and from them its central
// moments. Blocks are joined by the pairwise formulas of Chan, Golub and LeVeque (1979), for the third and
// fourth moment Pebay (2008, SAND2008-6212). The mean is carried as the unevaluated sum of two doubles, so
// that data far from zero lose nothing to its rounding.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tavik::descriptive {

// One array a quantity, each of `padded` elements, so that kernels run over whole vectors.
struct Moments {
    // The divisor is that of m2 in the variance of weighted data: the mass W less the sum of the squared
    // masses over W. It is kept as the sum of m_i m_k / W over all pairs i != k, which cannot cancel.
    enum Field { count, mass, divisor, mean, mean_low, m2, m3, m4, minimum, maximum, n_fields };

    double *data; // n_fields x padded
    std::size_t padded;

    double *operator[](Field field) const
    {
        return data + static_cast<std::size_t>(field) * padded;
    }
};

constexpr std::size_t lanes = 4; // doubles in a vector

constexpr std::size_t padded_size(std::size_t n_variables)
{
    return (n_variables + lanes - 1) / lanes * lanes;
}

constexpr std::size_t moments_size(std::size_t n_variables)
{
    return Moments::n_fields * padded_size(n_variables);
}

// Up to this many variables, rows are grouped so that a group fills whole vectors; such rows must be
// contiguous.
constexpr std::size_t most_grouped_variables = 15;

// Doubles of scratch that the block kernel needs.
constexpr std::size_t block_scratch_size(std::size_t n_variables)
{
    constexpr std::size_t arrays = 7, widest_group = 16 * most_grouped_variables;
    return arrays * (n_variables > widest_group ? padded_size(n_variables) : widest_group);
}

// Rows of a block, a power of two up to 4096: the block stays in the second-level cache, and joining it costs
// little.
constexpr std::int64_t rows_per_block(std::int64_t n_variables)
{
    std::int64_t rows = 4096;
    while (rows > 64 && rows * n_variables > 32768) rows /= 2;
    return rows;
}

// Blocks that a thread reads in a row before it joins them: enough that taking turns costs nothing, and that
// what a thread fetches ahead is nearly always its own.
constexpr std::int64_t blocks_per_piece(std::int64_t n_variables)
{
    return n_variables <= 256 ? 8 : 1;
}

// All kernels, compiled for one instruction level. They allocate nothing and know no error.
struct MomentKernels {
    // Moments of `rows` rows at a distance of `stride` elements, each value with frequency and weight 1. A
    // variable with a missing or infinite value, or whose sum overflows, gets a mean that is not finite; its
    // other moments then mean nothing. With at most most_grouped_variables variables, stride equals their
    // number.
    void (*block_f)(const float *x, std::int64_t rows, std::size_t stride, std::size_t n_variables,
                    double *scratch, const Moments &block);
    void (*block_d)(const double *x, std::int64_t rows, std::size_t stride, std::size_t n_variables,
                    double *scratch, const Moments &block);
    // Moments of n values of one variable, with mass[i] = frequency times weight; stored as variable j of the
    // block. Sets everything but the count. The same holds for values that are not finite.
    void (*weighted)(const double *x, const double *mass, std::size_t n, const Moments &block, std::size_t j);
    // Joins the block into the total.
    void (*merge)(const Moments &total, const Moments &block);
};

extern const MomentKernels baseline_moment_kernels, avx2_moment_kernels;

// Those for this processor.
const MomentKernels &moment_kernels();

// Puts total back to no values.
void reset_moments(const Moments &total, std::size_t n_variables);

// Variable j of a block whose n values are not all finite or sum up beyond the largest number; a null `mass`
// is all ones. Infinite values give the mean that their sum has, and moments that are NaN. Sets everything
// but the count.
void set_extraordinary_moments(const double *x, const double *mass, std::size_t n, const Moments &block,
                               std::size_t j);

} // namespace tavik::descriptive
