// Numbers between blanks, read from a stream as scanf does in the "C" locale whatever the locale is, and faster.
//
// A stream of the caller's is read no farther than to the blank behind the last number; a file of our own in large
// pieces. The caller has locked the stream.
#pragma once

#include "precision.hpp"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <string_view>

namespace tavik {

enum class Scan { found, end_of_file, no_number, out_of_range };

class TextScanner {
public:
    static constexpr std::size_t buffer_size = 1 << 16;

    // With a buffer of that size, or null: then the stream is read character by character.
    TextScanner(FILE *stream, char *buffer)
        : stream_(stream), buffer_(buffer != nullptr ? buffer : &single_), at_(buffer_), end_(buffer_)
    {
    }

    TextScanner(const TextScanner &) = delete;
    TextScanner &operator=(const TextScanner &) = delete;

    // Puts the blank behind the last number back.
    void stop()
    {
        if (at_ != end_) ungetc(static_cast<unsigned char>(*at_), stream_);
    }

    // Of what was read last; from 1.
    int line() const
    {
        return line_;
    }

    Scan integer(int &value)
    {
        if (!read_token()) return Scan::end_of_file;
        const auto [end, error] = std::from_chars(first(), last_, value);
        return result(end, error);
    }

    // A number that is too small for the type becomes 0.
    template <class Real> Scan real(Real &value)
    {
        if (!read_token()) return Scan::end_of_file;
        const auto [end, error] = std::from_chars(first(), last_, value);
        if (error != std::errc::result_out_of_range) return result(end, error);
        double wide = 0;
        const bool fits_a_double = std::from_chars(first(), last_, wide).ec == std::errc{};
        const std::string_view token(first_, static_cast<std::size_t>(last_ - first_));
        constexpr auto absent = std::string_view::npos;
        const bool negative_exponent = token.find("e-") != absent || token.find("E-") != absent;
        const bool small = fits_a_double ? std::fabs(wide) < 1 : negative_exponent;
        if (!small || end != last_) return result(end, error);
        value = *first_ == '-' ? -Real{0} : Real{0};
        return Scan::found;
    }

private:
    static constexpr std::size_t longest_token = 511;

    static bool is_blank(char c)
    {
        return c == ' ' || (c >= '\t' && c <= '\r');
    }

    // False at the end of the file.
    bool read_token()
    {
        do skip_blanks();
        while (at_ == end_ && refill());
        if (at_ == end_) return false;
        const char *end = std::find_if(at_, end_, is_blank);
        if (end == end_) return copy_token();
        first_ = at_;
        last_ = at_ = end;
        return true;
    }

    void skip_blanks()
    {
        const char *at = at_;
        int lines = 0;
        for (; at != end_ && is_blank(*at); ++at) lines += *at == '\n';
        at_ = at;
        line_ += lines;
    }

    // One that the end of the buffer cuts.
    bool copy_token()
    {
        std::size_t length = 0;
        while ((at_ != end_ || refill()) && !is_blank(*at_) && length < longest_token)
            token_[length++] = *at_++;
        first_ = token_;
        last_ = length < longest_token ? token_ + length : token_; // too long for a number
        return true;
    }

    bool refill()
    {
        std::size_t n = 0;
        if (buffer_ != &single_) {
            n = std::fread(buffer_, 1, buffer_size, stream_);
        } else if (const int c = getc_unlocked(stream_); c != EOF) {
            single_ = static_cast<char>(c);
            n = 1;
        }
        at_ = buffer_;
        end_ = buffer_ + n;
        return n > 0;
    }

    // A leading '+', which scanf takes, is none for from_chars.
    const char *first() const
    {
        const bool plus = last_ - first_ > 1 && first_[0] == '+' && first_[1] != '-';
        return first_ + plus;
    }

    Scan result(const char *end, std::errc error) const
    {
        if (error == std::errc::result_out_of_range && end == last_) return Scan::out_of_range;
        return error == std::errc{} && end == last_ ? Scan::found : Scan::no_number;
    }

    FILE *stream_;
    char *buffer_;
    const char *at_, *end_; // what has been read and not yet looked at
    char single_ = 0;
    int line_ = 1;
    const char *first_ = nullptr, *last_ = nullptr; // the token
    char token_[longest_token];                     // where it is when the buffer does not hold it whole
};

} // namespace tavik
