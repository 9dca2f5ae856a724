// Reading of template placeholders: no dependence on the rest of the frame, since the message compiler uses
// it too.

#include "placeholder.hpp"

#include <cstring>

namespace tavik {
namespace {

bool is_digit(char c)
{
    return c >= '0' && c <= '9';
}

bool is_letter(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

// Three digits bound the text that one hostile placeholder can produce.
bool read_number(const char *&text, const char *end, int &number)
{
    constexpr int most_digits = 3;
    number = 0;
    for (int digits = 0; text < end && is_digit(*text); ++text) {
        if (++digits > most_digits) return false;
        number = 10 * number + (*text - '0');
    }
    return true;
}

const char *letters_of(ParameterKind kind)
{
    switch (kind) {
    case ParameterKind::integer: return "diuoxX";
    case ParameterKind::real:
    case ParameterKind::complex: return "eEfFgG";
    case ParameterKind::string: return "s";
    case ParameterKind::unknown: break;
    }
    return "";
}

} // namespace

ParameterKind parameter_kind(char letter)
{
    switch (letter) {
    case 'i':
    case 'I': return ParameterKind::integer;
    case 'r':
    case 'R':
    case 'd':
    case 'D':
    case 'f':
    case 'F': return ParameterKind::real;
    case 'c':
    case 'C':
    case 'z':
    case 'Z': return ParameterKind::complex;
    case 'l':
    case 'L':
    case 's':
    case 'S': return ParameterKind::string;
    default: return ParameterKind::unknown;
    }
}

Conversion default_conversion(ParameterKind kind)
{
    Conversion conversion;
    conversion.letter = letters_of(kind)[0];
    return conversion;
}

bool read_conversion(const char *text, const char *end, ParameterKind kind, Conversion &conversion)
{
    if (text >= end || *text++ != '%') return false;
    conversion = Conversion{};
    for (; text < end; ++text) {
        if (*text == '-') conversion.left = true;
        else if (*text == '+') conversion.plus = true;
        else if (*text == ' ') conversion.space = true;
        else if (*text == '0') conversion.zero = true;
        else break;
    }
    if (!read_number(text, end, conversion.width)) return false;
    if (text < end && *text == '.' && !read_number(++text, end, conversion.precision)) return false;
    if (text >= end || *text == '\0' || std::strchr(letters_of(kind), *text) == nullptr) return false;
    conversion.letter = *text++;
    conversion.suffix = text;
    conversion.suffix_end = end;
    for (; text < end; ++text) {
        if (*text == '%' && (text + 1 == end || *++text != '%')) return false; // a second conversion
    }
    return true;
}

bool read_placeholder(const char *text, Placeholder &placeholder, bool *format_accepted)
{
    if (text[0] != '%' || text[1] != '(' || !is_letter(text[2]) || !is_digit(text[3])) return false;
    const char *format = text + 4;
    const char *close = std::strchr(format, ')');
    if (close == nullptr) return false;
    placeholder.kind = parameter_kind(text[2]);
    placeholder.number = text[3] - '0';
    placeholder.end = close + 1;
    const bool read =
        format == close || read_conversion(format, close, placeholder.kind, placeholder.conversion);
    if (format == close || !read) placeholder.conversion = default_conversion(placeholder.kind);
    if (format_accepted != nullptr) *format_accepted = read;
    return true;
}

} // namespace tavik
