// Saving and restoring the shuffle table.
#pragma once

#include "frame/checkers.hpp"
#include "table_get.hpp"
#include "uniform.hpp"

#include <algorithm>

namespace tavik::random {

template <class Real> void l_random_table_get(Real **table, ArgumentList &list, Workspace &workspace)
{
    l_table_get(table, shuffle_slots, list, workspace, [](Real *copy) {
        GeneratorState *state = generator_state(seed_if_unseeded);
        if (state == nullptr) return false;
        const ShuffleTable<Real> own = shuffle_table<Real>(*state);
        if (*own.ready == 0) fill_shuffle_table<Real>(*state);
        std::copy_n(own.values, shuffle_slots, copy);
        return true;
    });
}

template <class Real> void l_random_table_set(const Real *values)
{
    if (!check_not_null(values, "table")) return;
    GeneratorState *state = generator_state(set_up_only);
    if (state == nullptr) return;
    const ShuffleTable<Real> table = shuffle_table<Real>(*state);
    if (values[0] <= 0) {
        *table.ready = 0;
        return;
    }
    for (int slot = 0; slot < shuffle_slots; ++slot) {
        if (!(values[slot] > 0 && values[slot] < 1)) {
            tavik_e1std(1, static_cast<double>(values[slot]));
            tavik_e1sti(1, slot);
            tavik_ermes(terminal, 11031);
            return;
        }
        table.values[slot] = values[slot];
    }
    *table.ready = 1;
}

} // namespace tavik::random
