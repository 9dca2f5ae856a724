// The generator state of a thread, from which every random number of the library comes.
//
// One record a thread, made at its first use and released when the thread ends. Life of the seed: unseeded
// until a seed is set or one is needed, which then comes from the clock. Tables and twister states are made
// from the seed when they are first needed and live on from then, whatever happens to the seed.
#pragma once

#include "frame/internal.h"

#include <cstdint>
#include <type_traits>

extern "C" {

struct random_common_structure {
    double modulus; // scales the first shuffle table
    double scale_d;
    double seed_d; // the seed as a double: residues are exact in both
    float scale_f;
    std::int32_t seed;
    std::int32_t option; // the selected generator
    std::int32_t shuffle_ready_d;
    std::int32_t shuffle_ready_f;
    std::int32_t gfsr_ready;
    std::int32_t gfsr_i; // running positions in the table, counted from 1 and always inside it
    std::int32_t gfsr_j;
    std::int32_t gfsr_table[1563]; // 31-bit words
    std::int32_t mt32_ready;       // set if and only if the state is there; likewise below
    std::uint32_t *mt32_state;
    std::int32_t mt32_index; // position of the next word; 624: all are used, 625: seed anew first
    std::int32_t mt64_ready;
    std::uint64_t *mt64_state;
    std::int32_t mt64_index; // likewise, 312 and 313
};

} // extern "C"

namespace tavik::random {

// The generators by the numbers that callers select them with.
enum Generator : std::int32_t {
    congruential_16807 = 1,
    congruential_16807_shuffled,
    congruential_397204094,
    congruential_397204094_shuffled,
    congruential_950706376,
    congruential_950706376_shuffled,
    gfsr_1563,
    mersenne_twister_32,
    mersenne_twister_64
};

constexpr int shuffle_slots = 128;

struct GeneratorState {
    random_common_structure record;
    float shuffle_table_f[shuffle_slots];
    double shuffle_table_d[shuffle_slots];
    bool seeded;
    bool scaled; // the scales are computed
};

// Codes of tavik_r1int beside the number of a generator, which selects it.
enum StateCode { set_up_only = -2, mark_seeded = -1, seed_if_unseeded = 0 };

// The calling thread's state, set up, and changed as the code says. Null, with error 5, 200, when there is no
// memory for it.
GeneratorState *generator_state(int code);

extern constinit thread_local GeneratorState *thread_generator_state;

// The state as a draw needs it.
inline GeneratorState *seeded_generator_state()
{
    GeneratorState *state = thread_generator_state;
    return state != nullptr && state->seeded ? state : generator_state(seed_if_unseeded);
}

// The parts of the state that exist once for each element type.
template <class Real> struct ShuffleTable {
    Real *values;
    std::int32_t *ready;
};
template <class Real> ShuffleTable<Real> shuffle_table(GeneratorState &state)
{
    if constexpr (std::is_same_v<Real, float>) return {state.shuffle_table_f, &state.record.shuffle_ready_f};
    else return {state.shuffle_table_d, &state.record.shuffle_ready_d};
}

inline void set_seed(random_common_structure &record, std::int32_t seed)
{
    record.seed = seed;
    record.seed_d = seed;
}

// The seed that the clock gives at a time of day.
int clock_seed(int hour, int minute, int second);

} // namespace tavik::random
