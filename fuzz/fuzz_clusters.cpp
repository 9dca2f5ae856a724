// Cluster analyses as a stream of bytes: any shape, masses, columns, strides and limits, and data from a palette of
// values that may be hostile. No call may crash, hang or write where it should not, and every call must keep a few
// promises.
#include "bytes.hpp"

#include "frame/tavikstat.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <vector>

namespace {

void expect(bool condition, int line = __builtin_LINE())
{
    if (condition) return;
    std::fprintf(stderr, "line %d: error %d, %ld\n", line, tavik_error_type(), tavik_error_code());
    std::abort();
}

template <class Real> struct Routines;

template <> struct Routines<float> {
    static constexpr auto cluster = tavik_f_cluster_k_means;
    static constexpr auto seeds = tavik_f_cluster_seeds;
};

template <> struct Routines<double> {
    static constexpr auto cluster = tavik_d_cluster_k_means;
    static constexpr auto seeds = tavik_d_cluster_seeds;
};

template <class Real> class Analysis {
public:
    explicit Analysis(Bytes &bytes) : bytes_(bytes)
    {
        const Real limits[] = {
            std::numeric_limits<Real>::quiet_NaN(), std::numeric_limits<Real>::infinity(),
            -std::numeric_limits<Real>::infinity(), std::numeric_limits<Real>::max(),
            std::numeric_limits<Real>::min(),       std::numeric_limits<Real>::denorm_min()};
        const bool hostile = bytes.once_in(2);
        for (Real &value : palette_) {
            value = static_cast<Real>((bytes.byte() - 128) / 16.0);
            if (hostile && bytes.once_in(4)) value = limits[bytes.byte() % 6];
        }
        n_ = 1 + bytes.byte() % 64;
        p_ = 1 + bytes.byte() % 9;
        k_ = bytes.byte() % 16;
        stride_ = p_ + bytes.byte() % 4 - bytes.once_in(16);
        x_ = values(static_cast<std::size_t>(n_) * static_cast<std::size_t>(p_ + 3));
        masses_ = values(2 * static_cast<std::size_t>(n_));
        if (!bytes.once_in(8)) {
            for (Real &mass : masses_) mass = std::fabs(mass) + Real(0.5);
        }
        for (int j = 0; j < p_; ++j)
            columns_.push_back(bytes.once_in(16) ? bytes.byte() - 4 : j % std::max(1, stride_));
        max_iterations_ = bytes.once_in(16) ? -3 : bytes.byte() % 12;
    }

    void run()
    {
        const bool by_column = bytes_.once_in(3);
        std::vector<Real> seeds = values(static_cast<std::size_t>(k_ + 1) * static_cast<std::size_t>(p_));
        const int width = by_column ? TAVIK_CLUSTER_VARIABLES : 0;
        if (bytes_.once_in(2)) {
            Real *chosen =
                bytes_.once_in(2)
                    ? Routines<Real>::seeds(n_, p_, x_.data(), k_, TAVIK_X_COL_DIM, stride_,
                                            TAVIK_CLUSTER_TRIALS, bytes_.byte() % 8, width, columns_.data(),
                                            0)
                    : Routines<Real>::seeds(n_, p_, x_.data(), k_, TAVIK_X_COL_DIM, stride_,
                                            TAVIK_FREQUENCIES, masses_.data(), width, columns_.data(), 0);
            expect((chosen == nullptr) == (tavik_error_type() >= 4));
            if (chosen != nullptr) std::copy_n(chosen, k_ * p_, seeds.begin());
            tavik_free(chosen);
        }
        switch (bytes_.byte() % 3) {
        case 0: cluster(seeds, TAVIK_X_COL_DIM, stride_, width, columns_.data(), 0); break;
        case 1:
            cluster(seeds, TAVIK_FREQUENCIES, masses_.data(), TAVIK_X_COL_DIM, stride_, width,
                    columns_.data(), 0);
            break;
        default:
            cluster(seeds, TAVIK_FREQUENCIES, masses_.data(), TAVIK_WEIGHTS, masses_.data() + n_,
                    TAVIK_X_COL_DIM, stride_, width, columns_.data(), 0);
        }
    }

private:
    std::vector<Real> values(std::size_t count)
    {
        auto state = static_cast<uint32_t>(bytes_.byte()) * 0x9E3779B9U;
        std::vector<Real> all(count);
        for (Real &value : all) {
            state = state * 1664525U + 1013904223U;
            value = palette_[state >> 28];
        }
        return all;
    }

    template <class... Options> void cluster(const std::vector<Real> &seeds, Options... options)
    {
        Real *means = nullptr, *squares = nullptr;
        int *counts = nullptr, *history = nullptr, n_iterations = 0;
        int *found = Routines<Real>::cluster(n_, p_, x_.data(), k_, seeds.data(), TAVIK_CLUSTER_MEANS, &means,
                                             TAVIK_CLUSTER_SSQ, &squares, TAVIK_CLUSTER_COUNTS, &counts,
                                             TAVIK_CLUSTER_HISTORY, &n_iterations, &history,
                                             TAVIK_MAX_ITERATIONS, max_iterations_, options...);
        expect((found == nullptr) == (tavik_error_type() >= 4));
        for (const void *output : {static_cast<void *>(means), static_cast<void *>(squares),
                                   static_cast<void *>(counts), static_cast<void *>(history)})
            expect((output == nullptr) == (found == nullptr));
        if (found != nullptr) {
            expect(n_iterations <= std::max(0, max_iterations_));
            for (int i = 0; i < n_; ++i) {
                expect(found[i] >= 1 && found[i] <= k_);
                --counts[found[i] - 1];
                if (n_iterations > 0) expect(history[(n_iterations - 1) * n_ + i] == found[i]);
            }
            for (int c = 0; c < k_; ++c) expect(counts[c] == 0);
        }
        tavik_free(found);
        tavik_free(means);
        tavik_free(squares);
        tavik_free(counts);
        tavik_free(history);
    }

    Bytes &bytes_;
    Real palette_[16]{};
    int n_ = 0, p_ = 0, k_ = 0, stride_ = 0, max_iterations_ = 0;
    std::vector<Real> x_, masses_;
    std::vector<int> columns_;
};

template <class Real> void run(Bytes bytes)
{
    while (bytes.any()) Analysis<Real>(bytes).run();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size)
{
    for (int type : {3, 4, 5}) tavik_error_options(TAVIK_SET_STOP, type, 0, TAVIK_SET_PRINT, type, 0, 0);
    Bytes bytes(data, std::min<std::size_t>(size, 4096));
    if (bytes.once_in(2)) run<float>(bytes);
    else run<double>(bytes);
    return 0;
}
