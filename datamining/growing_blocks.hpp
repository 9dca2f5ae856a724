// How the arrays of a network grow.
//
// Links, and the lists of links at nodes, lie in blocks with places for the next power of two above their count. So a
// block needs no number of its own in the record that callers see, and elements are added in amortised constant time.
#pragma once

#include "frame/raise.hpp"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstdlib>
#include <sys/mman.h>

namespace tavik::datamining {

constexpr std::size_t places_for(std::size_t n)
{
    constexpr std::size_t least = 4;
    return n == 0 ? 0 : std::max(least, std::bit_ceil(n));
}

// A large block is about to be filled, at least by half: the kernel shall give it large pages, each of which costs
// hardly more than a small one.
inline void expect_filling(void *block, std::size_t bytes)
{
    constexpr std::uintptr_t large_page = 1 << 21;
    const auto first = reinterpret_cast<std::uintptr_t>(block);
    const std::uintptr_t begin = (first + large_page - 1) / large_page * large_page,
                         end = (first + bytes) / large_page * large_page;
    if (begin >= end) return;
    // NOLINTNEXTLINE(performance-no-int-to-ptr): within the block
    madvise(reinterpret_cast<void *>(begin), end - begin, MADV_HUGEPAGE); // a wish, which may stay one
}

// Makes room for n elements in a block that was made for `now` of them, or more. False, with an error, without memory;
// then nothing has changed.
template <class T> bool make_room(T *&block, std::size_t now, std::size_t n)
{
    const std::size_t places = places_for(n);
    if (places <= places_for(now)) return true;
    std::size_t bytes = 0;
    void *larger = nullptr;
    if (!__builtin_mul_overflow(places, sizeof(T), &bytes)) larger = std::realloc(block, bytes);
    if (larger == nullptr) return raise(terminal, 200);
    expect_filling(larger, bytes);
    block = static_cast<T *>(larger);
    return true;
}

inline bool make_room(int *&list, int now, std::int64_t n)
{
    return make_room(list, static_cast<std::size_t>(now), static_cast<std::size_t>(n));
}

} // namespace tavik::datamining
