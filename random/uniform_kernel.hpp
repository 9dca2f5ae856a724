// The generator kernels, written once. A file of a few lines compiles them for each instruction level;
// everything here has internal linkage, so that no level's code can stand in for another's at link time. Every
// floating-point operation is rounded by itself (no fused multiply-add), so all levels give the same bits.

#include "numerical/lanes.hpp"
#include "uniform_kernels.hpp"

namespace tavik::random {
namespace {

using namespace numerical;

#ifdef __AVX2__
using Native = __m256i;
inline Native multiply_low_halves(Native a, Native b)
{
    return _mm256_mul_epu32(a, b);
}
#else
using Native = __m128i;
inline Native multiply_low_halves(Native a, Native b)
{
    return _mm_mul_epu32(a, b);
}
#endif

constexpr std::size_t vectors = 8, residues_at_once = vectors * lanes;
static_assert(residues_at_once <= most_lanes);

inline VBits load(const std::uint64_t *x)
{
    VBits v;
    __builtin_memcpy(&v, x, sizeof v);
    return v;
}

// a x mod 2^31 - 1, for residues other than 0: the halves of the product above and below bit 31 are added, and
// what this carries into bit 31 once more.
inline VBits step(VBits x, VBits a)
{
    const VBits product = (VBits)multiply_low_halves((Native)x, (Native)a);
    const VBits sum = (product & residue_modulus) + (product >> 31);
#ifdef __AVX2__
    const VBits less = sum - residue_modulus; // wraps round to a large number unless it is the residue
    return (VBits)_mm256_min_epu32((Native)sum, (Native)less);
#else
    return (sum & residue_modulus) + (sum >> 31);
#endif
}

// Exact for x below 2^52: the number is put into the mantissa of 2^52.
inline V to_double(VBits x)
{
    constexpr std::uint64_t bits_of_2_52 = 0x4330000000000000;
    return (V)(x | bits_of_2_52) - 0x1p52;
}

inline void store_residues(std::uint32_t *residues, VBits x)
{
    using U32 = std::uint32_t __attribute__((vector_size(lanes * sizeof(std::uint32_t))));
    const U32 low = __builtin_convertvector(x, U32);
    __builtin_memcpy(residues, &low, sizeof low);
}

template <bool with_residues, class Real>
inline std::uint32_t congruential_run(std::uint32_t seed, const CongruentialPowers &powers, double scale,
                                      Real *r, std::uint32_t *residues, std::size_t n)
{
    VBits x[vectors];
#pragma GCC unroll 8
    for (std::size_t k = 0; k < vectors; ++k) x[k] = step(VBits{} + seed, load(powers.power + k * lanes));
    const VBits jump = VBits{} + powers.power[residues_at_once - 1];
    std::size_t i = 0;
    for (; n - i >= residues_at_once; i += residues_at_once) {
#pragma GCC unroll 8
        for (std::size_t k = 0; k < vectors; ++k) {
            const std::size_t at = i + k * lanes;
            store(r + at, to_double(x[k]) * scale);
            if constexpr (with_residues) store_residues(residues + at, x[k]);
        }
        if (n - i == residues_at_once) break;
#pragma GCC unroll 8
        for (std::size_t k = 0; k < vectors; ++k) x[k] = step(x[k], jump);
    }
    std::uint64_t last[residues_at_once];
    __builtin_memcpy(last, x, sizeof last);
    const std::size_t rest = n - i;
    Real deviates[residues_at_once];
    if (rest < residues_at_once) {
#pragma GCC unroll 8
        for (std::size_t k = 0; k < vectors; ++k) store(deviates + k * lanes, to_double(x[k]) * scale);
        for (std::size_t k = 0; k < rest; ++k) {
            r[i + k] = deviates[k];
            if constexpr (with_residues) residues[i + k] = static_cast<std::uint32_t>(last[k]);
        }
    }
    return static_cast<std::uint32_t>(last[rest - 1]);
}

template <class Real>
std::uint32_t congruential(std::uint32_t seed, const CongruentialPowers &powers, double scale, Real *r,
                           std::uint32_t *residues, std::size_t n)
{
    return residues != nullptr ? congruential_run<true>(seed, powers, scale, r, residues, n)
                               : congruential_run<false>(seed, powers, scale, r, nullptr, n);
}

template <class Real>
void gfsr(std::int32_t *ti, const std::int32_t *tj, Real scale, Real *__restrict r, std::size_t n)
{
    for (std::size_t k = 0; k < n; ++k) {
        const std::int32_t v = ti[k];
        r[k] = static_cast<Real>(v | 1) * scale;
        ti[k] = v ^ tj[k];
    }
}

// (y + 1/2) 2^-32: the half and 2^52 leave together.
template <class Real>
void from_words_32(const std::uint32_t *__restrict words, Real *__restrict r, std::size_t n)
{
    for (std::size_t k = 0; k < n; ++k) {
        const std::uint64_t y = temper(words[k]);
        const double shifted = __builtin_bit_cast(double, y | 0x4330000000000000);
        r[k] = static_cast<Real>((shifted - (0x1p52 - 0.5)) * 0x1p-32);
    }
}

// The upper 53 bits as a fraction: 52 of them in the mantissa of 1, the last one added. Both steps are exact.
template <class Real>
void from_words_64(const std::uint64_t *__restrict words, Real *__restrict r, std::size_t n)
{
    constexpr std::uint64_t bits_of_1 = 0x3FF0000000000000, bits_of_2_minus_53 = 0x3CA0000000000000;
    for (std::size_t k = 0; k < n; ++k) {
        const std::uint64_t y = temper(words[k]);
        const double upper = __builtin_bit_cast(double, (y >> 12) | bits_of_1) - 1;
        const double last = __builtin_bit_cast(double, -((y >> 11) & 1) & bits_of_2_minus_53);
        r[k] = static_cast<Real>(upper + last);
    }
}

template <class Real> void leave_ends(Real *u, std::size_t n, Real first, Real last)
{
    for (std::size_t k = 0; k < n; ++k) {
        const Real below_one = u[k] < last ? u[k] : last;
        u[k] = below_one > 0 ? below_one : first;
    }
}

template <class Real> void scale_and_shift(Real *r, std::size_t n, Real factor, Real shift)
{
    for (std::size_t k = 0; k < n; ++k) r[k] = r[k] * factor + shift;
}

template <class Twister> void twist(typename Twister::Word *s)
{
    using Word = typename Twister::Word;
    constexpr int n = Twister::size, m = Twister::middle;
    const auto next = [](Word high, Word low, Word far) {
        const Word y = (high & ~Twister::lower_mask) | (low & Twister::lower_mask);
        return far ^ (y >> 1) ^ (-(y & 1) & Twister::matrix);
    };
    for (int k = 0; k < n - m; ++k) s[k] = next(s[k], s[k + 1], s[k + m]);
    for (int k = n - m; k < n - 1; ++k) s[k] = next(s[k], s[k + 1], s[k + m - n]);
    s[n - 1] = next(s[n - 1], s[0], s[m - 1]);
}

template <class Real>
constexpr UniformKernels<Real> uniform_kernels{congruential<Real>,  gfsr<Real>,       from_words_32<Real>,
                                               from_words_64<Real>, leave_ends<Real>, scale_and_shift<Real>};

constexpr GeneratorKernels kernels_of_this_level{uniform_kernels<float>, uniform_kernels<double>,
                                                 twist<MersenneTwister32>, twist<MersenneTwister64>};

} // namespace
} // namespace tavik::random
