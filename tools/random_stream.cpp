// Writes the bits of a generator to standard output without end, for batteries of tests of randomness:
//
//     random_stream 9 20261121 32 | dieharder -g 200 -a
//
// The generator (1 to 9) and its seed are followed by the number of upper bits of each double uniform that are
// written, 8, 16 or 32, little-endian. Generators 1 to 7 have less than 32 bits to give.
#include <tavikstat.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

constexpr int chunk = 1 << 14;
double uniforms[chunk];

template <class Word> int stream(double scale)
{
    static Word words[chunk];
    for (;;) {
        if (tavik_d_random_uniform(chunk, TAVIK_RETURN_USER, uniforms, 0) == nullptr) return 1;
        for (int i = 0; i < chunk; ++i)
            words[i] = static_cast<Word>(static_cast<std::uint64_t>(uniforms[i] * scale));
        if (std::fwrite(words, sizeof(Word), chunk, stdout) != chunk) return 0; // the reader has enough
    }
}

} // namespace

int main(int argc, char **argv)
{
    const int generator = argc == 4 ? std::atoi(argv[1]) : 0, bits = argc == 4 ? std::atoi(argv[3]) : 0;
    if (generator < 1 || generator > 9 || (bits != 8 && bits != 16 && bits != 32)) {
        std::fprintf(stderr, "usage: random_stream GENERATOR SEED BITS\n"
                             "GENERATOR 1 to 9, BITS of each deviate to write: 8, 16 or 32\n");
        return 2;
    }
    tavik_random_option(generator);
    tavik_random_seed_set(std::atoi(argv[2]));
    switch (bits) {
    case 8: return stream<std::uint8_t>(0x1p8);
    case 16: return stream<std::uint16_t>(0x1p16);
    default: return stream<std::uint32_t>(0x1p32);
    }
}
