// The public routines of generator 9.
#include "random_twister.hpp"

using namespace tavik;
using Twister = random::MersenneTwister64;

extern "C" {

void tavik_random_MT64_init(int key_length, const uint64_t key[])
{
    public_call("tavik_random_MT64_init",
                [=](Workspace &) { random::l_random_twister_init<Twister>(key_length, key); });
}

void tavik_random_MT64_table_get(uint64_t **table, ...)
{
    ArgumentList list;
    va_start(list.arguments, table);
    public_call("tavik_random_MT64_table_get", [&](Workspace &workspace) {
        random::l_random_twister_table_get<Twister>(table, list, workspace);
    });
    va_end(list.arguments);
}

void tavik_random_MT64_table_set(const uint64_t table[])
{
    public_call("tavik_random_MT64_table_set",
                [=](Workspace &) { random::l_random_twister_table_set<Twister>(table); });
}

} // extern "C"
