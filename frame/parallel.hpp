// Work spread over OpenMP threads so that results do not depend on their number: the caller cuts the work
// into pieces of fixed size, threads take pieces in turn, and whatever joins pieces does so in their order.
#pragma once

#include "internal.h"

#include <atomic>
#include <cstdint>
#include <omp.h>

namespace tavik {

// Threads that a parallel region may have: the runtime's number; one while signals are trapped, which is for
// single-threaded use, and one in a child process of fork(), in which the runtime's other threads do not
// exist.
int usable_threads();

// Threads for work on `values` numbers that can be cut into `pieces`.
int thread_count(std::int64_t pieces, std::int64_t values);

// Waits for other threads to bring a value about: at full speed for some tenths of a millisecond, which is a few times
// what it takes to wake a processor of a virtual machine, then asleep. The runtime's own barriers spin for many
// milliseconds, which on a busy machine is time that the awaited thread does not get; and who yields there comes back
// as late. Whoever changes the value must notify.
template <class T, class Condition> void wait_until(const std::atomic<T> &value, const Condition &is_reached)
{
    constexpr int most_spins = 8000;
    for (int spins = 0; spins < most_spins; ++spins) {
        if (is_reached(value.load(std::memory_order_acquire))) return;
        __builtin_ia32_pause();
    }
    for (;;) {
        const T seen = value.load(std::memory_order_acquire);
        if (is_reached(seen)) return;
        value.wait(seen, std::memory_order_acquire);
    }
}

// A point that no thread of a team leaves before all have reached it. For one use.
class Meeting {
public:
    void wait(int team_size)
    {
        if (arrived_.fetch_add(1, std::memory_order_acq_rel) + 1 == team_size) arrived_.notify_all();
        else wait_until(arrived_, [&](int arrived) { return arrived == team_size; });
    }

private:
    std::atomic<int> arrived_{0};
};

// Runs body(thread) on at most `threads` threads, each with the caller's error state.
template <class Body> void parallel(int threads, const Body &body)
{
    if (threads <= 1) {
        body(0);
        return;
    }
    tavik_error_struct *parent = tavik_error_struct_get();
    Meeting all_forked, all_done;
#pragma omp parallel num_threads(threads)
    {
        // The parent's state may change as soon as its own share of the work begins, and again when a worker
        // joins.
        tavik_error_fork(parent);
        all_forked.wait(omp_get_num_threads());
        body(omp_get_thread_num());
        all_done.wait(omp_get_num_threads());
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
        wait_until(turn_, [&](std::int64_t turn) { return turn == piece; });
    }

    void pass_turn(std::int64_t piece)
    {
        turn_.store(piece + 1, std::memory_order_release);
        turn_.notify_all();
    }

private:
    std::int64_t count_;
    alignas(64) std::atomic<std::int64_t> next_{0};
    alignas(64) std::atomic<std::int64_t> turn_{0};
};

// Threads that stand by, asleep, while one of them, the leader, does sequential work with short parts for all. Between
// the start of a part and its end, the leader must not touch what the part does. Parts get whoever comes in time: none
// waits for a thread that has not begun it, so they cost little where the machine has no core to spare. What a part does
// must not depend on how many threads do it, and a thread may come to it twice. For one enlist(), whose lead() throws
// nothing; parts do not contain parts.
class Crew {
public:
    // Runs lead() on one of the threads.
    template <class Lead> void enlist(int threads, const Lead &lead)
    {
        parallel(threads, [&](int thread) {
            if (thread > 0) return stand_by(thread);
            lead();
            dismissed_ = true;
            call();
        });
    }

    // Inside lead(): from start() on any other threads are at body(thread), which must last until finish(). There the
    // leader joins them, and the part is done.
    template <class Body> void start(const Body &&body) = delete;
    template <class Body> void start(const Body &body)
    {
        body_ = &body;
        run_body_ = [](const void *of, int thread) { (*static_cast<const Body *>(of))(thread); };
        inside_.store(0, std::memory_order_release);
        call();
    }

    void finish()
    {
        run_body_(body_, 0);
        inside_.fetch_or(closed, std::memory_order_acq_rel);
        wait_until(inside_, [](int inside) { return inside == closed; });
    }

private:
    static constexpr int closed = 1 << 30;

    void call()
    {
        calls_.fetch_add(1, std::memory_order_release);
        calls_.notify_all();
    }

    void stand_by(int thread)
    {
        for (int heard = 0;;) {
            wait_until(calls_, [heard](int calls) { return calls != heard; });
            heard = calls_.load(std::memory_order_acquire);
            if (dismissed_) return;
            if (!enter()) continue;
            run_body_(body_, thread);
            inside_.fetch_sub(1, std::memory_order_acq_rel);
            inside_.notify_all();
        }
    }

    bool enter()
    {
        int inside = inside_.load(std::memory_order_relaxed);
        while ((inside & closed) == 0) {
            if (inside_.compare_exchange_weak(inside, inside + 1, std::memory_order_acq_rel)) return true;
        }
        return false;
    }

    const void *body_ = nullptr;
    void (*run_body_)(const void *body, int thread) = nullptr;
    std::atomic<bool> dismissed_{false};
    alignas(64) std::atomic<int> calls_{0};
    alignas(64) std::atomic<int> inside_{closed};
};

} // namespace tavik
