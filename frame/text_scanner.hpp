// Numbers between blanks, read from a stream as scanf does in the "C" locale whatever the locale is, and faster.
//
// The stream is read no farther than the blank behind a number, which is put back. The caller has locked it.
#pragma once

#include "precision.hpp"

#include <charconv>
#include <cstdio>
#include <cstring>

namespace tavik {

enum class Scan { found, end_of_file, no_number, out_of_range };

class TextScanner {
public:
    explicit TextScanner(FILE *stream) : stream_(stream)
    {
    }

    // Of what was read last; from 1.
    int line() const
    {
        return line_;
    }

    Scan integer(int &value)
    {
        if (!read_token()) return Scan::end_of_file;
        const auto [end, error] = std::from_chars(first(), last(), value);
        return result(end, error);
    }

    // A number that is too small for the type becomes 0.
    template <class Real> Scan real(Real &value)
    {
        if (!read_token()) return Scan::end_of_file;
        const auto [end, error] = std::from_chars(first(), last(), value);
        if (error != std::errc::result_out_of_range) return result(end, error);
        double wide = 0;
        const bool fits_a_double = std::from_chars(first(), last(), wide).ec == std::errc{};
        const char *exponent = std::strpbrk(token_, "eE");
        const bool small = fits_a_double ? std::fabs(wide) < 1 : exponent != nullptr && exponent[1] == '-';
        if (!small || end != last()) return result(end, error);
        value = token_[0] == '-' ? -Real{0} : Real{0};
        return Scan::found;
    }

private:
    static constexpr std::size_t longest_token = 511;

    static bool is_blank(int c)
    {
        return c == ' ' || (c >= '\t' && c <= '\r');
    }

    // False at the end of the file.
    bool read_token()
    {
        int c = getc_unlocked(stream_);
        for (; is_blank(c); c = getc_unlocked(stream_)) line_ += c == '\n';
        length_ = 0;
        while (c != EOF && !is_blank(c) && length_ < longest_token) {
            token_[length_++] = static_cast<char>(c);
            c = getc_unlocked(stream_);
        }
        token_[length_] = '\0';
        if (c != EOF) ungetc(c, stream_);
        return length_ > 0;
    }

    // A leading '+', which scanf takes, is none for from_chars.
    const char *first() const
    {
        const bool plus = token_[0] == '+' && token_[1] != '-';
        return token_ + plus;
    }

    const char *last() const
    {
        return token_ + length_;
    }

    Scan result(const char *end, std::errc error) const
    {
        if (error == std::errc::result_out_of_range && end == last()) return Scan::out_of_range;
        return error == std::errc{} && end == last() ? Scan::found : Scan::no_number;
    }

    FILE *stream_;
    int line_ = 1;
    std::size_t length_ = 0;
    char token_[longest_token + 1];
};

} // namespace tavik
