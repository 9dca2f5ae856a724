// The two Mersenne Twisters as parts of a thread's generator state: made, seeded and drawn from.
#pragma once

#include "generator_state.hpp"
#include "uniform_kernels.hpp"

#include <cstddef>

namespace tavik::random {

// One twister's fields in the record, and what to do with it.
template <class Twister> struct TwisterState {
    using Word = typename Twister::Word;
    static constexpr int all_used = Twister::size, to_be_seeded = Twister::size + 1;

    std::int32_t &ready;
    Word *&words;
    std::int32_t &index;

    // Makes the state if there is none; what it then holds is for the caller to set. On failure false, with
    // error 5, 200.
    bool make();
    void seed(Word s);
    void seed_by_key(const Word *key, int key_length);
    // The state that the next draw starts from: made and seeded if it is absent or is to be seeded anew.
    bool prepare(std::int32_t current_seed);
    // `prepare` came before.
    template <class Real> void draw(Real *r, std::size_t n);
    // Forgets the state: the next draw makes and seeds it anew.
    void drop();
};

template <class Twister> TwisterState<Twister> twister_state(random_common_structure &record)
{
    if constexpr (sizeof(typename Twister::Word) == 4)
        return {record.mt32_ready, record.mt32_state, record.mt32_index};
    else return {record.mt64_ready, record.mt64_state, record.mt64_index};
}

} // namespace tavik::random
