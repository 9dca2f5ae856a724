// Saving and restoring the table of generator 7.
#include "gfsr.hpp"
#include "table_get.hpp"

#include <algorithm>
#include <climits>

using namespace tavik;

namespace {

using random::gfsr_words, random::generator_state;

constexpr int table_size = gfsr_words + 2; // the words, then both positions

void l_random_GFSR_table_get(int **table, ArgumentList &list, Workspace &workspace)
{
    random::l_table_get(table, table_size, list, workspace, [](int *copy) {
        auto *state = generator_state(random::seed_if_unseeded);
        if (state == nullptr) return false;
        random_common_structure &record = state->record;
        if (record.gfsr_ready == 0) random::l_r1inf(record);
        int *positions = std::copy_n(record.gfsr_table, gfsr_words, copy);
        positions[0] = record.gfsr_i;
        positions[1] = record.gfsr_j;
        return true;
    });
}

bool is_from_1_to(int most, const int *table, int at)
{
    if (table[at] >= 1 && table[at] <= most) return true;
    tavik_e1sti(1, table[at]);
    tavik_e1sti(2, at);
    tavik_ermes(terminal, 65102);
    return false;
}

void l_random_GFSR_table_set(const int *table)
{
    if (!check_not_null(table, "table")) return;
    auto *state = generator_state(random::set_up_only);
    if (state == nullptr) return;
    random_common_structure &record = state->record;
    if (table[0] < 1) {
        record.gfsr_ready = 0;
        return;
    }
    for (int k = 0; k < gfsr_words; ++k) {
        if (!is_from_1_to(INT_MAX, table, k)) return;
        record.gfsr_table[k] = table[k];
    }
    // Positions beyond the table would lead later draws out of it.
    if (!is_from_1_to(gfsr_words, table, gfsr_words) || !is_from_1_to(gfsr_words, table, gfsr_words + 1))
        return;
    record.gfsr_i = table[gfsr_words];
    record.gfsr_j = table[gfsr_words + 1];
    record.gfsr_ready = 1;
}

} // namespace

extern "C" {

void tavik_random_GFSR_table_get(int **table, ...)
{
    ArgumentList list;
    va_start(list.arguments, table);
    public_call("tavik_random_GFSR_table_get",
                [&](Workspace &workspace) { l_random_GFSR_table_get(table, list, workspace); });
    va_end(list.arguments);
}

void tavik_random_GFSR_table_set(const int table[])
{
    public_call("tavik_random_GFSR_table_set", [=](Workspace &) { l_random_GFSR_table_set(table); });
}

} // extern "C"
