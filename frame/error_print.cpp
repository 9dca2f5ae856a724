// Prints an error as a header and a message wrapped to 78 columns, and the calling sequence below it.

#include "error_print.hpp"
#include "error.hpp"
#include "readerr.hpp"

#include <algorithm>

namespace tavik {
namespace {

constexpr std::size_t last_column = 77;
constexpr std::size_t line_width = 78;
constexpr char prefix[] = "***         ";
constexpr std::size_t prefix_width = sizeof prefix - 1;
constexpr std::size_t npos = static_cast<std::size_t>(-1);

// The routine that the user called: the one above the nearest level that is the user's or runs the user's
// code.
const char *called_routine(const tavik_error_struct &state)
{
    const RoutineEntry *entry = state.top;
    while (entry > state.stack && entry->user_level == 0) --entry;
    return entry < state.top ? entry[1].name : entry->name;
}

void start_continuation(FILE *stream, std::size_t &column)
{
    std::fprintf(stream, "\n%s", prefix);
    column = prefix_width;
}

std::size_t find_line_break(const char *text, std::size_t length)
{
    const auto *found = static_cast<const char *>(std::memchr(text, '\n', length));
    return found == nullptr ? npos : static_cast<std::size_t>(found - text);
}

// The blank at 0 is the one that begins a continuation line: breaking there would print nothing.
std::size_t find_last_blank(const char *text, std::size_t length)
{
    while (length > 1) {
        if (text[--length] == ' ') return length;
    }
    return npos;
}

// A line ends at a line break of the message, else at the last blank of the allowed width, which begins the
// next line.
void print_wrapped(FILE *stream, const char *rest, std::size_t column)
{
    std::size_t length = std::strlen(rest);
    const auto print = [&](std::size_t count) {
        std::fwrite(rest, 1, count, stream);
        rest += count;
        length -= count;
    };
    for (;; start_continuation(stream, column)) {
        const bool fits = length + column <= last_column;
        const std::size_t width = line_width - column;
        const std::size_t blank = fits ? npos : find_last_blank(rest, width);
        const std::size_t piece = fits ? length : blank != npos ? blank : width;
        if (const std::size_t line_break = find_line_break(rest, piece); line_break != npos) {
            print(line_break);
            ++rest;
            --length;
        } else if (fits) {
            break;
        } else if (blank != npos) {
            print(blank);
        } else if (column == prefix_width) {
            print(width - 1); // of a word that no line can hold
        }
    }
    print(length);
}

const char *traceback_format = " %5s%-9s   %-25s %s\n";

} // namespace

void default_print(int type, long code, const char *, const char *message)
{
    if (message == nullptr || message[0] == '\0') return;
    tavik_error_struct &state = error_state();
    const char *routine = called_routine(state);
    const char *type_name = type >= 0 && type < n_error_types ? state.type_names[type] : "";
    char header[512];
    if (type < terminal) {
        const char *name = find_message(state, code).name;
        std::snprintf(header, sizeof header, "\n*** %s Error %s from %s.  ", type_name, name, routine);
    } else {
        std::snprintf(header, sizeof header, "\n*** %s Error from %s.  ", type_name, routine);
    }

    FILE *stream = nullptr;
    tavik_umach(3, &stream);
    tavik_flockfile(stream);
    std::fputs(header, stream);
    std::size_t column = std::strlen(header);
    if (column > last_column) {
        start_continuation(stream, column);
        std::fputc(' ', stream);
    }
    print_wrapped(stream, message, column);
    std::fputs("\n\n", stream);
    tavik_funlockfile(stream);
}

void print_traceback(const tavik_error_struct &state)
{
    // Names are looked up before the stream is locked: the reader of messages may have to print, too.
    auto carrier = state.top - state.stack;
    while (carrier > 0 && state.stack[carrier].type == no_error) --carrier;
    const char *code_name = find_message(error_state(), state.stack[carrier].code).name;

    FILE *stream = nullptr;
    tavik_umach(3, &stream);
    tavik_flockfile(stream);
    std::fputs("Here is a traceback of the calls in reverse order.\n"
               "  Error Type        Error Code              Routine\n"
               "  ----------        ----------              -------\n",
               stream);
    for (auto level = state.top - state.stack; level >= 0; --level) {
        const RoutineEntry &entry = state.stack[level];
        if (state.settings.full_traceback == 0 && level > 0 && state.stack[level - 1].user_level == 0)
            continue;
        if (level == carrier && entry.type != no_error && entry.user_level == 0)
            std::fprintf(stream, traceback_format, "TAVIK_", state.type_names[entry.type], code_name,
                         entry.name);
        else std::fprintf(stream, traceback_format, "", "", "", entry.name);
    }
    tavik_funlockfile(stream);
}

} // namespace tavik
