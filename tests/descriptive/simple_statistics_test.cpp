// Simple statistics against certified data, against the stated recurrence carried out in long double, and
// against their own promises: bits, stages, frequencies, warnings and errors.
#include "frame/capture.hpp"
#include "nist_univariate.hpp"

#include "descriptive/moments.hpp"
#include "parallel.hpp"

#include <array>
#include <cmath>
#include <cstring>
#include <limits>
#include <omp.h>
#include <random>
#include <sys/mman.h>

namespace {

using capture::take;

template <class T> using Vector = std::vector<T>;

template <class Real, class... Options> Real *call(int n, int p, const Real *x, Options... options)
{
    constexpr auto routine = capture::of_type<Real>(tavik_f_simple_statistics, tavik_d_simple_statistics);
    return routine(n, p, x, options..., 0);
}

// The statistics up to the count and the limits. The usual level stands in for masses that there are not.
template <class Real, class... Options>
Vector<Real> statistics(int n, int p, const Real *x, const Vector<Real> &f, const Vector<Real> &w,
                        Options... options)
{
    static constexpr Real usual = 95;
    const auto given = [](int code, const Vector<Real> &masses) {
        return masses.empty() ? std::pair(int{TAVIK_CONFIDENCE_MEAN_ADR}, &usual)
                              : std::pair(code, masses.data());
    };
    const auto [f_code, frequencies] = given(TAVIK_FREQUENCIES, f);
    const auto [w_code, weights] = given(TAVIK_WEIGHTS, w);
    return take(call(n, p, x, f_code, frequencies, w_code, weights, options...), 14 * size_t(p));
}

enum Row { mean, variance, deviation, skewness, kurtosis, lowest, highest, range, variation, count };

constexpr double nan_value = std::numeric_limits<double>::quiet_NaN();
constexpr double inf = std::numeric_limits<double>::infinity();

template <class Real> struct Simple : capture::FrameTest {
    ~Simple() override
    {
        omp_set_num_threads(omp_get_num_procs());
    }

    // The codes of the errors of a call, in their order.
    static std::vector<long> codes_of(const std::function<void()> &act)
    {
        capture::outcome(act);
        std::vector<long> seen;
        for (const auto &error : capture::printed) seen.push_back(error.code);
        return seen;
    }

    static Vector<Real> normal_data(size_t size, unsigned seed, double missing = 0)
    {
        std::mt19937_64 engine(seed);
        std::normal_distribution<double> value(5, 3);
        std::bernoulli_distribution drop(missing);
        Vector<Real> x(size);
        for (Real &v : x) v = drop(engine) ? Real(nan_value) : Real(value(engine));
        return x;
    }
};

TYPED_TEST_SUITE(Simple, capture::Reals);

std::vector<double> alternating(double first, double low, double high)
{
    std::vector<double> x{first};
    for (int i = 0; i < 500; ++i) x.insert(x.end(), {low, high});
    return x;
}

template <size_t n> std::vector<double> values(const double (&x)[n])
{
    return {x, x + n};
}

// Michelson's values in thousands of km/s.
std::vector<double> michelson()
{
    std::vector<double> x = values(nist::michelso);
    for (double &v : x) v = 299 + v / 1000;
    return x;
}

std::vector<double> pi_digits()
{
    std::vector<double> x;
    for (const char *digit = nist::pi_digits; *digit != '\0'; ++digit) x.push_back(*digit - '0');
    return x;
}

double digits_right(double value, double certified)
{
    if (value == certified) return 16;
    return -std::log10(std::fabs(value - certified) / std::fabs(certified));
}

// NIST Statistical Reference Datasets, univariate: certified mean and standard deviation. The data of NumAcc3
// and NumAcc4 are not representable: rounding them to double already costs all digits beyond those asked for
// here.
TEST(CertifiedData, MeanAndDeviation)
{
    const struct {
        const char *name;
        std::vector<double> x;
        double mean, deviation, mean_digits, deviation_digits;
    } sets[] = {
        {"PiDigits", pi_digits(), 4.53480000000000, 2.86733906028871, 15, 14.5},
        {"Lottery", values(nist::lottery), 518.958715596330, 291.699727470969, 14.5, 14.5},
        {"Lew", values(nist::lew), -177.435000000000, 277.332168044316, 15, 14.5},
        {"Mavro", values(nist::mavro), 2.00185600000000, 0.000429123454003053, 15, 12.5},
        {"Michelso", michelson(), 299.852400000000, 0.0790105478190518, 15, 13},
        {"NumAcc1", {10000001, 10000003, 10000002}, 10000002, 1, 16, 16},
        {"NumAcc2", alternating(1.2, 1.1, 1.3), 1.2, 0.1, 15, 14.5},
        {"NumAcc3", alternating(1000000.2, 1000000.1, 1000000.3), 1000000.2, 0.1, 15, 9.3},
        {"NumAcc4", alternating(10000000.2, 10000000.1, 10000000.3), 10000000.2, 0.1, 15, 8.2},
    };
    for (const auto &set : sets) {
        SCOPED_TRACE(set.name);
        const int n = int(set.x.size());
        const auto check = [&](double *result) {
            const auto s = take(result, 14);
            EXPECT_GE(digits_right(s[mean], set.mean), set.mean_digits);
            EXPECT_GE(digits_right(s[deviation], set.deviation), set.deviation_digits);
        };
        check(call(n, 1, set.x.data()));
        // Behind a huge value without weight.
        std::vector<double> x = set.x, ones(set.x.size() + 1, 1), but_first = ones;
        x.insert(x.begin(), 1e20);
        but_first[0] = 0;
        for (const double *frequencies : {ones.data(), but_first.data()})
            check(call(n + 1, 1, x.data(), TAVIK_FREQUENCIES, frequencies, TAVIK_WEIGHTS, but_first.data()));
    }
}

// References: exact rational arithmetic for the shape, mpmath with 40 digits for the limits.
TEST(CertifiedData, ShapeAndLimitsOfMichelso)
{
    const auto s = take(call(100, 1, nist::michelso), 14);
    EXPECT_GE(digits_right(s[skewness], -0.018259613963112965968), 13);
    EXPECT_GE(digits_right(s[kurtosis], 524252357.0 / 1989342003), 13);
    const double limits[] = {836.72259316633083642, 868.07740683366917798, 4812.4468911161282723,
                             8424.4124866829589289};
    for (size_t i = 0; i < 4; ++i) EXPECT_GE(digits_right(s[10 + i], limits[i]), 14) << i;
}

// Two values that lie 1 apart have the variance 1/2 whatever their weights, and the mean is at their share of
// the weight.
TEST(CertifiedData, WeightsOfAnyRatio)
{
    for (double ratio : {1e-300, 1e-30, 1e-16, 1e-8, 0.3, 1.0, 7.0, 1e8, 1e12, 1e16, 1e30, 1e150}) {
        const double x[] = {0, 1}, w[] = {ratio, 1};
        const auto s = take(call(2, 1, x, TAVIK_WEIGHTS, w), 14);
        EXPECT_NEAR(s[mean] * (1 + ratio), 1, 4e-16) << ratio;
        EXPECT_NEAR(s[variance], 0.5, 2e-16) << ratio;
    }
}

// With three values there are two degrees of freedom, whose quantiles have closed forms in the tail
// probability.
TEST(CertifiedData, LimitsOfEveryLevel)
{
    const double x[] = {1, 2, 3};
    for (double level : {1e-10, 50.0, 95.0, 99.99999, 99.9999999999999, 0x1.8ffffffffffffp6}) {
        const auto s =
            take(call(3, 1, x, TAVIK_CONFIDENCE_MEAN, level, TAVIK_CONFIDENCE_VARIANCE, level), 14);
        const double q = double((100 - static_cast<long double>(level)) / 200);
        const double half_width = (1 - 2 * q) / std::sqrt(6 * q * (1 - q));
        const double due[] = {2 - half_width, 2 + half_width, -1 / std::log(q), -1 / std::log1p(-q)};
        for (size_t i = 0; i < 4; ++i)
            EXPECT_NEAR(s[10 + i], due[i], 1e-15 * (2 + std::fabs(due[i]))) << level << " " << i;
    }
}

TEST(CertifiedData, FloatLosesNothingToItsAccumulators)
{
    const int n = 10'000'000;
    std::vector<float> x(n);
    for (size_t i = 0; i < x.size(); ++i) x[i] = 4096 + float(i % 5) / 64;
    const auto s = take(call(n, 1, x.data()), 14);
    EXPECT_EQ(s[mean], 4096 + 2.0F / 64);
    EXPECT_FLOAT_EQ(s[variance], float(2.0 / 4096 * n / (n - 1.0)));
    EXPECT_EQ(s[count], 1e7F);
}

// The rows up to the count, in two passes in long double over the values that count, with their masses f and w.
std::vector<long double> two_passes(const std::vector<std::array<double, 3>> &rows, bool weighted)
{
    long double n = 0, sum_w = 0, squares = 0, mean = 0, m[5] = {}, low = inf, high = -inf;
    for (const auto &[x, f, w] : rows) {
        n += f, sum_w += f * w, squares += f * w * f * w, mean += f * w * x;
        low = std::min<long double>(low, x), high = std::max<long double>(high, x);
    }
    mean /= sum_w;
    for (const auto &[x, f, w] : rows)
        for (int k = 2; k < 5; ++k) m[k] += f * w * std::pow(x - mean, k);
    const long double var = weighted ? m[2] * sum_w / (sum_w * sum_w - squares) : m[2] / (n - 1),
                      s2 = m[2] / n, sd = std::sqrt(var);
    return {mean,       var,       sd, m[3] / (n * s2 * std::sqrt(s2)), m[4] / (n * s2 * s2) - 3, low, high,
            high - low, sd / mean, n};
}

TYPED_TEST(Simple, AgreesWithTwoPassesInEveryMode)
{
    using Real = TypeParam;
    const double tolerance = sizeof(Real) == 4 ? 4e-7 : 4e-14;
    std::mt19937_64 engine(7);
    const size_t variables[] = {1, 2, 3, 5, 8, 10, 15, 16, 17, 19, 31, 33, 100};
    for (unsigned round = 0; round < 160; ++round) {
        const size_t p = variables[round % std::size(variables)], stride = p + round % 3;
        const size_t n = 3 + engine() % (round % 5 == 0 ? 9000 : 300);
        const bool missing = round % 2 != 0, listwise = round % 4 == 3 && p < 20;
        const bool with_f = round % 7 < 3, with_w = round % 7 > 1 && round % 7 < 5;
        const auto x = this->normal_data(n * stride, round, missing ? 0.03 : 0);
        Vector<Real> f, w;
        for (size_t i = 0; i < n; ++i) {
            if (with_f) f.push_back(Real(engine() % 4));
            if (with_w) w.push_back(Real(engine() % 9) / 4);
            if (with_w && missing && engine() % 50 == 0) w[i] = Real(nan_value);
        }
        SCOPED_TRACE(testing::Message() << "n " << n << " p " << p << " stride " << stride << " listwise "
                                        << listwise << " f " << with_f << " w " << with_w);
        const auto s = statistics(int(n), int(p), x.data(), f, w, TAVIK_X_COL_DIM, int(stride),
                                  listwise ? TAVIK_MISSING_LISTWISE : TAVIK_MISSING_ELEMENTWISE);
        ASSERT_FALSE(s.empty());
        for (size_t j = 0; j < p; ++j) {
            std::vector<std::array<double, 3>> counting;
            double mass = 0, sum_f = 0;
            for (size_t i = 0; i < n; ++i) {
                const Real *row = &x[i * stride], f_i = with_f ? f[i] : 1, w_i = with_w ? w[i] : 1;
                const auto is_nan = [](Real v) { return std::isnan(v); };
                if ((listwise && std::any_of(row, row + p, is_nan)) || is_nan(row[j] + w_i) || f_i == 0)
                    continue;
                counting.push_back({row[j], f_i, w_i});
                sum_f += f_i, mass += f_i * w_i;
            }
            if (sum_f < 3 || mass < 2) continue; // the warnings have a test of their own
            const auto due = two_passes(counting, with_w);
            for (size_t r = 0; r < due.size(); ++r)
                ASSERT_NEAR(s[r * p + j], due[r], tolerance * (1 + std::fabs(due[r])))
                    << "row " << r + 1 << " variable " << j;
        }
    }
}

TYPED_TEST(Simple, SameBitsOnAnyNumberOfThreadsAndInStages)
{
    using Real = TypeParam;
    using tavik::descriptive::blocks_per_piece, tavik::descriptive::rows_per_block;
    for (int p : {1, 3, 10, 40, 300}) {
        const std::int64_t piece = rows_per_block(p) * blocks_per_piece(p);
        const int n = int(std::max<std::int64_t>(6 * piece + 777, 3 * 4096)), stride = p + 1;
        const auto x = this->normal_data(size_t(n) * size_t(stride), 3, 0.00001);
        auto w = this->normal_data(size_t(n), 4);
        for (Real &mass : w) mass = std::fabs(mass);
        const auto size = 14 * size_t(p);
        const auto of_rows = [&](int mode, int first, int count, int ido) {
            const int row = mode == 0 ? p : stride; // mode 0 reads the same numbers in other rows
            const Vector<Real> masses(w.begin() + first, mode == 3 ? w.end() : w.begin() + first);
            return statistics(count, p, &x[size_t(first) * size_t(row)], {}, masses, TAVIK_X_COL_DIM, row,
                              TAVIK_IDO, ido, mode == 2 ? TAVIK_MISSING_LISTWISE : TAVIK_MISSING_ELEMENTWISE);
        };
        for (int mode : {0, 1, 2, 3}) { // contiguous, padded, listwise, weighted
            SCOPED_TRACE(testing::Message() << "p " << p << " mode " << mode);
            omp_set_num_threads(1);
            const auto once = of_rows(mode, 0, n, 0);
            const auto same_bits = [&](const Vector<Real> &other) {
                return other.size() == size &&
                       std::memcmp(other.data(), once.data(), size * sizeof(Real)) == 0;
            };
            for (int threads : {2, 3}) {
                omp_set_num_threads(threads);
                ASSERT_EQ(tavik::thread_count((n + piece - 1) / piece, std::int64_t{n} * p), threads);
                EXPECT_TRUE(same_bits(of_rows(mode, 0, n, 0))) << threads << " threads";
            }
            const auto staged = [&](int first, int second) {
                EXPECT_TRUE(of_rows(mode, 0, first, 1).empty());
                EXPECT_TRUE(of_rows(mode, first, second, 2).empty());
                EXPECT_TRUE(of_rows(mode, first + second, 0, 2).empty());
                return of_rows(mode, first + second, n - first - second, 3);
            };
            EXPECT_TRUE(same_bits(staged(4096, 8192))) << "stages on borders";
            const auto elsewhere = staged(100, 5000);
            for (size_t i = 0; i < size; ++i)
                ASSERT_NEAR(elsewhere[i], once[i],
                            256 * std::numeric_limits<Real>::epsilon() * (1 + std::fabs(once[i])))
                    << i;
        }
    }
}

TYPED_TEST(Simple, MediansTakeTheValuesThatCount)
{
    using Real = TypeParam;
    const Real nan = Real(nan_value), infinity = Real(inf), most = std::numeric_limits<Real>::max();
    const auto near_or_nan = [](Real due) {
        if constexpr (sizeof due == 4) return testing::NanSensitiveFloatEq(due);
        else return testing::NanSensitiveDoubleEq(due);
    };
    const Vector<Real> ones(5, 1), drop = {1, 0, 1, 1, nan};
    const struct {
        const char *name;
        Vector<Real> x;
        bool dropping; // row 1 by its frequency, row 4 by a missing one
        Real median, deviation;
    } cases[] = {{"odd", {5, 1, 4, 2, 9}, false, 4, 2},
                 {"even: mean of the middle two", {5, 1, 4, 2, nan}, false, 3, 1.5},
                 {"left out rows", {5, 1, 4, 2, 9}, true, 4, 1},
                 {"no overflow", {most, most, nan, nan, nan}, false, most, 0},
                 {"infinite center", {infinity, infinity, infinity, 1, 2}, false, infinity, 0},
                 {"nothing", {nan, nan, nan, nan, nan}, false, nan, nan}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        const Real *f = c.dropping ? drop.data() : ones.data();
        const auto s = take(call(5, 1, c.x.data(), TAVIK_MEDIAN_AND_SCALE, TAVIK_FREQUENCIES, f), 17);
        const auto t = take(call(5, 1, c.x.data(), TAVIK_MEDIAN, TAVIK_FREQUENCIES, f), 15);
        ASSERT_EQ(s.size(), 17U);
        EXPECT_THAT(s[14], near_or_nan(c.median)) << t[14];
        EXPECT_THAT(t[14], near_or_nan(c.median));
        EXPECT_THAT(s[15], near_or_nan(c.deviation));
        // 0.67448975019608174 is the normal quantile at 0.75 (mpmath).
        EXPECT_THAT(s[16], near_or_nan(Real(c.deviation / 0.67448975019608174)));
    }
}

// A column, what its rows 2 to 5 and 9 become (n: NaN, 0, or v: a number), and the warnings in their order.
TYPED_TEST(Simple, WarnsOfWhatIsNotDefined)
{
    using Real = TypeParam;
    const Real nan = Real(nan_value), tiny = std::numeric_limits<Real>::min(), infinity = Real(inf);
    const Real root = std::sqrt(tiny), cube = std::cbrt(tiny), fourth = std::sqrt(root);
    const struct {
        const char *name;
        Vector<Real> x, w;
        const char *rows; // variance, deviation, skewness, kurtosis, variation, limits of mean and variance
        std::vector<long> codes;
    } cases[] = {
        {"one value", {7}, {}, "nnnnnnnnn", {11067}},
        {"one value left", {nan, 7, nan}, {}, "nnnnnnnnn", {11062, 11067}},
        {"equal", {7, 7, 7}, {}, "00000vv00", {11076}},
        {"equal to zero", {0, 0, 0}, {}, "0000n0000", {11076, 11078}},
        {"range below the square root", {0, root / 4, 0}, {}, "00nn0vv00", {11073}},
        {"shape underflows", {0, cube / 2, cube / 4}, {}, "vvnnvvvvv", {11074}},
        {"kurtosis underflows", {0, fourth / 2, fourth / 3}, {}, "vvvnvvvvv", {11075}},
        {"weights all zero", {1, 2, 3}, {0, 0, 0}, "nnnnnnnnn", {11068}},
        {"one weight only", {1, 2, 3}, {0, 1, 0}, "nnnnnnnnn", {11077, 11078, 11079, 11081}},
        {"mean of zero", {-1, 3, -2}, {}, "vvvvvvvvv", {}},
        {"infinite", {1, infinity, 2}, {}, "nnnnnnnnn", {11078, 11079, 11081}},
        {"infinite without weight", {1, infinity, 2}, {1, 0, 1}, "vv0vvvvvv", {}},
        {"plain", {1, 2, 4}, {}, "vvvvvvvvv", {}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        Vector<Real> s;
        EXPECT_EQ(this->codes_of([&] { s = statistics(int(c.x.size()), 1, c.x.data(), {}, c.w); }), c.codes);
        ASSERT_EQ(s.size(), 14U);
        std::string rows;
        for (size_t r : {1, 2, 3, 4, 8, 10, 11, 12, 13})
            rows += std::isnan(s[r]) ? 'n' : s[r] == 0 ? '0' : 'v';
        EXPECT_EQ(rows, c.rows);
    }
    for (size_t padding : {0U, 10000U}) { // over several blocks the mean stays infinite
        Vector<Real> x = {1, infinity, 2};
        x.resize(3 + padding, 1);
        const auto s = take(call(int(x.size()), 1, x.data()), 14);
        EXPECT_TRUE(s[mean] == infinity && s[lowest] == 1 && s[highest] == infinity);
    }
    const Real largest = std::numeric_limits<Real>::max(),
               extremes[] = {largest, largest, -largest, -largest};
    EXPECT_EQ(take(call(2, 1, extremes), 14)[mean], largest);
    EXPECT_EQ(take(call(4, 1, extremes), 14)[mean], 0);
    // Several variables: the number of the one concerned, from 1.
    const Real x[] = {1, nan, 5, 2, 3, 5}, y[] = {1, nan, 2, 5, 2, 6, 3, nan}, weights[] = {1, 0, 0, 1};
    Vector<Real> s;
    const auto take_all = [&] { s = take(call(2, 3, x), 42); };
    EXPECT_THAT(this->codes_of(take_all), testing::ElementsAre(11062, 11072, 11076));
    EXPECT_THAT(capture::printed[1].message, testing::HasSubstr("ariable 2")) << "of 11072";
    EXPECT_EQ(capture::fill("%(i1)"), "3");
    EXPECT_EQ(s[3 * count + 1], 1);
    EXPECT_EQ(s[1], 3);
    const auto weighted = [&] { tavik_free(call(4, 2, y, TAVIK_WEIGHTS, weights)); };
    EXPECT_THAT(this->codes_of(weighted), testing::ElementsAre(11062, 11069));
    const auto listwise = [&] { tavik_free(call(2, 2, y, TAVIK_MISSING_LISTWISE)); };
    EXPECT_THAT(this->codes_of(listwise), testing::ElementsAre(11288, 11067));
}

TYPED_TEST(Simple, RefusesBadArguments)
{
    using Real = TypeParam;
    const Real x[] = {1, 2, 3, 4}, *null = nullptr, level = 100;
    const Real bad_f[] = {1, -2, 1, 1}, nan_f[] = {Real(nan_value), -2, 0, 1}, zero_f[] = {0, 1, 1, 1},
               bad_w[] = {-3, 1, 1, Real(inf)};
    const auto refused = [](const char *due, const char *kinds, auto... arguments) {
        EXPECT_EQ(capture::outcome([&] { EXPECT_EQ(call(arguments...), nullptr); }, kinds), due);
    };
    refused("5 603 0 1 n_variables", "iil", 4, 0, x);
    refused("5 603 0 1 n_observations", "iil", 0, 1, x);
    refused("5 603 -1 0 n_observations", "iil", -1, 1, x, TAVIK_IDO, 1);
    refused("5 602 4 0 3 ido", "iiil", 4, 1, x, TAVIK_IDO, 4);
    refused("5 601 2 1 n_variables x_col_dim", "iill", 2, 2, x, TAVIK_X_COL_DIM, 1);
    refused("5 601 2 1 n_variables stat_col_dim", "iill", 2, 2, x, TAVIK_STAT_COL_DIM, 1);
    refused("5 603 0 1 x_col_dim", "iil", 2, 2, x, TAVIK_X_COL_DIM, 0);
    refused("5 11064 100", "r", 4, 1, x, TAVIK_CONFIDENCE_MEAN_ADR, &level);
    refused("5 11064 nan", "r", 4, 1, x, TAVIK_CONFIDENCE_MEAN, nan_value);
    refused("5 11065 100.5", "r", 4, 1, x, TAVIK_CONFIDENCE_VARIANCE, 100.5);
    for (int second : {TAVIK_MEDIAN, TAVIK_MEDIAN_AND_SCALE})
        refused("5 11117 TAVIK_MEDIAN and TAVIK_MEDIAN_AND_SCALE", "l", 4, 1, x, TAVIK_MEDIAN, second);
    refused("5 11426 2", "i", 4, 1, x, TAVIK_MEDIAN, TAVIK_IDO, 2);
    refused("5 11001 4711 3", "ii", 4, 1, x, TAVIK_IDO, 0, TAVIK_MEDIAN, 4711);
    refused("5 150 x", "l", 4, 1, null);
    refused("4 11055 2 -2", "ir", 4, 1, x, TAVIK_FREQUENCIES, bad_f);
    refused("4 11055 2 -2", "ir", 4, 1, x, TAVIK_FREQUENCIES, nan_f);
    refused("4 11055 2 -3", "ir", 4, 1, x, TAVIK_WEIGHTS, bad_w);
    refused("4 11055 3 inf", "ir", 4, 1, x, TAVIK_WEIGHTS, bad_w, TAVIK_FREQUENCIES, zero_f);
    refused("4 11054 3 4 inf", "iir", 4, 1, x, TAVIK_IDO, 1, TAVIK_WEIGHTS, bad_w, TAVIK_FREQUENCIES, zero_f);
    Real user[14];
    std::fill_n(user, 14, Real(42));
    refused("4 11055 2 -2", "ir", 4, 1, x, TAVIK_RETURN_USER, user, TAVIK_FREQUENCIES, bad_f);
    EXPECT_THAT(user, testing::Each(42));
}

TYPED_TEST(Simple, StagesFollowEachOther)
{
    using Real = TypeParam;
    const Real x[] = {1, 2, 3, 4, 5, 6}, bad[] = {1, -1, 1}, missing[] = {nan_value, nan_value, nan_value};
    const auto stage = [&](int ido) {
        return capture::outcome([&] { tavik_free(call(3, 1, x, TAVIK_IDO, ido)); });
    };
    // One after another, with what each leaves: done, or refused since there is no series, or one is open.
    const std::string done = "0 0", none = "4 20691", open = "4 20692";
    const std::pair<int, std::string> stages[] = {
        {1, done}, {2, done}, {3, done}, {2, none}, {3, none}, {0, done}, {2, none}, {1, done},
        {1, open}, {2, none}, {1, done}, {0, open}, {2, none}, {1, done}, {3, done}, {3, none}};
    for (size_t i = 0; i < std::size(stages); ++i) EXPECT_EQ(stage(stages[i].first), stages[i].second) << i;
    const auto ended_by = [&](const std::function<void()> &act, const char *kinds = "") {
        EXPECT_EQ(stage(1), done);
        const std::string seen = capture::outcome(act, kinds);
        EXPECT_EQ(stage(3), none);
        return seen;
    };
    EXPECT_EQ(ended_by([&] { call(3, 2, x, TAVIK_IDO, 2); }), "4 11428");
    EXPECT_EQ(ended_by([&] { call(3, 1, x, TAVIK_IDO, 2, TAVIK_WEIGHTS, bad); }, "i"), "4 11054 2");
    EXPECT_EQ(ended_by([&] { call(3, 1, x, 4711, TAVIK_IDO, 2); }), "5 11001");
    ended_by([] {
        tavik_free_allocated_memory(); // and error settings
        capture::restore_defaults(false);
    });
    // Another thread has a series of its own, and a warning does not end one.
    stage(1);
    capture::in_thread([&] {
        capture::restore_defaults(false);
        EXPECT_EQ(stage(2), none);
    });
    EXPECT_EQ(capture::outcome([&] { call(3, 1, missing, TAVIK_IDO, 2); }), "6 11062");
    const auto s = take(call(2, 1, x + 3, TAVIK_IDO, 3), 14);
    ASSERT_EQ(s.size(), 14U);
    EXPECT_EQ(s[mean], 3);
    EXPECT_EQ(s[count], 5);
}

TYPED_TEST(Simple, WritesWhereTheCallerSays)
{
    using Real = TypeParam;
    const Real x[] = {1, 10, 2, 30};
    Vector<Real> user(14 * 3, -1);
    EXPECT_EQ(
        call(2, 2, x, TAVIK_RETURN_USER, user.data(), TAVIK_STAT_COL_DIM, 3, TAVIK_CONFIDENCE_MEAN, 0.0),
        user.data());
    EXPECT_EQ(user[0], Real(1.5));
    EXPECT_EQ(user[1], 20);
    for (size_t r = 0; r < 14; ++r) EXPECT_EQ(user[3 * r + 2], -1) << r; // the padding is the caller's
    EXPECT_TRUE(std::isnan(user[30]) && std::isnan(user[33])) << "suppressed limits";
    EXPECT_FALSE(std::isnan(user[36]));
}

// Three rows, 2^31 elements apart, in memory that is mostly not there.
TYPED_TEST(Simple, ComputesOffsetsIn64Bits)
{
    using Real = TypeParam;
    const size_t stride = 0x40000000, bytes = (2 * stride + 1) * sizeof(Real);
    void *memory =
        mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (memory == MAP_FAILED) GTEST_SKIP() << "no address space";
    auto *x = static_cast<Real *>(memory);
    for (size_t i = 0; i < 3; ++i) x[i * stride] = Real(i + 1);
    const auto s = take(call(3, 1, x, TAVIK_X_COL_DIM, int(stride), TAVIK_MEDIAN), 15);
    munmap(memory, bytes);
    ASSERT_EQ(s.size(), 15U);
    EXPECT_EQ(s[mean], 2);
    EXPECT_EQ(s[highest], 3);
    EXPECT_EQ(s[14], 2);
}

} // namespace
