// What the tests of random numbers share: a literal model of a thread's generators, one deviate at a time,
// written from their rules. The twisters are those of the standard library.
#pragma once

#include "frame/capture.hpp"
#include "random/generator_state.hpp"

#include <array>
#include <bitset>
#include <cmath>
#include <optional>
#include <random>
#include <tuple>

namespace models {

using capture::of_type, capture::Reals, capture::take;
template <class T> using Vector = std::vector<T>;

template <class Real> struct Routines {
    static constexpr auto rnun = of_type<Real>(tavik_rnun, tavik_drnun);
    static constexpr auto uniform = of_type<Real>(tavik_f_random_uniform, tavik_d_random_uniform);
    static constexpr auto normal = of_type<Real>(tavik_f_random_normal, tavik_d_random_normal);
    static constexpr auto table_get = of_type<Real>(tavik_f_random_table_get, tavik_d_random_table_get);
    static constexpr auto table_set = of_type<Real>(tavik_f_random_table_set, tavik_d_random_table_set);
    static constexpr auto discrete =
        of_type<Real>(tavik_f_random_uniform_discrete, tavik_d_random_uniform_discrete);
};

// Runs the body in a thread whose generators nobody has used yet, and in which errors do not stop the process.
inline void fresh(const std::function<void()> &body)
{
    capture::in_thread([&] {
        capture::restore_defaults(false);
        body();
    });
}

template <class Real> Vector<Real> uniforms(int n)
{
    Vector<Real> r(static_cast<std::size_t>(n));
    if (n % 2 == 0) {
        if (n > 0) Routines<Real>::rnun(n, r.data());
        return r;
    }
    if (n % 4 == 1) return take(Routines<Real>::uniform(n, 0), r.size());
    EXPECT_EQ(Routines<Real>::uniform(n, TAVIK_RETURN_USER, r.data(), 0), r.data());
    return r;
}

inline double step(int option, double x)
{
    constexpr double m = 2147483647, factors[3][2] = {{0, 16807}, {12121, 23166}, {29013, 8392}};
    const auto [high, low] = factors[(option - 1) / 2];
    return std::fmod(std::fmod(low * x, m) + high * std::fmod(32768 * x, m), m);
}

// The table and both positions, laid out as the routines save them.
struct Gfsr {
    std::array<std::int32_t, 1563> table{};
    std::int32_t i = 1, j = 1468;

    // x^(2^520) modulo x^521 + x^32 + 1, by squaring.
    static std::bitset<1042> jump()
    {
        std::bitset<1042> p, square;
        p[1] = true;
        for (int times = 0; times < 520; ++times, p = square) {
            square.reset();
            for (std::size_t k = 0; k < 521; ++k) square[2 * k] = p[k];
            for (std::size_t k = 1041; k >= 521; --k)
                if (square[k]) square.flip(k).flip(k - 521).flip(k - 521 + 32);
        }
        return p;
    }

    explicit Gfsr(double seed)
    {
        static const std::bitset<1042> p = jump();
        auto s = static_cast<std::uint32_t>(seed);
        std::vector<int> a, w(1563);
        for (int k = 0; k < 521; ++k) a.push_back(static_cast<std::int32_t>(s *= 69069) > 0);
        for (std::size_t of = 0; of < 3; ++of) {
            std::vector<int> b(521);
            for (std::size_t k = 0; k < 521; ++k) a.push_back(a[k] ^ a[k + 489]);
            for (std::size_t k = 0; k < 521; ++k) {
                w[3 * k + of] = a[k];
                for (std::size_t d = 0; d < 521; ++d) b[k] ^= a[k + d] & int{p[d]};
            }
            a = b;
        }
        for (std::int32_t &word : table)
            for (int position = 0; position < 32; ++position, advance()) {
                if (position < 31) word += w[i - 1] << (30 - position);
                w[i - 1] ^= w[j - 1];
            }
    }

    void advance()
    {
        i = i % 1563 + 1;
        j = j % 1563 + 1;
    }

    bool operator==(const Gfsr &) const = default;
};
static_assert(sizeof(Gfsr) == 1565 * sizeof(int));

template <class Real> struct Shuffle {
    std::array<Real, 128> slots{};
    bool filled = false;
};

struct Generators {
    double modulus = 2147483647, seed = 0;
    int option = 1;
    std::tuple<Shuffle<float>, Shuffle<double>> shuffles;
    std::optional<Gfsr> gfsr;
    std::optional<std::mt19937> mt32;
    std::optional<std::mt19937_64> mt64;

    Generators() = default;
    // Sets the calling thread, too.
    Generators(int with_option, int with_seed) : seed(with_seed), option(with_option)
    {
        tavik_random_seed_set(with_seed);
        tavik_random_option(with_option);
    }

    // The states that a generator needs, or all.
    void make_states(int of = 0)
    {
        if ((of == 0 || of == 7) && !gfsr) gfsr.emplace(seed);
        if ((of == 0 || of == 8) && !mt32) mt32.emplace(static_cast<std::uint32_t>(seed));
        if ((of == 0 || of == 9) && !mt64) mt64.emplace(static_cast<std::uint64_t>(seed));
    }

    template <class Real> std::array<Real, 128> &table()
    {
        auto &[slots, filled] = std::get<Shuffle<Real>>(shuffles);
        if (!std::exchange(filled, true) && option < 7 && option % 2 == 0)
            for (Real &slot : slots) slot = static_cast<Real>((seed = step(option, seed)) / modulus);
        return slots;
    }

    template <class Real> void set_table(const std::array<Real, 128> &values)
    {
        auto &[slots, filled] = std::get<Shuffle<Real>>(shuffles);
        if (values[0] <= 0) filled = false;
        for (std::size_t k = 0; values[0] > 0 && k < 128 && values[k] > 0 && values[k] < 1; ++k) {
            slots[k] = values[k];
            filled = filled || k == 127;
        }
    }

    template <class Real> Real next()
    {
        constexpr float scale_f = 0x1p-31F * (1 - 0x1p-24F);
        make_states(option);
        if (option == 8) return static_cast<Real>((static_cast<double>((*mt32)()) + 0.5) * 0x1p-32);
        if (option == 9) return static_cast<Real>(static_cast<double>((*mt64)() >> 11) * 0x1p-53);
        if (option == 7) {
            auto &[words, i, j] = *gfsr;
            const std::int32_t v = std::exchange(words[i - 1], words[i - 1] ^ words[j - 1]) | 1;
            gfsr->advance();
            seed = v;
            return static_cast<Real>(v) * of_type<Real>(scale_f, 1 / modulus);
        }
        Real *slots = option % 2 == 0 ? table<Real>().data() : nullptr;
        seed = step(option, seed);
        auto u = static_cast<Real>(seed * of_type<Real>(double{scale_f}, 1 / 2147483647.0));
        if (slots != nullptr) std::swap(u, slots[static_cast<int>(std::fmod(seed, 128))]);
        return u;
    }

    template <class Real> Vector<Real> draw(int n)
    {
        Vector<Real> r;
        while (n-- > 0) r.push_back(next<Real>());
        return r;
    }
};

// Makes the thread's twister give out these words next: the shifts of its tempering are undone one by one.
template <class Twister> void give_out(const Vector<typename Twister::result_type> &outputs)
{
    using T = Twister;
    using Word = typename T::result_type;
    Vector<Word> table(T::state_size + 1);
    std::transform(outputs.begin(), outputs.end(), table.begin() + 1, [](Word y) {
        const auto undo = [&y](auto change) {
            const Word all = y;
            for (int times = 0; times < 64; ++times) y = all ^ change(y);
        };
        undo([](Word w) { return w >> T::tempering_l; });
        undo([](Word w) { return (w << T::tempering_t) & T::tempering_c; });
        undo([](Word w) { return (w << T::tempering_s) & T::tempering_b; });
        undo([](Word w) { return (w >> T::tempering_u) & T::tempering_d; });
        return y;
    });
    if constexpr (T::word_size == 32)
        tavik_random_MT32_table_set(Vector<std::uint32_t>(table.begin(), table.end()).data());
    else tavik_random_MT64_table_set(table.data());
    tavik_random_option(T::word_size == 32 ? 8 : 9);
}

} // namespace models
