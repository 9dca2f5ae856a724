// Option lists as a stream of bytes: any codes, well-typed values, through the real entry points' workers.
// The list is built as a va_list whose arguments all lie in memory, which the 64-bit x86 calling convention
// allows.
#include "descriptive/simple_statistics.hpp"
#include "frame/call.hpp"

#include <cstdint>
#include <cstring>
#include <limits>
#include <vector>

namespace {

// Values that options take; a plan letter says which.
double reals[8] = {95, 0, -1, 99.9, 1e300, -1e-300, 100, std::numeric_limits<double>::quiet_NaN()};
double x[64], user[17 * 64];

class Arguments {
public:
    Arguments(const uint8_t *data, size_t size) : data_(data), size_(size)
    {
    }

    uint8_t byte()
    {
        return size_ == 0 ? 0 : (--size_, *data_++);
    }

    // Codes of the routine with the kinds of their values: i integer, r real, p pointer to reals, u result.
    void build()
    {
        static constexpr struct {
            int code;
            const char *values;
        } known[] = {{TAVIK_CONFIDENCE_MEAN, "r"},     {TAVIK_CONFIDENCE_MEAN_ADR, "p"},
                     {TAVIK_CONFIDENCE_VARIANCE, "r"}, {TAVIK_CONFIDENCE_VARIANCE_ADR, "p"},
                     {TAVIK_FREQUENCIES, "p"},         {TAVIK_MEDIAN, ""},
                     {TAVIK_MEDIAN_AND_SCALE, ""},     {TAVIK_RETURN_USER, "u"},
                     {TAVIK_STAT_COL_DIM, "i"},        {TAVIK_WEIGHTS, "p"},
                     {TAVIK_X_COL_DIM, "i"},           {TAVIK_MISSING_ELEMENTWISE, ""},
                     {TAVIK_MISSING_LISTWISE, ""},     {TAVIK_IDO, "i"}};
        while (size_ > 0 && slots_.size() < 60) {
            const uint8_t choice = byte();
            if (choice >= std::size(known)) {
                const int code = choice * 256 + byte();
                if (std::none_of(std::begin(known), std::end(known),
                                 [=](const auto &k) { return k.code == code; }))
                    push(code);
                continue;
            }
            push(known[choice].code);
            for (const char *value = known[choice].values; *value != '\0'; ++value) {
                if (*value == 'i') push(static_cast<int>(byte()) - 4);
                else if (*value == 'r') push(reals[byte() % 8]);
                else if (*value == 'u') push(byte() % 16 == 0 ? nullptr : user);
                else push(byte() % 16 == 0 ? nullptr : x + byte() % 32);
            }
        }
        push(0);
    }

    void start(tavik::ArgumentList &list)
    {
        struct Tag {
            unsigned gp_offset, fp_offset;
            void *overflow_area, *register_area;
        } tag = {48, 176, slots_.data(), nullptr};
        static_assert(sizeof tag == sizeof list.arguments);
        std::memcpy(&list.arguments, &tag, sizeof tag);
    }

private:
    template <class T> void push(T value)
    {
        slots_.push_back(0);
        std::memcpy(&slots_.back(), &value, sizeof value);
    }

    const uint8_t *data_;
    size_t size_;
    std::vector<uint64_t> slots_;
};

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    static FILE *nowhere = fopen("/dev/null", "w");
    tavik_error_options(TAVIK_SET_STOP, 4, 0, TAVIK_SET_STOP, 5, 0, TAVIK_SET_ERROR_FILE, nowhere, 0);
    for (int i = 0; i < 64; ++i) x[i] = i % 7 == 3 ? reals[i % 8] : i % 5;
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 2) return 0;
    Arguments arguments(data + 2, size - 2);
    arguments.build();
    tavik::ArgumentList list;
    arguments.start(list);
    const int p = data[1] % 4, n = data[0] % 8;
    double *result =
        tavik::public_call<double *>("fuzzed", [&](tavik::Workspace &workspace, double *&statistics) {
            tavik::descriptive::SimpleStatisticsOptions<double> options;
            options.x_col_dim = options.stat_col_dim = p;
            // Sizes that the arrays here hold; larger ones would be the caller's mistake, not the reader's.
            tavik::ArgumentList again;
            va_copy(again.arguments, list.arguments);
            const bool read =
                tavik::descriptive::read_options(tavik::OptionReader(again, tavik::count_codes), options);
            if (read && (options.x_col_dim > 4 || options.stat_col_dim > 60)) return;
            if (!read) tavik_e1mes(0, 0, " ");
            tavik::descriptive::l_simple_statistics(n, p, x, list, workspace, statistics);
        });
    if (result != user) tavik_free(result);
    return 0;
}
