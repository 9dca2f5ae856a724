// The streams of a thread: input, output, error. The error unit is part of the error state, which prints on
// it.

#include "call.hpp"
#include "options.hpp"

namespace {

thread_local FILE *input_unit = nullptr;
thread_local FILE *output_unit = nullptr;

} // namespace

using namespace tavik;

namespace {

FILE *&unit(int number)
{
    if (number == 3) return error_state().settings.stream;
    FILE *&stream = number == 1 ? input_unit : output_unit;
    if (stream == nullptr) stream = number == 1 ? stdin : stdout;
    return stream;
}

// Reads the list once for its errors and once, when it is whole, to act on it.
bool l_output_file(OptionReader reader, bool act)
{
    while (const int code = reader.next()) {
        switch (code) {
        case TAVIK_SET_OUTPUT_FILE:
        case TAVIK_SET_ERROR_FILE: {
            FILE *stream = act ? reader.pointer_or_null<FILE>() : reader.pointer<FILE>("stream");
            if (act) unit(code == TAVIK_SET_OUTPUT_FILE ? 2 : 3) = stream;
            break;
        }
        case TAVIK_GET_OUTPUT_FILE:
        case TAVIK_GET_ERROR_FILE: {
            FILE **stream = act ? reader.pointer_or_null<FILE *>() : reader.pointer<FILE *>("stream");
            if (act) *stream = unit(code == TAVIK_GET_OUTPUT_FILE ? 2 : 3);
            break;
        }
        default: reader.unknown(103); return false;
        }
    }
    return !error_pending();
}

} // namespace

extern "C" {

void tavik_umach(int n, FILE **stream)
{
    if (n < -3 || n > 3 || n == 0) {
        tavik_e1sti(1, n);
        tavik_ermes(terminal, 12010);
    } else if (n > 0) {
        *stream = unit(n);
    } else {
        unit(-n) = *stream;
    }
}

void tavik_output_file(int code, ...)
{
    ArgumentList list, again;
    va_start(list.arguments, code);
    va_copy(again.arguments, list.arguments);
    public_call("tavik_output_file", [&](Workspace &) {
        if (l_output_file(OptionReader(code, list, count_codes), false))
            l_output_file(OptionReader(code, again, count_codes), true);
    });
    va_end(again.arguments);
    va_end(list.arguments);
}

} // extern "C"
