// Settings and their defaults, machine constants, memory, units, page size, version texts, files, time.
#include "capture.hpp"

#include "workspace.hpp"

#include <algorithm>
#include <bit>
#include <climits>
#include <cmath>
#include <ctime>
#include <limits>

using namespace capture;
using testing::ElementsAre;

namespace {

struct Platform : FrameTest {};

FILE *unit(int n)
{
    FILE *stream = nullptr;
    tavik_umach(n, &stream);
    return stream;
}

int page(int n, int value = 0)
{
    tavik_page(n, &value);
    return value;
}

// Print, stop and traceback setting of each type, as the options and the internal routine see them.
std::vector<int> all_settings()
{
    std::vector<int> flags;
    for (int type = 1; type <= 7; ++type) {
        int print = -7, stop = -7;
        tavik_e1pos(-type, &print, &stop);
        EXPECT_EQ(std::pair(print, stop), std::pair(get(TAVIK_GET_PRINT, type), get(TAVIK_GET_STOP, type)));
        flags.insert(flags.end(), {print, stop, get(TAVIK_GET_TRACEBACK, type)});
    }
    return flags;
}

TEST_F(Platform, AFreshThreadHasTheDefaultsWhateverOthersSet)
{
    int one = 1, keep = -1;
    tavik_e1pos(0, &one, &keep);
    tavik_output_file(TAVIK_SET_OUTPUT_FILE, stream.file, 0);
    page(-1, 10);
    page(-2, 1000);
    EXPECT_EQ(tavik_malloc_option(1, 37), 37);
    in_thread([] {
        std::vector<int> due;
        for (int type = 1; type <= 7; ++type) due.insert(due.end(), {type >= 3, type == 4 || type == 5, 0});
        EXPECT_EQ(all_settings(), due);
        int print = -7, stop = -7, id = 0;
        tavik_e1pos(-8, &print, &stop);
        tavik_error_options(TAVIK_ERROR_HANDLER_ID, &id, 0);
        EXPECT_THAT((std::vector{print, stop, id, page(1), page(2)}), ElementsAre(1, 1, 50020, 78, 60));
        EXPECT_THAT((std::vector{unit(1), unit(2), unit(3)}), ElementsAre(stdin, stdout, stderr));
        EXPECT_NE(tavik_malloc_option(0, 5), 37);
        tavik_output_file(TAVIK_SET_OUTPUT_FILE, stderr, TAVIK_SET_ERROR_FILE, stdout, 0);
    });
    EXPECT_THAT((std::vector{page(1), page(2), tavik_malloc_option(0, 5)}), ElementsAre(10, 1000, 37));
    FILE *by_options = nullptr, *by_units = nullptr; // every door leads to the same unit
    tavik_error_options(TAVIK_GET_ERROR_FILE, &by_options, 0);
    tavik_output_file(TAVIK_GET_ERROR_FILE, &by_units, 0);
    EXPECT_THAT((std::vector{unit(2), unit(3), by_options, by_units}), testing::Each(stream.file));
    Stream other;
    tavik_umach(-3, &other.file);
    raise_in("tavik_x", 6, "there");
    EXPECT_EQ(other.take(), block(6, "tavik_x", "there"));
    tavik_output_file(TAVIK_SET_OUTPUT_FILE, stdout, TAVIK_SET_ERROR_FILE, stream.file, 0);
    page(-1, 78);
    page(-2, 60);
}

TEST_F(Platform, Settings)
{
    const int options[] = {TAVIK_SET_PRINT, TAVIK_SET_STOP, TAVIK_SET_TRACEBACK};
    std::vector<int> due = all_settings();
    for (int at = 0; at < 42; ++at) { // each one changes only itself, on and off
        due[at / 2] = !due[at / 2];
        set(options[at / 2 % 3], at / 6 + 1, due[at / 2]);
        EXPECT_EQ(all_settings(), due) << at;
    }
    int on = 1, keep = -1, print = -1, safe = -1, linear = -1;
    tavik_e1pos(2, &on, &keep);
    tavik_e1pos(3, &keep, &on);
    due[3] = due[7] = 1;
    EXPECT_EQ(all_settings(), due);
    tavik_e1pos(0, &keep, &on);
    for (int type = 0; type < 7; ++type) due[3 * type + 1] = 1;
    EXPECT_EQ(all_settings(), due);
    tavik_error_options(TAVIK_SET_PRINT, 1, 1, TAVIK_SET_PRINT, 1, 0, TAVIK_GET_PRINT, 1, &print, 0);
    EXPECT_EQ(print, 0); // the later one wins
    tavik_error_options(0);
    EXPECT_EQ(all_settings(), due);
    tavik_omp_options(50742, &safe, 50633, &linear, 0);
    EXPECT_EQ(std::pair(safe, linear), std::pair(0, 1));
    tavik_omp_options(50741, 1, 50634, 1, 50634, 0, 0);
    in_thread([&] { tavik_omp_options(50742, &safe, 50633, &linear, 0); }); // they are the process's
    EXPECT_EQ(std::pair(safe, linear), std::pair(1, 0));
    tavik_omp_options(50741, 0, 50634, 1, 0);
}

// Constant n as the C++ library knows it. Constant 5 of double differs from log10(2) in the ninth digit.
template <class Real> bool is_constant(int n, Real value)
{
    using L = std::numeric_limits<Real>;
    const Real log10_of_2 = sizeof(Real) == 4 ? Real(0.30102999566398120) : Real(0.30102998001990605);
    const Real due[] = {L::min(),   L::max(), L::epsilon() / 2, L::epsilon(),
                        log10_of_2, 0,        L::infinity(),    -L::infinity()};
    return n == 6 ? std::isnan(value) : value == due[n - 1];
}

TEST_F(Platform, MachineConstants)
{
    for (int n = 1; n <= 8; ++n) {
        for (float value : {tavik_f_machine(n), tavik_amach(n), tavik_machine.f[n - 1]})
            EXPECT_TRUE(is_constant(n, value)) << n << ": " << value;
        for (double value : {tavik_d_machine(n), tavik_machine.d[n - 1]})
            EXPECT_TRUE(is_constant(n, value)) << n << ": " << value;
    }
    EXPECT_EQ(std::bit_cast<unsigned>(tavik_machine.f[5]), 0x7fffffffu);
    EXPECT_NE(std::bit_cast<unsigned long>(tavik_machine.d[5]) & 1ul << 51, 0u); // a quiet NaN
    using F = std::numeric_limits<float>;
    using D = std::numeric_limits<double>;
    const long format[] = {2,         F::digits,       F::min_exponent, F::max_exponent,
                           D::digits, D::min_exponent, D::max_exponent};
    const long i_machine[] = {CHAR_BIT, 2, 15, SHRT_MAX, 63, LONG_MAX}, imach[] = {0, 32, 4, 2, 31, INT_MAX};
    for (int n = 0; n <= 12; ++n) EXPECT_EQ(tavik_i_machine(n), n < 6 ? i_machine[n] : format[n - 6]) << n;
    for (int n = 1; n <= 12; ++n) EXPECT_EQ(tavik_imach(n), n < 6 ? imach[n] : format[n - 6]) << n;
    for (int n = 0; n <= 11; ++n)
        EXPECT_TRUE(tavik_F_NUMBER[n] == tavik_D_NUMBER[n] && tavik_D_NUMBER[n] == (n < 11 ? n : 0.5));
}

template <class Real> void check_division(Real (*divide)(Real, Real))
{
    using L = std::numeric_limits<Real>;
    const Real inf = L::infinity(), nan = NAN, zero = 0, min = L::min(), max = L::max(), half = max / 2;
    const Real normal = 3 * min / 2;
    const Real rows[][3] = {// dividend, divisor, quotient
                            {7, 2, 3.5},          {-7, .25, -28},          {1, 0, inf},
                            {-1, 0, -inf},        {1, -zero, inf},         {0, 0, nan},
                            {max, .5, inf},       {max, -.5, -inf},        {min, 2, 0},
                            {half / 2, .5, half}, {2 * normal, 2, normal}, {0, max, 0},
                            {1, inf, 0},          {inf, 1, inf},           {inf, inf, nan},
                            {nan, 1, nan},        {1, nan, nan},           {0, nan, nan},
                            {nan, 0, nan}};
    for (const auto &[dividend, divisor, due] : rows) {
        const Real got = divide(dividend, divisor);
        EXPECT_TRUE(std::isnan(due) ? std::isnan(got) : got == due)
            << dividend << "/" << divisor << ": " << got;
    }
}

TEST_F(Platform, GuardedDivision)
{
    check_division(tavik_c1div);
    check_division(tavik_dc1div);
}

bool on_a_line(const void *pointer)
{
    return pointer != nullptr && reinterpret_cast<std::size_t>(pointer) % 64 == 0;
}

template <class Element> void check_rows(Element *(*allocate)(int, int), int (*round_up)(int))
{
    const int unit = 64 / sizeof(Element), last = INT_MAX - unit + 1;
    for (int m = 0; m <= 100; ++m) {
        const int stride = round_up(m);
        EXPECT_TRUE(stride % unit == 0 && stride >= m && stride < m + unit) << m;
        Element *rows = allocate(3, m);
        EXPECT_TRUE(on_a_line(rows));
        std::fill_n(rows, 3 * stride, Element(1));
        tavik_aligned_free(rows);
    }
    for (int m : {last, last + 1, INT_MAX}) EXPECT_EQ(round_up(m), last) << m; // cannot be rounded up
    for (auto [n, m] : {std::pair{-1, 5}, {5, -1}, {INT_MAX, INT_MAX}, {INT_MIN, INT_MIN}})
        EXPECT_EQ(allocate(n, m), nullptr) << n << " " << m;
}

TEST_F(Platform, Memory)
{
    check_rows(tavik_i_aligned_malloc, tavik_i_omp_roundup);
    check_rows(tavik_f_aligned_malloc, tavik_f_omp_roundup);
    check_rows(tavik_d_aligned_malloc, tavik_d_omp_roundup);
    for (std::size_t size : {0u, 1u, 63u, 64u, 65u, 100000u}) {
        void *block = tavik_aligned_malloc(size);
        EXPECT_TRUE(on_a_line(block)) << size;
        std::fill_n(static_cast<char *>(block), size == 0 ? 1 : size, 'x');
        tavik_aligned_free(block);
    }
    tavik_aligned_free(nullptr);
    tavik_free(nullptr);
    tavik_free(tavik_malloc_internal(100));
}

TEST_F(Platform, AWorkspaceCutsArraysFromItsReserve)
{
    tavik::Workspace workspace;
    for (const int round : {1, 2}) {
        ASSERT_TRUE(workspace.reserve(1000)) << round;
        std::vector<std::pair<unsigned char *, std::size_t>> arrays;
        for (const std::size_t size : {1u, 0u, 300u, 64u, 900u, 512u, 0u, 2000u}) {
            auto *array = workspace.array_or_null<unsigned char>(size);
            ASSERT_TRUE(on_a_line(array)) << size;
            std::fill_n(array, size, static_cast<unsigned char>(arrays.size()));
            arrays.emplace_back(array, size);
        }
        for (std::size_t k = 0; k < arrays.size(); ++k)
            EXPECT_TRUE(std::all_of(arrays[k].first, arrays[k].first + arrays[k].second,
                                    [k](unsigned char c) { return c == k; }))
                << k;
        workspace.release(); // and what comes then is not cut from what is gone
    }
    EXPECT_FALSE(workspace.reserve(PTRDIFF_MAX));
    EXPECT_NE(workspace.array_or_null<double>(1), nullptr);
    workspace.release();
}

TEST_F(Platform, VersionFilesAndTime)
{
    const std::pair<int, string> rows[] = {
        {12760, "ZEP_VERSION"}, {10780, "ZEP_COMPILER_VERSION"}, {13630, "ZEP_OS_VERSION"}};
    for (const auto &[code, variable] : rows) {
        unsetenv(variable.c_str());
        EXPECT_EQ(own(tavik_version(code)), "");
        setenv(variable.c_str(), "9.1 beta", 1);
        EXPECT_EQ(own(tavik_version(code)), code == 12760 ? "TAVI Kestrel Version 9.1 beta" : "9.1 beta");
        unsetenv(variable.c_str());
    }
    const string name = testing::TempDir() + "tavik_units_" + to_string(getpid());
    FILE *file = tavik_fopen(name.c_str(), "w+");
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(tavik_fclose(file), 0);
    EXPECT_EQ(unlink(name.c_str()), 0);
    EXPECT_EQ(tavik_fopen(name.c_str(), "r"), nullptr);
    EXPECT_EQ(tavik_error_type(), 0);
    const double start = tavik_ctime();
    while (tavik_ctime() == start) {}
    const double later = tavik_ctime();
    EXPECT_GT(later, start);
    EXPECT_LE(later, static_cast<double>(std::clock()) / CLOCKS_PER_SEC + 1e-5); // user and system time
}

} // namespace
