// Programs of regression calls as a stream of bytes: any shape, options in any order and number, stages, deletions, data
// from a palette of values that may be hostile. No call may crash or write where it should not, and every call must
// keep a few promises.
#include "bytes.hpp"

#include "frame/tavikstat.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <utility>
#include <vector>

namespace {

void expect(bool condition, int line = __builtin_LINE())
{
    if (condition) return;
    std::fprintf(stderr, "line %d: error %d, %ld\n", line, tavik_error_type(), tavik_error_code());
    std::abort();
}

constexpr size_t width = 64; // of a row of x, at most
constexpr size_t most_slots = 60;

// On 64-bit x86, integers and pointers of a variable argument list fill the same slots, and doubles have registers of
// their own, from which every tolerance is read.
template <class Call, size_t... i>
auto with_slots(Call call, const uint64_t *slots, double tolerance, std::index_sequence<i...>)
{
    return call(slots[i]..., tolerance, tolerance, tolerance, tolerance, tolerance, tolerance);
}

template <class Real> class Program {
public:
    explicit Program(Bytes &bytes) : bytes_(bytes)
    {
        const bool hostile = bytes_.once_in(2);
        const Real limits[] = {
            std::numeric_limits<Real>::quiet_NaN(), std::numeric_limits<Real>::infinity(),
            -std::numeric_limits<Real>::infinity(), std::numeric_limits<Real>::max(),
            std::numeric_limits<Real>::min(),       std::numeric_limits<Real>::denorm_min()};
        for (Real &value : palette_) {
            value = static_cast<Real>((bytes_.byte() - 128) / 16.0);
            if (hostile && bytes_.once_in(4)) value = limits[bytes_.byte() % 6];
            moderate_ =
                moderate_ && (value == 0 || (std::fabs(value) >= Real(0.0625) && std::fabs(value) <= 8));
        }
        choose_shape();
        while (bytes_.any()) step();
        tavik_free_allocated_memory();
    }

private:
    struct Output {
        Real *plain, *user;
        std::vector<Real> array;
        bool asked = false;
    };

    void choose_shape()
    {
        const int shape = bytes_.byte();
        p_ = shape > 240 ? 17 + shape % 24 : shape % 8;
        if (shape > 250) p_ = 44 + shape % 16; // with the responses, more than a block of pivots
        q_ = bytes_.byte() % 4;
    }

    // A value of the palette, by a sequence that the bytes start.
    Real next_value()
    {
        state_ = state_ * 1664525U + 1013904223U;
        return palette_[state_ >> 28];
    }

    std::vector<Real> values(size_t count)
    {
        state_ = static_cast<uint32_t>(bytes_.byte()) * 0x9E3779B9U;
        std::vector<Real> all(count);
        for (Real &value : all) value = next_value();
        return all;
    }

    std::vector<Real> masses(size_t count)
    {
        auto all = values(count);
        const bool any_sign = bytes_.once_in(8);
        for (Real &value : all) value = any_sign ? value : std::fabs(value);
        return all;
    }

    template <class T> void push(T value)
    {
        uint64_t slot = 0;
        std::memcpy(&slot, &value, sizeof value);
        slots_[n_slots_++] = slot;
    }

    void push_output(int plain_code, int user_code, Output &output, size_t size)
    {
        const bool to_user = plain_code == 0 || (user_code != 0 && bytes_.once_in(2));
        push(to_user ? user_code : plain_code);
        if (to_user) {
            output.array.assign(size, 42);
            push(output.array.data());
        } else {
            output.asked = true;
            push(&output.plain);
        }
    }

    void push_option(size_t n, int &ido)
    {
        const auto p = static_cast<size_t>(p_), q = static_cast<size_t>(q_), c = p + 1;
        const auto stride = static_cast<size_t>(stride_);
        switch (bytes_.byte() % 24) {
        case 0: push(TAVIK_INTERCEPT); break;
        case 1: push(TAVIK_NO_INTERCEPT); break;
        case 2:
            push(TAVIK_X_COL_DIM);
            push(bytes_.byte() % 16 == 0 ? bytes_.byte() % 8 - 2 : static_cast<int>(width));
            break;
        case 3:
            for (int &column : columns_)
                column = bytes_.byte() % 16 == 0 ? bytes_.byte() - 4 : bytes_.byte() % 8;
            push(TAVIK_X_INDICES);
            push(columns_);
            push(columns_ + width);
            push(bytes_.byte() % 4 == 0 ? bytes_.byte() % 12 - 2 : -1);
            push(bytes_.byte() % 4 == 0 ? bytes_.byte() % 12 - 2 : -1);
            break;
        case 4: push(TAVIK_IDO), push(ido = bytes_.byte() % 16 == 0 ? 7 : ido); break;
        case 5: push(TAVIK_TOLERANCE); break;
        case 6: push(TAVIK_TOLERANCE_ADR), push(palette_); break;
        case 7: push(TAVIK_FREQUENCIES), push((f_ = masses(n)).data()); break;
        case 8: push(TAVIK_WEIGHTS), push((w_ = masses(n)).data()); break;
        case 9: push(TAVIK_KEEP_MISSING), moderate_now_ = false; break;
        case 10: push(TAVIK_EXCLUDE_MISSING); break;
        case 11: push(TAVIK_FIT_POINTER), push(this); break;
        case 12: push(TAVIK_ROWS_DELETE), moderate_now_ = false; break;
        case 13: push(TAVIK_ROWS_ADD); break;
        case 14: push_output(0, TAVIK_RETURN_USER, b_, c * std::max<size_t>(1, q)); break;
        case 15: push_output(TAVIK_ANOVA_TABLE, TAVIK_ANOVA_TABLE_USER, outputs_[0], 15 * q); break;
        case 16: push_output(TAVIK_COEF_STATISTICS, 0, outputs_[1], 0); break;
        case 17:
            push_output(TAVIK_COEF_COVARIANCES, TAVIK_COEF_COVARIANCES_USER, outputs_[2], c * stride * q);
            push(TAVIK_COV_COL_DIM);
            push(stride_);
            break;
        case 18: push_output(TAVIK_RESIDUALS, TAVIK_RESIDUALS_USER, outputs_[3], n * q); break;
        case 19: push_output(0, TAVIK_LEVERAGES_USER, leverages_, n); break;
        case 20: push_output(TAVIK_VARIABLE_MEANS, TAVIK_VARIABLE_MEANS_USER, outputs_[4], p + q); break;
        case 21: push_output(TAVIK_R_FACTOR, TAVIK_R_FACTOR_USER, outputs_[5], c * c); break;
        case 22:
            push_output(TAVIK_ERROR_CROSSPRODUCTS, TAVIK_ERROR_CROSSPRODUCTS_USER, outputs_[6], q * q);
            break;
        default:
            unknown_ = bytes_.byte() % 16 == 0; // nothing behind it is read
            push(unknown_ ? 4711 : TAVIK_INTERCEPT);
        }
    }

    static float *call(int n, int p, const float *x, const float *y, const uint64_t *slots, double tolerance)
    {
        return with_slots([=](auto... rest) { return tavik_f_regression(n, p, x, y, rest...); }, slots,
                          tolerance, std::make_index_sequence<most_slots>());
    }

    static double *call(int n, int p, const double *x, const double *y, const uint64_t *slots,
                        double tolerance)
    {
        return with_slots([=](auto... rest) { return tavik_d_regression(n, p, x, y, rest...); }, slots,
                          tolerance, std::make_index_sequence<most_slots>());
    }

    void step()
    {
        if (bytes_.once_in(16)) choose_shape();
        const int rows = bytes_.byte();
        int n = rows % 8 == 0 ? rows / 2 : rows % 8;
        if (rows == 255) n = 1000; // so many that they are folded into four factors
        const auto size = static_cast<size_t>(n);
        int ido = bytes_.byte() % 5;
        ido = ido == 4 ? 2 : ido;
        const auto x = values(size * width), y = values(size * static_cast<size_t>(std::max(1, q_)));
        const double tolerance = static_cast<double>(next_value());
        stride_ = p_ + 1 + bytes_.byte() % 3;
        Real sentinel;
        b_ = leverages_ = {};
        for (Output &output : outputs_) output = {&sentinel, nullptr, {}, false};
        n_slots_ = 0;
        moderate_now_ = moderate_;
        unknown_ = false;
        int rank = -1, missing = -1;
        push(TAVIK_N_DEPENDENT), push(q_);
        push(TAVIK_RANK), push(&rank);
        push(TAVIK_N_ROWS_MISSING), push(&missing);
        push(TAVIK_IDO), push(ido);
        // Each array is one option's: a second one of the same code would get a new size.
        uint32_t given = 0;
        for (int options = bytes_.byte() % 9; options > 0 && n_slots_ + 6 < most_slots && !unknown_;
             --options) {
            const size_t before = n_slots_;
            Bytes peeked = bytes_;
            const uint32_t option = 1U << peeked.byte() % 24;
            if ((given & option) != 0) {
                bytes_.byte();
                continue;
            }
            given |= option;
            push_option(size, ido);
            expect(n_slots_ > before);
        }
        push(0);

        Real *b = call(n, p_, x.data(), y.data(), slots_, tolerance);
        const int type = tavik_error_type();
        const bool staged = ido == 1 || ido == 2, failed = type == 4 || type == 5;
        expect((b == nullptr) == (failed || staged));
        expect(type == 0 || type == 3 || failed);
        for (const Output &output : outputs_) {
            if (output.asked && b == nullptr) expect(output.plain == nullptr);
            if (output.asked && b != nullptr) tavik_free(output.plain);
            if (b == nullptr) expect_untouched(output);
        }
        fresh_ = ido == 1 ? moderate_now_ : fresh_ && moderate_now_;
        if (b == nullptr) {
            expect(rank == -1 && missing == -1);
            expect_untouched(b_);
            expect_untouched(leverages_);
            return;
        }
        expect(rank >= 0 && rank <= p_ + 1 && missing >= 0);
        expect(b_.array.empty() || b == b_.array.data());
        if (ido == 0 ? moderate_now_ : fresh_) {
            expect(ido != 0 || rank <= n);
            const size_t used = (static_cast<size_t>(p_) + 1) * static_cast<size_t>(std::max(1, q_));
            expect(std::all_of(b, b + used, [](Real value) { return std::isfinite(value); }));
        }
        if (b_.array.empty()) tavik_free(b);
    }

    static void expect_untouched(const Output &output)
    {
        expect(std::all_of(output.array.begin(), output.array.end(), [](Real value) { return value == 42; }));
    }

    Bytes &bytes_;
    Real palette_[16];
    bool unknown_ = false, moderate_ = true, moderate_now_ = true,
         fresh_ = true; // values of the palette, this call, the series
    int p_ = 1, q_ = 1, stride_ = 2;
    uint32_t state_ = 0;
    int columns_[2 * width] = {};
    std::vector<Real> f_, w_;
    Output b_, leverages_, outputs_[7];
    uint64_t slots_[most_slots] = {};
    size_t n_slots_ = 0;
};

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    static FILE *nowhere = fopen("/dev/null", "w");
    tavik_error_options(TAVIK_SET_ERROR_FILE, nowhere, 0);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    for (int type : {3, 4, 5}) tavik_error_options(TAVIK_SET_STOP, type, 0, TAVIK_SET_PRINT, type, 0, 0);
    Bytes bytes(data, size);
    if (bytes.once_in(2)) Program<float> program(bytes);
    else Program<double> program(bytes);
    return 0;
}
