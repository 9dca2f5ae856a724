// Regression against certified data, against normal equations solved in long double, and against its own
// promises: options, masses, missing rows, stages, deletion, threads and errors.
#include "frame/capture.hpp"
#include "nist_linear.hpp"

#include <array>
#include <cmath>
#include <cstring>
#include <limits>
#include <numeric>
#include <omp.h>
#include <random>
#include <sys/mman.h>

namespace {

constexpr double nan_value = std::numeric_limits<double>::quiet_NaN();
constexpr double inf = std::numeric_limits<double>::infinity();

template <class T> using Vector = std::vector<T>;

template <class... Options> float *call(int n, int p, const float *x, const float *y, Options... options)
{
    return tavik_f_regression(n, p, x, y, options..., 0);
}

template <class... Options> double *call(int n, int p, const double *x, const double *y, Options... options)
{
    return tavik_d_regression(n, p, x, y, options..., 0);
}

// Takes an array over; nothing for null.
template <class Real> Vector<Real> take(Real *result, std::size_t size)
{
    Vector<Real> copy;
    if (result != nullptr) copy.assign(result, result + size);
    tavik_free(result);
    return copy;
}

// The rows of a fit. Empty masses stand for none.
template <class Real> struct Data {
    std::size_t n, p, q;
    bool intercept;
    Vector<Real> x, y, f, w;

    std::size_t coefficients() const
    {
        return p + intercept;
    }

    Data rows(std::size_t first, std::size_t last) const
    {
        const auto part = [&](const Vector<Real> &all, std::size_t width) {
            return all.empty() ? all : Vector<Real>(&all[0] + first * width, &all[0] + last * width);
        };
        return {last - first, p, q, intercept, part(x, p), part(y, q), part(f, 1), part(w, 1)};
    }
};

// The pointer that a fit keeps stands in for masses that there are not.
template <class Real, class... Options> Real *run(const Data<Real> &d, Options... options)
{
    return call(int(d.n), int(d.p), d.x.data(), d.y.data(), TAVIK_N_DEPENDENT, int(d.q),
                d.intercept ? TAVIK_INTERCEPT : TAVIK_NO_INTERCEPT, options...,
                d.f.empty() ? TAVIK_FIT_POINTER : TAVIK_FREQUENCIES, d.f.data(),
                d.w.empty() ? TAVIK_FIT_POINTER : TAVIK_WEIGHTS, d.w.data());
}

// Everything that a fit gives. R is unique up to the signs of its rows, so it is held as R'R.
template <class T> struct Fit {
    int rank = -1, missing = -1;
    Vector<T> b, errors, t, p, covariances, means, gram, crossproducts, anova, residuals, leverages;
    long double inflation = 1; // greatest ratio of a column to what those before leave of it
};

enum Door { one_call, last_stage };

template <class Real, class... Options> Fit<Real> fit(const Data<Real> &d, Door door, Options... options)
{
    Fit<Real> s;
    const std::size_t c = d.coefficients(), width = d.p + 1;
    Real *statistics, *covariances, *means, *r, *crossproducts, *anova = nullptr, *residuals = nullptr;
    const auto with = [&](auto... own) {
        return run(d, TAVIK_RANK, &s.rank, TAVIK_N_ROWS_MISSING, &s.missing, TAVIK_COEF_STATISTICS,
                   &statistics, TAVIK_COEF_COVARIANCES, &covariances, TAVIK_VARIABLE_MEANS, &means,
                   TAVIK_R_FACTOR, &r, TAVIK_ERROR_CROSSPRODUCTS, &crossproducts, own..., options...);
    };
    s.leverages.resize(door == one_call ? d.n : 0);
    s.b = take(door == one_call ? with(TAVIK_ANOVA_TABLE, &anova, TAVIK_RESIDUALS, &residuals,
                                       TAVIK_LEVERAGES_USER, s.leverages.data())
                                : with(TAVIK_IDO, 3),
               width * d.q);
    EXPECT_EQ(s.b.size(), width * d.q) << tavik_error_code();
    for (std::size_t i = c; i < s.b.size(); i += width) EXPECT_TRUE(d.intercept || s.b[i] == 0) << "the rest";
    const auto values = take(statistics, 4 * c * d.q);
    for (std::size_t i = 0; i < values.size(); i += 4) {
        const Real estimate = s.b[i / 4 / c * width + i / 4 % c];
        EXPECT_TRUE(values[i] == estimate || std::isnan(estimate)) << values[i] << " is not " << estimate;
        s.errors.push_back(values[i + 1]);
        s.t.push_back(values[i + 2]);
        s.p.push_back(values[i + 3]);
    }
    s.covariances = take(covariances, c * c * d.q);
    s.means = take(means, d.p + d.q);
    s.crossproducts = take(crossproducts, d.q * d.q);
    s.anova = take(anova, 15 * d.q);
    s.residuals = take(residuals, d.n * d.q);
    const auto factor = take(r, c * c);
    for (std::size_t i = 0; i < factor.size(); ++i) {
        double sum = 0;
        for (std::size_t k = 0; k < c; ++k) sum += double(factor[k * c + i / c]) * factor[k * c + i % c];
        s.gram.push_back(static_cast<Real>(sum));
        EXPECT_TRUE(i % c >= i / c || factor[i] == 0) << "R is upper triangular";
    }
    return s;
}

long double guarded(long double a, long double b)
{
    if (b != 0) return a / b;
    return std::isnan(a) || a == 0 ? nan_value : a > 0 ? inf : -inf;
}

// The normal equations, solved in long double by sweeping the coefficients out of all sums of squares and products,
// except those that the ones before leave nothing of. P-values are not in it.
template <class Real> Fit<long double> reference(const Data<Real> &d)
{
    using L = long double;
    Fit<L> s;
    const std::size_t c = d.coefficients(), q = d.q, m = c + q;
    Vector<L> row(m), sums(m), a(m * m), f(d.n, 1), w(d.n, 1);
    if (!d.f.empty()) f.assign(d.f.begin(), d.f.end());
    if (!d.w.empty()) w.assign(d.w.begin(), d.w.end());
    const auto read = [&](std::size_t i) { // true when nothing is missing
        row[0] = 1;
        std::copy_n(&d.x[i * d.p], d.p, &row[d.intercept]);
        if (q > 0) std::copy_n(&d.y[i * q], q, &row[c]);
        return !std::isnan(std::accumulate(row.begin(), row.end(), f[i] + w[i]));
    };
    L mass_sum = 0, frequency_sum = 0, used = 0;
    s.missing = 0;
    for (std::size_t i = 0; i < d.n; ++i) {
        const L mass = f[i] * w[i];
        if (!read(i)) s.missing += mass != 0; // a row that is left out anyway is not counted
        else if (mass > 0) {
            mass_sum += mass;
            frequency_sum += f[i];
            ++used;
            for (std::size_t j = 0; j < m; ++j) {
                const L scaled = mass * row[j];
                sums[j] += scaled;
                for (std::size_t k = j; k < m; ++k) a[k * m + j] = a[j * m + k] += scaled * row[k];
            }
        }
    }
    for (std::size_t i = 0; i < c * c; ++i) s.gram.push_back(a[i / c * m + i % c]);
    for (std::size_t j = d.intercept; j < m; ++j) s.means.push_back(sums[j] / mass_sum);
    const auto whole = a;
    Vector<L> kept(c);
    for (std::size_t k = 0; k < c; ++k) {
        const L pivot = a[k * m + k];
        if (!(kept[k] = pivot > 1e-12L * whole[k * m + k])) continue;
        s.inflation = std::max(s.inflation, whole[k * m + k] / pivot);
        for (std::size_t j = 0; j < m; ++j) a[k * m + j] = (j == k ? 1 : a[k * m + j]) / pivot;
        for (std::size_t i = 0; i < m; ++i) {
            const L factor = i == k ? 0 : std::exchange(a[i * m + k], 0);
            for (std::size_t j = 0; factor != 0 && j < m; ++j) a[i * m + j] -= factor * a[k * m + j];
        }
    }
    const L rank = std::accumulate(kept.begin(), kept.end(), L(0));
    s.rank = static_cast<int>(rank);
    const L regression = rank - d.intercept, error = frequency_sum - rank;
    for (std::size_t k = 0; k < q; ++k) {
        for (std::size_t i = 0; i <= d.p; ++i) s.b.push_back(i < c && kept[i] ? a[i * m + c + k] : 0);
        const auto product = [&](const Vector<L> &of, std::size_t l) { return of[(c + k) * m + c + l]; };
        for (std::size_t l = 0; l < q; ++l) // where nothing is left, rounding is
            s.crossproducts.push_back(
                used == rank || product(a, k) < 1e-14L * product(whole, k) ? 0 : product(a, l));
        const L mean = s.means[d.p + k], sse = s.crossproducts[k * q + k],
                sst = product(whole, k) - (d.intercept ? mean * sums[c + k] : 0),
                ssr = regression == 0 ? 0 : sst - sse, square = guarded(sse, error),
                ratio = guarded(square, guarded(ssr + sse, regression + error)),
                deviation = std::sqrt(square);
        s.anova.insert(s.anova.end(),
                       {regression, error, regression + error, ssr, sse, ssr + sse, guarded(ssr, regression),
                        square, guarded(guarded(ssr, regression), square), 0, 100 * guarded(ssr, ssr + sse),
                        ratio > 1 ? 0 : 100 * (1 - ratio), deviation, mean, 100 * guarded(deviation, mean)});
        for (std::size_t i = 0; i < c; ++i) {
            for (std::size_t j = 0; j < c; ++j)
                s.covariances.push_back(kept[i] && kept[j] ? square * a[i * m + j] : 0);
            s.errors.push_back(std::sqrt(s.covariances[(k * c + i) * c + i]));
            s.t.push_back(kept[i] ? guarded(a[i * m + c + k], s.errors.back()) : L(nan_value));
        }
    }
    for (std::size_t i = 0; i < d.n; ++i) {
        const L none_missing = read(i) ? 1 : nan_value;
        for (std::size_t k = 0; k < q; ++k)
            s.residuals.push_back(none_missing *
                                  (row[c + k] - std::inner_product(row.begin(), row.begin() + long(c),
                                                                   &s.b[k * (d.p + 1)], L(0))));
        L leverage = 0;
        for (std::size_t j = 0; j < c * c; ++j) {
            if (kept[j / c] && kept[j % c]) leverage += row[j / c] * row[j % c] * a[j / c * m + j % c];
        }
        s.leverages.push_back(none_missing * w[i] * leverage);
    }
    return s;
}

// Both NaN, or equal, or within `tolerance` of a scale: the greatest of the array, but at least `least`.
template <class T, class U>
void expect_near(const char *name, const Vector<T> &seen, const Vector<U> &due, double tolerance,
                 long double least = 0)
{
    ASSERT_EQ(seen.size(), due.size()) << name;
    for (const U v : due) least = std::max<long double>(least, std::isfinite(v) ? std::fabs(v) : 0);
    for (std::size_t i = 0; i < due.size(); ++i) {
        const bool near = seen[i] == due[i] || std::fabs(seen[i] - due[i]) <= tolerance * least;
        ASSERT_TRUE(std::isnan(due[i]) ? std::isnan(seen[i]) : near)
            << name << "[" << i << "] is " << seen[i] << ", due " << due[i] << ", scale " << least;
    }
}

template <class T, class U> void expect_same(const Fit<T> &seen, const Fit<U> &due, double tolerance)
{
    EXPECT_EQ(seen.rank, due.rank);
    EXPECT_EQ(seen.missing, due.missing);
    expect_near("coefficients", seen.b, due.b, tolerance);
    expect_near("standard errors", seen.errors, due.errors, tolerance);
    expect_near("t", seen.t, due.t, tolerance);
    expect_near("covariances", seen.covariances, due.covariances, tolerance);
    expect_near("means", seen.means, due.means, tolerance);
    expect_near("R'R", seen.gram, due.gram, tolerance);
    expect_near("crossproducts", seen.crossproducts, due.crossproducts, tolerance, 1);
    if (seen.anova.empty()) return;
    long double size = 1; // of the responses: their residuals are as right as they are
    for (std::size_t i = 13; i < due.anova.size(); i += 15)
        size = std::max<long double>(size, std::fabs(due.anova[i]));
    expect_near("residuals", seen.residuals, due.residuals, tolerance, size);
    expect_near("leverages", seen.leverages, due.leverages, tolerance);
    ASSERT_EQ(seen.anova.size(), due.anova.size());
    for (std::size_t i = 0; i < due.anova.size(); ++i) {
        const bool squares = i % 15 >= 3 && i % 15 <= 7;
        const long double least =
            squares ? std::max<long double>(size * size, due.anova[i - i % 15 + 5]) : 100;
        SCOPED_TRACE(i % 15);
        if (i % 15 != 9)
            expect_near("table", Vector<T>{seen.anova[i]}, Vector<U>{due.anova[i]}, tolerance, least);
    }
}

enum Masses { none, frequencies, weights, both };

// Well-conditioned variables, some of them off zero, and responses about lines. From the fourth row on some values are
// missing and some masses are 0.
template <class Real>
Data<Real> random_data(std::size_t n, std::size_t p, std::size_t q, bool intercept, Masses masses,
                       bool missing, bool discrete = false)
{
    std::mt19937_64 engine(n * 1000 + p * 10 + q);
    std::normal_distribution<double> normal;
    const auto chance = [&](unsigned k) { return engine() % k == 0; };
    Data<Real> d{n, p, q, intercept, {}, {}, {}, {}};
    for (std::size_t i = 0; i < n; ++i) {
        double line = 3;
        for (std::size_t j = 0; j < p; ++j) {
            d.x.push_back(static_cast<Real>(2.0 * (j % 3) + (1.0 + j % 4) * normal(engine)));
            if (discrete) d.x.back() = std::trunc(d.x.back()); // many are 0, and equal to the first row's
            line += (j % 2 == 0 ? 1.0 : -1.0) / (j + 1) * d.x.back();
        }
        for (std::size_t k = 0; k < q; ++k) d.y.push_back(static_cast<Real>((k + 1) * line + normal(engine)));
        if (masses & frequencies) d.f.push_back(static_cast<Real>(1 + engine() % 3));
        if (masses & weights) d.w.push_back(static_cast<Real>(0.25 + 0.001 * (engine() % 1000)));
        if (!missing || i < 3 || !chance(9)) continue;
        const Real nan = Real(nan_value);
        switch (engine() % 4) {
        case 0: d.x[i * p + engine() % p] = nan; break;
        case 1: d.y[i * q + engine() % q] = nan; break;
        case 2: (d.f.empty() ? d.x : d.f).back() = d.f.empty() || chance(2) ? nan : 0; break;
        default: (d.w.empty() ? d.x : d.w).back() = d.w.empty() || chance(2) ? nan : 0;
        }
    }
    return d;
}

template <class Real> struct Regression : capture::FrameTest {
    static constexpr double epsilon = std::numeric_limits<Real>::epsilon();

    ~Regression() override
    {
        omp_set_num_threads(omp_get_num_procs());
    }
};

using Reals = testing::Types<float, double>;
TYPED_TEST_SUITE(Regression, Reals);

template <class Real> Data<Real> data_of(const nist::LinearSet &set)
{
    const auto x = set.x(), y = set.y();
    return {y.size(), x.size() / y.size(), 1, set.intercept, {x.begin(), x.end()}, {y.begin(), y.end()}, {},
            {}};
}

// Of a set's coefficients, their errors, residual deviation, R-squared and F; 16 stands for equality.
using Digits = std::array<double, 5>;

template <class Real> void expect_digits(const nist::LinearSet &set, const Fit<Real> &s, const Digits &floors)
{
    Vector<double> values;
    for (std::size_t i = 0; i < s.errors.size(); ++i) values.insert(values.end(), {s.b[i], s.errors[i]});
    if (!s.anova.empty()) values.insert(values.end(), {s.anova[12], s.anova[10] / 100, s.anova[8]});
    for (std::size_t i = 0; i < values.size(); ++i) {
        const std::size_t kind = i < 2 * s.errors.size() ? i % 2 : i - 2 * s.errors.size() + 2;
        const double due = set.certified[i], error = std::fabs((values[i] - due) / due);
        EXPECT_GE(values[i] == due ? 16 : -std::log10(error), floors[kind])
            << i << ": " << values[i] << ", due " << due;
    }
}

// In the order of the sets. What is missing from 15 is mostly lost before the fit, where decimal data become doubles;
// "check_nist_linear.py --rounded" tells how much.
constexpr Digits floors_of_sets[] = {
    {13, 13.5, 13.5, 14.5, 13.5},   // Norris
    {13.3, 13, 13, 14.5, 12.8},     // Pontius
    {14.2, 14.2, 14.2, 14.5, 14.2}, // NoInt1
    {14.2, 14.2, 14.2, 14.5, 14.2}, // NoInt2
    {7.5, 7.6, 7.8, 10, 7.5},       // Filip
    {9.9, 10.5, 10.4, 12.6, 10.1},  // Filip of doubles
    {13.5, 14.2, 14.5, 14.5, 14.5}, // Longley
    {13, 16, 16, 16, 16},           // Wampler1: an exact fit
    {12.7, 16, 16, 16, 16},         // Wampler2, too
    {12.4, 14, 14.3, 14.5, 14.3},   // Wampler3
    {11.2, 14, 14.3, 14.5, 14.3},   // Wampler4
    {9.2, 14, 14.3, 14.3, 14.3},    // Wampler5
};

TEST(CertifiedData, Regression)
{
    for (std::size_t k = 0; const nist::LinearSet &set : nist::linear_sets) {
        SCOPED_TRACE(set.name);
        const Digits &floors = floors_of_sets[k++];
        auto d = data_of<double>(set);
        const auto s = fit(d, one_call);
        expect_digits(set, s, floors);
        run(d.rows(0, 2), TAVIK_IDO, 1);
        run(d.rows(2, d.n), TAVIK_IDO, 2);
        expect_digits(set, fit(d.rows(0, 0), last_stage), floors);
        d.f = d.w = Vector<double>(d.n, 1);
        expect_digits(set, fit(d, one_call), floors);
        if (std::isfinite(set.certified.back())) continue;
        EXPECT_THAT(s.errors, testing::Each(0));
        EXPECT_EQ(s.anova[4], 0);
        EXPECT_EQ(s.anova[9], 1);
        EXPECT_EQ(s.anova[11], 100);
    }
}

// Single precision computes in double, so that data which it holds exactly lose nothing but the last rounding.
TEST(CertifiedData, RegressionInSinglePrecision)
{
    for (const nist::LinearSet &set : nist::linear_sets) {
        const auto d = data_of<float>(set);
        if (set.x() != Vector<double>(d.x.begin(), d.x.end()) ||
            set.y() != Vector<double>(d.y.begin(), d.y.end()))
            continue;
        SCOPED_TRACE(set.name);
        expect_digits(set, fit(d, one_call, TAVIK_TOLERANCE, 1e-13), {7, 7, 7, 7, 7});
    }
}

TYPED_TEST(Regression, AgreesWithNormalEquationsInAllShapes)
{
    unsigned mix = 0;
    for (std::size_t n : {1, 2, 3, 5, 37, 1000, 5000, 70000}) {
        for (std::size_t p : {1, 2, 7, 10, 15, 16, 17, 31, 51}) {
            if (n > 5000 && p != 2 && p != 16 && p != 51) continue; // the reference takes its time
            for (int repeats = n < 1000 ? 8 : 1; repeats > 0; --repeats, ++mix) {
                const bool missing = mix % 7 > 2;
                const auto d = random_data<TypeParam>(n, p, 1 + mix % 5 % 3, mix % 3 != 0, Masses(mix % 4),
                                                      missing, mix / 4 % 2 == 1);
                SCOPED_TRACE(testing::Message() << n << " x " << p << ", " << d.q << " responses, intercept "
                                                << d.intercept << ", masses " << mix % 4 << ", missing "
                                                << missing << ", discrete " << mix / 4 % 2);
                const auto due = reference(d);
                const auto s = fit(d, one_call);
                EXPECT_EQ(tavik_error_code(), due.rank < int(d.coefficients()) ? 11047 : 0);
                expect_same(s, due, 8 * this->epsilon + 4e-15 * double(due.inflation));
                if (testing::Test::HasFailure()) return;
            }
        }
    }
}

// Upper tails have closed forms: of F with 2 degrees of freedom on either side, of Student's t with 1, 2 and 4.
TYPED_TEST(Regression, GivesPValues)
{
    const std::pair<std::size_t, std::size_t> shapes[] = {{9, 2}, {50, 2}, {4, 1}, {6, 3},
                                                          {5, 2}, {9, 4},  {3, 1}, {12, 10}};
    for (const auto &[n, p] : shapes) {
        SCOPED_TRACE(testing::Message() << n << " x " << p);
        const auto d = random_data<TypeParam>(n, p, 2, true, none, false);
        const auto due = reference(d);
        const auto s = fit(d, one_call);
        const double error = double(n - p) - 1;
        const auto near = [this](double seen, double due, double times) {
            EXPECT_NEAR(seen, due, times * (1e-11 + 8 * this->epsilon));
        };
        for (std::size_t k = 0; k < 2; ++k) {
            const double f = double(due.anova[15 * k + 8]), tail = s.anova[15 * k + 9];
            // F has been rounded, which counts as often as the power is taken.
            if (p == 2) near(tail * std::pow(1 + 2 * f / error, error / 2), 1, error);
            if (error == 2) near(tail, 1 - std::pow(1 + 2 / (p * f), p / -2.0), 1);
            if (p == 1) near(tail, s.p[2 * k + 1], 1); // F is the square of t
        }
        for (std::size_t i = 0; i < due.t.size(); ++i) {
            const double t = std::fabs(double(due.t[i])), cosine2 = error / (error + t * t),
                         sine = std::sqrt(1 - cosine2);
            if (error == 1) near(s.p[i], 1 - std::atan(t) * 2 / M_PI, 1);
            if (error == 2) near(s.p[i], 1 - sine, 1);
            if (error == 4) near(s.p[i], 1 - sine * (1 + cosine2 / 2), 1);
        }
    }
}

TYPED_TEST(Regression, ZeroesDependentColumns)
{
    using Real = TypeParam;
    const auto plain = random_data<Real>(40, 4, 2, true, both, true);
    const struct {
        const char *name;
        bool intercept;
        std::size_t column; // made dependent
        Real (*value)(const Real *x);
    } cases[] = {{"equal columns", true, 2, [](const Real *x) { return x[0]; }},
                 {"equal columns, no intercept", false, 1, [](const Real *x) { return x[0]; }},
                 {"constant", true, 0, [](const Real *) { return Real(0.1); }},
                 {"zero", true, 1, [](const Real *) { return Real(0); }},
                 {"zero first, no intercept", false, 0, [](const Real *) { return Real(0); }},
                 {"combination", true, 3, [](const Real *x) { return x[0] + 3 * x[1] - x[2]; }},
                 {"combination far from zero", true, 3, [](const Real *x) { return 1000 - 2 * x[2]; }}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        auto d = plain;
        d.intercept = c.intercept;
        for (std::size_t i = 0; i < d.x.size(); i += 4) {
            if (!std::isnan(d.x[i + c.column])) d.x[i + c.column] = c.value(&d.x[i]);
        }
        const auto due = reference(d);
        ASSERT_EQ(due.rank, 4 - !c.intercept);
        Fit<Real> s;
        EXPECT_EQ(capture::outcome([&] { s = fit(d, one_call); }, "i"),
                  "3 11047 " + std::to_string(due.rank));
        expect_same(s, due, 1e3 * this->epsilon);
        const std::size_t at = c.column + c.intercept;
        EXPECT_TRUE(s.b[at] == 0 && s.errors[at] == 0 && std::isnan(s.t[at]) && std::isnan(s.p[at]));
    }
}

// What equal columns leave of each other is rounding, and the rounding of that, down to the smallest numbers.
TYPED_TEST(Regression, ManyEqualColumns)
{
    for (std::size_t n : {20, 400, 9000}) {
        for (bool constant : {true, false}) {
            auto d = random_data<TypeParam>(n, 40, 1, false, none, false);
            for (std::size_t i = 0; i < d.x.size(); ++i) d.x[i] = constant ? 1 : d.x[i / 40 * 40];
            const auto due = reference(d);
            ASSERT_EQ(due.rank, 1);
            SCOPED_TRACE(testing::Message() << n << " rows, constant " << constant);
            expect_same(fit(d, one_call), due, 100 * this->epsilon);
        }
    }
}

// (1, 0) leaves t^2 of the 1 + t^2 of (1, t); the constant leaves 1 of the 1000^2 + 1 of 1000 +- 1.
TYPED_TEST(Regression, ToleranceDividesDependentFromIndependent)
{
    using Real = TypeParam;
    const Vector<Real> y = {1, 2, 4, 3}, off = {999, 1001, 999, 1001};
    const auto rank = [&](double t, auto... options) {
        const Vector<Real> x = {1, 1, 0, static_cast<Real>(t)};
        int rank = -1;
        tavik_free(call(2, 2, x.data(), y.data(), TAVIK_NO_INTERCEPT, TAVIK_RANK, &rank, options...));
        return rank;
    };
    const auto rank_off = [&](double tolerance) {
        int rank = -1;
        tavik_free(call(4, 1, off.data(), y.data(), TAVIK_RANK, &rank, TAVIK_TOLERANCE, tolerance));
        return rank;
    };
    EXPECT_EQ(rank(0.99 * 100 * this->epsilon), 1) << "the default";
    EXPECT_EQ(rank(1.01 * 100 * this->epsilon), 2);
    for (double t : {1e-4, 1e-2, 1.0}) {
        const double limit = t / std::sqrt(1 + t * t);
        const Real above = static_cast<Real>(1.001 * limit), below = static_cast<Real>(0.999 * limit);
        EXPECT_EQ(rank(t, TAVIK_TOLERANCE, 1.001 * limit), 1);
        EXPECT_EQ(rank(t, TAVIK_TOLERANCE, 0.999 * limit), 2);
        EXPECT_EQ(rank(t, TAVIK_TOLERANCE, -1.001 * limit), 1) << "the sign does not matter";
        EXPECT_EQ(rank(t, TAVIK_TOLERANCE_ADR, &above), 1);
        EXPECT_EQ(rank(t, TAVIK_TOLERANCE_ADR, &below), 2);
    }
    EXPECT_EQ(rank_off(1.001e-3), 1);
    EXPECT_EQ(rank_off(0.999e-3), 2);
    for (double none : {0.0, nan_value}) {
        EXPECT_EQ(rank(0, TAVIK_TOLERANCE, none), 1);
        EXPECT_EQ(rank(1e-15, TAVIK_TOLERANCE, none), 2);
    }
}

// By hand, in the order of the entries.
TYPED_TEST(Regression, FillsTheTable)
{
    using Real = TypeParam;
    const double nan = nan_value, root2 = std::sqrt(2), root7 = std::sqrt(7), s9 = std::sqrt(0.9),
                 s2 = std::sqrt(0.2);
    const double p49 = 2 / M_PI * std::atan(1.0 / 7);
    const struct {
        const char *name;
        bool intercept;
        Vector<Real> x, y;
        Vector<double> due;
    } cases[] = {
        // clang-format off
        {"plain", true, {1, 2, 3, 4}, {1, 3, 2, 4}, {1, 2, 3, 3.2, 1.8, 5, 3.2, 0.9, 32.0 / 9, 0.2, 64, 46, s9, 2.5, 40 * s9}},
        {"no intercept", false, {1, 2}, {1, 3}, {1, 1, 2, 9.8, 0.2, 10, 9.8, 0.2, 49, p49, 98, 96, s2, 2, 50 * s2}},
        {"exact", true, {1, 2, 3, 4}, {3, 5, 7, 9}, {1, 2, 3, 20, 0, 20, 20, 0, inf, 1, 100, 100, 0, 6, 0}},
        {"exact, no intercept", false, {1, 2, 3}, {2, 4, 6}, {1, 2, 3, 56, 0, 56, 56, 0, inf, 1, 100, 100, 0, 4, 0}},
        {"unrelated", true, {1, 2, 3, 4}, {3, 1, 1, 3}, {1, 2, 3, 0, 4, 4, 0, 2, 0, 1, 0, 0, root2, 2, 50 * root2}},
        {"no error left", true, {1, 2}, {3, 5}, {1, 0, 1, 2, 0, 2, 2, nan, nan, nan, 100, nan, nan, 4, nan}},
        {"constant column", true, {5, 5, 5}, {1, 2, 6}, {0, 2, 2, 0, 14, 14, nan, 7, nan, nan, 0, 0, root7, 3, 100 * root7 / 3}},
        {"constant response", true, {1, 2, 4}, {8, 8, 8}, {1, 1, 2, 0, 0, 0, 0, 0, nan, nan, nan, nan, 0, 8, 0}},
        {"zero response", false, {1, 2, 4}, {0, 0, 0}, {1, 2, 3, 0, 0, 0, 0, 0, nan, nan, nan, nan, 0, 0, nan}},
        {"one row", true, {5}, {2}, {0, 0, 0, 0, 0, 0, nan, nan, nan, nan, nan, nan, nan, 2, nan}},
        // clang-format on
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        const auto s = fit(Data<Real>{c.x.size(), 1, 1, c.intercept, c.x, c.y, {}, {}}, one_call);
        ASSERT_EQ(s.anova.size(), 15U);
        for (std::size_t i = 0; i < 15; ++i) {
            SCOPED_TRACE(i);
            const double scale = c.due[3] == 0 && (i == 3 || i == 6 || i == 8 || i == 10) ? 1 : 0;
            expect_near("table", Vector<Real>{s.anova[i]}, Vector<double>{c.due[i]}, 4 * this->epsilon,
                        scale);
        }
    }
}

TYPED_TEST(Regression, WithFewOrNoRowsInTheFit)
{
    using Real = TypeParam;
    const Real nan = Real(nan_value);
    const Data<Real> two{2, 1, 1, true, {1, 2}, {1, 3}, {}, {}};
    Real *table = nullptr, *means;
    auto d = two;
    d.f = {0.25, 0.25};
    EXPECT_EQ(capture::outcome([&] { EXPECT_EQ(run(d, TAVIK_ANOVA_TABLE, &table), nullptr); }, "lr"),
              "5 11061 DFE -1.5");
    Real *statistics = nullptr;
    expect_near("without a table", take(run(d, TAVIK_COEF_STATISTICS, &statistics), 2), Vector<Real>{-1, 2},
                this->epsilon);
    const auto of_2 = take(statistics, 8);
    EXPECT_TRUE(std::isnan(of_2[1]) && std::isnan(of_2[2]) && std::isnan(of_2[3])) << "without a variance";
    d.f = {0, 0};
    EXPECT_EQ(capture::outcome([&] { EXPECT_EQ(run(d, TAVIK_ANOVA_TABLE, &table), nullptr); }, "lr"),
              "5 11061 DFR -1");
    EXPECT_EQ(table, nullptr);
    std::array<Data<Real>, 3> empty = {d, two, two};
    empty[1].x[0] = empty[1].y[1] = nan;
    empty[2].w = {0, nan};
    for (const auto &e : empty) {
        const auto outcome = [&] {
            EXPECT_THAT(take(run(e, TAVIK_VARIABLE_MEANS, &means), 2), testing::ElementsAre(0, 0));
        };
        EXPECT_EQ(capture::outcome(outcome, "i"), "3 11047 0");
        EXPECT_THAT(take(means, 2), testing::ElementsAre(testing::IsNan(), testing::IsNan()));
    }
    const Real *null = nullptr;
    for (int ido : {1, 2, 3}) {
        const auto stage = [&] {
            EXPECT_EQ(take(call(0, 1, null, null, TAVIK_IDO, ido), 2).size(), ido < 3 ? 0U : 2U);
        };
        EXPECT_EQ(capture::outcome(stage), ido < 3 ? "0 0" : "3 11047");
    }
}

TYPED_TEST(Regression, AFrequencyCountsAsThatManyRows)
{
    const auto d = random_data<TypeParam>(60, 3, 2, true, both, true);
    auto copies = d.rows(0, 0);
    for (std::size_t i = 0; i < d.n; ++i) {
        const auto row = d.rows(i, i + 1);
        for (double k = row.f[0]; k > 0; --k, ++copies.n) {
            copies.x.insert(copies.x.end(), row.x.begin(), row.x.end());
            copies.y.insert(copies.y.end(), row.y.begin(), row.y.end());
            copies.w.push_back(row.w[0]);
        }
    }
    copies.f.clear();
    auto s = fit(d, one_call), t = fit(copies, one_call);
    s.residuals = t.residuals = s.leverages = t.leverages = {};
    s.missing = t.missing = 0;
    expect_same(s, t, 16 * this->epsilon);
}

TYPED_TEST(Regression, WithoutResponses)
{
    auto d = random_data<TypeParam>(50, 3, 2, true, weights, false);
    const auto due = reference(d);
    d.q = 0;
    const auto s = fit(d, one_call);
    EXPECT_THAT(take(run(d), 4), testing::Each(0));
    expect_near("R'R", s.gram, due.gram, 8 * this->epsilon);
    expect_near("leverages", s.leverages, due.leverages, 8 * this->epsilon);
}

TYPED_TEST(Regression, MissingAndInfiniteValues)
{
    using Real = TypeParam;
    const Vector<Real> ones(5, 1);
    const Data<Real> plain{5, 1, 1, true, {1, 2, 3, 4, 5}, {1, 3, 2, 5, 4}, ones, ones};
    const auto expect_nan = [](const Fit<Real> &s) {
        for (const auto &values :
             {s.b, s.errors, s.crossproducts, Vector<Real>{s.anova[4], s.anova[8], s.anova[9]}})
            EXPECT_THAT(values, testing::Each(testing::IsNan()));
    };
    for (auto member : {&Data<Real>::x, &Data<Real>::y, &Data<Real>::f, &Data<Real>::w}) {
        for (std::size_t at : {0, 2, 4}) {
            auto d = plain;
            (d.*member)[at] = Real(nan_value);
            const auto s = fit(d, one_call), kept = fit(d, one_call, TAVIK_KEEP_MISSING);
            EXPECT_TRUE(std::isnan(s.residuals[at]) && std::isnan(s.leverages[at]));
            expect_same(s, reference(d), 8 * this->epsilon);
            expect_same(fit(d, one_call, TAVIK_KEEP_MISSING, TAVIK_EXCLUDE_MISSING), s, 0);
            expect_nan(kept);
            EXPECT_EQ(kept.missing, 0);
            if (member == &Data<Real>::w || member == &Data<Real>::f) continue;
            for (double value : {inf, -inf}) {
                (d.*member)[at] = static_cast<Real>(value);
                expect_nan(fit(d, one_call));
            }
            (d.*member)[at] =
                sizeof(Real) == sizeof(float) ? Real(1e38) : Real(1e200); // its square overflows
            expect_near("coefficients", take(run(d), 2), reference(d).b, 8 * this->epsilon);
            d = plain;
            (d.*member)[at] = Real(nan_value);
            d.f[at] = 0;
            expect_same(fit(d, one_call), reference(d), 8 * this->epsilon);
        }
    }
}

// Slopes and errors do not depend on where zero is, and lose no digits when it is far away.
TYPED_TEST(Regression, DataFarFromZero)
{
    using Real = TypeParam;
    const Real offset = sizeof(Real) == sizeof(float) ? 0x1p16 : 0x1p40;
    auto d = random_data<Real>(64, 2, 1, true, none, false);
    for (auto *values : {&d.x, &d.y}) {
        for (Real &v : *values) v = std::round(v * 8) / 8;
    }
    const auto due = fit(d, one_call);
    for (Real &v : d.x) v += offset;
    for (Real &v : d.y) v -= offset;
    const auto s = fit(d, one_call, TAVIK_TOLERANCE, 1e-14);
    expect_near("slopes", Vector<Real>{s.b[1], s.b[2]}, Vector<Real>{due.b[1], due.b[2]}, 8 * this->epsilon);
    expect_near("errors", Vector<Real>{s.errors[1], s.errors[2]}, Vector<Real>{due.errors[1], due.errors[2]},
                8 * this->epsilon);
    expect_near("residuals", s.residuals, due.residuals, 8 * this->epsilon);
    expect_near("crossproducts", s.crossproducts, due.crossproducts, 8 * this->epsilon);
}

TYPED_TEST(Regression, BitsDoNotDependOnThreads)
{
    using F = Fit<TypeParam>;
    using Array = Vector<TypeParam> F::*;
    const std::pair<std::size_t, std::size_t> shapes[] = {{70001, 6}, {100000, 1}, {20000, 40}};
    for (const auto &[n, p] : shapes) {
        const auto d = random_data<TypeParam>(n, p, 2, true, both, true);
        omp_set_num_threads(1);
        const auto once = fit(d, one_call);
        for (int threads : {2, 3}) {
            omp_set_num_threads(threads);
            const auto s = fit(d, one_call);
            for (Array array : {Array(&F::b), &F::errors, &F::p, &F::covariances, &F::means, &F::gram,
                                &F::crossproducts, &F::anova, &F::residuals, &F::leverages}) {
                const auto &due = once.*array;
                ASSERT_EQ((s.*array).size(), due.size());
                EXPECT_EQ(std::memcmp(&(s.*array)[0], &due[0], due.size() * sizeof due[0]), 0)
                    << n << " x " << p;
            }
            EXPECT_EQ(s.missing, once.missing);
        }
    }
}

// Any cut of the rows gives the fit of one call, less what stages cannot have.
TYPED_TEST(Regression, StagesAgreeWithOneCall)
{
    for (std::size_t n : {40, 3000}) {
        for (int mix = 0; mix < 8; ++mix) {
            const auto d = random_data<TypeParam>(n, 4, 2, mix < 4, Masses(mix % 4), true);
            const auto due = fit(d, one_call);
            using Cuts = Vector<std::size_t>;
            const Cuts thirds = {n / 3, n / 3, n - 1};
            for (const Cuts &cuts : {Cuts{n}, {0, n, n}, {0, 1}, {1, 2, 3, 4, 5, 6, 7, 8}, {n / 2}, thirds}) {
                SCOPED_TRACE(testing::PrintToString(cuts));
                for (std::size_t k = 0; k < cuts.size(); ++k) {
                    const auto rows = d.rows(k == 0 ? 0 : cuts[k - 1], cuts[k]);
                    EXPECT_EQ(run(rows, TAVIK_IDO, k == 0 ? 1 : 2), nullptr);
                    EXPECT_EQ(tavik_error_type(), 0);
                }
                expect_same(fit(d.rows(cuts.back(), n), last_stage), due, 32 * this->epsilon);
            }
        }
    }
}

TYPED_TEST(Regression, StagesFollowEachOther)
{
    using Real = TypeParam;
    const auto d = random_data<Real>(6, 2, 1, true, none, false);
    const auto stage = [&](int ido) { return capture::outcome([&] { tavik_free(run(d, TAVIK_IDO, ido)); }); };
    const std::pair<Vector<int>, Vector<std::string>> runs[] = {{{1, 2, 3}, {"0 0", "0 0", "0 0"}},
                                                                {{2}, {"4 20691"}},
                                                                {{3}, {"4 20691"}},
                                                                {{0, 2}, {"0 0", "4 20691"}},
                                                                {{1, 3, 3}, {"0 0", "0 0", "4 20691"}}};
    for (const auto &[stages, outcomes] : runs) {
        Vector<std::string> seen;
        for (int ido : stages) seen.push_back(stage(ido));
        EXPECT_EQ(seen, outcomes) << testing::PrintToString(stages);
    }
    // Stage 1 starts anew; stage 0 leaves a series alone, and so does another thread.
    for (int ido : {1, 2, 1, 0}) stage(ido);
    capture::in_thread([&] {
        capture::restore_defaults(false);
        EXPECT_EQ(stage(2), "4 20691");
        EXPECT_EQ(stage(1), "0 0");
    });
    expect_same(fit(d.rows(0, 0), last_stage), fit(d, one_call), 8 * this->epsilon);
    // What closes a series.
    const auto wider = random_data<Real>(6, 3, 1, true, none, false),
               more = random_data<Real>(6, 2, 2, true, none, false);
    const Vector<Real> bad(6, -1);
    const Real *null = nullptr;
    Real *out;
    const std::pair<const char *, std::function<void()>> faults[] = {
        {"4 11428", [&] { run(wider, TAVIK_IDO, 2); }},
        {"4 11428", [&] { run(more, TAVIK_IDO, 3); }},
        {"4 11054", [&] { run(d, TAVIK_IDO, 2, TAVIK_FREQUENCIES, bad.data()); }},
        {"5 20464", [&] { call(-1, 2, d.x.data(), d.y.data(), TAVIK_IDO, 2); }},
        {"5 20690", [&] { run(d, TAVIK_IDO, 3, TAVIK_RESIDUALS, &out); }},
        {"5 11001", [&] { run(d, 4711); }},
        {"5 150", [&] { call(3, 2, null, d.y.data(), TAVIK_IDO, 2); }},
        {"0 0", [] { tavik_free_allocated_memory(); }}};
    for (const auto &[outcome, fault] : faults) {
        EXPECT_EQ(stage(1), "0 0");
        EXPECT_EQ(capture::outcome(fault), outcome);
        capture::restore_defaults(false);
        EXPECT_EQ(stage(2), "4 20691") << outcome;
    }
}

TYPED_TEST(Regression, AWindowSlidesByDeletion)
{
    using Real = TypeParam;
    for (int mix = 0; mix < 4; ++mix) {
        auto d = random_data<Real>(200, 3, 2, mix < 2, both, true);
        for (Real &v : d.x) v += mix % 2 == 0 ? 0 : 1024; // the first row, on which data may rest, goes first
        for (std::size_t width : {9, 30}) {
            for (std::size_t steps : {1, 7, 150}) {
                SCOPED_TRACE(testing::Message()
                             << "mix " << mix << ", width " << width << ", steps " << steps);
                run(d.rows(0, width), TAVIK_IDO, 1);
                for (std::size_t i = 0; i < steps; ++i) {
                    EXPECT_EQ(run(d.rows(width + i, width + i + 1), TAVIK_IDO, 2), nullptr);
                    EXPECT_EQ(run(d.rows(i, i + 1), TAVIK_IDO, 2, TAVIK_ROWS_DELETE), nullptr);
                    ASSERT_EQ(tavik_error_code(), 0) << "step " << i;
                }
                const auto due = reference(d.rows(steps, steps + width));
                expect_same(fit(d.rows(0, 0), last_stage), due,
                            16 * this->epsilon + 1e-14 * double(due.inflation));
            }
        }
    }
}

// Small integers make windows collinear, constant, or fitted exactly, and outlying responses cost digits: no deletion of
// what was added is refused for it, and the rank is that of a fresh fit.
TYPED_TEST(Regression, SlidesThroughDegenerateWindows)
{
    using Real = TypeParam;
    std::mt19937 engine(20261121);
    for (int series = 0; series < 120; ++series) {
        const std::size_t p = 1 + engine() % 4, width = 2 * p + 3 + engine() % 8, steps = 60;
        const bool outliers = series % 3 == 0;
        Data<Real> d{width + steps, p, 1, series % 2 == 0, {}, {}, {}, {}};
        for (std::size_t i = 0; i < d.n * p; ++i) d.x.push_back(Real(engine() % 3));
        for (std::size_t i = 0; i < d.n; ++i)
            d.y.push_back(Real(engine() % 3) * (outliers && engine() % 20 == 0 ? Real(1e6) : Real(1)));
        SCOPED_TRACE(testing::Message()
                     << "series " << series << ", " << p << " variables, window " << width);
        run(d.rows(0, width), TAVIK_IDO, 1);
        for (std::size_t i = 0; i < steps; ++i) {
            run(d.rows(width + i, width + i + 1), TAVIK_IDO, 2);
            run(d.rows(i, i + 1), TAVIK_IDO, 2, TAVIK_ROWS_DELETE);
            ASSERT_EQ(tavik_error_code(), 0) << "step " << i;
        }
        int rank = -1, fresh_rank = -2;
        const auto slid = take(run(d.rows(0, 0), TAVIK_IDO, 3, TAVIK_RANK, &rank), p + 1);
        const auto fresh = take(run(d.rows(steps, steps + width), TAVIK_RANK, &fresh_rank), p + 1);
        EXPECT_EQ(rank, fresh_rank);
        if (!outliers) expect_near("coefficients", slid, fresh, 1e-12 + 64 * this->epsilon);
    }
}

TYPED_TEST(Regression, DeletesWhatWasAdded)
{
    using Real = TypeParam;
    auto d = random_data<Real>(9, 2, 1, true, both, false), threefold = d, part = d.rows(0, 4);
    // A part of the frequencies, in the stage that completes the fit.
    threefold.f.assign(9, 3);
    part.f.assign(4, 1);
    d.f = {2, 2, 2, 2, 3, 3, 3, 3, 3};
    run(threefold, TAVIK_IDO, 1);
    expect_same(fit(part, last_stage, TAVIK_ROWS_DELETE), reference(d), 100 * this->epsilon);
    // A missing row is taken back from the count; the last of ADD and DELETE holds.
    part.x[1] = part.y[2] = Real(nan_value);
    run(d, TAVIK_IDO, 1, TAVIK_ROWS_DELETE, TAVIK_ROWS_ADD);
    run(part, TAVIK_IDO, 2);
    run(part, TAVIK_IDO, 2, TAVIK_ROWS_DELETE);
    expect_same(fit(d.rows(0, 0), last_stage), reference(d), 100 * this->epsilon);
    // All rows.
    run(d, TAVIK_IDO, 1);
    const auto all = [&] {
        EXPECT_THAT(take(run(d, TAVIK_IDO, 3, TAVIK_ROWS_DELETE), 3), testing::ElementsAre(0, 0, 0));
    };
    EXPECT_EQ(capture::outcome(all, "i"), "3 11047 0");
}

TYPED_TEST(Regression, RefusesToDeleteWhatWasNotAdded)
{
    using Real = TypeParam;
    const auto d = random_data<Real>(9, 2, 1, true, none, false);
    const Data<Real> foreign{1, 2, 1, true, {1000, -1000}, {0}, {}, {}};
    auto heavier = d;
    heavier.w.assign(9, 2);
    const struct {
        const char *name;
        int ido; // and what was added before, unless it is 0 or 1
        std::size_t before;
        Data<Real> rows;
    } cases[] = {{"by itself", 0, 0, d},
                 {"first", 1, 0, d},
                 {"more rows", 2, 5, d},
                 {"another row", 2, 9, foreign},
                 {"heavier", 3, 9, heavier}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        if (c.before > 0) run(d.rows(0, c.before), TAVIK_IDO, 1);
        EXPECT_EQ(
            capture::outcome([&] { EXPECT_EQ(run(c.rows, TAVIK_ROWS_DELETE, TAVIK_IDO, c.ido), nullptr); }),
            "4 11048");
        EXPECT_EQ(capture::outcome([&] { run(d, TAVIK_IDO, 2); }), "4 20691");
    }
}

TYPED_TEST(Regression, WritesWhereTheCallerSays)
{
    using Real = TypeParam;
    const auto d = random_data<Real>(8, 2, 2, true, none, false);
    const Vector<Real> bad(8, -1);
    const struct {
        int plain, user;
        std::size_t size;
    } outputs[] = {{TAVIK_ANOVA_TABLE, TAVIK_ANOVA_TABLE_USER, 30},
                   {TAVIK_COEF_COVARIANCES, TAVIK_COEF_COVARIANCES_USER, 18},
                   {TAVIK_RESIDUALS, TAVIK_RESIDUALS_USER, 16},
                   {TAVIK_VARIABLE_MEANS, TAVIK_VARIABLE_MEANS_USER, 4},
                   {TAVIK_R_FACTOR, TAVIK_R_FACTOR_USER, 9},
                   {TAVIK_ERROR_CROSSPRODUCTS, TAVIK_ERROR_CROSSPRODUCTS_USER, 4},
                   {TAVIK_COEF_STATISTICS, 0, 24},
                   {0, TAVIK_LEVERAGES_USER, 8},
                   {0, TAVIK_RETURN_USER, 6}};
    Real other, *plain = &other;
    for (const auto &output : outputs) {
        const int plain_code = output.plain, user_code = output.user;
        const std::size_t size = output.size;
        SCOPED_TRACE(plain_code + user_code);
        Vector<Real> user(size + 1, 42), allocated;
        const auto expect_nulled = [&](Real *result) {
            EXPECT_EQ(result, nullptr);
            EXPECT_EQ(std::exchange(plain, &other), nullptr);
        };
        if (plain_code != 0) { // null before anything can go wrong
            EXPECT_EQ(capture::outcome([&] { expect_nulled(run(d, plain_code, &plain, 4711)); }, "ii"),
                      "5 11001 4711 4");
            expect_nulled(call(8, 0, d.x.data(), d.y.data(), plain_code, &plain));
            expect_nulled(run(d, plain_code, &plain, TAVIK_FREQUENCIES, bad.data()));
            expect_nulled(run(d, TAVIK_IDO, 1, plain_code, &plain));
            EXPECT_EQ(capture::outcome([&] { run(d, plain_code, nullptr); }), "5 150");
            tavik_free(run(d, plain_code, &plain));
            allocated = take(plain, size);
            EXPECT_EQ(allocated.size(), size);
        }
        if (user_code == 0) continue;
        if (plain_code != 0) { // of both forms the last
            tavik_free(run(d, plain_code, &plain, user_code, user.data()));
            EXPECT_EQ(std::exchange(plain, &other), nullptr);
            EXPECT_EQ(Vector<Real>(user.begin(), user.end() - 1), allocated);
            user.assign(size + 1, 42);
        }
        call(8, 0, d.x.data(), d.y.data(), user_code, user.data());
        run(d, TAVIK_FREQUENCIES, bad.data(), user_code, user.data());
        run(d, TAVIK_IDO, 1, user_code, user.data());
        EXPECT_THAT(user, testing::Each(Real(42))) << "written too early, or on error";
        EXPECT_EQ(capture::outcome([&] { run(d, user_code, nullptr); }), "5 150");
        Real *b = run(d, user_code, user.data());
        if (user_code == TAVIK_RETURN_USER) {
            EXPECT_EQ(b, user.data());
            allocated = take(run(d), size);
        } else tavik_free(b);
        EXPECT_EQ(user.back(), 42);
        user.pop_back();
        if (allocated.empty())
            EXPECT_NEAR(std::accumulate(user.begin(), user.end(), 0.0), 3, 8 * this->epsilon) << "leverages";
        else EXPECT_EQ(user, allocated);
    }
}

// Columns of x in any order, with others between them, are what x, y and the masses are by themselves.
TYPED_TEST(Regression, TakesColumnsByIndex)
{
    using Real = TypeParam;
    const auto d = random_data<Real>(70, 3, 2, true, both, true);
    const auto due = take(run(d), 8);
    const Real *null = nullptr;
    for (std::size_t stride : {7, 9}) { // the default, and more
        Vector<Real> rows(70 * stride, Real(nan_value));
        auto wide = d;
        wide.x = rows;
        for (std::size_t i = 0; i < 70; ++i) {
            const Real *x = &d.x[3 * i], *y = &d.y[2 * i],
                       shuffled[] = {y[1], x[2], d.w[i], x[0], d.f[i], y[0], x[1]};
            std::copy_n(shuffled, 7, &rows[i * stride]);
            std::copy_n(x, 3, &wide.x[i * stride]);
        }
        const int x[] = {3, 6, 1}, y[] = {5, 0};
        const auto with = [&](auto... options) {
            return take(
                call(70, 3, rows.data(), null, TAVIK_X_INDICES, x, y, 4, 2, TAVIK_N_DEPENDENT, 2, options...),
                8);
        };
        EXPECT_EQ(stride == 7 ? with() : with(TAVIK_X_COL_DIM, int(stride)), due);
        EXPECT_EQ(take(run(wide, TAVIK_X_COL_DIM, int(stride)), 8), due);
    }
    // Without masses a row is variables and responses.
    const Vector<Real> rows = {1, 1, 2, 3, 3, 2, 4, 5}, x = {1, 2, 3, 4}, y = {1, 3, 2, 5};
    const int zero[] = {0}, one[] = {1};
    EXPECT_EQ(take(call(4, 1, rows.data(), null, TAVIK_X_INDICES, zero, one, -1, -1), 2),
              take(call(4, 1, x.data(), y.data()), 2));
}

TYPED_TEST(Regression, StridesCovariances)
{
    using Real = TypeParam;
    const auto d = random_data<Real>(12, 2, 2, true, none, false);
    const auto due = fit(d, one_call).covariances;
    Vector<Real> user(30, 42);
    Real *plain;
    tavik_free(run(d, TAVIK_COEF_COVARIANCES_USER, user.data(), TAVIK_COV_COL_DIM, 5));
    tavik_free(run(d, TAVIK_COV_COL_DIM, 5, TAVIK_COEF_COVARIANCES, &plain));
    const auto allocated = take(plain, 30);
    for (std::size_t i = 0; i < 30; ++i) {
        EXPECT_EQ(user[i], i % 5 < 3 ? due[i / 5 * 3 + i % 5] : 42) << i;
        EXPECT_TRUE(i % 5 >= 3 || allocated[i] == user[i]) << i;
    }
}

// Rows 2^32 bytes and more apart, in memory that is mostly not there.
TYPED_TEST(Regression, ComputesOffsetsIn64Bits)
{
    using Real = TypeParam;
    const std::size_t stride = 0x40000000, bytes = (2 * stride + 1) * sizeof(Real);
    void *memory =
        mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (memory == MAP_FAILED) GTEST_SKIP() << "no address space";
    auto *x = static_cast<Real *>(memory);
    for (std::size_t i = 0; i < 3; ++i) x[i * stride] = static_cast<Real>(i + 1);
    const Vector<Real> y = {5, 7, 9};
    const auto b = take(call(3, 1, x, y.data(), TAVIK_X_COL_DIM, int(stride)), 2);
    munmap(memory, bytes);
    expect_near("coefficients", b, Vector<Real>{3, 2}, 4 * this->epsilon);
}

// Each list has its own fault and all those behind it; the first one is told, and no other.
TYPED_TEST(Regression, ChecksItsArgumentsInOrder)
{
    using Real = TypeParam;
    const struct {
        int n, p, q, ido, ifrq, iwt;
        const char *outcome, *kinds;
    } cases[] = {
        // clang-format off
        {-1, 0, -1, 4, -2, -2, "5 603 0 1 n_independent", "iil"}, {-1, 2, -1, 4, -2, -2, "5 603 -1 0 n_dependent", "iil"},
        {-1, 2, 1, 4, -2, -2, "5 602 4 0 3 ido", "iiil"},         {-1, 2, 1, -1, -2, -2, "5 602 -1 0 3 ido", "iiil"},
        {-1, 2, 1, 0, -2, -2, "5 603 -2 -1 ifrq", "iil"},         {-1, 2, 1, 0, 9, -2, "5 603 -2 -1 iwt", "iil"},
        {-1, 2, 1, 0, 9, 9, "5 20463 -1", "i"},                   {0, 2, 1, 0, 9, 9, "5 20463 0", "i"},
        {-1, 2, 1, 1, 9, 9, "5 20464 -1", "i"},                   {0, 2, 1, 1, 9, 9, "5 20690", ""},
        {3, 2, 1, 3, 9, 9, "5 20690", ""},                        {3, 2, 1, 0, 9, 9, "5 20467 9 5", "ii"},
        {3, 2, 1, 0, 5, 9, "5 20467 5 5", "ii"},                  {3, 2, 1, 0, 4, 9, "5 20468 9 5", "ii"},
        {3, 2, 1, 0, -1, 4, "5 20468 4 4", "ii"},                 {3, 2, 1, 0, 4, 3, "5 11038", ""},
        // clang-format on
    };
    const Vector<Real> x(15, 1);
    const int columns[] = {0, 1, 2};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.outcome);
        Real *table;
        const auto refused = [&] {
            Real *b =
                call(c.n, c.p, x.data(), x.data(), TAVIK_COV_COL_DIM, 3, TAVIK_ANOVA_TABLE, &table, TAVIK_IDO,
                     c.ido, TAVIK_X_INDICES, columns, columns + 2, c.ifrq, c.iwt, TAVIK_N_DEPENDENT, c.q);
            EXPECT_EQ(b, nullptr);
            EXPECT_EQ(capture::printed.size(), 1U);
        };
        EXPECT_EQ(capture::outcome(refused, c.kinds), c.outcome);
        EXPECT_EQ(table, nullptr);
    }
}

TYPED_TEST(Regression, RefusesBadArguments)
{
    using Real = TypeParam;
    const Vector<Real> data = {1, 2, 3, 4, 6, 7, 8, 11, 15, 16, 17, 18}, ones(4, 1),
                       infinite = {1, Real(inf), 1, 1}, negative = {1, Real(nan_value), -2, -3};
    const Real *x = data.data(), *null = nullptr, *f = ones.data(), *minus = negative.data(),
               *over = infinite.data();
    Real *out, user[9];
    const Real mixed[] = {1, 2, 1, 4, 3, -5};
    const int i01[] = {0, 1}, i2[] = {2}, i04[] = {0, 4}, below[] = {-1};
    const struct {
        const char *outcome, *kinds;
        std::function<Real *()> run;
    } cases[] = {
        // clang-format off
        {"5 150 x", "l", [&] { return call(4, 1, null, x); }},
        {"5 150 y", "l", [&] { return call(4, 1, x, null); }},
        {"5 150 x", "l", [&] { return call(4, 1, null, x, TAVIK_IDO, 1); }},
        {"5 603 0 1", "ii", [&] { return call(4, 1, x, x, TAVIK_X_COL_DIM, 0); }},
        {"5 601 2 1", "ii", [&] { return call(4, 2, x, x, TAVIK_X_COL_DIM, 1); }},
        {"5 603 0 1", "ii", [&] { return call(4, 2, x, x, TAVIK_COV_COL_DIM, 0, TAVIK_COEF_COVARIANCES, &out); }},
        {"5 601 3 2", "ii", [&] { return call(4, 2, x, x, TAVIK_COV_COL_DIM, 2, TAVIK_COEF_COVARIANCES_USER, user); }},
        {"5 602 4 0 2", "iii", [&] { return call(4, 2, x, x, TAVIK_X_INDICES, i04, i2, -1, -1); }},
        {"5 602 4 0 3", "iii", [&] { return call(3, 2, x, x, TAVIK_X_INDICES, i04, i2, -1, 3); }},
        {"5 602 -1 0 2", "iii", [&] { return call(4, 2, x, x, TAVIK_X_INDICES, i01, below, -1, -1); }},
        {"5 20467 3 3", "ii", [&] { return call(4, 2, x, x, TAVIK_X_COL_DIM, 3, TAVIK_X_INDICES, i01, i2, 3, -1); }},
        {"5 20468 7 3", "ii", [&] { return call(4, 2, x, x, TAVIK_X_COL_DIM, 3, TAVIK_X_INDICES, i01, i2, -1, 7); }},
        {"5 11117", "", [&] { return call(3, 2, x, x, TAVIK_X_INDICES, i01, i2, 3, -1, TAVIK_FREQUENCIES, f); }},
        {"5 11117", "", [&] { return call(3, 2, x, x, TAVIK_WEIGHTS, f, TAVIK_X_INDICES, i01, i2, -1, 3); }},
        {"5 20690", "", [&] { return call(4, 2, x, x, TAVIK_IDO, 1, TAVIK_ANOVA_TABLE_USER, user); }},
        {"5 20690", "", [&] { return call(4, 2, x, x, TAVIK_RESIDUALS_USER, user, TAVIK_IDO, 2); }},
        {"5 20690", "", [&] { return call(4, 2, x, x, TAVIK_LEVERAGES_USER, user, TAVIK_IDO, 3); }},
        // Masses that are no columns of x count as columns behind variables and responses; columns and rows from 1.
        {"4 11055 4 -2 3", "iri", [&] { return call(4, 2, x, x, TAVIK_FREQUENCIES, minus); }},
        {"4 11055 5 -2 3", "iri", [&] { return call(4, 2, x, x, TAVIK_FREQUENCIES, f, TAVIK_WEIGHTS, minus); }},
        {"4 11054 4 inf 2", "iri", [&] { return call(4, 2, x, x, TAVIK_WEIGHTS, over, TAVIK_IDO, 1); }},
        {"4 11055 3 -5 2", "iri", [&] { return call(2, 1, mixed, x, TAVIK_X_INDICES, i01, i01 + 1, 2, -1); }},
        // clang-format on
    };
    for (std::size_t i = 0; const auto &c : cases) {
        SCOPED_TRACE(i++);
        EXPECT_EQ(capture::outcome([&] { EXPECT_EQ(c.run(), nullptr); }, c.kinds), c.outcome);
    }
}

} // namespace
