#include "random_table.hpp"

using namespace tavik;

extern "C" {

void tavik_f_random_table_get(float **table, ...)
{
    ArgumentList list;
    va_start(list.arguments, table);
    public_call("tavik_f_random_table_get",
                [&](Workspace &workspace) { random::l_random_table_get(table, list, workspace); });
    va_end(list.arguments);
}

void tavik_f_random_table_set(const float table[])
{
    public_call("tavik_f_random_table_set", [=](Workspace &) { random::l_random_table_set(table); });
}

} // extern "C"
