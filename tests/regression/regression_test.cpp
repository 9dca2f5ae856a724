// Regression against certified data, against normal equations solved in long double, and against its own
// promises: options, masses, missing rows, stages, deletion, threads and errors.
#include "frame/capture.hpp"
#include "nist_linear.hpp"
#include "probability/tail_probabilities.hpp"

#include <cmath>
#include <limits>
#include <numeric>
#include <omp.h>
#include <random>
#include <sys/mman.h>

namespace {

using L = long double;
template <class T> using Vector = std::vector<T>;

constexpr float inf = std::numeric_limits<float>::infinity(), nan = std::numeric_limits<float>::quiet_NaN();
constexpr bool last_stage = true;                     // of a fit
constexpr int frequencies = 1, weights = 2, both = 3; // masses

template <class Real, class... Options>
Real *call(int n, int p, const Real *x, const Real *y, Options... options)
{
    if constexpr (sizeof(Real) == 4) return tavik_f_regression(n, p, x, y, options..., 0);
    else return tavik_d_regression(n, p, x, y, options..., 0);
}

template <class Real> Vector<L> take(Real *result, size_t size)
{
    const auto taken = capture::take(result, size);
    return {taken.begin(), taken.end()};
}

// The rows of a fit. Empty masses stand for none.
template <class Real> struct Data {
    size_t n, p, q;
    bool intercept;
    Vector<Real> x, y, f = {}, w = {};

    Data rows(size_t first, size_t last) const
    {
        const auto part = [&](const Vector<Real> &all, size_t width) {
            return all.empty() ? all : Vector<Real>(&all[0] + first * width, &all[0] + last * width);
        };
        return {last - first, p, q, intercept, part(x, p), part(y, q), part(f, 1), part(w, 1)};
    }
};

// The coefficients. The pointer that a fit keeps stands in for masses that there are not.
template <class Real, class... Options> Vector<L> run(const Data<Real> &d, Options... options)
{
    return take(call(int(d.n), int(d.p), d.x.data(), d.y.data(), TAVIK_N_DEPENDENT, int(d.q),
                     d.intercept ? TAVIK_INTERCEPT : TAVIK_NO_INTERCEPT, options...,
                     d.f.empty() ? TAVIK_FIT_POINTER : TAVIK_FREQUENCIES, d.f.data(),
                     d.w.empty() ? TAVIK_FIT_POINTER : TAVIK_WEIGHTS, d.w.data()),
                (d.p + 1) * std::max<size_t>(1, d.q));
}

// Type and code of the error that a run leaves.
template <class Real, class... Options> std::string error_of(const Data<Real> &d, Options... options)
{
    return capture::outcome([&] { run(d, options...); });
}

// Everything that a fit gives. R is unique up to the signs of its rows, so it is held as R'R.
struct Fit {
    int rank = -1, missing = -1;
    Vector<L> b, statistics, covariances, means, gram, crossproducts, anova, residuals, leverages;
    L inflation = 1; // greatest ratio of a column's square to what those before leave of it
};

template <bool staged = false, class Real, class... Options> Fit fit(const Data<Real> &d, Options... options)
{
    Fit s;
    const size_t c = d.p + d.intercept, q = d.q;
    const auto unless_staged = [](int code) { return staged ? TAVIK_FIT_POINTER : code; };
    Real *statistics, *covariances, *means, *r, *crossproducts, *anova = nullptr, *residuals = nullptr;
    Vector<Real> leverages(staged ? 0 : d.n);
    s.b = run(d, TAVIK_RANK, &s.rank, TAVIK_N_ROWS_MISSING, &s.missing, TAVIK_COEF_STATISTICS, &statistics,
              TAVIK_COEF_COVARIANCES, &covariances, TAVIK_VARIABLE_MEANS, &means, TAVIK_R_FACTOR, &r,
              TAVIK_ERROR_CROSSPRODUCTS, &crossproducts, unless_staged(TAVIK_ANOVA_TABLE), &anova,
              unless_staged(TAVIK_RESIDUALS), &residuals, unless_staged(TAVIK_LEVERAGES_USER),
              leverages.data(), TAVIK_IDO, staged ? 3 : 0, options...);
    s.statistics = take(statistics, 4 * c * q);
    s.covariances = take(covariances, c * c * q);
    s.means = take(means, d.p + q);
    s.crossproducts = take(crossproducts, q * q);
    s.anova = take(anova, 15 * q);
    s.residuals = take(residuals, d.n * q);
    s.leverages.assign(leverages.begin(), leverages.end());
    const auto factor = take(r, c * c);
    for (size_t i = 0; i < factor.size(); ++i) {
        EXPECT_TRUE(i % c >= i / c || factor[i] == 0) << "R is upper triangular";
        L sum = 0;
        for (size_t k = 0; k < c; ++k) sum += factor[k * c + i / c] * factor[k * c + i % c];
        s.gram.push_back(sum);
    }
    return s;
}

// The normal equations, solved in long double by sweeping the coefficients out of all sums of squares and
// products, except those that the ones before leave nothing of.
template <class Real> Fit reference(const Data<Real> &d)
{
    using namespace tavik::probability;
    Fit s;
    s.rank = s.missing = 0;
    const size_t first = d.intercept ? 0 : 1, c = d.p + 1, m = c + d.q; // columns: the constant, x, y
    Vector<L> row(m, 1), whole(m * m);
    L f = 1, w = 1, used = 0, dfe = 0;
    const auto read = [&](size_t i) { // 1, but NaN when something is missing
        if (!d.f.empty()) f = d.f[i];
        if (!d.w.empty()) w = d.w[i];
        std::copy_n(d.x.data() + i * d.p, d.p, row.data() + 1);
        std::copy_n(d.y.data() + i * d.q, d.q, row.data() + c);
        return std::isnan(std::accumulate(row.begin(), row.end(), f + w)) ? nan : 1;
    };
    for (size_t i = 0; i < d.n; ++i) {
        const bool missing = std::isnan(read(i));
        s.missing += missing && f * w != 0; // a row that is left out anyway is not counted
        if (missing || f * w <= 0) continue;
        ++used, dfe += f;
        for (size_t j = 0; j < m; ++j) {
            const L scaled = f * w * row[j];
            for (size_t k = 0; k < m; ++k) whole[j * m + k] += scaled * row[k];
        }
    }
    auto a = whole;
    for (size_t k = first; k < c; ++k) {
        L &pivot = a[k * m + k], square = whole[k * m + k];
        const L inverse = pivot > 1e-12L * square ? 1 / pivot : 0;
        s.rank += inverse != 0;
        s.inflation = std::max(s.inflation, square * inverse);
        pivot = 1;
        for (size_t j = 0; j < m; ++j) a[k * m + j] *= inverse;
        for (size_t i = 0; i < m; ++i) {
            const L factor = i == k ? 0 : std::exchange(a[i * m + k], 0);
            for (size_t j = 0; factor != 0 && j < m; ++j) a[i * m + j] -= factor * a[k * m + j];
        }
        for (size_t j = first; j < c; ++j) s.gram.push_back(whole[k * m + j]);
    }
    for (size_t k = 1; k < m; ++k) s.means.push_back(whole[k] / whole[0]);
    dfe -= s.rank;
    s.b.resize(c * std::max<size_t>(1, d.q));
    for (size_t k = c; k < m; ++k) {
        const bool exact = used == s.rank || a[k * m + k] < 1e-14L * whole[k * m + k]; // but for rounding
        for (size_t l = c; l < m; ++l) s.crossproducts.push_back(exact ? 0 : a[k * m + l]);
        const L dfr = s.rank - d.intercept, sse = exact ? 0 : a[k * m + k], mean = s.means[k - 1],
                sst = dfr == 0 ? sse : whole[k * m + k] - (d.intercept ? mean * whole[k] : 0),
                ssr = sst - sse, mse = sse / dfe, ratio = mse / sst * (dfr + dfe), f = ssr / dfr / mse,
                p = f == inf ? 1 : f_upper_tail(double(f), double(dfr), double(dfe));
        s.anova.insert(s.anova.end(), {dfr, dfe, dfr + dfe, ssr, sse, sst, ssr / dfr, mse, f, p,
                                       100 * ssr / sst, ratio > 1 ? 0 : 100 * (1 - ratio), std::sqrt(mse),
                                       mean, 100 * std::sqrt(mse) / mean});
        for (size_t i = first; i < c; ++i) {
            const L b = a[i * m + k], error = a[i * m + i] == 0 ? 0 : std::sqrt(mse * a[i * m + i]),
                    t = b / error;
            s.b[(k - c) * c + i - first] = b;
            s.statistics.insert(s.statistics.end(),
                                {b, error, t, student_t_two_sided(double(t), double(dfe))});
            for (size_t j = first; j < c; ++j)
                s.covariances.push_back(error == 0 || a[j * m + j] == 0 ? 0 : mse * a[i * m + j]);
        }
    }
    for (size_t i = 0; i < d.n; ++i) {
        const L one = read(i);
        L leverage = 0;
        for (size_t k = first; k < m; ++k) {
            L product = 0;
            for (size_t j = first; j < c; ++j) product += row[j] * a[j * m + k];
            if (k < c) leverage += product * row[k];
            else s.residuals.push_back(one * (row[k] - product));
        }
        s.leverages.push_back(one * w * leverage);
    }
    return s;
}

// Both NaN, or equal, or within `tolerance` of a scale: the greatest value, but at least what is given. Where
// several scales are given, they are those of elements that recur.
void expect_near(const char *name, const Vector<L> &seen, const Vector<L> &due, double tolerance,
                 Vector<L> scales = {0})
{
    ASSERT_EQ(seen.size(), due.size()) << name;
    const auto scale = [&](size_t i) -> L & { return scales[i % scales.size()]; };
    for (size_t i = 0; i < due.size(); ++i)
        if (std::isfinite(due[i])) scale(i) = std::max(scale(i), std::fabs(due[i]));
    for (size_t i = 0; i < due.size(); ++i) {
        const bool near = seen[i] == due[i] || std::fabs(seen[i] - due[i]) <= tolerance * scale(i);
        ASSERT_TRUE(near || (std::isnan(due[i]) && std::isnan(seen[i])))
            << name << "[" << i << "] is " << seen[i] << ", due " << due[i] << ", scale " << scale(i);
    }
}

void expect_same(const Fit &seen, const Fit &due, double tolerance)
{
    EXPECT_EQ(std::pair(seen.rank, seen.missing), std::pair(due.rank, due.missing));
    expect_near("coefficients", seen.b, due.b, tolerance, {1});
    expect_near("statistics", seen.statistics, due.statistics, tolerance, {1, 0, 1, 1});
    expect_near("covariances", seen.covariances, due.covariances, tolerance);
    expect_near("means", seen.means, due.means, tolerance, {1});
    expect_near("R'R", seen.gram, due.gram, tolerance);
    expect_near("crossproducts", seen.crossproducts, due.crossproducts, tolerance, {1});
    if (seen.leverages.empty()) return; // in the last stage
    expect_near("residuals", seen.residuals, due.residuals, tolerance, {1});
    expect_near("leverages", seen.leverages, due.leverages, tolerance);
    Vector<L> scales(15, 100); // that of all sums of squares is the total
    for (size_t i = 5; i < due.anova.size(); i += 15)
        std::fill_n(&scales[3], 5, std::max(scales[3], due.anova[i]));
    expect_near("table", seen.anova, due.anova, tolerance, scales);
}

// Well-conditioned variables, some of them off zero, and responses about lines. From the fourth row on some
// values are missing and some masses are 0.
template <class Real>
Data<Real> random_data(size_t n, size_t p, size_t q, bool intercept, int masses = 0, bool missing = false,
                       bool discrete = false)
{
    std::mt19937_64 engine(n * 1000 + p * 10 + q);
    std::normal_distribution<double> normal;
    Data<Real> d{n, p, q, intercept, {}, {}};
    for (size_t i = 0; i < n; ++i) {
        double line = 3;
        for (size_t j = 0; j < p; ++j) {
            d.x.push_back(Real(2.0 * (j % 3) + (1.0 + j % 4) * normal(engine)));
            if (discrete) d.x.back() = std::trunc(d.x.back()); // many are 0, and equal to the first row's
            line += (j % 2 == 0 ? 1.0 : -1.0) / (j + 1) * d.x.back();
        }
        for (size_t k = 0; k < q; ++k) d.y.push_back(Real((k + 1) * line + normal(engine)));
        if (masses & frequencies) d.f.push_back(Real(1 + engine() % 3));
        if (masses & weights) d.w.push_back(Real(0.25 + 0.001 * (engine() % 1000)));
        const size_t k = engine() % 4;
        Vector<Real> &part = k == 0 ? d.x : k == 1 ? d.y : k == 2 ? d.f : d.w;
        if (!missing || i < 3 || engine() % 8 > 0 || part.empty()) continue;
        part.rbegin()[long(engine() % (part.size() / (i + 1)))] = k > 1 && engine() % 2 > 0 ? 0 : nan;
    }
    return d;
}

template <class Real> struct Regression : capture::FrameTest {
    static constexpr double epsilon = std::numeric_limits<Real>::epsilon();
};
TYPED_TEST_SUITE(Regression, capture::Reals);

// Digits of all values, set by set. What is missing from 15 is mostly lost before the fit, where decimal data
// become doubles; "check_nist_linear.py --rounded" tells how much.
constexpr double floors[] = {13, 12.8, 14.2, 14.2, 7.5, 9.9, 13, 13, 12.7, 12.4, 11.2, 9.2};

TEST(CertifiedData, Regression)
{
    for (size_t k = 0; k < std::size(floors); ++k) {
        const nist::LinearSet &set = nist::linear_sets[k];
        const auto x = set.x(), y = set.y();
        const Data<double> d{y.size(), x.size() / y.size(), 1, set.intercept, x, y};
        run(d.rows(0, 2), TAVIK_IDO, 1);
        run(d.rows(2, d.n), TAVIK_IDO, 2);
        for (const Fit &s : {fit<last_stage>(d.rows(0, 0)), fit(d)}) {
            Vector<L> values;
            for (size_t i = 0; i < s.statistics.size(); ++i)
                if (i % 4 < 2) values.push_back(s.statistics[i]);
            if (!s.anova.empty()) values.insert(values.end(), {s.anova[12], s.anova[10] / 100, s.anova[8]});
            for (size_t i = 0; i < values.size(); ++i)
                expect_near(set.name, {values[i]}, {set.certified[i]}, std::pow(10, -floors[k]));
        }
    }
}

// Up to four rows of a few values in every combination, with exact fits and constants among them; then all
// shapes, in one call, in stages that the rows are cut into anywhere, and by any number of threads.
TYPED_TEST(Regression, AgreesWithNormalEquations)
{
    constexpr TypeParam xs[] = {1, 2, 4}, ys[] = {-1, 0, 2};
    for (size_t n = 1, cases = 9; n <= 4; ++n, cases *= 9)
        for (size_t k = 0; k < 2 * cases; ++k) {
            Data<TypeParam> d{n, 1, 1, k % 2 == 0, {}, {}};
            for (size_t i = 0, digits = k / 2; i < n; ++i, digits /= 9) {
                d.x.push_back(xs[digits % 3]);
                d.y.push_back(ys[digits / 3 % 3]);
            }
            SCOPED_TRACE(testing::PrintToString(d.x) + testing::PrintToString(d.y));
            expect_same(fit(d), reference(d), 8 * this->epsilon);
        }
    size_t mix = 0;
    for (size_t n : {1, 2, 3, 5, 37, 64, 65, 1000, 5000, 40000})
        for (size_t p : {1, 2, 7, 10, 15, 16, 17, 22, 31, 46, 100})
            for (int repeats = n < 1000 ? 8 : 1; repeats > 0; --repeats, ++mix) {
                if (n > 5000 && p != 2 && p != 16 && p != 100) continue; // the reference takes its time
                if (n < p && p > 31) continue; // and finds rounding to be of full rank
                SCOPED_TRACE(testing::Message() << n << " x " << p << ", mix " << mix);
                const bool intercept = mix % 3 != 0, missing = mix % 7 > 2, discrete = mix / 4 % 2 == 1;
                const auto d = random_data<TypeParam>(n, p, mix % 5, intercept, mix % 4, missing, discrete);
                const auto due = reference(d), s = fit(d);
                const double tolerance = 8 * this->epsilon + 4e-15 * double(due.inflation);
                EXPECT_EQ(tavik_error_code(), due.rank < int(p + intercept) ? 11047 : 0);
                expect_same(s, due, tolerance);
                const size_t first = mix % (n + 1), second = std::min(n, first + mix % 9);
                run(d.rows(0, first), TAVIK_IDO, 1);
                run(d.rows(first, second), TAVIK_IDO, 2);
                expect_same(fit<last_stage>(d.rows(second, n)), due, tolerance);
                for (int threads : {1, 3, omp_get_num_procs()}) {
                    omp_set_num_threads(threads);
                    if (n >= 5000) expect_same(fit(d), s, 0);
                }
                if (testing::Test::HasFailure()) return;
            }
}

// What equal columns leave of each other is rounding, and the rounding of that, down to the smallest numbers.
TYPED_TEST(Regression, ZeroesDependentColumns)
{
    using Real = TypeParam;
    void (*const cases[])(Real * x) = {[](Real *x) { std::fill_n(x, 20, x[0]); },
                                       [](Real *x) { std::fill_n(x, 20, Real(0.1)); },
                                       [](Real *x) { x[2] = x[0]; },
                                       [](Real *x) { x[0] = 0; },
                                       [](Real *x) { x[3] = x[0] + 3 * x[1] - x[2]; },
                                       [](Real *x) { x[1] = 1000, x[3] = 1000 - 2 * x[2]; }};
    for (size_t n : {100, 9000})
        for (size_t k = 0; k < 2 * std::size(cases); ++k) {
            SCOPED_TRACE(testing::Message() << n << " rows, case " << k);
            auto d = random_data<Real>(n, 20, 2, k % 2 == 0, both, true);
            for (size_t i = 0; i < n; ++i) cases[k / 2](&d.x[20 * i]);
            const auto due = reference(d), s = fit(d);
            EXPECT_EQ(tavik_error_code(), 11047);
            expect_same(s, due, 1e3 * this->epsilon);
            for (size_t i = 0; i < due.b.size(); ++i) EXPECT_TRUE(due.b[i] != 0 || s.b[i] == 0) << i;
        }
}

// (1, 0) leaves t^2 of the 1 + t^2 of (1, t); the constant leaves 1 of the 1000^2 + 1 of 1000 +- 1.
TYPED_TEST(Regression, ToleranceDividesDependentFromIndependent)
{
    using Real = TypeParam;
    const auto expect_rank = [](int due, const Data<Real> &d, auto... options) {
        int rank = -1;
        run(d, TAVIK_RANK, &rank, options...);
        EXPECT_EQ(rank, due);
    };
    const auto of = [](double t) { return Data<Real>{2, 2, 1, false, {1, 1, 0, Real(t)}, {1, 2}}; };
    const Data<Real> off{4, 1, 1, true, {999, 1001, 999, 1001}, {1, 2, 4, 3}};
    for (const bool above : {false, true}) {
        const double factor = above ? 1.001 : 0.999;
        const Real limit = Real(factor * std::sqrt(0.5));
        for (double either : {limit, -limit}) expect_rank(2 - above, of(1), TAVIK_TOLERANCE, either);
        expect_rank(2 - above, of(1), TAVIK_TOLERANCE_ADR, &limit);
        expect_rank(2 - above, off, TAVIK_TOLERANCE, factor * 1e-3);
        expect_rank(1 + above, of(factor * 100 * this->epsilon)); // by default
        for (double none : {0.f, nan}) expect_rank(1 + above, of(above ? 1e-15 : 0), TAVIK_TOLERANCE, none);
    }
    expect_rank(1, off, TAVIK_TOLERANCE, 1.0); // the intercept has no column before it
    EXPECT_EQ(run(off, TAVIK_TOLERANCE, 1.0), (Vector<L>{2.5, 0}));
}

TYPED_TEST(Regression, WithFewOrNoRowsInTheFit)
{
    using Real = TypeParam;
    const Data<Real> few{2, 1, 1, true, {1, 2}, {1, 3}, {0.25, 0.25}},
        no_mass{2, 1, 1, true, {1, 2}, {1, 3}, {0, 0}}, bad_mass{2, 1, 1, true, {1, 2}, {1, 3}, {}, {0, nan}},
        missing{2, 1, 1, true, {nan, 2}, {1, nan}};
    Real *out;
    EXPECT_EQ(capture::outcome([&] { run(few, TAVIK_ANOVA_TABLE, &out); }, "lr"), "5 11061 DFE -1.5");
    EXPECT_EQ(capture::outcome([&] { run(no_mass, TAVIK_ANOVA_TABLE, &out); }, "lr"), "5 11061 DFR -1");
    run(few, TAVIK_COEF_STATISTICS, &out);
    expect_near("statistics without a variance", take(out, 4), {-1, nan, nan, nan}, this->epsilon);
    for (const auto &empty : {no_mass, missing, bad_mass}) {
        run(empty, TAVIK_IDO, 1);
        Fit s;
        EXPECT_EQ(capture::outcome([&] { s = fit<last_stage>(empty.rows(0, 0)); }, "i"), "3 11047 0");
        EXPECT_THAT(s.b, testing::Each(0));
        EXPECT_THAT(s.means, testing::Each(testing::IsNan()));
    }
}

TYPED_TEST(Regression, MissingAndInfiniteValues)
{
    using Real = TypeParam;
    const Data<Real> plain{5, 1, 1, true, {1, 2, 3, 4, 5}, {1, 3, 2, 5, 4}, {1, 1, 1, 1, 1}, {1, 1, 1, 1, 1}};
    for (auto member : {&Data<Real>::x, &Data<Real>::y, &Data<Real>::f, &Data<Real>::w})
        for (size_t at : {0, 2, 4}) {
            auto d = plain;
            Real &value = (d.*member)[at];
            for (const Real bad : {inf, -inf, nan}) {
                if (std::isinf(bad) && member != &Data<Real>::x && member != &Data<Real>::y) continue;
                value = bad;
                const auto s = fit(d, std::isnan(bad) ? TAVIK_KEEP_MISSING : TAVIK_EXCLUDE_MISSING);
                EXPECT_EQ(s.missing, 0);
                for (auto &r : {s.b, s.statistics, s.crossproducts, {s.anova[4], s.anova[8], s.anova[9]}})
                    EXPECT_THAT(r, testing::Each(testing::IsNan()));
            }
            expect_same(fit(d, TAVIK_KEEP_MISSING, TAVIK_EXCLUDE_MISSING), reference(d), 8 * this->epsilon);
            d.f[at] = 0; // the row is left out anyway
            expect_same(fit(d), reference(d), 8 * this->epsilon);
            d = plain;
            (member == &Data<Real>::x ? d.x : d.y)[at] =
                sizeof(Real) == 4 ? 1e38 : 1e200; // its square overflows
            expect_near("coefficients", run(d), reference(d).b, 8 * this->epsilon);
        }
    // A NaN in one response leaves the coefficients of the other alone, however many factors are merged and whichever has
    // it.
    for (size_t n : {50, 5000, 40000})
        for (size_t at = 0; at < 8; ++at) {
            auto d = random_data<Real>(n, 30, 2, true);
            const auto due = run(d);
            const size_t lost = at % 2, other = 1 - lost;
            d.y[2 * (at / 2 * n / 4 + 1) + lost] = nan;
            const auto s = fit(d, TAVIK_KEEP_MISSING);
            const auto of = [](const Vector<L> &b, size_t response) {
                return Vector<L>(&b[31 * response], &b[31 * response] + 31);
            };
            SCOPED_TRACE(testing::Message() << n << " rows, " << at);
            EXPECT_THAT(of(s.b, lost), testing::Each(testing::IsNan()));
            expect_near("other response", of(s.b, other), of(due, other), 16 * this->epsilon);
            EXPECT_THAT(s.crossproducts, testing::Each(testing::IsNan()));
        }
}

// Whatever overflows in whichever factor: rows are not left out without a sign.
TEST(RegressionRange, MassesThatOverflowAreSeen)
{
    for (size_t n : {5000, 40000})
        for (size_t part = 0; part < 4; ++part) {
            auto d = random_data<double>(n, 3, 1, true, weights);
            const auto of_masses = [&](double mass) {
                std::fill_n(&d.w[part * n / 4 + n / 8], 100, mass);
                return run(d);
            };
            const auto due = of_masses(1e200), seen = of_masses(1e308);
            for (size_t k = 0; k < due.size(); ++k)
                EXPECT_TRUE(std::isnan(seen[k]) || std::fabs(seen[k] - due[k]) < 1e-9)
                    << n << ' ' << part << ' ' << k;
        }
}

// Slopes and errors do not depend on where zero is, and lose no digits when it is far away.
TYPED_TEST(Regression, DataFarFromZero)
{
    auto d = random_data<TypeParam>(64, 2, 1, true, 0, false, true);
    for (auto &v : d.y) v = std::round(v);
    auto due = fit(d);
    for (auto *values : {&d.x, &d.y})
        for (auto &v : *values) v += sizeof v == 4 ? 0x1p16 : 0x1p40;
    auto s = fit(d, TAVIK_TOLERANCE, 1e-14);
    for (auto *values : {&s.statistics, &due.statistics}) values->erase(values->begin(), values->begin() + 4);
    expect_near("slopes", s.statistics, due.statistics, 8 * this->epsilon, {0, 0, 0, 1});
    expect_near("residuals", s.residuals, due.residuals, 8 * this->epsilon);
    expect_near("crossproducts", s.crossproducts, due.crossproducts, 8 * this->epsilon);
}

TYPED_TEST(Regression, StagesFollowEachOther)
{
    const auto d = random_data<TypeParam>(6, 2, 1, true), wider = random_data<TypeParam>(6, 3, 1, false);
    const std::string refused = "4 20691";
    for (int ido : {0, 1, 3}) EXPECT_EQ(error_of(d, TAVIK_IDO, ido), "0 0");
    for (int ido : {2, 3}) EXPECT_EQ(error_of(d, TAVIK_IDO, ido), refused);
    // Stage 1 starts anew; stage 0 leaves a series alone, and so does another thread.
    for (int ido : {1, 2, 1, 0}) EXPECT_EQ(error_of(d, TAVIK_IDO, ido), "0 0");
    capture::in_thread([&] {
        capture::restore_defaults(false);
        EXPECT_EQ(error_of(d, TAVIK_IDO, 2), refused);
        EXPECT_EQ(error_of(d, TAVIK_IDO, 1), "0 0");
    });
    expect_same(fit<last_stage>(d.rows(0, 0)), fit(d), 8 * this->epsilon);
    const auto closed_by = [&](const auto &rows, auto... options) {
        run(d, TAVIK_IDO, 1);
        const std::string seen = error_of(rows, options...);
        EXPECT_EQ(error_of(d, TAVIK_IDO, 2), refused);
        return seen;
    };
    const Vector<TypeParam> bad(6, -1);
    EXPECT_EQ(closed_by(wider, TAVIK_IDO, 3), "4 11428");
    EXPECT_EQ(closed_by(d, TAVIK_IDO, 2, TAVIK_FREQUENCIES, bad.data()), "4 11054");
    EXPECT_EQ(closed_by(d, TAVIK_IDO, 2, TAVIK_X_COL_DIM, 1), "5 601");
    EXPECT_EQ(closed_by(d, 4711), "5 11001");
    run(d, TAVIK_IDO, 1);
    tavik_free_allocated_memory(); // and error settings
    capture::restore_defaults(false);
    EXPECT_EQ(error_of(d, TAVIK_IDO, 2), refused);
}

// The first row, on which the others rest, may be far off. Small integers make windows collinear, constant or
// fitted exactly, and outlying responses cost digits: no deletion of what was added is refused for it.
TYPED_TEST(Regression, AWindowSlidesByDeletion)
{
    std::mt19937 engine(20261121);
    for (int series = 0; series < 200; ++series) {
        const bool off = series % 4 == 1, whole = series % 4 >= 2, outliers = series % 4 == 3;
        const size_t p = 1 + engine() % 4, width = 2 * p + 3 + engine() % 8, steps = 1 + engine() % 150,
                     drop = whole ? width - 1 - engine() % (p + 2) : 0;
        SCOPED_TRACE(testing::Message() << "series " << series << ", " << steps << " steps");
        auto d = random_data<TypeParam>(width + steps, p, 2, series / 4 % 2 == 0, whole ? 0 : both, !whole);
        for (auto &v : d.x) v = whole ? engine() % 3 : v + (off ? 1024 : 0);
        for (auto &v : d.y) v = whole ? engine() % 3 * (outliers && engine() % 20 == 0 ? 1e6 : 1) : v;
        run(d.rows(0, width), TAVIK_IDO, 1);
        for (size_t i = 0; i < steps + drop; ++i) {
            if (i < steps) run(d.rows(width + i, width + i + 1), TAVIK_IDO, 2);
            ASSERT_EQ(error_of(d.rows(i, i + 1), TAVIK_IDO, 2, TAVIK_ROWS_DELETE), "0 0") << "step " << i;
        }
        const auto window = d.rows(steps + drop, steps + width);
        const auto s = fit<last_stage>(d.rows(0, 0)), due = whole ? fit(window) : reference(window);
        EXPECT_EQ(s.rank, due.rank);
        if (!whole) expect_same(s, due, 16 * this->epsilon + 1e-14 * double(due.inflation));
        if (whole && !outliers) expect_near("coefficients", s.b, due.b, 1e-12 + 64 * this->epsilon, {1});
    }
}

TYPED_TEST(Regression, DeletesWhatWasAddedAndNothingElse)
{
    auto d = random_data<TypeParam>(9, 2, 1, true, both), threefold = d, part = d.rows(0, 4), missing = part;
    // A part of the frequencies; rows that were missing. Of ADD and DELETE the last holds.
    threefold.f.assign(9, 3);
    part.f.assign(4, 1);
    d.f = {2, 2, 2, 2, 3, 3, 3, 3, 3};
    missing.x[1] = missing.y[2] = nan;
    run(threefold, TAVIK_IDO, 1, TAVIK_ROWS_DELETE, TAVIK_ROWS_ADD);
    run(missing, TAVIK_IDO, 2);
    run(missing, TAVIK_IDO, 2, TAVIK_ROWS_DELETE);
    expect_same(fit<last_stage>(part, TAVIK_ROWS_DELETE), reference(d), 100 * this->epsilon);
    run(d, TAVIK_IDO, 1);
    EXPECT_EQ(run(d, TAVIK_IDO, 3, TAVIK_ROWS_DELETE), Vector<L>(3));
    EXPECT_EQ(tavik_error_code(), 11047);
    // Rows without a series, before it, more than there are, one of others, heavier ones.
    const auto refused = [&](size_t before, const Data<TypeParam> &rows, int ido) {
        if (before > 0) run(d.rows(0, before), TAVIK_IDO, 1);
        EXPECT_EQ(error_of(rows, TAVIK_ROWS_DELETE, TAVIK_IDO, ido), "4 11048");
        EXPECT_EQ(error_of(d, TAVIK_IDO, 2), "4 20691");
    };
    refused(0, d, 0);
    refused(0, d, 1);
    refused(5, d, 2);
    refused(9, {1, 2, 1, true, {1000, -1000}, {0}}, 2);
    refused(9, threefold, 3);
}

// Of two forms of an output the last one holds; nothing is written on an error, nor behind an array.
TYPED_TEST(Regression, WritesWhereTheCallerSays)
{
    using Real = TypeParam;
    const auto d = random_data<Real>(8, 2, 2, true);
    const Fit s = fit(d);
    const Vector<Real> bad(8, -1), ones(8, 1);
    Real *plain;
    run(d, TAVIK_R_FACTOR, &plain);
    const std::tuple<int, int, Vector<L>> outputs[] = {
        {TAVIK_ANOVA_TABLE, TAVIK_ANOVA_TABLE_USER, s.anova},
        {TAVIK_COEF_COVARIANCES, TAVIK_COEF_COVARIANCES_USER, s.covariances},
        {TAVIK_RESIDUALS, TAVIK_RESIDUALS_USER, s.residuals},
        {TAVIK_VARIABLE_MEANS, TAVIK_VARIABLE_MEANS_USER, s.means},
        {TAVIK_R_FACTOR, TAVIK_R_FACTOR_USER, take(plain, 9)},
        {TAVIK_ERROR_CROSSPRODUCTS, TAVIK_ERROR_CROSSPRODUCTS_USER, s.crossproducts}};
    for (const auto &[form, user_form, due] : outputs) {
        SCOPED_TRACE(user_form);
        Vector<Real> user(due.size() + 1, 42);
        for (const auto *masses : {&bad, &ones}) {
            plain = user.data();
            EXPECT_THAT(user, testing::Each(42));
            run(d, form, &plain, user_form, user.data(), TAVIK_FREQUENCIES, masses->data());
            EXPECT_EQ(plain, nullptr);
        }
        EXPECT_EQ(user.back(), 42);
        EXPECT_EQ(Vector<L>(user.begin(), user.end() - 1), due);
        for (int code : {form, user_form}) EXPECT_EQ(error_of(d, code, nullptr), "5 150");
    }
    Vector<Real> b(6), strided(30, 42);
    EXPECT_EQ(call(8, 2, &d.x[0], &d.y[0], TAVIK_N_DEPENDENT, 2, TAVIK_RETURN_USER, &b[0]), &b[0]);
    EXPECT_EQ(Vector<L>(b.begin(), b.end()), s.b);
    run(d, TAVIK_COEF_COVARIANCES_USER, strided.data(), TAVIK_COV_COL_DIM, 5);
    run(d, TAVIK_COV_COL_DIM, 5, TAVIK_COEF_COVARIANCES, &plain);
    const auto allocated = take(plain, 30);
    for (size_t i = 0; i < 30; ++i) {
        EXPECT_EQ(strided[i], i % 5 < 3 ? s.covariances[i / 5 * 3 + i % 5] : 42) << i;
        EXPECT_EQ(allocated[i], i % 5 < 3 ? strided[i] : 0) << i;
    }
}

// Columns of x in any order are what x, y and the masses are by themselves. Rows may be 2^32 bytes apart, in
// memory that is mostly not there.
TYPED_TEST(Regression, TakesColumnsAndStrides)
{
    using Real = TypeParam;
    for (size_t n : {9, 70, 700}) {
        const auto d = random_data<Real>(n, 3, 2, true, both, true);
        const auto due = fit(d);
        const int columns[][7] = {{3, 6, 1, 5, 0, 4, 2}, // of the variables, the responses, the masses
                                  {1, 2, 3, 4, 5, 6, 0},
                                  {4, 5, 6, 0, 1, 3, 2},
                                  {0, 1, 2, 4, 3, 5, 6},
                                  {2, 1, 0, 5, 6, 4, 3}};
        for (const int *c : columns) {
            Data<Real> rows{n, 3, 2, true, Vector<Real>(7 * n), {}};
            for (size_t i = 0; i < n; ++i) {
                const Real *x = &d.x[3 * i], *y = &d.y[2 * i];
                for (size_t j = 0; const Real value : {x[0], x[1], x[2], y[0], y[1], d.f[i], d.w[i]})
                    rows.x[7 * i + c[j++]] = value;
            }
            SCOPED_TRACE(testing::Message() << n << " rows, the first variable in column " << c[0]);
            expect_same(fit(rows, TAVIK_X_INDICES, c, c + 3, c[5], c[6]), due, 0);
        }
    }
    const int y[] = {5, 0}, one = 1;
    const Data<Real> split{4, 1, 1, true, {1, 2, 3, 4}, {1, 3, 2, 5}},
        narrow{4, 1, 1, true, {1, 1, 2, 3, 3, 2, 4, 5}, {}},
        wide{4, 1, 1, true, {1, 1, nan, 2, 3, nan, 3, 2, nan, 4, 5, nan}, {}};
    EXPECT_EQ(run(narrow, TAVIK_X_INDICES, &y[1], &one, -1, -1), run(split));
    EXPECT_EQ(run(wide, TAVIK_X_COL_DIM, 3, TAVIK_X_INDICES, &y[1], &one, -1, -1), run(split));

    const size_t stride = 0x40000000, bytes = (3 * stride + 1) * sizeof(Real);
    void *memory =
        mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANON | MAP_NORESERVE, -1, 0);
    if (memory == MAP_FAILED) GTEST_SKIP() << "no address space";
    auto *far = static_cast<Real *>(memory);
    for (size_t i = 0; i < 4; ++i) far[i * stride] = split.x[i];
    const auto b = take(call(4, 1, far, split.y.data(), TAVIK_X_COL_DIM, int(stride)), 2);
    munmap(memory, bytes);
    EXPECT_EQ(b, run(split));
}

// The first fault is told, and no other; then it is mended. Masses that are no columns of x count as columns
// behind the variables; columns and rows count from 1.
TYPED_TEST(Regression, RefusesBadArgumentsInOrder)
{
    using Real = TypeParam;
    const auto refused = [](const char *due, const char *kinds, auto... arguments) {
        EXPECT_EQ(capture::outcome([&] { EXPECT_EQ(call(arguments...), nullptr); }, kinds), due);
        EXPECT_EQ(capture::printed.size(), 1U) << due;
    };
    const Real x[15] = {1, 2, 3, 4, 6, 7, 8, 11, 15, 16, 17, 18}, ones[] = {1, 1, 1, 1}, *null = nullptr,
               negative[] = {1, nan, -2, -3}, infinite[] = {1, inf, 1, 1}, mixed[] = {1, 2, 1, 4, 3, -5};
    const int i01[] = {0, 1}, i2[] = {2}, i04[] = {0, 4}, below[] = {-1};
    Real *table, out[9];
    int n = -1, p = 0, q = -1, ido = 4, ifrq = -2, iwt = -2;
    const auto first_of_all = [&](const char *due, const char *kinds) {
        refused(due, kinds, n, p, x, x, TAVIK_COV_COL_DIM, 3, TAVIK_ANOVA_TABLE, &table, TAVIK_IDO, ido,
                TAVIK_X_INDICES, i01, i2, ifrq, iwt, TAVIK_N_DEPENDENT, q);
    };
    first_of_all("5 603 0 1 n_independent", "iil"), p = 2;
    first_of_all("5 603 -1 0 n_dependent", "iil"), q = 1;
    first_of_all("5 602 4 0 3 ido", "iiil"), ido = 1;
    first_of_all("5 603 -2 -1 ifrq", "iil"), ifrq = 5;
    first_of_all("5 603 -2 -1 iwt", "iil"), iwt = 9;
    first_of_all("5 20464 -1", "i"), n = 0;
    first_of_all("5 20690", ""), ido = 0;
    first_of_all("5 20463 0", "i"), n = 3;
    first_of_all("5 20467 5 5", "ii"), ifrq = 4;
    first_of_all("5 20468 9 5", "ii"), ifrq = -1, iwt = 4;
    first_of_all("5 20468 4 4", "ii"), iwt = 3;
    first_of_all("5 11038", "");
    refused("5 150 x", "l", 4, 1, null, x);
    refused("5 150 y", "l", 4, 1, x, null);
    refused("5 603 0 1", "ii", 4, 1, x, x, TAVIK_X_COL_DIM, 0);
    refused("5 601 2 1", "ii", 4, 2, x, x, TAVIK_X_COL_DIM, 1);
    refused("5 601 3 2", "ii", 4, 2, x, x, TAVIK_COEF_COVARIANCES_USER, out, TAVIK_COV_COL_DIM, 2);
    refused("5 602 4 0 2", "iii", 4, 2, x, x, TAVIK_X_INDICES, i04, i2, -1, -1);
    refused("5 602 -1 0 2", "iii", 4, 2, x, x, TAVIK_X_INDICES, i01, below, -1, -1);
    refused("5 20467 3 3", "ii", 4, 2, x, x, TAVIK_X_COL_DIM, 3, TAVIK_X_INDICES, i01, i2, 3, -1);
    refused("5 11117", "", 3, 2, x, x, TAVIK_X_INDICES, i01, i2, 3, -1, TAVIK_FREQUENCIES, ones);
    refused("5 11117", "", 3, 2, x, x, TAVIK_WEIGHTS, ones, TAVIK_X_INDICES, i01, i2, -1, 3);
    refused("5 20690", "", 4, 2, x, x, TAVIK_LEVERAGES_USER, out, TAVIK_IDO, 3);
    refused("4 11055 4 -2 3", "iri", 4, 2, x, x, TAVIK_FREQUENCIES, negative);
    refused("4 11055 5 -2 3", "iri", 4, 2, x, x, TAVIK_FREQUENCIES, ones, TAVIK_WEIGHTS, negative);
    refused("4 11054 4 inf 2", "iri", 4, 2, x, x, TAVIK_WEIGHTS, infinite, TAVIK_IDO, 1);
    refused("4 11055 3 -5 2", "iri", 2, 1, mixed, x, TAVIK_X_INDICES, i01, i01 + 1, 2, -1);
}

} // namespace
