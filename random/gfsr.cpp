#include "gfsr.hpp"

#include "uniform_kernels.hpp"

#include <algorithm>

namespace tavik::random {
namespace {

constexpr int degree = gfsr_words / 3; // of x^521 + x^32 + 1, which is primitive
constexpr int lag = degree - 32;
constexpr int lag_of_words = 3 * lag;
constexpr int bits_per_word = 32; // the last one is dropped

// The exponents of x^(2^520) modulo the trinomial. Since x^(2^521) = x, this is the square root of x: the
// trinomial says x (x^260)^2 = (x^16 + 1)^2, so it is x^-260 + x^-244, and x^-k = x^(521-k) + x^(32-k) takes
// both to positive exponents.
constexpr int jump[] = {12,  28,  261, 277, 293, 309, 325, 341, 357, 373,
                        389, 405, 421, 437, 453, 469, 485, 501, 517};

using Bit = unsigned char;
using Sequence = Bit[2 * degree];

void extend(Sequence &a)
{
    for (int k = 0; k < degree; ++k) a[k + degree] = a[k] ^ a[k + lag];
}

void advance(const Sequence &a, Sequence &b)
{
    for (int k = 0; k < degree; ++k) {
        b[k] = 0;
        for (const int exponent : jump) b[k] ^= a[k + exponent];
    }
    extend(b);
}

int wrap(int position)
{
    return position < gfsr_words ? position : position - gfsr_words;
}

} // namespace

void l_r1inf(random_common_structure &record)
{
    Sequence sequences[3];
    auto s = static_cast<std::uint32_t>(record.seed);
    for (int k = 0; k < degree; ++k) {
        s *= 69069;
        sequences[0][k] = static_cast<std::int32_t>(s) > 0;
    }
    extend(sequences[0]);
    advance(sequences[0], sequences[1]);
    advance(sequences[1], sequences[2]);

    Bit w[gfsr_words];
    for (int k = 0; k < gfsr_words; ++k) w[k] = sequences[k % 3][k / 3];
    int i = 0, j = lag_of_words;
    for (std::int32_t &word : record.gfsr_table) {
        std::uint32_t bits = 0;
        for (int k = 0; k < bits_per_word; ++k) {
            bits = bits << 1 | w[i];
            w[i] ^= w[j];
            i = wrap(i + 1);
            j = wrap(j + 1);
        }
        word = static_cast<std::int32_t>(bits >> 1);
    }
    record.gfsr_i = i + 1;
    record.gfsr_j = j + 1;
    record.gfsr_ready = 1;
}

template <class Real> void draw_gfsr(random_common_structure &record, Real *r, std::size_t n)
{
    Real scale;
    if constexpr (sizeof(Real) == sizeof(float)) scale = record.scale_f;
    else scale = record.scale_d;
    const auto kernel = generator_kernels().uniform<Real>().gfsr;
    int i = record.gfsr_i - 1, j = record.gfsr_j - 1;
    std::int32_t last = 0;
    for (std::size_t drawn = 0; drawn < n;) {
        const int before_wrap = gfsr_words - std::max(i, j);
        const int run = static_cast<int>(std::min(n - drawn, static_cast<std::size_t>(before_wrap)));
        if (drawn + static_cast<std::size_t>(run) == n) last = record.gfsr_table[i + run - 1];
        kernel(record.gfsr_table + i, record.gfsr_table + j, scale, r + drawn, static_cast<std::size_t>(run));
        i = wrap(i + run);
        j = wrap(j + run);
        drawn += static_cast<std::size_t>(run);
    }
    record.gfsr_i = i + 1;
    record.gfsr_j = j + 1;
    set_seed(record, last | 1);
}

template void draw_gfsr(random_common_structure &, float *, std::size_t);
template void draw_gfsr(random_common_structure &, double *, std::size_t);

} // namespace tavik::random
