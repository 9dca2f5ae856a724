// The state of a thread's generators: seeds and the clock, bad tables, and the errors of all routines.
#include "models.hpp"

#include <climits>
#include <ctime>

namespace {

using namespace models;
using capture::outcome, testing::AnyOf;

template <class Real> struct State : testing::Test {
};
TYPED_TEST_SUITE(State, Reals);
constexpr double nan = std::numeric_limits<double>::quiet_NaN(),
                 inf = std::numeric_limits<double>::infinity();

int clock_now()
{
    const std::time_t now = std::time(nullptr);
    const std::tm t = *std::gmtime(&now);
    const int seed = t.tm_hour * 10000 + t.tm_min * 100 + t.tm_sec + 1;
    return seed == 1 ? 123457 : seed;
}

// After each act another seed is put into the record: it stays where the act left the thread seeded.
TEST(State, SeedComesFromTheClockUntilOneIsSet)
{
    const struct {
        bool seeds;
        void (*act)();
    } cases[] = {
        {false, [] {}},
        {false, [] { tavik_random_option(2); }},
        {true, [] { tavik_random_seed_set(5); }},
        {false, [] { tavik_random_seed_set(0); }},
        {true, [] { tavik_random_seed_set(5), tavik_random_seed_set(0); }},
        {true, [] { tavik_random_seed_set(-1); }},
        {true, [] { tavik_random_seed_set(INT_MAX); }},
        {true, [] { tavik_random_seed_get(); }},
        {true, [] { uniforms<float>(3); }},
        {true, [] { tavik_r1int(-1); }},
        {true, [] { tavik_r1int(0); }},
        {false, [] { tavik_r1int(-5), tavik_r1int(3); }},
        {true, [] { tavik_r1ins(); }},
    };
    for (const auto &c : cases)
        fresh([&] {
            c.act();
            tavik_get_random_common_structure()->seed = 77;
            const int before = clock_now(), seed = tavik_random_seed_get();
            EXPECT_THAT(seed, AnyOf(c.seeds ? 77 : before, c.seeds ? 77 : clock_now())) << &c - cases;
        });
    fresh([] {
        const int before = clock_now();
        tavik_random_seed_set(0);
        EXPECT_THAT(tavik_get_random_common_structure()->seed, AnyOf(before, clock_now()));
    });
    EXPECT_EQ(tavik::random::clock_seed(0, 0, 0), 123457);
    EXPECT_EQ(tavik::random::clock_seed(0, 0, 1), 2);
    EXPECT_EQ(tavik::random::clock_seed(23, 59, 59), 235960);
}

template <class T, class Get, class Set> void refuses_bad_calls(Get get, Set set)
{
    T user[1565] = {}, *table = user;
    EXPECT_EQ(outcome([&] { get(&table, 4711, 0); }, "ii"), "5 11001 4711 2");
    EXPECT_EQ(table, nullptr);
    EXPECT_EQ(outcome([&] { get(nullptr, TAVIK_RETURN_USER, user, 4711, 0); }, "ii"), "5 11001 4711 4");
    EXPECT_EQ(user[0], 0);
    EXPECT_EQ(outcome([&] { get(nullptr, 0); }, "l"), "5 150 table");
    EXPECT_EQ(outcome([&] { get(&table, TAVIK_RETURN_USER, nullptr, 0); }, "l"), "5 150 TAVIK_RETURN_USER");
    EXPECT_EQ(outcome([&] { set(nullptr); }, "l"), "5 150 table");
}

// Errors leave everything as it was, and no result, unless it is said that the array of the caller's is returned.
TYPED_TEST(State, RefusesBadArguments)
{
    using Real = TypeParam;
    constexpr auto uniform = Routines<Real>::uniform, normal = Routines<Real>::normal;
    constexpr auto discrete = Routines<Real>::discrete;
    constexpr int users = TAVIK_RETURN_USER;
    Real user[] = {42}, zero = 0;
    int ints[] = {42};
    const std::uint32_t key32 = 1;
    const std::uint64_t key64 = 1;
    const auto done = [](auto call) { return [=]() -> void * { return call(), nullptr; }; };
    const struct {
        const char *due, *kinds;
        std::function<void *()> run;
        void *result = nullptr;
    } cases[] = {
        {"5 603 0 1 n_random", "iil", [&] { return uniform(0, users, user, 0); }},
        {"5 11001 4711 2", "ii", [&] { return uniform(1, 4711, 0); }},
        {"5 11001 4711 4", "ii", [&] { return uniform(1, users, user, 4711, 0); }},
        {"5 150 TAVIK_RETURN_USER", "l", [&] { return uniform(1, users, nullptr, 0); }},
        {"5 603 -1 1 n_random", "iil", [&] { return discrete(-1, 6, 0); }},
        {"5 603 0 1 K", "iil", [&] { return discrete(1, 0, users, ints, 0); }},
        {"5 11001 4711 3", "ii", [&] { return discrete(1, 6, 4711, 0); }},
        {"5 11001 4711 5", "ii", [&] { return discrete(1, 6, users, ints, 4711, 0); }},
        {"5 150 TAVIK_RETURN_USER", "l", [&] { return discrete(1, 6, users, nullptr, 0); }},
        {"5 603 0 1 n_random", "iil", [&] { return normal(0, TAVIK_VARIANCE, 0.0, users, user, 0); }},
        {"5 603 -2 1 n_random", "iil", [&] { return normal(-2, TAVIK_ZIGGURAT, 0); }},
        {"5 20457 0", "r", [&] { return normal(1, TAVIK_VARIANCE, 0.0, 0); }},
        {"5 20457 -4", "r", [&] { return normal(1, users, user, TAVIK_VARIANCE, -4.0, 0); }, user},
        {"5 20457 nan", "r", [&] { return normal(1, TAVIK_VARIANCE, nan, users, user, 0); }, user},
        {"5 20457 0", "r", [&] { return normal(1, TAVIK_VARIANCE_ADR, &zero, TAVIK_ZIGGURAT, 0); }},
        {"5 11001 4711 3", "ii", [&] { return normal(1, TAVIK_ZIGGURAT, 4711, 0); }},
        {"5 11001 4711 9", "ii",
         [&] {
             return normal(1, TAVIK_MEAN, 1.0, TAVIK_ACCEPT_REJECT, users, user, TAVIK_VARIANCE_ADR, &zero,
                           4711, 0);
         }},
        {"5 150 TAVIK_MEAN_ADR", "l", [&] { return normal(1, TAVIK_MEAN_ADR, nullptr, 0); }},
        {"5 150 TAVIK_VARIANCE_ADR", "l", [&] { return normal(1, TAVIK_VARIANCE_ADR, nullptr, 0); }},
        {"5 150 TAVIK_RETURN_USER", "l", [&] { return normal(1, users, nullptr, 0); }},
        {"5 602 0 1 9 generator_option", "iiil", done([] { tavik_random_option(0); })},
        {"5 602 10 1 9 generator_option", "iiil", done([] { tavik_random_option(10); })},
        {"5 603 0 1 key_length", "iil", done([&] { tavik_random_MT32_init(0, &key32); })},
        {"5 603 -1 1 key_length", "iil", done([&] { tavik_random_MT64_init(-1, &key64); })},
        {"5 150 key", "l", done([] { tavik_random_MT32_init(2, nullptr); })},
        {"5 150 key", "l", done([] { tavik_random_MT64_init(2, nullptr); })},
        {"5 603 0 1 nr", "iil", done([&] { Routines<Real>::rnun(0, user); })},
    };
    fresh([&] {
        Generators model(3, 5);
        for (const auto &c : cases)
            EXPECT_EQ(outcome([&] { EXPECT_EQ(c.run(), c.result) << c.due; }, c.kinds), c.due);
        EXPECT_EQ(capture::printed.at(0).routine, of_type<Real>("tavik_rnun", "tavik_drnun"));
        refuses_bad_calls<Real>(Routines<Real>::table_get, Routines<Real>::table_set);
        refuses_bad_calls<int>(tavik_random_GFSR_table_get, tavik_random_GFSR_table_set);
        refuses_bad_calls<std::uint32_t>(tavik_random_MT32_table_get, tavik_random_MT32_table_set);
        refuses_bad_calls<std::uint64_t>(tavik_random_MT64_table_get, tavik_random_MT64_table_set);
        EXPECT_EQ(user[0] + static_cast<Real>(ints[0]), 84);
        EXPECT_EQ(uniforms<Real>(9), model.draw<Real>(9));
        for (int option : {2, 4, 6, 7, 8, 9}) {
            tavik_random_option(option);
            const auto ask = [] { EXPECT_EQ(tavik_random_substream_seed_get(123), 123); };
            EXPECT_EQ(outcome(ask), option < 7 ? "5 65100" : "5 65101") << option;
        }
    });
}

// What stands before a bad value is stored; the flag stays, so a table that was not filled is filled anew. A first
// value that is not positive marks the table as not filled.
TYPED_TEST(State, ChecksTables)
{
    using Real = TypeParam;
    const auto check = [](int drawn, int at, double value) {
        Generators model(2, 5);
        EXPECT_EQ(uniforms<Real>(drawn), model.draw<Real>(drawn));
        std::array<Real, 128> table;
        table.fill(Real(0.25));
        table[at] = static_cast<Real>(value);
        model.set_table(table);
        const bool refused = !(value > 0 && value < 1) && !(at == 0 && value <= 0);
        EXPECT_EQ(outcome([&] { Routines<Real>::table_set(table.data()); }, refused ? "ri" : ""),
                  refused ? "5 11031 " + testing::PrintToString(value) + " " + std::to_string(at) : "0 0");
        EXPECT_EQ(uniforms<Real>(500), model.draw<Real>(500)) << value << " " << at;
    };
    const auto check_gfsr = [](int drawn, int at, int value) {
        Generators model(7, 5);
        EXPECT_EQ(uniforms<Real>(drawn), model.draw<Real>(drawn));
        Gfsr given(99);
        for (int &word : given.table) word = std::max(word, 1);
        (at < 1563    ? given.table[at]
         : at == 1563 ? given.i
                      : given.j) = value; // also positions that no stream has
        const bool marks = at == 0 && value < 1,
                   refused = !marks && (value < 1 || (at > 1562 && value > 1563));
        if (marks) model.gfsr.reset();
        else if (!refused) model.gfsr = given;
        else if (model.gfsr) std::copy_n(given.table.begin(), std::min(at, 1563), model.gfsr->table.begin());
        EXPECT_EQ(outcome([&] { tavik_random_GFSR_table_set(given.table.data()); }, refused ? "ii" : ""),
                  refused ? "5 65102 " + std::to_string(value) + " " + std::to_string(at) : "0 0");
        EXPECT_EQ(uniforms<Real>(4000), model.draw<Real>(4000)) << value << " " << at;
        EXPECT_EQ(uniforms<Real>(7), model.draw<Real>(7)) << value << " " << at;
    };
    for (int drawn : {0, 7}) {
        for (int at : {0, 1, 127})
            for (double value : {0.0, 1.0, -0.5, nan, inf, 0.5}) fresh([=] { check(drawn, at, value); });
        for (int at : {0, 1, 700, 1562, 1563, 1564})
            for (int value : {-3, 0, 1, 1563, 1564, INT_MAX}) fresh([=] { check_gfsr(drawn, at, value); });
    }
}

// Every index, over a state of zeros, which stays so. Beyond the words the twister is seeded.
template <class Twister, class Word, class Set> void takes_any_index(int option, double zero, Set set)
{
    constexpr Word n = Twister::state_size;
    for (Word index : {Word{0}, Word{1}, n - 1, n, n + 1, n + 2, ~Word{0}})
        fresh([=] {
            Generators model(option, 4711);
            Vector<Word> table(n + 1);
            table[0] = index;
            set(table.data());
            EXPECT_EQ(uniforms<double>(999), index > n ? model.draw<double>(999) : Vector<double>(999, zero))
                << index;
        });
}

TEST(State, TakesTwisterTablesWithAnyIndex)
{
    takes_any_index<std::mt19937, std::uint32_t>(8, 0x1p-33, tavik_random_MT32_table_set);
    takes_any_index<std::mt19937_64, std::uint64_t>(9, 0, tavik_random_MT64_table_set);
}

} // namespace
