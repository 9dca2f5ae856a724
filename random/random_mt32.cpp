// The public routines of generator 8.
#include "random_twister.hpp"

using namespace tavik;
using Twister = random::MersenneTwister32;

extern "C" {

void tavik_random_MT32_init(int key_length, const uint32_t key[])
{
    public_call("tavik_random_MT32_init",
                [=](Workspace &) { random::l_random_twister_init<Twister>(key_length, key); });
}

void tavik_random_MT32_table_get(uint32_t **table, ...)
{
    ArgumentList list;
    va_start(list.arguments, table);
    public_call("tavik_random_MT32_table_get", [&](Workspace &workspace) {
        random::l_random_twister_table_get<Twister>(table, list, workspace);
    });
    va_end(list.arguments);
}

void tavik_random_MT32_table_set(const uint32_t table[])
{
    public_call("tavik_random_MT32_table_set",
                [=](Workspace &) { random::l_random_twister_table_set<Twister>(table); });
}

} // extern "C"
