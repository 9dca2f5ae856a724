// Eigensystems of symmetric matrices: what every result must satisfy, which leaves only one spectrum.
#include "frame/capture.hpp"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <random>

namespace {

template <class Real> struct EigSym : capture::FrameTest {
    using Values = std::vector<Real>;
    static constexpr double eps = std::numeric_limits<Real>::epsilon();

    static constexpr auto routine = capture::of_type<Real>(tavik_f_eig_sym, tavik_d_eig_sym);

    // Eigenvalues; and vectors, which are checked: length, right angles, A v = lambda v, order and sign.
    static Values solve(int n, const Values &a)
    {
        const auto size = std::size_t(n);
        Real *vectors = nullptr;
        Values found = capture::take(routine(n, a.data(), TAVIK_VECTORS, &vectors, 0), size);
        const Values v = capture::take(vectors, size * size);
        if (found.empty() || v.empty()) {
            ADD_FAILURE() << "error " << tavik_error_code();
            return Values(size);
        }
        EXPECT_TRUE(std::is_sorted(found.rbegin(), found.rend()));
        const double limit = 4 * eps * n;
        const auto element = [&](int i, int j) { return double{a[std::max(i, j) * n + std::min(i, j)]}; };
        double scale = 0; // that of the largest row, on which no sum overflows
        for (int i = 0; i < n; ++i) {
            double sum = 0;
            for (int j = 0; j < n; ++j) sum += std::fabs(element(i, j));
            scale = std::max(scale, sum);
        }
        if (scale == 0) scale = 1;
        for (int k = 0; k < n; ++k) {
            double largest = 0, least = 0;
            std::vector<double> products(k + 1); // of vectors
            for (int i = 0; i < n; ++i) {
                const double component = v[i * n + k];
                largest = std::max(largest, component);
                least = std::min(least, component);
                for (int other = 0; other <= k; ++other) products[other] += component * v[i * n + other];
                double product = 0;
                for (int j = 0; j < n; ++j) product += element(i, j) / scale * v[j * n + k];
                EXPECT_NEAR(product, found[k] / scale * component, limit) << "n " << n;
            }
            EXPECT_GE(largest, -least * (1 - limit)) << "n " << n << ", vector " << k;
            for (int other = 0; other <= k; ++other)
                EXPECT_NEAR(products[other], k == other, limit) << "n " << n;
        }
        return found;
    }
};
TYPED_TEST_SUITE(EigSym, capture::Reals);

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
    for (int n : {1, 2, 3, 4, 5, 7, 16, 33, 100})
        for (const auto &element : elements) {
            std::vector<Real> a;
            for (int i = 0; i < n * n; ++i) a.push_back(Real(element(i / n, i % n)));
            this->solve(n, a);
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
        std::vector<Real> a(n * n, nan), wide(n * stride, nan), values(n + 1, 77), vectors(n * n + 1, 77);
        double squares = 0;
        for (int i = 0; i < n; ++i)
            for (int j = 0; j <= i; ++j) {
                const int digits = int(bits() % 2001) - 1000;
                const Real x = std::ldexp(Real(digits), -int(bits() % 20));
                a[i * n + j] = wide[i * stride + j] = x;
                squares += (i == j ? 1 : 2) * double{x} * x;
            }
        const auto found = this->solve(n, a);
        const auto before = wide;
        EXPECT_EQ(this->routine(n, wide.data(), TAVIK_A_COL_DIM, stride, TAVIK_VECTORS_USER, vectors.data(),
                                TAVIK_RETURN_USER, values.data(), 0),
                  values.data());
        EXPECT_EQ(values.back() + vectors.back(), 2 * 77);
        values.pop_back();
        vectors.pop_back();
        EXPECT_EQ(values, found);
        EXPECT_EQ(std::memcmp(before.data(), wide.data(), sizeof(Real) * wide.size()), 0);
        const auto alone = capture::take(this->routine(n, wide.data(), TAVIK_A_COL_DIM, stride, 0), n);
        ASSERT_EQ(alone.size(), found.size());
        for (int k = 0; k < n; ++k) EXPECT_NEAR(alone[k], found[k], 8 * this->eps * n * std::sqrt(squares));
        Real *made = nullptr;
        tavik_free(this->routine(n, a.data(), TAVIK_VECTORS, &made, 0));
        EXPECT_EQ(capture::take(made, n * n), vectors);
    }
}

TYPED_TEST(EigSym, RefusesWhatIsNoMatrix)
{
    using Real = TypeParam;
    std::vector<Real> a = {1, 0, 2, 3};
    const auto refused = [&](const char *due, const char *kinds, int n, const Real *matrix, auto... options) {
        Real *vectors = a.data();
        const auto call = [&] { return this->routine(n, matrix, TAVIK_VECTORS, &vectors, options..., 0); };
        EXPECT_EQ(capture::outcome([&] { EXPECT_EQ(call(), nullptr); }, kinds), due);
        EXPECT_EQ(vectors, nullptr);
    };
    refused("5 603 n 0 1", "lii", 0, a.data());
    refused("5 150 a", "l", 2, nullptr);
    refused("5 603 0", "i", 2, a.data(), TAVIK_A_COL_DIM, 0);
    refused("5 601 2 1", "ii", 2, a.data(), TAVIK_A_COL_DIM, 1);
    refused("5 11001 12345 3", "ii", 2, a.data(), TAVIK_A_COL_DIM, 2, 12345);
    for (Real bad : {NAN, INFINITY, -INFINITY}) {
        a[2] = bad;
        refused("5 11210 1 0", "ii", 2, a.data());
    }
}

} // namespace
