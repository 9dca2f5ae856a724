// K-means against a plain model of its rules, step by step, against R, and against its own promises: a local optimum,
// columns, masses, threads, limits, errors, hopeless data and the ends of its range.
#include "frame/capture.hpp"
#include "k_means_model.hpp"

#include <array>
#include <numeric>
#include <omp.h>
#include <random>
#include <sys/mman.h>

namespace {

using capture::take, model::inf, model::nan_value;

template <class T> using Vector = std::vector<T>;

template <class Real, class... Options>
int *call(int n, int p, const Real *x, int k, const Real *seeds, Options... options)
{
    if constexpr (sizeof x[0] == 4) return tavik_f_cluster_k_means(n, p, x, k, seeds, options..., 0);
    else return tavik_d_cluster_k_means(n, p, x, k, seeds, options..., 0);
}

// What goes into a call. Empty masses and columns stand for none.
template <class Real> struct Data {
    std::size_t n, p, k;
    Vector<Real> x, seeds, f = {}, w = {};
    Vector<int> columns = {};
    std::size_t stride = p, seed_stride = p;
    int limit = 100;

    model::Problem problem() const
    {
        model::Doubles mass(n, 1);
        for (std::size_t i = 0; i < n; ++i) mass[i] = (f.empty() ? 1.0 : f[i]) * (w.empty() ? 1.0 : w[i]);
        return {n, p, k, {x.begin(), x.end()}, {seeds.begin(), seeds.end()}, mass, limit};
    }
};

// What comes out.
template <class Real> struct Clusters {
    Vector<int> membership, history, counts;
    Vector<Real> means, ssq;
    long code = -1;

    bool operator==(const Clusters &s) const // a NaN equals a NaN
    {
        const auto same = [](Real a, Real b) { return a == b || (std::isnan(a) && std::isnan(b)); };
        return code == s.code && membership == s.membership && history == s.history && counts == s.counts &&
               std::ranges::equal(means, s.means, same) && std::ranges::equal(ssq, s.ssq, same);
    }
};

// Counts stand in for what there is not: of equal options the last one holds.
template <class Real> Clusters<Real> run(const Data<Real> &d)
{
    Clusters<Real> s;
    int *counts, iterations = -1, *history;
    Real *means, *ssq;
    const auto give = [&](int code, const auto &values) {
        const void *there = values.data(), *instead = &counts;
        return values.empty() ? std::pair(int{TAVIK_CLUSTER_COUNTS}, instead) : std::pair(code, there);
    };
    const auto f = give(TAVIK_FREQUENCIES, d.f), w = give(TAVIK_WEIGHTS, d.w),
               columns = give(TAVIK_CLUSTER_VARIABLES, d.columns);
    int *membership = call(int(d.n), int(d.p), d.x.data(), int(d.k), d.seeds.data(), TAVIK_MAX_ITERATIONS,
                           d.limit, TAVIK_X_COL_DIM, int(d.stride), TAVIK_CLUSTER_SEEDS_COL_DIM,
                           int(d.seed_stride), TAVIK_CLUSTER_COUNTS, &counts, TAVIK_CLUSTER_MEANS, &means,
                           TAVIK_CLUSTER_SSQ, &ssq, TAVIK_CLUSTER_HISTORY, &iterations, &history, f.first,
                           f.second, w.first, w.second, columns.first, columns.second);
    s.code = tavik_error_code();
    EXPECT_EQ(membership == nullptr, tavik_error_type() >= 4);
    s.history = take(history, d.n * std::size_t(iterations));
    s.membership = take(membership, d.n);
    s.counts = take(counts, d.k);
    s.means = take(means, d.k * d.p);
    s.ssq = take(ssq, d.k);
    return s;
}

// What every number of threads has to find.
template <class Real> Clusters<Real> run_on_threads(const Data<Real> &d)
{
    omp_set_num_threads(1);
    const auto alone = run(d);
    for (const int threads : {2, 3}) {
        omp_set_num_threads(threads);
        EXPECT_TRUE(run(d) == alone) << threads << " threads";
    }
    return alone;
}

template <class Real> struct KMeans : capture::FrameTest {
    KMeans()
    {
        tavik_random_option(1);
        tavik_random_seed_set(3);
    }
    ~KMeans() override
    {
        omp_set_num_threads(omp_get_num_procs());
    }
};
using KMeansRange = KMeans<double>;
TYPED_TEST_SUITE(KMeans, capture::Reals);

// Both NaN, or as near as rounding allows when sums were taken on a scale.
template <class T, class U>
void expect_near(const char *name, const Vector<T> &seen, const Vector<U> &due, double scale)
{
    ASSERT_EQ(seen.size(), due.size()) << name;
    for (std::size_t i = 0; i < due.size(); ++i) {
        const double error = std::numeric_limits<T>::epsilon() * std::fabs(double(due[i])) + 1e-13 * scale;
        ASSERT_TRUE(std::isnan(due[i]) ? std::isnan(seen[i]) : std::fabs(seen[i] - due[i]) <= error)
            << name << "[" << i << "] is " << seen[i] << ", due " << due[i];
    }
}

// The outputs are those of the membership and, unless the limit came first, no single transfer lowers the objective.
template <class Real> void expect_valid(const Data<Real> &d, const Clusters<Real> &s)
{
    ASSERT_EQ(s.membership.size(), d.n) << s.code;
    const model::KMeans due(d.problem(), s.membership);
    EXPECT_EQ(s.counts, due.counts);
    expect_near("means", s.means, due.means, std::sqrt(due.scale));
    expect_near("sums of squares", s.ssq, due.ssq, double(d.n * d.p) * due.scale);
    EXPECT_TRUE(d.limit == 0 || std::equal(s.membership.rbegin(), s.membership.rend(), s.history.rbegin()));
    // Where nobody in a cluster has a variable, there is no mean to compare with.
    const bool all_means = !std::isnan(std::accumulate(due.means.begin(), due.means.end(), 0.0));
    for (std::size_t i = 0; s.code == 0 && all_means && i < d.n; ++i) {
        const double least = due.counts[due.own[i]] == 1 ? 0 : due.leaving(i) * (1 - 1e-9) - 1e-9 * due.scale;
        for (std::size_t c = 0; c < d.k; ++c)
            ASSERT_TRUE(c == due.own[i] || due.joining(i, c) >= least) << "row " << i;
    }
}

// The steps can differ only where a decision hangs on rounding: sums may be taken in any order.
template <class Real> bool expect_agreement(const Clusters<Real> &s, const model::KMeans &due)
{
    if (due.narrowest < 1e-10) return false;
    EXPECT_EQ(s.code, due.empty > 0 ? 20083 : due.converged ? 0 : 20084);
    EXPECT_EQ(s.membership, due.empty > 0 ? Vector<int>() : due.membership);
    EXPECT_EQ(s.history, due.history);
    return true;
}

// One heap or several, on the real line or on a small grid, where ties abound; with missing values and masses. These
// are dyadic, so that their sums are exact.
template <class Real> Data<Real> random_data(unsigned mix, std::size_t n, std::size_t p, std::size_t k)
{
    std::mt19937_64 engine(mix);
    std::normal_distribution<double> normal;
    Data<Real> d{n, p, k, {}, {}};
    const unsigned missing = std::array{0, 40, 0, 10, 3}[mix % 5]; // one in so many
    const auto value = [&](std::size_t row, std::size_t column) {
        const double heap = mix % 2 == 0 ? 3.0 * double(row % 5 * (column + 1) % 4) : 0;
        return Real(heap + (mix % 3 == 0 ? double(engine() % 4) : normal(engine)));
    };
    for (std::size_t i = 0; i < n * p; ++i)
        d.x.push_back(missing > 0 && engine() % missing == 0 ? Real(nan_value) : value(i / p, i % p));
    for (std::size_t i = 0; i < n; ++i) {
        if (mix / 4 % 2 == 0) d.f.push_back(Real(1 + engine() % 4));
        if (mix / 8 % 2 == 0) d.w.push_back(Real(double(1 + engine() % 16) / 8));
    }
    for (std::size_t c = 0, first = engine() % n; c < k; ++c) { // of rows all over the data
        for (std::size_t j = 0, row = (first + c * n / k) % n; j < p; ++j)
            d.seeds.push_back(std::isnan(d.x[row * p + j]) ? value(row, j) : d.x[row * p + j]);
    }
    return d;
}

TYPED_TEST(KMeans, TakesEveryStepOfTheModel)
{
    constexpr std::size_t sizes[] = {2, 3, 5, 8, 13, 21, 34, 60, 100, 150, 400};
    std::mt19937_64 engine(1);
    int converged = 0, stopped = 0, empty = 0;
    for (unsigned mix = 0; mix < 1500 && !this->HasFailure(); ++mix) {
        const std::size_t n = sizes[engine() % 11], most = std::min<std::size_t>(n, 30),
                          p = 1 + engine() % 20, k = mix % 9 == 0 ? most : 2 + engine() % (most - 1);
        SCOPED_TRACE(testing::Message() << n << " x " << p << ", " << k << " clusters, mix " << mix);
        auto d = random_data<TypeParam>(mix, n, p, k);
        if (mix % 7 == 0) d.limit = int(mix % 4);
        const model::KMeans due(d.problem());
        const auto s = run(d);
        if (expect_agreement(s, due)) ++(due.empty > 0 ? empty : due.converged ? converged : stopped);
        if (due.empty == 0) expect_valid(d, s);
    }
    EXPECT_TRUE(converged > 600 && stopped > 20 && empty > 20);
}

// Fisher's irises (Annals of Eugenics 7, 1936, 179-188): sepal length and width, petal length and width in tenths of a
// centimetre, as characters from '0' for 1.
constexpr char irises[] =
    R"(bR=1`M=1^O<1]N>1aS=1eV@3]Q=2aQ>1[L=1`N>0eT>1_Q?1_M=0ZM:0iW;1h[>3eV<3bR=2hU@2bU>2eQ@1bT>3]S91bP@4_QB1)"
    R"(aM?1aQ?3cR>1cQ=1^O?1_N?1eQ>3cX>0fY=1`N>1aO;1fR<1`S=0[M<1bQ>1aR<2\F<2[O<1aR?5bUB3_M=2bU?1]O=1dT>1aP=1)"
    R"(uO^=oO\>tN`>fFW<pK]>hK\<nP^?`GP9qL]<cJV=aCR9jMY>kEW9lL^=gLS<rN[=gM\>iJX9mE\>gHV:jO_AlKW<nH`>lK^;oLZ<)"
    R"(qM[=sK_=rMa@kL\>hIR9fGU:fGT9iJV;kJb?eM\>kQ\?rN^>nF[<gMX<fHW<fI[;lM]=iIW;aFP9gJY<hMY;hLY<mLZ<bHM:hKX<)"
    R"(nPkHiJbBvMjDnLgApMiE{MqD`H\@xLnArHiAwSlHpObCoJdBsMfDhHaCiKbGoOdFpMfA|UrE|ItFkEa>tOhFgK`C|KrCnJ`ArPhD)"
    R"(wOkAmK_AlM`AoKgDwMi?yKlB~UoCoKgEnKb>lIg=|MlFnQgGoNfAkM_AtNeDrNgGtNbFiJbBsOjFrPhHrMcFnHaBpMcCmQeFjMbA)";

// From R 4.2.2: kmeans(x, x[1:k, ], iter.max = 1000, algorithm = "Hartigan-Wong"), clusters as letters.
TYPED_TEST(KMeans, AgreesWithR)
{
    const struct {
        std::size_t k, iterations;
        const char *membership;
        Vector<double> ssq, means;
    } cases[] = {
        // clang-format off
        {3, 2, "ccccccccccccccccccccccccccccccccccccccccccccccccccbbabbbbbbbbbbbbbbbbbbbbbbbbabbbbbbb"
               "bbbbbbbbbbbbbbbabaaaabaaaaaabbaaaabababaabbaaaaabaaaabaaabaaabaab",
         {2387.94736842105, 3982.09677419355, 1515.1},
         {68.5, 30.7368421052632, 57.4210526315789, 20.7105263157895, 59.0161290322581, 27.4838709677419,
          43.9354838709677, 14.3387096774194, 50.06, 34.28, 14.62, 2.46}},
        {8, 4, "abbbgeggcbagbceeeaeaaagabbaaabbaeebgagcagccaababagdddhdhdhdhhhhdhdhhdhdhdddddddhhhhdh"
               "dddhhhdhhhhhdhhfdffffhfffddfddffffdfdfdffddfffffddfffdfffdfffddfd",
         {139.882352941176, 62.4166666666667, 55.6, 1362.475, 83.4285714285714, 1870.34375, 66.8888888888889,
          974.928571428571},
         {}},
        // clang-format on
    };
    Vector<TypeParam> x;
    for (const char *at = irises; *at != '\0'; ++at) x.push_back(TypeParam(*at - '0' + 1));
    for (const auto &c : cases) {
        const auto s = run(Data<TypeParam>{150, 4, c.k, x, x});
        std::string letters;
        for (const int cluster : s.membership) letters += char('a' + cluster - 1);
        EXPECT_EQ(letters, c.membership);
        EXPECT_EQ(s.history.size(), 150 * c.iterations);
        expect_near("sums of squares", s.ssq, c.ssq, 1000);
        if (!c.means.empty()) expect_near("means", s.means, c.means, 10);
    }
}

// Many iterations, so that whatever is known of an observation from before is put to use.
TYPED_TEST(KMeans, LongRunsTakeTheSameStepsOnAnyThreads)
{
    int decided = 0;
    for (unsigned mix = 1; mix < 120; mix += 6) {
        const std::size_t n = mix == 1 ? 140000 : mix % 4 == 1 ? 9000 : 2000;
        const auto d = random_data<TypeParam>(mix, n, 1 + mix % 5, 3 + mix % 47);
        SCOPED_TRACE(mix);
        decided += expect_agreement(run_on_threads(d), model::KMeans(d.problem()));
    }
    EXPECT_GT(decided, 8);
}

TYPED_TEST(KMeans, NeitherColumnsNorUnitsMatter)
{
    constexpr std::size_t n = 70, k = 4;
    for (unsigned mix = 0; mix < 240; ++mix) {
        const std::size_t p = 2 + mix % 9;
        auto d = random_data<TypeParam>(mix, n, p, k);
        for (std::size_t i = 0; i < n; ++i) d.x[i * p] = d.x[i * p + 1]; // one column twice
        const auto due = run(d);
        auto wide = d;
        const auto column = [p](std::size_t j) { return 2 * (p - std::max<std::size_t>(j, 1)); };
        for (std::size_t j = 0; j < p; ++j) wide.columns.push_back(int(column(j)));
        wide.x.assign(n * (wide.stride = 2 * p), 42);
        wide.seeds.assign(k * (wide.seed_stride = p + 1), 42);
        for (std::size_t i = 0; i < n * p; ++i) wide.x[i / p * 2 * p + column(i % p)] = d.x[i];
        for (std::size_t i = 0; i < k * p; ++i) wide.seeds[i / p * (p + 1) + i % p] = d.seeds[i];
        EXPECT_TRUE(run(wide) == due) << mix;

        if (d.w.empty()) d.w.assign(n, 1); // powers of two pass through every operation
        for (TypeParam &v : d.x) v = std::ldexp(v, 20);
        for (TypeParam &v : d.seeds) v = std::ldexp(v, 20);
        for (TypeParam &v : d.w) v = std::ldexp(v, -9);
        auto s = run(d);
        for (TypeParam &v : s.means) v = std::ldexp(v, -20);
        for (TypeParam &v : s.ssq) v = std::ldexp(v, 9 - 40);
        EXPECT_TRUE(s == due) << mix;
    }
}

// Of heaps far apart; elsewhere the transfers of a row and those of its copies need not lead to the same end.
TYPED_TEST(KMeans, AFrequencyCountsAsThatManyRows)
{
    auto d = random_data<TypeParam>(98, 200, 2, 4); // with masses and missing values
    d.seeds = {0, 0, 50, 50, 100, 100, 150, 150};
    for (std::size_t i = 0; i < 400; ++i) d.x[i] += TypeParam(50 * (i / 2 % 4));
    const auto s = run(d);
    Data<TypeParam> copies{0, 2, 4, {}, d.seeds};
    Vector<int> membership;
    for (std::size_t i = 0; i < d.n; ++i) {
        for (TypeParam left = d.f[i]; left > 0; --left, ++copies.n) {
            copies.x.insert(copies.x.end(), &d.x[2 * i], &d.x[2 * i] + 2);
            copies.w.push_back(d.w[i]);
            membership.push_back(s.membership[i]);
        }
    }
    const auto due = run(copies);
    EXPECT_EQ(due.membership, membership);
    expect_near("means", s.means, due.means, 150);
    expect_near("sums of squares", s.ssq, due.ssq, 1000);
}

TYPED_TEST(KMeans, WritesWhereTheCallerSays)
{
    const TypeParam x[] = {1, 2, 8, 9}, seeds[] = {1, 9}, equal_seeds[] = {1, 1};
    int iterations = -1, membership[4];
    const auto check = [&](auto due, int plain_code, int user_code, auto... before) {
        using T = typename decltype(due)::value_type;
        T other, *plain = &other;
        const Vector<T> untouched(due.size() + 1, 42);
        auto user = untouched;
        const auto with = [&](int k, const TypeParam *from, auto... options) {
            return call(4, 1, x, k, from, plain_code, before..., &plain, user_code, before..., user.data(),
                        options...);
        };
        for (const int fault : {0, 1, 2}) {
            EXPECT_EQ(with(fault == 0 ? 5 : 2, fault == 1 ? equal_seeds : seeds, fault == 2 ? 4711 : 0),
                      nullptr);
            EXPECT_EQ(std::exchange(plain, &other), nullptr);
            EXPECT_EQ(user, untouched);
        }
        tavik_free(with(2, seeds)); // of both forms the last
        EXPECT_EQ(std::exchange(user.back(), due.back()), 42);
        user.pop_back();
        EXPECT_EQ(user, due);
        tavik_free(call(4, 1, x, 2, seeds, plain_code, before..., &plain));
        EXPECT_EQ(take(plain, due.size()), due);
        for (const int code : {plain_code, user_code})
            EXPECT_EQ(capture::outcome([&] { call(4, 1, x, 2, seeds, code, before..., nullptr); }), "5 150");
    };
    check(Vector<int>{2, 2}, TAVIK_CLUSTER_COUNTS, TAVIK_CLUSTER_COUNTS_USER);
    check(Vector<TypeParam>{1.5, 8.5}, TAVIK_CLUSTER_MEANS, TAVIK_CLUSTER_MEANS_USER);
    check(Vector<TypeParam>{0.5, 0.5}, TAVIK_CLUSTER_SSQ, TAVIK_CLUSTER_SSQ_USER);
    check(Vector<int>{1, 1, 2, 2}, TAVIK_CLUSTER_HISTORY, TAVIK_CLUSTER_HISTORY_USER, &iterations);
    EXPECT_EQ(iterations, 1);
    Vector<TypeParam> wide(6, 42);
    EXPECT_EQ(call(4, 1, x, 2, seeds, TAVIK_RETURN_USER, membership, TAVIK_CLUSTER_MEANS_COL_DIM, 3,
                   TAVIK_CLUSTER_MEANS_USER, wide.data()),
              membership);
    EXPECT_THAT(membership, testing::ElementsAre(1, 1, 2, 2));
    EXPECT_THAT(wide, testing::ElementsAre(1.5, 42, 42, 8.5, 42, 42));
}

// Each call has its own fault and, but for the columns, those of all lines below. Masses are columns behind those of x.
TYPED_TEST(KMeans, ChecksItsArgumentsInOrder)
{
    enum { absent = -2, good };
    const struct {
        int x_dim, seed_dim, means_dim, k, bad_f, bad_w, column; // the rows of bad masses
        const char *outcome, *kinds;
    } cases[] = {
        // clang-format off
        {0, 2, 2, 4, 1, 2, 9, "5 603 0 1 x_col_dim", "iil"}, {1, 2, 2, 4, 1, 2, 9, "5 601 2 1 n_variables x_col_dim", "iill"},
        {2, 1, 2, 4, 1, 2, 9, "5 601 2 1 n_variables cluster_seeds_col_dim", "iill"},
        {2, 2, 1, 4, 1, 2, 9, "5 601 2 1 n_variables cluster_means_col_dim", "iill"},
        {2, 2, 2, 1, 1, 2, 9, "5 20080 1 3", "ii"},                {2, 2, 2, 4, 1, 2, 9, "5 20080 4 3", "ii"},
        {2, 2, 2, 2, 1, good, 9, "5 20081 1", "i"},                {2, 2, 2, 2, good, 2, 9, "5 20082 2", "i"},
        {4, 2, 2, 2, good, good, 4, "5 20090 4 1", "ii"},          {4, 2, 2, 2, good, good, 5, "5 20091 5 1", "ii"},
        {4, 2, 2, 2, good, absent, 4, "5 20090 4 1", "ii"},        {4, 2, 2, 2, absent, good, 4, "5 20091 4 1", "ii"},
        {4, 2, 2, 2, absent, absent, 4, "5 20092 4 4", "ii"},      {4, 2, 2, 2, absent, absent, -1, "5 20092 -1 4", "ii"},
        {4, 2, 2, 2, good, absent, 5, "5 20093 5 5", "ii"},        {4, 2, 2, 2, absent, good, -1, "5 20093 -1 5", "ii"},
        {4, 2, 2, 2, good, good, 6, "5 20094 6 6", "ii"},          {4, 2, 2, 2, good, good, -1, "5 20094 -1 6", "ii"},
        // clang-format on
    };
    const TypeParam in[] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 8, 7, 6}, *const null = nullptr;
    for (const auto &c : cases) {
        for (const double bad : {0.0, -1.0, inf, nan_value}) {
            SCOPED_TRACE(c.outcome);
            int *counts, *membership, columns[] = {1, c.column};
            Vector<TypeParam> f(3, 1), w(3, 1);
            if (c.bad_f >= 0) f[std::size_t(c.bad_f)] = TypeParam(bad);
            if (c.bad_w >= 0) w[std::size_t(c.bad_w)] = TypeParam(bad);
            const auto refused = [&] {
                membership = call(3, 2, in, c.k, in, TAVIK_CLUSTER_COUNTS, &counts, TAVIK_X_COL_DIM, c.x_dim,
                                  TAVIK_CLUSTER_SEEDS_COL_DIM, c.seed_dim, TAVIK_CLUSTER_MEANS_COL_DIM,
                                  c.means_dim, TAVIK_CLUSTER_VARIABLES, columns,
                                  c.bad_f == absent ? TAVIK_RETURN_USER : TAVIK_FREQUENCIES, f.data(),
                                  c.bad_w == absent ? TAVIK_RETURN_USER : TAVIK_WEIGHTS, w.data());
            };
            EXPECT_EQ(capture::outcome(refused, c.kinds), c.outcome);
            EXPECT_EQ(capture::printed.size(), 1U);
            EXPECT_TRUE(membership == nullptr && counts == nullptr);
        }
    }
    EXPECT_EQ(capture::outcome([&] { call(0, 2, in, 4, in); }, "iil"), "5 603 0 1 n_observations");
    EXPECT_EQ(capture::outcome([&] { call(3, 0, in, 4, in); }, "iil"), "5 603 0 1 n_variables");
    EXPECT_EQ(capture::outcome([&] { call(3, 2, in, 2, in, 15, 4711); }, "ii"), "5 11001 15 1");
    EXPECT_EQ(capture::outcome([&] { call(3, 2, null, 2, in); }, "l"), "5 150 x");
    EXPECT_EQ(capture::outcome([&] { call(3, 2, in, 2, null); }, "l"), "5 150 cluster_seeds");
    auto d = random_data<TypeParam>(13, 400, 2, 9);
    d.limit = 2;
    EXPECT_EQ(capture::outcome([&] { run(d); }, "i"), "3 20084 2");
    for (TypeParam &v : d.seeds) v = 1;
    EXPECT_EQ(capture::outcome([&] { run(d); }, "i"), "5 20083 2");
}

TYPED_TEST(KMeans, MissingValues)
{
    const TypeParam nan = TypeParam(nan_value);
    const auto s = run(Data<TypeParam>{5, 2, 2, {1, nan, 1, nan, 9, 5, nan, 6, nan, nan}, {1, 0, 9, 5}});
    EXPECT_THAT(s.membership, testing::ElementsAre(1, 1, 2, 2, 1)) << "without values: the first seed";
    EXPECT_THAT(s.means, testing::ElementsAre(1, testing::IsNan(), 9, 5.5));
    EXPECT_THAT(s.ssq, testing::ElementsAre(0, 0.5));
}

// Ties that rounding decides can lead in a circle, and infinite values make distances NaN. Every call has to end.
TYPED_TEST(KMeans, EndsWithHopelessData)
{
    const Data<TypeParam> line{10, 1, 3, {2, 3, 0, 0, 3, 2, 4, 3, 1, 3}, {2, 3, 0}};
    expect_valid(line, run(line));
    for (unsigned mix = 0; mix < 9000; mix += 3) {
        const auto d = random_data<TypeParam>(mix, 3 + mix % 10, 1 + mix % 4, 2 + mix % 2);
        const auto s = run(d);
        if (s.code != 20083) expect_valid(d, s);
    }
    using L = std::numeric_limits<TypeParam>;
    for (const TypeParam extreme : {L::infinity(), -L::infinity(), L::max(), L::denorm_min()}) {
        for (unsigned mix = 0; mix < 320; ++mix) {
            auto d = random_data<TypeParam>(mix, 40, 1 + mix % 5, 2 + mix % 7);
            for (std::size_t i = mix % 11; i < 40; i += 7) {
                if (mix / 20 & 1) d.x[i] = extreme;
                if (mix / 20 & 2) d.seeds[i % d.seeds.size()] = extreme;
                if (mix / 20 & 4 && !d.f.empty()) d.f[i] = std::fabs(extreme);
                if (mix / 20 & 8 && !d.w.empty()) d.w[i] = std::fabs(extreme);
            }
            const auto s = run(d);
            EXPECT_TRUE(s.code == 0 || (s.code >= 20081 && s.code <= 20084)) << s.code;
            EXPECT_THAT(s.membership, testing::Each(testing::AllOf(testing::Ge(1), testing::Le(int(d.k)))));
        }
    }
}

// Rows 2^32 bytes and more apart, in memory that is mostly not there; a history of 2^31 elements.
TYPED_TEST(KMeans, ComputesSizesIn64Bits)
{
    const std::size_t stride = 0x40000000, bytes = 6 * stride * sizeof(TypeParam);
    void *memory =
        mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (memory == MAP_FAILED) GTEST_SKIP() << "no address space";
    auto *x = static_cast<TypeParam *>(memory), *means = x + 3 * stride;
    for (std::size_t i = 0; i < 3; ++i) x[i * stride] = TypeParam(i * i);
    int membership[3];
    call(3, 1, x, 3, x, TAVIK_X_COL_DIM, int{stride}, TAVIK_CLUSTER_SEEDS_COL_DIM, int{stride},
         TAVIK_CLUSTER_MEANS_COL_DIM, int{stride}, TAVIK_CLUSTER_MEANS_USER, means, TAVIK_RETURN_USER,
         membership);
    EXPECT_THAT(membership, testing::ElementsAre(1, 2, 3));
    EXPECT_TRUE(means[0] == 0 && means[stride] == 1 && means[2 * stride] == 4);
    munmap(memory, bytes);
    auto d = random_data<TypeParam>(13, 1024, 2, 5);
    const auto due = run(d);
    d.limit = 0x200000;
    const auto s = run(d);
    EXPECT_TRUE(s == due || (s.code >= 200 && s.code <= 203)) << s.code;
}

using Values = Vector<double>;

// From the first k rows as seeds, or others; on every number of threads the same.
Clusters<double> find(const Values &x, std::size_t p, std::size_t k, const Values &masses = {},
                      const Values &seeds = {})
{
    const std::size_t n = x.size() / p;
    Data<double> d{n, p, k, x, seeds.empty() ? x : seeds, {}, masses.empty() ? Values(n, 1) : masses};
    d.limit = 30;
    const auto s = run_on_threads(d);
    EXPECT_EQ(s.membership.size(), n) << s.code;
    return s;
}

Values normals(int count)
{
    return take(tavik_d_random_normal(count, 0), std::size_t(count));
}

Values scaled(Values x, double factor)
{
    for (double &value : x) value *= factor;
    return x;
}

// Powers of two change no decision while squares keep their digits; where they lose some, threads and bounds still may
// not matter.
TEST_F(KMeansRange, ScaleOfTheData)
{
    const Values x = normals(1200);
    const auto plain = find(x, 2, 3);
    for (const int exponent : {-480, 500}) {
        const auto other = find(scaled(x, std::ldexp(1.0, exponent)), 2, 3);
        EXPECT_EQ(other.membership, plain.membership);
        EXPECT_EQ(other.history.size(), plain.history.size());
    }
    find(scaled(normals(264000), 1e-161), 1, 3);
}

// So many that threads also take part where all clusters are looked at: plain rows; masses of all sizes and a cluster of
// few rows, which loses most of them; missing values; an infinite one, beside which nobody stays.
TEST_F(KMeansRange, ThreadsGoThroughTheRows)
{
    constexpr std::size_t p = 4, k = 16, n = (1 << 24) / p / k;
    for (int variant = 0; variant < 4; ++variant) {
        SCOPED_TRACE(variant);
        Values x = normals(n * p), masses;
        for (std::size_t i = 0; i < x.size(); ++i) x[i] += double(i / p % 7 * (i % p)); // they overlap
        if (variant == 1) {
            masses = normals(n);
            for (double &mass : masses) mass = std::exp(3 * mass);
            for (std::size_t i = 0; i < 40; ++i) x[i] += 9;
        }
        const Values seeds(x.begin(), x.begin() + k * p);
        for (std::size_t i = 1000; variant == 2 && i < x.size(); i += 97) x[i] = nan_value;
        if (variant == 3) x[p * 1000] = inf;
        EXPECT_GT(find(x, p, k, masses, seeds).history.size(), 5 * n);
    }
}

// Masses stand for ratios: their scale multiplies the sums of squares, and nothing else.
TEST_F(KMeansRange, ScaleOfTheMasses)
{
    const Values x = normals(600);
    Values masses = normals(300), whole(300);
    for (double &mass : masses) mass = 0.5 + mass * mass;
    for (std::size_t i = 0; i < whole.size(); ++i) whole[i] = double(1 + i % 3);
    const auto expect_scaled = [&](const Values &plain_masses, double factor, double rounding) {
        const auto plain = find(x, 2, 4, plain_masses), other = find(x, 2, 4, scaled(plain_masses, factor));
        EXPECT_EQ(other.membership, plain.membership);
        for (std::size_t c = 0; c < 4; ++c) EXPECT_NEAR(other.ssq[c], plain.ssq[c] * factor, rounding);
    };
    for (const double factor : {0x1p-1000, 0x1p1000}) expect_scaled(masses, factor, 0);
    expect_scaled(whole, 0x1p-1074, 0x1p-1074);
    // One so heavy that the others are nothing beside it stays where it is.
    const auto s = find({.1, .2, .3, 100, 100.1, 100.2}, 1, 2, {1e16, 1, 1, 1, 1, 1}, {.1, 100});
    EXPECT_THAT(s.membership, testing::ElementsAre(1, 1, 1, 2, 2, 2));
}

// Heavy rows at 0 and 1 and a row of light ones between, in reverse order: each that moves draws the border just past
// the next, so that a quick stage has one move a pass.
TEST_F(KMeansRange, AStageOfManyPasses)
{
    constexpr int light = 3000;
    constexpr double heavy_mass = 1e5, step = 0.974 * 0.5 / heavy_mass;
    Values x, masses(light, 1);
    for (int t = light - 1; t >= 0; --t) x.push_back(0.5 + step * (t - light / 2.0));
    const double border = x.back() + 0.5 * step;
    x.insert(x.end(), {0, 0, 1, 1});
    masses.resize(x.size(), heavy_mass / 2);
    EXPECT_EQ(find(x, 1, 2, masses, {0, 2 * border}).history.size(), 2 * x.size());
}

} // namespace
