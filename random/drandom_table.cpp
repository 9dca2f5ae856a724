#include "random_table.hpp"

using namespace tavik;

extern "C" {

void tavik_d_random_table_get(double **table, ...)
{
    ArgumentList list;
    va_start(list.arguments, table);
    public_call("tavik_d_random_table_get",
                [&](Workspace &workspace) { random::l_random_table_get(table, list, workspace); });
    va_end(list.arguments);
}

void tavik_d_random_table_set(const double table[])
{
    public_call("tavik_d_random_table_set", [=](Workspace &) { random::l_random_table_set(table); });
}

} // extern "C"
