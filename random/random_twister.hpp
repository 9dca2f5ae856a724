// Key initialisation, saving and restoring of the Mersenne Twisters.
#pragma once

#include "mersenne_twister.hpp"
#include "table_get.hpp"

#include <algorithm>

namespace tavik::random {

template <class Twister> void l_random_twister_init(int key_length, const typename Twister::Word *key)
{
    int position = 0;
    tavik_c1iarg(key_length, "key_length", 1, -1, &position);
    if (key_length <= 1 || !check_not_null(key, "key")) return;
    GeneratorState *state = generator_state(set_up_only);
    if (state == nullptr) return;
    auto twister = twister_state<Twister>(state->record);
    if (twister.make()) twister.seed_by_key(key, key_length);
}

// A table is the index, then the words of the state.
template <class Twister>
void l_random_twister_table_get(typename Twister::Word **table, ArgumentList &list, Workspace &workspace)
{
    using Word = typename Twister::Word;
    l_table_get(table, Twister::size + 1, list, workspace, [](Word *copy) {
        GeneratorState *state = generator_state(seed_if_unseeded);
        if (state == nullptr) return false;
        auto twister = twister_state<Twister>(state->record);
        if (twister.ready == 0 && !twister.prepare(state->record.seed)) return false;
        copy[0] = static_cast<Word>(twister.index);
        std::copy_n(twister.words, Twister::size, copy + 1);
        return true;
    });
}

template <class Twister> void l_random_twister_table_set(const typename Twister::Word *table)
{
    if (!check_not_null(table, "table")) return;
    GeneratorState *state = generator_state(set_up_only);
    if (state == nullptr) return;
    auto twister = twister_state<Twister>(state->record);
    if (table[0] > static_cast<unsigned>(twister.to_be_seeded)) {
        twister.drop();
    } else if (twister.make()) {
        twister.index = static_cast<std::int32_t>(table[0]);
        std::copy_n(table + 1, Twister::size, twister.words);
    }
}

} // namespace tavik::random
