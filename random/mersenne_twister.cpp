#include "mersenne_twister.hpp"

#include "frame/error.hpp"

#include <algorithm>
#include <cstdlib>

namespace tavik::random {

template <class Twister> bool TwisterState<Twister>::make()
{
    // Zeroed: a trapped fault while it is filled from a table of the caller's may leave it as it is.
    if (ready == 0) words = static_cast<Word *>(std::calloc(Twister::size, sizeof(Word)));
    ready = words != nullptr;
    if (ready == 0) tavik_ermes(terminal, 200);
    return ready != 0;
}

template <class Twister> void TwisterState<Twister>::seed(Word s)
{
    words[0] = s;
    for (int k = 1; k < Twister::size; ++k) {
        const Word before = words[k - 1];
        words[k] = Twister::seed_factor * (before ^ (before >> Twister::seed_shift)) + static_cast<Word>(k);
    }
    index = all_used;
}

template <class Twister> void TwisterState<Twister>::seed_by_key(const Word *key, int key_length)
{
    constexpr int size = Twister::size;
    seed(19650218);
    int i = 1;
    const auto mixed = [&](Word factor) {
        const Word before = words[i - 1];
        return words[i] ^ ((before ^ (before >> Twister::seed_shift)) * factor);
    };
    const auto next_word = [&] {
        if (++i == size) {
            words[0] = words[size - 1];
            i = 1;
        }
    };
    int j = 0;
    for (int k = std::max(size, key_length); k > 0; --k) {
        words[i] = mixed(Twister::key_factor_1) + key[j] + static_cast<Word>(j);
        next_word();
        if (++j == key_length) j = 0;
    }
    for (int k = size - 1; k > 0; --k) {
        words[i] = mixed(Twister::key_factor_2) - static_cast<Word>(i);
        next_word();
    }
    words[0] = Word{1} << (8 * sizeof(Word) - 1); // so that the state is not all zero
}

template <class Twister> bool TwisterState<Twister>::prepare(std::int32_t current_seed)
{
    if (ready != 0 && index != to_be_seeded) return true;
    if (!make()) return false;
    seed(static_cast<Word>(current_seed));
    return true;
}

namespace {

// What the kernels compute, for the few.
inline double uniform(std::uint32_t word)
{
    return (temper(word) + 0.5) * 0x1p-32;
}

inline double uniform(std::uint64_t word)
{
    return static_cast<double>(temper(word) >> 11) * 0x1p-53;
}

} // namespace

template <class Twister> template <class Real> void TwisterState<Twister>::draw(Real *r, std::size_t n)
{
    constexpr std::size_t few = 4;
    if (n <= few && n <= static_cast<std::size_t>(all_used - index)) {
        for (std::size_t k = 0; k < n; ++k) r[k] = static_cast<Real>(uniform(words[index++]));
        return;
    }
    const GeneratorKernels &kernels = generator_kernels();
    for (std::size_t drawn = 0; drawn < n;) {
        if (index == all_used) {
            if constexpr (sizeof(Word) == 4) kernels.twist_32(words);
            else kernels.twist_64(words);
            index = 0;
        }
        const std::size_t run = std::min(n - drawn, static_cast<std::size_t>(all_used - index));
        const Word *from = words + index;
        if constexpr (sizeof(Word) == 4) kernels.uniform<Real>().from_words_32(from, r + drawn, run);
        else kernels.uniform<Real>().from_words_64(from, r + drawn, run);
        index += static_cast<std::int32_t>(run);
        drawn += run;
    }
}

template <class Twister> void TwisterState<Twister>::drop()
{
    std::free(words);
    words = nullptr;
    ready = 0;
}

template struct TwisterState<MersenneTwister32>;
template struct TwisterState<MersenneTwister64>;
template void TwisterState<MersenneTwister32>::draw(float *, std::size_t);
template void TwisterState<MersenneTwister32>::draw(double *, std::size_t);
template void TwisterState<MersenneTwister64>::draw(float *, std::size_t);
template void TwisterState<MersenneTwister64>::draw(double *, std::size_t);

} // namespace tavik::random
