#include "workspace.hpp"
#include "error.hpp"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <new>

namespace tavik {
namespace {

constexpr std::size_t alignment = 64;

// The address sanitizer sees what runs past an array only when arrays are pieces of memory of their own.
#if defined(__SANITIZE_ADDRESS__)
constexpr bool arrays_apart = true;
#elif defined(__has_feature)
constexpr bool arrays_apart = __has_feature(address_sanitizer);
#else
constexpr bool arrays_apart = false;
#endif

} // namespace

void Workspace::raise_exhausted(std::size_t n, const char *governed_by)
{
    if (governed_by == nullptr) {
        tavik_ermes(terminal, 200);
        return;
    }
    tavik_e1sti(1, static_cast<int>(std::min<std::size_t>(n, INT_MAX)));
    tavik_e1stl(1, governed_by);
    tavik_ermes(terminal, 201);
}

bool Workspace::reserve(std::size_t bytes)
{
    if (bytes > PTRDIFF_MAX - alignment) return false;
    if (arrays_apart) return true;
    // Not aligned by the allocator, which then never finds that what it kept is large enough for the next call.
    void *memory = tavik_malloc_internal(bytes + alignment);
    if (memory == nullptr || !take_resource(memory, tavik_free)) {
        tavik_free(memory);
        return false;
    }
    reserve_ =
        static_cast<char *>(memory) + (alignment - reinterpret_cast<std::uintptr_t>(memory) % alignment);
    reserve_size_ = bytes;
    return true;
}

void *Workspace::take(std::size_t n, std::size_t element_size, Use use)
{
    static_assert(sizeof(Block) <= alignment); // lies before the elements
    std::size_t bytes = 0;
    void *memory = nullptr;
    const bool overflow = __builtin_mul_overflow(n, element_size, &bytes) || bytes > PTRDIFF_MAX - alignment;
    const std::size_t whole_lines = (bytes + alignment - 1) / alignment * alignment;
    if (use == Use::work && reserve_ != nullptr && !overflow && whole_lines <= reserve_size_) {
        memory = reserve_;
        reserve_ += whole_lines;
        reserve_size_ -= whole_lines;
        return memory;
    }
    if (use == Use::work) {
        if (!overflow) memory = tavik_aligned_malloc(bytes + alignment);
        if (memory != nullptr) {
            work_ = new (memory) Block{work_, nullptr, nullptr};
            return static_cast<char *>(memory) + alignment;
        }
    } else if (n_results_ < most_results) {
        if (!overflow) memory = tavik_malloc_internal(std::max<std::size_t>(bytes, 1));
        if (memory != nullptr) return results_[n_results_++] = memory;
    }
    return nullptr;
}

bool Workspace::take_resource(void *resource, void (*let_go)(void *))
{
    void *memory = tavik_aligned_malloc(sizeof(Block));
    if (memory == nullptr) return false;
    work_ = new (memory) Block{work_, resource, let_go};
    return true;
}

void Workspace::forget(const void *result)
{
    for (int i = 0; i < n_results_; ++i) {
        if (results_[i] == result) results_[i] = nullptr;
    }
    for (Block *block = work_; block != nullptr; block = block->next) {
        if (block->resource == result) block->resource = nullptr;
    }
}

void Workspace::release_all()
{
    reserve_ = nullptr;
    while (work_ != nullptr) {
        Block *next = work_->next;
        if (work_->resource != nullptr) work_->let_go(work_->resource);
        tavik_aligned_free(work_);
        work_ = next;
    }
    while (n_results_ > 0) tavik_free(results_[--n_results_]);
}

} // namespace tavik
