// The option list of routines that know TAVIK_RETURN_USER only.
#pragma once

#include "frame/options.hpp"

namespace tavik::random {

// The caller's array, or null when none was given. After an error, one is pending.
template <class T> T *read_return_user(ArgumentList &list, PositionRule rule)
{
    T *users = nullptr;
    OptionReader reader(list, rule);
    while (const int code = reader.next()) {
        if (code == TAVIK_RETURN_USER) {
            users = reader.pointer<T>("TAVIK_RETURN_USER");
        } else {
            reader.unknown(11001);
            break;
        }
    }
    return users;
}

} // namespace tavik::random
