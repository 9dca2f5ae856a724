// Eigensystems of symmetric matrices: spectra that are known in closed form, and what every result must satisfy.
#include "frame/capture.hpp"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <random>

namespace {

using std::string;

template <class Real> struct EigSym : capture::FrameTest {
    using Values = std::vector<Real>;
    static constexpr double eps = std::numeric_limits<Real>::epsilon();

    template <class... Arguments> static Real *call(Arguments... arguments)
    {
        if constexpr (sizeof(Real) == sizeof(float)) return tavik_f_eig_sym(arguments..., 0);
        else return tavik_d_eig_sym(arguments..., 0);
    }

    // Eigenvalues; and vectors, which are checked: length, right angles, A v = lambda v, order and sign.
    static Values solve(int n, const Values &a)
    {
        Real *vectors = nullptr, *values = call(n, a.data(), TAVIK_VECTORS, &vectors);
        if (values == nullptr || vectors == nullptr) {
            ADD_FAILURE() << "error " << tavik_error_code();
            return Values(static_cast<std::size_t>(n));
        }
        const Values found(values, values + n), v(vectors, vectors + n * n);
        tavik_free(values);
        tavik_free(vectors);
        EXPECT_TRUE(std::is_sorted(found.rbegin(), found.rend()));
        double size = 0; // of the matrix
        for (int i = 0; i < n * n; ++i)
            if (i % n <= i / n) size = std::max(size, std::fabs(double{a[i]}) * n);
        const double limit = 8 * eps * n;
        for (int k = 0; k < n; ++k) {
            double largest = 0, least = 0;
            for (int i = 0; i < n; ++i) {
                const double component = v[i * n + k];
                largest = std::max(largest, component);
                least = std::min(least, component);
                double product = 0; // each term on the scale of 1, since the sum may overflow
                for (int j = 0; j < n; ++j)
                    product += (size > 0 ? double{a[std::max(i, j) * n + std::min(i, j)]} / size : 0) *
                               double{v[j * n + k]};
                EXPECT_NEAR(product, size > 0 ? found[k] / size * component : 0, limit) << "n " << n;
            }
            EXPECT_GE(largest, -least * (1 - limit)) << "n " << n << ", vector " << k;
            for (int other = 0; other <= k; ++other) {
                double product = 0;
                for (int i = 0; i < n; ++i) product += double{v[i * n + k]} * v[i * n + other];
                EXPECT_NEAR(product, k == other, limit) << "n " << n;
            }
        }
        return found;
    }

    static void expect_spectrum(int n, const Values &a, std::vector<double> due)
    {
        std::sort(due.rbegin(), due.rend());
        double scale = std::max(std::fabs(due.front()), std::fabs(due.back()));
        if (scale == 0) scale = 1;
        const Values found = solve(n, a);
        for (int k = 0; k < n; ++k) EXPECT_NEAR(found[k] / scale, due[k] / scale, 4 * eps * n) << "of " << n;
    }
};
using Reals = testing::Types<float, double>;
TYPED_TEST_SUITE(EigSym, Reals);

TYPED_TEST(EigSym, SpectraInClosedForm)
{
    using Real = TypeParam;
    const double pi = std::acos(-1.0);
    for (int n : {1, 2, 3, 4, 7, 16, 33, 100}) {
        const auto matrix = [n](auto element) {
            std::vector<Real> a;
            for (int i = 0; i < n * n; ++i) a.push_back(static_cast<Real>(element(i / n, i % n)));
            return a;
        };
        std::vector<double> chain, ones(n), ramp, path(n, -1);
        for (int k = 1; k <= n; ++k)
            chain.push_back(2 - 2 * std::cos(k * pi / (n + 1))), ramp.push_back(k - n / 2);
        this->expect_spectrum(
            n, matrix([](int i, int j) { return i == j                 ? 2
                                                : std::abs(i - j) == 1 ? -1
                                                                       : 0; }), chain);
        ones[0] = n;
        this->expect_spectrum(n, matrix([](int, int) { return 1; }), ones);
        this->expect_spectrum(n, matrix([n](int i, int j) { return i == j ? i + 1 - n / 2 : 0; }), ramp);
        path[0] = n - 1; // of a graph in which all nodes are neighbours
        this->expect_spectrum(n, matrix([](int i, int j) { return i != j; }), path);
    }
    const std::vector<Real> mirrored = {0, 0, 3, 0, 0, 0, 3, 0, 0};
    this->expect_spectrum(3, mirrored, {3, 0, -3});
    EXPECT_EQ(this->solve(2, {0, 0, 0, 0}), (std::vector<Real>{0, 0}));
    // Far from 1 in size: no square overflows or vanishes.
    const int exponent = std::numeric_limits<Real>::max_exponent - 4;
    for (int power : {exponent, -exponent})
        this->expect_spectrum(
            2, {std::ldexp(Real(2), power), 0, std::ldexp(Real(1), power), std::ldexp(Real(2), power)},
            {std::ldexp(3.0, power), std::ldexp(1.0, power)});
}

TYPED_TEST(EigSym, AnyMatrixAndAnyStride)
{
    using Real = TypeParam;
    std::mt19937 bits(1);
    const Real nan = std::numeric_limits<Real>::quiet_NaN();
    for (int n = 1; n <= 60; n += 1 + n / 8) {
        // Values of very different sizes, and nothing to read above the diagonal or beyond a row.
        const int stride = n + 3;
        std::vector<Real> a(static_cast<std::size_t>(n * n), nan),
            wide(static_cast<std::size_t>(n * stride), nan);
        double trace = 0, squares = 0;
        for (int i = 0; i < n; ++i) {
            for (int j = 0; j <= i; ++j) {
                const Real x = std::ldexp(static_cast<Real>(static_cast<int>(bits() % 2001) - 1000),
                                          -static_cast<int>(bits() % 20));
                a[i * n + j] = wide[i * stride + j] = x;
                squares += (i == j ? 1 : 2) * double{x} * x;
            }
            trace += a[i * n + i];
        }
        const auto found = this->solve(n, a);
        double sum = 0, sum_squares = 0;
        for (double value : found) sum += value, sum_squares += value * value;
        EXPECT_NEAR(sum, trace, 8 * this->eps * n * std::sqrt(squares));
        EXPECT_NEAR(sum_squares / squares, 1, 8 * this->eps * n);

        std::vector<Real> values(n + 1, 77), vectors(n * n + 1, 77);
        const auto before = wide;
        EXPECT_EQ(this->call(n, wide.data(), TAVIK_A_COL_DIM, stride, TAVIK_VECTORS_USER, vectors.data(),
                             TAVIK_RETURN_USER, values.data()),
                  values.data());
        EXPECT_EQ(values.back() + vectors.back(), 2 * 77);
        EXPECT_EQ(std::vector<Real>(values.begin(), values.end() - 1), found);
        EXPECT_EQ(std::memcmp(before.data(), wide.data(), sizeof(Real) * wide.size()), 0);
        Real *alone = this->call(n, wide.data(), TAVIK_A_COL_DIM, stride);
        for (int k = 0; k < n; ++k) EXPECT_NEAR(alone[k], found[k], 8 * this->eps * n * std::sqrt(squares));
        tavik_free(alone);
        Real *made = nullptr;
        tavik_free(this->call(n, a.data(), TAVIK_VECTORS, &made));
        EXPECT_EQ(std::vector<Real>(made, made + n * n),
                  std::vector<Real>(vectors.begin(), vectors.end() - 1));
        tavik_free(made);
    }
}

TYPED_TEST(EigSym, RefusesWhatIsNoMatrix)
{
    using Real = TypeParam;
    std::vector<Real> a = {1, 0, 2, 3};
    const auto outcome = [&](const string &kinds, int n, const Real *matrix, auto... options) {
        Real *vectors = a.data();
        const string seen = capture::outcome(
            [&] { EXPECT_EQ(this->call(n, matrix, TAVIK_VECTORS, &vectors, options...), nullptr); }, kinds);
        EXPECT_EQ(vectors, nullptr);
        return seen;
    };
    EXPECT_EQ(outcome("lii", 0, a.data()), "5 603 n 0 1");
    EXPECT_EQ(outcome("l", 2, nullptr), "5 150 a");
    EXPECT_EQ(outcome("ii", 2, a.data(), TAVIK_A_COL_DIM, 0).substr(0, 7), "5 603 0");
    EXPECT_EQ(outcome("ii", 2, a.data(), TAVIK_A_COL_DIM, 1), "5 601 2 1");
    EXPECT_EQ(outcome("ii", 2, a.data(), TAVIK_A_COL_DIM, 2, 12345), "5 11001 12345 3");
    for (Real bad : {std::numeric_limits<Real>::quiet_NaN(), std::numeric_limits<Real>::infinity(),
                     -std::numeric_limits<Real>::infinity()}) {
        a[2] = bad;
        EXPECT_EQ(outcome("ii", 2, a.data()), "5 11210 1 0");
    }
}

} // namespace
