// Text on a stream, numbers formatted as printf does in the "C" locale whatever the locale is, and faster.
//
// The writer has no destructor, since a trapped signal may pass it by: who made it flushes it.
#pragma once

#include <charconv>
#include <cmath>
#include <cstddef>
#include <cstdio>
#include <cstring>

namespace tavik {

class TextWriter {
public:
    static constexpr std::size_t buffer_size = 1 << 16;

    TextWriter(FILE *stream, char *buffer) : stream_(stream), buffer_(buffer)
    {
    }

    void text(const char *text)
    {
        const std::size_t length = std::strlen(text);
        if (length > buffer_size - used_) flush();
        if (length > buffer_size) {
            write(text, length);
            return;
        }
        std::memcpy(buffer_ + used_, text, length);
        used_ += length;
    }

    void character(char c)
    {
        *room() = c;
        ++used_;
    }

    // %d, of any size
    template <class Integer> void integer(Integer value)
    {
        char *at = room();
        advance_to(std::to_chars(at, at + longest_number, value).ptr);
    }

    // %WIDTH.PRECISIONf
    void fixed(double value, int precision, std::size_t width = 0)
    {
        real(value, std::chars_format::fixed, precision, width);
    }

    // %WIDTH.DIGITSg
    void general(double value, int digits, std::size_t width = 0)
    {
        constexpr double small = 1e6; // whole numbers below have up to six digits, and no more
        if (digits >= 6 && std::fabs(value) < small && value == static_cast<int>(value) &&
            !(value == 0 && std::signbit(value))) {
            char *at = room();
            pad(at, std::to_chars(at, at + longest_number, static_cast<int>(value)).ptr, width);
            return;
        }
        real(value, std::chars_format::general, digits, width);
    }

    // False when something could not be written, now or before.
    bool flush()
    {
        write(buffer_, used_);
        used_ = 0;
        return !failed_;
    }

private:
    static constexpr std::size_t longest_number =
        512; // 309 digits before the point, and more behind than we print

    void write(const char *text, std::size_t length)
    {
        failed_ = failed_ || std::fwrite(text, 1, length, stream_) != length;
    }

    char *room()
    {
        if (longest_number > buffer_size - used_) flush();
        return buffer_ + used_;
    }

    void advance_to(const char *end)
    {
        used_ = static_cast<std::size_t>(end - buffer_);
    }

    void real(double value, std::chars_format format, int precision, std::size_t width)
    {
        char *at = room();
        pad(at, std::to_chars(at, at + longest_number, value, format, precision).ptr, width);
    }

    // Moves what was written to the right end of a field.
    void pad(char *at, char *end, std::size_t width)
    {
        const auto length = static_cast<std::size_t>(end - at);
        if (length < width) {
            std::memmove(at + (width - length), at, length);
            std::memset(at, ' ', width - length);
            end = at + width;
        }
        advance_to(end);
    }

    FILE *stream_;
    char *buffer_;
    std::size_t used_ = 0;
    bool failed_ = false;
};

} // namespace tavik
