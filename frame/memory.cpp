// Memory that crosses the boundary of the library, and the padded arrays of the parallel kernels.

#include "tavikstat.h"

#include <climits>
#include <cstdint>
#include <cstdlib>

namespace {

constexpr std::size_t cache_line = 64;

thread_local int malloc_option = 0;

// Elements of whole cache lines that hold m elements.
template <class T> int round_up(int m)
{
    constexpr int line = static_cast<int>(cache_line / sizeof(T));
    if (m > INT_MAX - line) return INT_MAX / line * line;
    return (m + line - 1) & -line;
}

template <class T> T *aligned_array(int n, int m)
{
    if (n < 0 || m < 0 || m > INT_MAX / 64 * 64) return nullptr;
    // Two ints and a small factor: at most 2^31 * 2^31 * 8, so only the last multiplication can overflow.
    const auto elements = static_cast<std::uint64_t>(n) * static_cast<std::uint64_t>(round_up<T>(m));
    std::size_t bytes = 0;
    if (__builtin_mul_overflow(elements, sizeof(T), &bytes)) return nullptr;
    return static_cast<T *>(tavik_aligned_malloc(bytes));
}

} // namespace

extern "C" {

void *tavik_malloc_internal(size_t size)
{
    return std::malloc(size);
}

void tavik_free(void *pointer)
{
    std::free(pointer);
}

int tavik_malloc_option(int set, int value)
{
    if (set == 0) return malloc_option;
    malloc_option = value;
    if (value == 0) std::free(tavik_malloc_internal(0));
    return value;
}

void *tavik_aligned_malloc(size_t size)
{
    void *memory = nullptr;
    return posix_memalign(&memory, cache_line, size > 0 ? size : 1) == 0 ? memory : nullptr;
}

void tavik_aligned_free(void *pointer)
{
    std::free(pointer);
}

int tavik_i_omp_roundup(int m)
{
    return round_up<int>(m);
}

int tavik_f_omp_roundup(int m)
{
    return round_up<float>(m);
}

int tavik_d_omp_roundup(int m)
{
    return round_up<double>(m);
}

int *tavik_i_aligned_malloc(int n, int m)
{
    return aligned_array<int>(n, m);
}

float *tavik_f_aligned_malloc(int n, int m)
{
    return aligned_array<float>(n, m);
}

double *tavik_d_aligned_malloc(int n, int m)
{
    return aligned_array<double>(n, m);
}

} // extern "C"
