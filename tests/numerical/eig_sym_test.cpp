// Eigensystems of symmetric matrices: what every result must satisfy, which leaves only one spectrum.
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
        const double limit = 4 * eps * n;
        const auto element = [&](int i, int j) { return double{a[std::max(i, j) * n + std::min(i, j)]}; };
        double size = 0; // of the largest row: on its scale no sum overflows
        for (int i = 0; i < n; ++i) {
            double sum = 0;
            for (int j = 0; j < n; ++j) sum += std::fabs(element(i, j));
            size = std::max(size, sum);
        }
        if (size == 0) size = 1;
        for (int k = 0; k < n; ++k) {
            double largest = 0, least = 0;
            std::vector<double> products(k + 1); // of vectors
            for (int i = 0; i < n; ++i) {
                const double component = v[i * n + k];
                largest = std::max(largest, component);
                least = std::min(least, component);
                for (int other = 0; other <= k; ++other)
                    products[other] += component * double{v[i * n + other]};
                double product = 0;
                for (int j = 0; j < n; ++j) product += element(i, j) / size * double{v[j * n + k]};
                EXPECT_NEAR(product, found[k] / size * component, limit) << "n " << n;
            }
            EXPECT_GE(largest, -least * (1 - limit)) << "n " << n << ", vector " << k;
            for (int other = 0; other <= k; ++other)
                EXPECT_NEAR(products[other], k == other, limit) << "n " << n;
        }
        return found;
    }
};
using Reals = testing::Types<float, double>;
TYPED_TEST_SUITE(EigSym, Reals);

// Distinct values and equal ones, of one sign and of both, and nothing to do.
TYPED_TEST(EigSym, SpecialMatrices)
{
    using Real = TypeParam;
    const std::function<int(int, int)> elements[] = {
        [](int i, int j) { return 2 * (i == j) - (std::abs(i - j) == 1); },
        [](int, int) { return 1; },
        [](int i, int j) { return i == j ? i % 5 - 2 : 0; },
        [](int i, int j) { return i != j; },
        [](int i, int j) { return i + j == 4 ? 3 : 0; },
        [](int, int) { return 0; },
    };
    for (int n : {1, 2, 3, 4, 5, 7, 16, 33, 100}) {
        for (const auto &element : elements) {
            std::vector<Real> a;
            for (int i = 0; i < n * n; ++i) a.push_back(static_cast<Real>(element(i / n, i % n)));
            this->solve(n, a);
        }
    }
    EXPECT_EQ(this->solve(2, {0, 0, 0, 0}), (std::vector<Real>{0, 0}));
    // Far from 1 in size: no square overflows or vanishes.
    const int exponent = std::numeric_limits<Real>::max_exponent - 4;
    for (int power : {exponent, -exponent}) {
        const Real one = std::ldexp(Real(1), power);
        const auto found = this->solve(2, {2 * one, 0, one, 2 * one});
        EXPECT_NEAR(found[0] / one, 3, 8 * this->eps);
        EXPECT_NEAR(found[1] / one, 1, 8 * this->eps);
    }
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
        double squares = 0;
        for (int i = 0; i < n; ++i) {
            for (int j = 0; j <= i; ++j) {
                const Real x = std::ldexp(static_cast<Real>(static_cast<int>(bits() % 2001) - 1000),
                                          -static_cast<int>(bits() % 20));
                a[i * n + j] = wide[i * stride + j] = x;
                squares += (i == j ? 1 : 2) * double{x} * x;
            }
        }
        const auto found = this->solve(n, a);
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
        vectors.pop_back();
        Real *made = nullptr;
        tavik_free(this->call(n, a.data(), TAVIK_VECTORS, &made));
        EXPECT_EQ(std::vector<Real>(made, made + n * n), vectors);
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
    for (double bad : {NAN, INFINITY, -INFINITY}) {
        a[2] = static_cast<Real>(bad);
        EXPECT_EQ(outcome("ii", 2, a.data()), "5 11210 1 0");
    }
}

} // namespace
