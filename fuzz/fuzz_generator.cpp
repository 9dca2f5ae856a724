// Programs of generator calls as a stream of bytes: hostile tables, seeds and selections in any order, with draws of
// all kinds between them. After every program, draws are finite, and a stream must not depend on how it is cut.
#include "bytes.hpp"

#include "frame/tavikstat.h"

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace {

constexpr int most = 3000;
float f[most];
double d[most], cut[most];
int integers[most];
int gfsr[1565];
uint32_t mt32[625];
uint64_t mt64[313];
double shuffle_d[128];
float shuffle_f[128];

void step(Bytes &bytes)
{
    const int shorter = bytes.byte() % 40, longer = bytes.byte() % 70;
    const int n = 1 + shorter * (1 + longer);
    const int length = bytes.byte(); // of a key, at most that of the tables
    switch (bytes.byte() % 14) {
    case 0: tavik_random_option(bytes.byte() % 12 - 1); break;
    case 1: tavik_random_seed_set(static_cast<int>(bytes.byte() * 0x01010101U)); break;
    case 2: tavik_random_GFSR_table_set(bytes.table(gfsr)); break;
    case 3: tavik_random_MT32_table_set(bytes.table(mt32)); break;
    case 4: tavik_random_MT64_table_set(bytes.table(mt64)); break;
    case 5: tavik_d_random_table_set(bytes.table(shuffle_d)); break;
    case 6: tavik_f_random_table_set(bytes.table(shuffle_f)); break;
    case 7: tavik_random_MT32_init(length, bytes.table(mt32)); break;
    case 8: tavik_random_MT64_init(length, bytes.table(mt64)); break;
    case 9: tavik_random_substream_seed_get(static_cast<int>(bytes.byte() * 0x01010101U)); break;
    case 10: tavik_f_random_normal(n, TAVIK_RETURN_USER, f, TAVIK_ZIGGURAT, 0); break;
    case 11: tavik_d_random_normal(n, TAVIK_RETURN_USER, d, TAVIK_ACCEPT_REJECT, 0); break;
    case 12: tavik_f_random_uniform_discrete(n, 1 + bytes.byte(), TAVIK_RETURN_USER, integers, 0); break;
    default: tavik_f_random_uniform(n, TAVIK_RETURN_USER, f, 0); break;
    }
}

struct Saved {
    int seed;
    uint32_t mt32[625];
    uint64_t mt64[313];
};

void expect(bool condition)
{
    if (!condition) std::abort();
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    static FILE *nowhere = fopen("/dev/null", "w");
    tavik_error_options(TAVIK_SET_STOP, 5, 0, TAVIK_SET_ERROR_FILE, nowhere, 0);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    tavik_free_allocated_memory(); // a new state
    tavik_error_options(TAVIK_SET_STOP, 5, 0, TAVIK_SET_PRINT, 5, 0, 0);
    tavik_random_seed_set(1);
    Bytes bytes(data, size);
    while (bytes.any()) step(bytes);

    const int n = 1 + (size > 0 ? data[0] * 11 : 0), first = 1 + n / 3; // at most 2806
    static Saved saved;
    saved.seed = tavik_random_seed_get();
    tavik_random_MT32_table_get(nullptr, TAVIK_RETURN_USER, saved.mt32, 0);
    tavik_random_MT64_table_get(nullptr, TAVIK_RETURN_USER, saved.mt64, 0);
    tavik_d_random_normal(n, TAVIK_RETURN_USER, d, 0);
    for (int i = 0; i < n; ++i) expect(std::isfinite(d[i]));
    const int generator = tavik_random_option_get();
    if (generator == 7 || (generator < 7 && generator % 2 == 0))
        return 0; // with tables that the seed does not give
    tavik_random_seed_set(saved.seed);
    tavik_random_MT32_table_set(saved.mt32);
    tavik_random_MT64_table_set(saved.mt64);
    tavik_d_random_normal(first, TAVIK_RETURN_USER, cut, 0);
    if (n > first) tavik_d_random_normal(n - first, TAVIK_RETURN_USER, cut + first, 0);
    expect(saved.seed < 1 || std::memcmp(d, cut, sizeof(double) * static_cast<size_t>(n)) == 0);
    return 0;
}
