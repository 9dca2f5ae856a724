// The library's own printer of errors.
#pragma once

#include "error_struct.hpp"

namespace tavik {

void default_print(int type, long code, const char *routine, const char *message);
void print_traceback(const tavik_error_struct &state);

} // namespace tavik
