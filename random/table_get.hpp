// What the routines that give out a table of the generator's state share.
#pragma once

#include "frame/call.hpp"
#include "return_user.hpp"

namespace tavik::random {

// Gives the n elements that write_to(array) writes into the caller's own array or, through `table`, as a new
// one. write_to returns false after an error.
template <class T, class Writer>
void l_table_get(T **table, std::size_t n, ArgumentList &list, Workspace &workspace, const Writer &write_to)
{
    T *users = read_return_user<T>(list, PositionRule{2, 2, 0});
    if (users != nullptr) {
        if (!error_pending()) write_to(users);
        return;
    }
    if (table != nullptr) *table = nullptr;
    if (error_pending() || !check_not_null(table, "table")) return;
    T *made = workspace.result<T>(n);
    if (made != nullptr && write_to(made)) *table = workspace.hand_over(made);
}

} // namespace tavik::random
