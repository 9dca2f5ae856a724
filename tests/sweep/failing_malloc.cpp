#include "failing_malloc.hpp"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <iterator>

// The C library's allocator under the names that replacing malloc leaves alone.
extern "C" {
void *__libc_malloc(std::size_t);
void *__libc_calloc(std::size_t, std::size_t);
void *__libc_realloc(void *, std::size_t);
void *__libc_memalign(std::size_t, std::size_t);
void __libc_free(void *);
}

namespace {

thread_local bool armed = false, failed = false;
thread_local long countdown = 0;
thread_local void *watched[4096];
thread_local void **watched_end = watched;

bool fails()
{
    if (!armed || countdown == 0 || --countdown != 0) return false;
    failed = true;
    errno = ENOMEM;
    return true;
}

void *watch(void *block)
{
    if (armed && block != nullptr && watched_end != std::end(watched)) *watched_end++ = block;
    return block;
}

void forget(void *block)
{
    void **found = std::find(watched, watched_end, block);
    if (found != watched_end) *found = *--watched_end;
}

} // namespace

namespace failing_malloc {

void arm(long k)
{
    watched_end = watched;
    failed = false;
    countdown = k;
    armed = true;
}

bool disarm()
{
    armed = false;
    return failed;
}

long live_blocks()
{
    return watched_end - watched;
}

} // namespace failing_malloc

// Visible, so that they stand in for those of the C library in every other library, too.
#pragma GCC visibility push(default)

extern "C" {

void *malloc(std::size_t size)
{
    return fails() ? nullptr : watch(__libc_malloc(size));
}

void *calloc(std::size_t n, std::size_t size)
{
    return fails() ? nullptr : watch(__libc_calloc(n, size));
}

void *realloc(void *block, std::size_t size)
{
    if (fails()) return nullptr;
    void *moved = __libc_realloc(block, size);
    if (moved != nullptr || size == 0) forget(block);
    return watch(moved);
}

void *memalign(std::size_t alignment, std::size_t size)
{
    return fails() ? nullptr : watch(__libc_memalign(alignment, size));
}

void *aligned_alloc(std::size_t alignment, std::size_t size)
{
    return memalign(alignment, size);
}

int posix_memalign(void **block, std::size_t alignment, std::size_t size)
{
    void *made = memalign(alignment, size);
    if (made == nullptr) return ENOMEM;
    *block = made;
    return 0;
}

void free(void *block)
{
    if (block != nullptr) forget(block);
    __libc_free(block);
}

} // extern "C"

#pragma GCC visibility pop
