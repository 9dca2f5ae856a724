// Placeholders of message templates: %(kD) and %(kD FORMAT). The reader is shared with the message compiler,
// so that what the compiler accepts is what the library prints.
#pragma once

#include <cstddef>

namespace tavik {

enum class ParameterKind { integer, real, complex, string, unknown };

// One printf conversion, taken apart. A format comes from a file that is found through a search path: it is
// input, so it is read here and carried out with <charconv>, and nothing of it ever reaches printf.
struct Conversion {
    bool left = false, plus = false, space = false, zero = false;
    int width = 0;
    int precision = -1; // none
    char letter = 0;
    const char *suffix = ""; // literal text behind the conversion, up to suffix_end
    const char *suffix_end = "";
};

struct Placeholder {
    ParameterKind kind;
    int number; // 0 to 9; 1 to 9 name a parameter
    Conversion conversion;
    const char *end; // behind the closing parenthesis
};

ParameterKind parameter_kind(char letter);

// Reads the format [text, end) of a parameter of this kind: flags "-+ 0", width and precision of at most
// three digits, a letter of the kind, literal text without a second '%'. False for anything else.
bool read_conversion(const char *text, const char *end, ParameterKind kind, Conversion &conversion);

Conversion default_conversion(ParameterKind kind);

// Reads the placeholder that begins at "%(". False when that is not followed by a letter, a digit and, some
// way behind it, a closing parenthesis; the text then stands for itself.
bool read_placeholder(const char *text, Placeholder &placeholder, bool *format_accepted = nullptr);

} // namespace tavik
