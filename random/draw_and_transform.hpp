// Long runs of uniforms that are turned into something else on several threads. All are drawn by the calling
// thread, in order, so that the stream does not depend on the number of threads; it stays a few pieces ahead of
// the transformation, in which it takes part.
#pragma once

#include "frame/parallel.hpp"
#include "uniform.hpp"

#include <algorithm>
#include <atomic>

namespace tavik::random {

// The pieces of a run: first drawn by one thread, in order, then taken by any.
class DrawnPieces {
public:
    void publish()
    {
        state_.fetch_add(2, std::memory_order_release);
        state_.notify_all();
    }

    // So many are drawn and not taken that they would leave the cache.
    bool far_ahead() const
    {
        constexpr std::int64_t most = 16;
        return n_drawn(state_.load(std::memory_order_relaxed)) - taken_.load(std::memory_order_relaxed) >=
               most;
    }

    // For the thread that draws, which must not wait for itself: a piece that is drawn, or -1.
    std::int64_t take_drawn()
    {
        std::int64_t piece = taken_.load(std::memory_order_relaxed);
        do {
            if (piece >= n_drawn(state_.load(std::memory_order_relaxed))) return -1;
        } while (!taken_.compare_exchange_weak(piece, piece + 1, std::memory_order_relaxed));
        return piece;
    }

    // For the other threads: the next piece, once it is drawn, or -1 when no more will be.
    std::int64_t take()
    {
        const std::int64_t piece = taken_.fetch_add(1, std::memory_order_relaxed);
        wait_until(state_, [&](std::int64_t state) { return has_ended(state) || n_drawn(state) > piece; });
        return n_drawn(state_.load(std::memory_order_acquire)) > piece ? piece : -1;
    }

    void end()
    {
        state_.fetch_or(ended_bit, std::memory_order_release);
        state_.notify_all();
    }

private:
    static constexpr std::int64_t ended_bit = 1;

    static bool has_ended(std::int64_t state)
    {
        return (state & ended_bit) != 0;
    }

    static std::int64_t n_drawn(std::int64_t state)
    {
        return state / 2;
    }

    alignas(64) std::atomic<std::int64_t> state_{0}; // twice the pieces that are drawn, and a bit for the end
    alignas(64) std::atomic<std::int64_t> taken_{0};
};

constexpr std::int64_t piece_to_transform = 2048;

// Draws n uniforms into u and calls transform(first, count) for all parts of them. False when the draws failed,
// which is raised.
template <class Real, class Transform>
bool draw_and_transform(Real *u, std::int64_t n, int threads, const Transform &transform)
{
    const std::int64_t n_pieces = (n + piece_to_transform - 1) / piece_to_transform;
    bool drawn = true;
    const auto draw_piece = [&](std::int64_t k) {
        const std::int64_t first = k * piece_to_transform;
        drawn = draw_uniforms(u + first, static_cast<std::size_t>(std::min(piece_to_transform, n - first)));
        return drawn;
    };
    const auto transform_piece = [&](std::int64_t k) {
        const std::int64_t first = k * piece_to_transform;
        transform(first, std::min(piece_to_transform, n - first));
    };
    DrawnPieces pieces;
    parallel(threads, [&](int thread) {
        const bool draws = thread == 0;
        if (draws) {
            for (std::int64_t k = 0; k < n_pieces && draw_piece(k); ++k) {
                pieces.publish();
                if (threads > 1 && !pieces.far_ahead()) continue;
                if (const std::int64_t next = pieces.take_drawn(); next >= 0) transform_piece(next);
            }
            pieces.end();
        }
        for (;;) {
            const std::int64_t next = draws ? pieces.take_drawn() : pieces.take();
            if (next < 0) break;
            transform_piece(next);
        }
    });
    return drawn;
}

// Short runs are transformed by the calling thread alone.
inline int transform_threads(std::int64_t n)
{
    constexpr std::int64_t long_run = 10000, cost_of_one = 8; // in units of what thread_count counts
    return n < long_run ? 1 : thread_count(n / piece_to_transform, n * cost_of_one);
}

} // namespace tavik::random
