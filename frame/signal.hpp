// Trapping of fatal signals inside public calls.
#pragma once

#include "error_struct.hpp"

#include <atomic>

namespace tavik {

extern std::atomic<int> signal_trapping; // process-wide

// Written under error_2.
void set_signal_trapping(int on);

} // namespace tavik
