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

bool l_output_file(OptionReader reader, Pass pass)
{
    const bool act = pass == Pass::act;
    while (const int code = reader.next()) {
        const int number = code == TAVIK_SET_OUTPUT_FILE || code == TAVIK_GET_OUTPUT_FILE ? 2 : 3;
        switch (code) {
        case TAVIK_SET_OUTPUT_FILE:
        case TAVIK_SET_ERROR_FILE: {
            FILE *stream = reader.pointer<FILE>("The stream to print on");
            if (act) unit(number) = stream;
            break;
        }
        case TAVIK_GET_OUTPUT_FILE:
        case TAVIK_GET_ERROR_FILE: {
            FILE **stream = reader.pointer<FILE *>("The variable for the stream");
            if (act) *stream = unit(number);
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
    ArgumentList list;
    va_start(list.arguments, code);
    public_call("tavik_output_file", [&](Workspace &) { check_then_act(code, list, l_output_file); });
    va_end(list.arguments);
}

} // extern "C"
