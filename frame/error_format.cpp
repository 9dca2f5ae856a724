// Fills a thread's message buffer from a template. Text is produced with <charconv>, so that a message reads
// the same in every locale, and every insertion is measured against the room that is left.

#include "error.hpp"
#include "placeholder.hpp"

#include <algorithm>
#include <charconv>
#include <climits>
#include <cmath>

namespace tavik {
namespace {

constexpr std::ptrdiff_t least_room = 512;

[[noreturn]] void stop_without_room(tavik_error_struct &state)
{
    static char text[] = "Out of memory in error handler.";
    std::snprintf(state.message, static_cast<std::size_t>(state.capacity), "%s", text);
    state.top->type = terminal;
    state.top->code = 200;
    report(state, terminal, 200);
    stop_process(state);
}

// Appends to the message buffer, which always keeps room for `least_room` more bytes.
class Message {
public:
    explicit Message(tavik_error_struct &state) : state_(state)
    {
        clear_message(state);
    }

    void append(char c)
    {
        make_room(1);
        *state_.message_end++ = c;
        *state_.message_end = '\0';
    }

    void append(const char *text, std::size_t length)
    {
        make_room(length);
        std::memcpy(state_.message_end, text, length);
        state_.message_end += length;
        *state_.message_end = '\0';
    }

    void fill(char c, int count)
    {
        for (; count > 0; --count) append(c);
    }

private:
    void make_room(std::size_t length)
    {
        int capacity = state_.capacity;
        const auto used = static_cast<std::size_t>(state_.message_end - state_.message);
        while (static_cast<std::size_t>(capacity) < used + length + least_room) {
            if (capacity > INT_MAX / 2) stop_without_room(state_);
            capacity *= 2;
        }
        if (!grow_message_buffers(state_, capacity)) stop_without_room(state_);
    }

    tavik_error_struct &state_;
};

// Pads a converted value to its width: zeros between sign and digits, or blanks on either side.
void append_padded(Message &message, const Conversion &conversion, const char *text, std::size_t length,
                   bool number)
{
    const int missing = conversion.width - static_cast<int>(std::min<std::size_t>(length, 1000));
    if (conversion.left) {
        message.append(text, length);
        message.fill(' ', missing);
    } else if (conversion.zero && number) {
        const std::size_t sign = text[0] == '-' || text[0] == '+' || text[0] == ' ';
        message.append(text, sign);
        message.fill('0', missing);
        message.append(text + sign, length - sign);
    } else {
        message.fill(' ', missing);
        message.append(text, length);
    }
}

char *put_sign(char *text, const Conversion &conversion, bool negative)
{
    if (negative) *text++ = '-';
    else if (conversion.plus) *text++ = '+';
    else if (conversion.space) *text++ = ' ';
    return text;
}

// Of ASCII, whatever the locale.
void to_upper(char *begin, const char *end)
{
    for (; begin != end; ++begin) {
        if (*begin >= 'a' && *begin <= 'z') *begin = static_cast<char>(*begin - 'a' + 'A');
    }
}

void append_integer(Message &message, const Conversion &conversion, int value)
{
    char digits[16], text[1024];
    const char letter = conversion.letter;
    const bool is_signed = letter == 'd' || letter == 'i', negative = is_signed && value < 0;
    const unsigned magnitude = negative ? 0U - static_cast<unsigned>(value) : static_cast<unsigned>(value);
    const int base = letter == 'o' ? 8 : letter == 'x' || letter == 'X' ? 16 : 10;
    char *digits_end = std::to_chars(digits, digits + sizeof digits, magnitude, base).ptr;
    if (letter == 'X') to_upper(digits, digits_end);
    char *end = is_signed ? put_sign(text, conversion, negative) : text;
    end = std::fill_n(end, std::max<std::ptrdiff_t>(conversion.precision - (digits_end - digits), 0), '0');
    end = std::copy(digits, digits_end, end);
    append_padded(message, conversion, text, static_cast<std::size_t>(end - text), conversion.precision < 0);
}

void append_real(Message &message, const Conversion &conversion, double value)
{
    char text[2048]; // 309 digits, 999 decimals
    const bool upper = conversion.letter >= 'A' && conversion.letter <= 'Z';
    const char letter = upper ? static_cast<char>(conversion.letter - 'A' + 'a') : conversion.letter;
    const auto format = letter == 'e'   ? std::chars_format::scientific
                        : letter == 'f' ? std::chars_format::fixed
                                        : std::chars_format::general;
    char *begin = put_sign(text, conversion, std::signbit(value));
    const int precision = conversion.precision < 0 ? 6 : conversion.precision;
    char *end = std::to_chars(begin, text + sizeof text, std::fabs(value), format, precision).ptr;
    if (upper) to_upper(begin, end);
    append_padded(message, conversion, text, static_cast<std::size_t>(end - text), std::isfinite(value));
}

void append_complex(Message &message, const Conversion &conversion, tavik_z_complex value)
{
    message.append('(');
    append_real(message, conversion, value.re);
    message.append(',');
    append_real(message, conversion, value.im);
    message.append(')');
}

void append_string(Message &message, const Conversion &conversion, const char *value)
{
    if (value == nullptr) value = "(null)";
    std::size_t length = std::strlen(value);
    if (conversion.precision >= 0) length = std::min(length, static_cast<std::size_t>(conversion.precision));
    append_padded(message, conversion, value, length, false);
}

void append_parameter(Message &message, const MessageParameters &parameters, const Placeholder &placeholder)
{
    const int slot = placeholder.number - 1;
    const Conversion &conversion = placeholder.conversion;
    switch (placeholder.kind) {
    case ParameterKind::integer: append_integer(message, conversion, parameters.integer[slot]); break;
    case ParameterKind::real: append_real(message, conversion, parameters.real[slot]); break;
    case ParameterKind::complex: append_complex(message, conversion, parameters.complex[slot]); break;
    case ParameterKind::string: append_string(message, conversion, parameters.string[slot]); break;
    case ParameterKind::unknown: return;
    }
    for (const char *c = conversion.suffix; c != conversion.suffix_end; ++c) {
        message.append(*c);
        if (*c == '%') ++c; // of %%
    }
}

} // namespace

void format_message(tavik_error_struct &state, const char *message_template)
{
    Message message(state);
    for (const char *text = message_template; *text != '\0';) {
        Placeholder placeholder;
        if (text[0] == '%' && text[1] == '/') {
            message.append('\n');
            text += 2;
        } else if (read_placeholder(text, placeholder)) {
            if (placeholder.kind == ParameterKind::unknown || placeholder.number == 0) {
                message.append(text, static_cast<std::size_t>(placeholder.end - text));
            } else {
                append_parameter(message, state.parameters, placeholder);
            }
            text = placeholder.end;
        } else {
            message.append(*text++);
        }
    }
}

} // namespace tavik
