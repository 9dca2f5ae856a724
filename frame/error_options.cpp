// The caller's policy for errors: what is printed, where, by whom, and what ends the process.

#include "call.hpp"
#include "error_print.hpp"
#include "options.hpp"
#include "signal.hpp"

#include <cstdlib>

using namespace tavik;

namespace {

using Flags = std::uint8_t[n_error_types];

Flags &flags_of(ErrorSettings &settings, int code)
{
    switch (code) {
    case TAVIK_SET_PRINT:
    case TAVIK_GET_PRINT: return settings.print;
    case TAVIK_SET_STOP:
    case TAVIK_GET_STOP: return settings.stop;
    default: return settings.traceback;
    }
}

bool check_type(int type)
{
    if (type >= 1 && type <= 7) return true;
    set_range_parameters(1, 5, type, "type"); // those that a caller is meant to set; 6 and 7 are accepted
    tavik_ermes(terminal, 132);
    return false;
}

void replace_string(char *&kept, const char *value)
{
    char *copy = nullptr;
    if (value != nullptr && (copy = strdup(value)) == nullptr) {
        tavik_ermes(terminal, 200);
        return;
    }
    std::free(kept);
    kept = copy;
}

bool l_error_options(OptionReader reader, Pass pass)
{
    tavik_error_struct &state = error_state();
    ErrorSettings &settings = state.settings;
    const bool act = pass == Pass::act;
    while (const int code = reader.next()) {
        switch (code) {
        case TAVIK_SET_PRINT:
        case TAVIK_SET_STOP:
        case TAVIK_SET_TRACEBACK: {
            const int type = reader.integer(), flag = reader.integer();
            if (act && check_type(type)) flags_of(settings, code)[type] = flag != 0;
            break;
        }
        case TAVIK_GET_PRINT:
        case TAVIK_GET_STOP:
        case TAVIK_GET_TRACEBACK: {
            const int type = reader.integer();
            int *flag =
                reader.pointer<int>("The flag of TAVIK_GET_PRINT, TAVIK_GET_STOP or TAVIK_GET_TRACEBACK");
            if (act && check_type(type)) *flag = flags_of(settings, code)[type];
            break;
        }
        case TAVIK_FULL_TRACEBACK: {
            const int flag = reader.integer();
            if (act) settings.full_traceback = flag;
            break;
        }
        case TAVIK_SET_ERROR_FILE: {
            FILE *stream = reader.pointer<FILE>("The stream of TAVIK_SET_ERROR_FILE");
            if (act) tavik_umach(-3, &stream);
            break;
        }
        case TAVIK_GET_ERROR_FILE: {
            FILE **stream = reader.pointer<FILE *>("The stream of TAVIK_GET_ERROR_FILE");
            if (act) tavik_umach(3, stream);
            break;
        }
        case TAVIK_ERROR_PRINT_PROC: {
            const auto proc = reader.procedure<tavik_print_proc>();
            if (act) settings.print_proc = proc != nullptr ? proc : default_print;
            break;
        }
        case TAVIK_ERROR_MSG_PATH:
        case TAVIK_ERROR_MSG_NAME: {
            const char *value = reader.pointer_or_null<char>();
            if (act) replace_string(code == TAVIK_ERROR_MSG_PATH ? state.file_path : state.file_name, value);
            break;
        }
        case TAVIK_SIGNAL_TRAPPING: {
            const int flag = reader.integer();
            if (act) set_signal_trapping(flag);
            break;
        }
        case TAVIK_ERROR_HANDLER_ID: {
            int *id = reader.pointer<int>("The variable of TAVIK_ERROR_HANDLER_ID");
            if (act) *id = state.handler_id;
            break;
        }
        default: reader.unknown(103); return false;
        }
    }
    return !error_pending();
}

} // namespace

extern "C" void tavik_error_options(int code, ...)
{
    ArgumentList list;
    va_start(list.arguments, code);
    public_call("tavik_error_options", [&](Workspace &) { check_then_act(code, list, l_error_options); });
    va_end(list.arguments);
}
