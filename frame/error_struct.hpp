// The error state of one thread: the stack of running routines, the pending error, its texts, and the
// settings that decide what is printed and what ends the process. Every public call goes through it, so what
// the call path touches is plain data reached by one thread-local pointer.
#pragma once

#include "internal.h"

#include <csetjmp>
#include <cstddef>
#include <cstdint>
#include <cstdio>

namespace tavik {

constexpr int n_error_types = 9; // 0 to 8
constexpr int stack_levels = 200;
constexpr int jump_levels = 100;
constexpr int n_parameters = 9;
constexpr int error_handler_id = 50020;

enum ErrorType : int {
    no_error = 0,
    warning = 3,
    fatal = 4,
    terminal = 5,
    warning_immediate = 6,
    internal_fault = 8
};

struct RoutineEntry {
    std::uint8_t type;
    std::uint8_t user_level;          // this routine is the caller itself, or is calling the caller's code
    std::uint8_t user_function_error; // the user function that it called reported failure ...
    std::uint8_t user_function_value; // ... with this value
    long code;
    const char *name;
};

// What the message file said of the last code that was looked up.
struct MessageLookup {
    long code;            // -1: none yet
    int index;            // place in the file, -1 not found, -2 could not be read
    char *record;         // template, NUL, symbolic name, NUL
    std::size_t capacity; // of the record buffer
    const char *text;     // the template: in the record, or a substitute
    const char *name;     // the symbolic name: in the record, or the code in decimal
    char substitute[256];
    char decimal_name[64];
    const char *failure; // why a record could not be read
};

// Values that the placeholders of a message template stand for.
struct MessageParameters {
    int integer[n_parameters];
    double real[n_parameters];
    tavik_z_complex complex[n_parameters];
    const char *string[n_parameters];
};

// What is done with an error. A worker thread borrows its parent's settings and gets its own back.
struct ErrorSettings {
    FILE *stream; // unit 3
    tavik_print_proc print_proc;
    int full_traceback;
    std::uint8_t print[n_error_types];
    std::uint8_t stop[n_error_types];
    std::uint8_t traceback[n_error_types];
    std::uint8_t immediate[n_error_types];
};

// An error that a procedure of the caller's is being told of: that procedure may call the library.
struct HeldReport {
    HeldReport *outer;
    RoutineEntry *level; // that holds the error
    RoutineEntry entry;
    int exit_type;
    long exit_code;
    char *message, *last_message; // behind this, in the same block
};

} // namespace tavik

struct tavik_error_struct {
    int jump_count; // used in the single structure only
    sigjmp_buf jumps[tavik::jump_levels];

    int signal_unwind; // a trapped signal jumped out of routines that are still on the stack
    int current_type, exit_type;
    long current_code, exit_code;

    char *message; // both buffers have `capacity` bytes
    char *message_end;
    char *last_message;
    int capacity;

    tavik::RoutineEntry stack[tavik::stack_levels]; // entry 0 is the caller
    tavik::RoutineEntry *top;

    tavik::ErrorSettings settings;
    tavik::ErrorSettings own_settings; // of a worker thread, while it holds its parent's
    int forked;                        // it does
    int handler_id;
    int counted; // one of the threads that signal trapping must not meet two of
    const char *type_names[tavik::n_error_types];

    char *file_name; // null: the default name
    char *file_path; // null: no path set
    tavik::MessageLookup lookup;
    tavik::MessageParameters parameters;
    tavik::HeldReport *held; // the innermost one
};
