// The memory of one public call. Work arrays live until the call ends, on whatever path it ends: return,
// error, exception or the long jump of a trapped signal. A result belongs to the call, too, until the worker
// hands it over as its last act; so a call that fails leaves nothing behind without a line of clean-up code
// in any worker.
//
// A workspace has no destructor, since a long jump may pass it by: the frame releases it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace tavik {

class Workspace {
public:
    Workspace() : work_(nullptr), reserve_(nullptr), reserve_size_(0), n_results_(0)
    {
    } // not the slots: every public call makes one of these

    // Takes memory for work arrays to come in one piece; what does not fit is taken when it comes. A routine with some
    // megabytes in several arrays is faster so when it is called again and again: glibc's malloc keeps what a call gave
    // back only up to twice its greatest piece, and the system zeroes all other pages anew. False, without an error,
    // without memory. Does nothing under the address sanitizer.
    bool reserve(std::size_t bytes);

    // n elements, aligned to 64 bytes, not initialised. On failure null, with error 5, 201 that names the
    // argument which governs the size, or 5, 200.
    template <class T> T *array(std::size_t n, const char *governed_by = nullptr)
    {
        T *work = array_or_null<T>(n);
        if (work == nullptr) raise_exhausted(n, governed_by);
        return work;
    }

    // The same without an error, for a routine that has one of its own.
    template <class T> T *array_or_null(std::size_t n)
    {
        return static_cast<T *>(take(n, sizeof(T), Use::work));
    }

    // The same for an array that the caller will release with tavik_free.
    template <class T> T *result(std::size_t n, const char *governed_by = nullptr)
    {
        T *result = result_or_null<T>(n);
        if (result == nullptr) raise_exhausted(n, governed_by);
        return result;
    }

    template <class T> T *result_or_null(std::size_t n)
    {
        return static_cast<T *>(take(n, sizeof(T), Use::result));
    }

    // Something that is more than a block of memory: let_go(*resource) when the call ends. False, with an error,
    // without memory; then it is let go at once.
    template <class T, class LetGo> bool keep(T *resource, LetGo)
    {
        static_assert(std::is_empty_v<LetGo>);
        const auto let_go = [](void *kept) { LetGo{}(static_cast<T *>(kept)); };
        if (take_resource(resource, let_go)) return true;
        let_go(resource);
        raise_exhausted(0, nullptr);
        return false;
    }

    // Makes a result, or what was kept, the caller's.
    template <class T> T *hand_over(T *result)
    {
        forget(result);
        return result;
    }

    void release()
    {
        if (work_ != nullptr || n_results_ > 0) release_all();
    }

private:
    enum class Use { work, result };
    struct Block {
        Block *next;
        void *resource; // null: the memory behind the block is all
        void (*let_go)(void *);
    };
    static constexpr int most_results = 16; // outputs of one call

    void *take(std::size_t n, std::size_t element_size, Use use);
    bool take_resource(void *resource, void (*let_go)(void *));
    static void raise_exhausted(std::size_t n, const char *governed_by);
    void forget(const void *result);
    void release_all();

    Block *work_;
    char *reserve_; // what is left of it
    std::size_t reserve_size_;
    void *results_[most_results];
    int n_results_;
};

} // namespace tavik
