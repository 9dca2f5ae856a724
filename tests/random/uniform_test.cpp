// Uniform deviates against the model of their generators, bit by bit: long streams in pieces of all sizes, and
// calls of all kinds in any order.
#include "models.hpp"

#include "frame/processor.hpp"
#include "random/uniform_kernels.hpp"

#include <climits>
#include <omp.h>

namespace {

using namespace models;

template <class Real> struct Uniform : testing::Test {
};
TYPED_TEST_SUITE(Uniform, Reals);

// The saved tables of a thread and of its model, which must agree.
struct Snapshot {
    explicit Snapshot(Generators &now)
    {
        tavik_f_random_table_get(nullptr, TAVIK_RETURN_USER, f.data(), 0);
        EXPECT_EQ(f, now.table<float>());
        tavik_d_random_table_get(nullptr, TAVIK_RETURN_USER, d.data(), 0);
        EXPECT_EQ(d, now.table<double>());
        tavik_random_GFSR_table_get(nullptr, TAVIK_RETURN_USER, &gfsr, 0);
        tavik_random_MT32_table_get(nullptr, TAVIK_RETURN_USER, mt32, 0);
        tavik_random_MT64_table_get(nullptr, TAVIK_RETURN_USER, mt64, 0);
        now.make_states();
        EXPECT_TRUE(gfsr == *now.gfsr);
        model = now;
    }

    void put_back(Generators &now) const
    {
        tavik_f_random_table_set(f.data());
        now.set_table(f);
        tavik_d_random_table_set(d.data());
        now.set_table(d);
        tavik_random_GFSR_table_set(gfsr.table.data());
        tavik_random_MT32_table_set(mt32);
        tavik_random_MT64_table_set(mt64);
        now.gfsr = model.gfsr;
        now.mt32 = model.mt32;
        now.mt64 = model.mt64;
    }

    std::array<float, 128> f;
    std::array<double, 128> d;
    Gfsr gfsr{0};
    std::uint32_t mt32[625];
    std::uint64_t mt64[313];
    Generators model;
};

// Options, seeds, draws of all lengths in both precisions, and tables, in any order, in many threads at once. Half
// of them select generator 7 as their first act, which makes them scale by 2^31.
TEST(Generators, FollowTheModelWhateverTheOrderOfCalls)
{
    constexpr int lengths[] = {1, 2, 3, 7, 8, 9, 16, 31, 33, 100, 127, 312, 513, 624, 1000, 1562, 1563, 5000};
    capture::in_threads(60, [&](int number) {
        for (int what : {TAVIK_SET_PRINT, TAVIK_SET_STOP}) capture::set(what, 5, 0); // zeros are refused
        std::mt19937 engine(static_cast<unsigned>(number));
        tavik_random_option(number % 2 == 0 ? 7 : 1);
        Generators model(1 + static_cast<int>(engine() % 9), 1 + static_cast<int>(engine() % 2147483646));
        if (number % 2 == 0) model.modulus = 2147483648;
        std::optional<Snapshot> saved;
        for (int k = 0; k < 120 && !testing::Test::HasFailure(); ++k) {
            SCOPED_TRACE(std::to_string(number) + " " + std::to_string(k));
            const int n = engine() % 4 == 0 ? 1 + static_cast<int>(engine() % 3000) : lengths[engine() % 18];
            const unsigned act = engine() % 10;
            if (act == 0) tavik_random_option(model.option = 1 + static_cast<int>(engine() % 9));
            if (act == 1) tavik_random_seed_set(static_cast<int>(model.seed = n));
            if (act == 2) tavik_random_seed_set(n % 2 == 0 ? INT_MAX : -n);
            if (act == 3 && saved) saved->put_back(model);
            if (act == 3) saved.emplace(model);
            const bool in_float = act > 3 && act % 2 == 0, in_double = act > 3 && !in_float;
            EXPECT_EQ(uniforms<float>(in_float * n), model.draw<float>(in_float * n));
            EXPECT_EQ(uniforms<double>(in_double * n), model.draw<double>(in_double * n));
            EXPECT_EQ(tavik_random_seed_get(), static_cast<int>(model.seed));
            EXPECT_EQ(tavik_get_random_common_structure()->seed_d, model.seed);
            EXPECT_EQ(tavik_random_option_get(), model.option);
        }
    });
}

// What the twisters' authors print for these keys. Such a key of one word does nothing.
TEST(Generators, TakeKeys)
{
    const std::uint32_t key32[] = {0x123, 0x234, 0x345, 0x456};
    const std::uint64_t key64[] = {0x12345, 0x23456, 0x34567, 0x45678};
    fresh([&] {
        for (int length : {4, 1}) {
            tavik_random_MT32_init(length, key32);
            tavik_random_MT64_init(length, key64);
        }
        EXPECT_EQ(tavik_random_option_get(), 1);
        tavik_random_option(8);
        for (std::uint32_t y : {1067595299U, 955945823U, 477289528U, 4107218783U, 4228976476U})
            EXPECT_EQ(uniforms<double>(1)[0], (y + 0.5) * 0x1p-32);
        tavik_random_option(9);
        for (std::uint64_t x : {7266447313870364031U, 4946485549665804864U, 16945909448695747420U,
                                16394063075524226720U, 4873882236456199058U})
            EXPECT_EQ(uniforms<double>(1)[0], static_cast<double>(x >> 11) * 0x1p-53);
        // Every word of a key that is longer than the state counts.
        Vector<std::uint32_t> words(1000, 7),
            table[2] = {Vector<std::uint32_t>(625), Vector<std::uint32_t>(625)};
        for (auto &state : table) {
            tavik_random_MT32_init(1000, words.data());
            tavik_random_MT32_table_get(nullptr, TAVIK_RETURN_USER, state.data(), 0);
            words[999] = 8;
        }
        EXPECT_NE(table[0], table[1]);
    });
}

TEST(Generators, HaveSubstreams100000StepsApart)
{
    fresh([] {
        constexpr double m = 2147483647, factors[3] = {46831694, 1659360, 1280967134};
        for (int option : {1, 3, 5})
            for (int seed : {1, 77, 2147483646, 0, -1, -2147483646, INT_MIN, INT_MAX}) {
                Generators(option, seed);
                const double high = std::fmod(std::floor(factors[option / 2] / 32768) * seed, m);
                const double low = std::fmod(factors[option / 2], 32768) * seed;
                const int next = tavik_random_substream_seed_get(seed);
                EXPECT_EQ(next, std::fmod(high * 32768 + low, m)) << option << " " << seed;
                if (seed < 1 || seed == INT_MAX) continue;
                uniforms<float>(99990), uniforms<double>(10);
                EXPECT_EQ(tavik_random_seed_get(), next) << option << " " << seed;
            }
    });
}

TYPED_TEST(Uniform, ReachesItsEnds)
{
    fresh([] {
        give_out<std::mt19937>({UINT32_MAX, 0});
        EXPECT_EQ(uniforms<TypeParam>(2),
                  (Vector<TypeParam>{of_type<TypeParam>(1.0F, 1 - 0x1p-33), TypeParam(0x1p-33)}));
        give_out<std::mt19937_64>({UINT64_MAX, 0});
        EXPECT_EQ(uniforms<TypeParam>(2), (Vector<TypeParam>{of_type<TypeParam>(1.0F, 1 - 0x1p-53), 0}));
    });
}

TYPED_TEST(Uniform, EveryInstructionLevelGivesTheSameBits)
{
    using namespace tavik::random;
    if (!tavik::processor_has_avx2()) GTEST_SKIP() << "needs AVX2";
    std::mt19937_64 engine(2);
    for (std::size_t n = 1; n < 1200; n += n < 140 ? 1 : 97) {
        const auto seed = static_cast<std::uint32_t>(engine() % 2147483646 + 1);
        Vector<std::uint64_t> words(1563);
        for (auto &word : words) word = engine();
        const auto results = [&](const GeneratorKernels &kernels) {
            const auto &uniform = kernels.uniform<TypeParam>();
            Vector<TypeParam> r[4];
            Vector<std::uint32_t> residues(n), words32(words.begin(), words.end());
            Vector<std::int32_t> table(1563);
            auto words64 = words;
            for (std::size_t k = 0; k < 1563; ++k) table[k] = static_cast<std::int32_t>(words[k] >> 33);
            for (auto &part : r) part.resize(n);
            const auto last = uniform.congruential(seed, congruential_powers[n % 3], 1 / 2147483647.0,
                                                   r[0].data(), n % 2 == 0 ? residues.data() : nullptr, n);
            uniform.gfsr(table.data() + 3, table.data(), TypeParam(0x1p-31), r[1].data(), n);
            kernels.twist_32(words32.data());
            kernels.twist_64(words64.data());
            uniform.from_words_32(words32.data(), r[2].data(), n);
            uniform.from_words_64(words64.data(), r[3].data(), n);
            r[2][0] = 0;
            r[3][0] = 1;
            for (auto &part : r) { // a fused product and sum would show here
                uniform.leave_ends(part.data(), n, TypeParam(0x1p-53), TypeParam(0.75));
                uniform.scale_and_shift(part.data(), n, TypeParam(0.3), TypeParam(1.7));
            }
            return std::tuple(r[0], r[1], r[2], r[3], residues, last, table, words32, words64);
        };
        ASSERT_TRUE(results(baseline_generator_kernels) == results(avx2_generator_kernels)) << n;
    }
}

// Integers from 1 to k, the integer part of k u + 1 in float; a sum that is rounded up to k + 1 counts as k.
TYPED_TEST(Uniform, DiscreteDeviatesTakeOneFloatEach)
{
    const auto integer = [](int k, float u) {
        const float sum = static_cast<float>(k) * u + 1.0F;
        return sum >= 0x1p31F ? k : std::min(static_cast<int>(sum), k);
    };
    for (int option : {1, 2, 7, 8})
        for (int k : {1, 2, 6, 1000, (1 << 24) + 1, INT_MAX})
            fresh([&] {
                Generators model(option, 31);
                for (int n : {1, 9, 10000, 10001, 30000, 30001}) {
                    omp_set_num_threads(1 + n % 3);
                    Vector<int> due;
                    for (float u : model.draw<float>(n)) due.push_back(integer(k, u));
                    const auto made = take(Routines<TypeParam>::discrete(n, k, 0), due.size());
                    ASSERT_EQ(made, due) << option << " " << k << " " << n;
                    EXPECT_THAT(made, testing::Each(testing::AllOf(testing::Ge(1), testing::Le(k))));
                    EXPECT_EQ(tavik_random_seed_get(), static_cast<int>(model.seed));
                }
                give_out<std::mt19937>({UINT32_MAX, 0});
                int ends[2];
                EXPECT_EQ((Routines<TypeParam>::discrete(2, k, TAVIK_RETURN_USER, ends, 0)), ends);
                EXPECT_THAT(ends, testing::ElementsAre(integer(k, 1), 1));
            });
}

} // namespace
