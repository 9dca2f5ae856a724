// Work spread over OpenMP threads so that results do not depend on their number: the caller cuts the work
// into pieces of fixed size, threads take pieces in turn, and whatever joins pieces does so in their order.
#pragma once

#include "internal.h"

#include <atomic>
#include <cstdint>
#include <omp.h>
#include <sched.h>

namespace tavik {

// Threads for `pieces` pieces of work; one while signals are trapped, which is for single-threaded use.
int thread_count(std::int64_t pieces);

// Runs body(thread) on `threads` threads, each with the caller's error state.
template <class Body> void parallel(int threads, const Body &body)
{
    if (threads <= 1) {
        body(0);
        return;
    }
    tavik_error_struct *parent = tavik_error_struct_get();
#pragma omp parallel num_threads(threads)
    {
        // The parent's state may change as soon as its own share of the work begins, and again when a worker
        // joins.
        tavik_error_fork(parent);
#pragma omp barrier
        body(omp_get_thread_num());
#pragma omp barrier
        tavik_error_join(parent);
    }
}

// Pieces of work that are taken in order, done in any order, and joined in order again.
class OrderedPieces {
public:
    explicit OrderedPieces(std::int64_t count) : count_(count)
    {
    }

    // The next piece, or -1 when none is left.
    std::int64_t take()
    {
        const std::int64_t piece = next_.fetch_add(1, std::memory_order_relaxed);
        return piece < count_ ? piece : -1;
    }

    // Waits until all pieces before this one are joined. They are in work, so this ends.
    void wait_for_turn(std::int64_t piece) const
    {
        constexpr int spins_before_yield = 200;
        for (int spins = 0; turn_.load(std::memory_order_acquire) != piece; ++spins) {
            if (spins < spins_before_yield) __builtin_ia32_pause();
            else sched_yield();
        }
    }

    void pass_turn(std::int64_t piece)
    {
        turn_.store(piece + 1, std::memory_order_release);
    }

private:
    std::int64_t count_;
    alignas(64) std::atomic<std::int64_t> next_{0};
    alignas(64) std::atomic<std::int64_t> turn_{0};
};

} // namespace tavik
