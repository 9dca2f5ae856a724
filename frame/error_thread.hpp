// Where a thread's error state comes from and goes to.
#pragma once

#include "error_struct.hpp"

#include <atomic>

namespace tavik {

extern constinit thread_local tavik_error_struct *thread_error_state;

// Creates the calling thread's state; ends the process when there is no memory for it.
tavik_error_struct &create_error_state();

inline tavik_error_struct &error_state()
{
    return thread_error_state != nullptr ? *thread_error_state : create_error_state();
}

// The first structure of the process: it holds the jump buffers of signal trapping.
tavik_error_struct *single_error_state();

// Makes both message buffers of the structure hold `capacity` bytes. False when there is no memory.
bool grow_message_buffers(tavik_error_struct &state, int capacity);

// Counts the thread of a state that its parallel region made: it calls the library by itself now.
void count_as_caller(tavik_error_struct &state);

// Signal trapping is on although several threads have entered the library.
extern std::atomic<int> trapping_with_threads;
void check_trapping_with_threads();
void clear_trapping_with_threads();

} // namespace tavik
