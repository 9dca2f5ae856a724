// Numbers between blanks, read from a stream as scanf does in the "C" locale whatever the locale is, and faster.
//
// A stream of the caller's is read no farther than to the blank behind the last number; a file of our own in large
// pieces. The caller has locked the stream.
#pragma once

#include "precision.hpp"

#include <algorithm>
#include <charconv>
#include <climits>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>

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
        return static_cast<int>(std::min<std::int64_t>(line_, INT_MAX));
    }

    Scan integer(int &value)
    {
        if (!read_token()) return Scan::end_of_file;
        const auto [end, error] = std::from_chars(first(), last_, value);
        return result(end, error);
    }

    // A number that is too large for the type becomes infinite, one that is too small 0.
    template <class Real> Scan real(Real &value)
    {
        if (!read_token()) return Scan::end_of_file;
        if (last_ - first_ == 1 && *first_ >= '0' && *first_ <= '9') { // as files are full of
            value = static_cast<Real>(*first_ - '0');
            return Scan::found;
        }
        const auto [end, error] = std::from_chars(first(), last_, value);
        if (error != std::errc::result_out_of_range || end != last_) return result(end, error);
        value = std::copysign(is_below_one() ? Real{0} : infinity<Real>, *first_ == '-' ? Real{-1} : Real{1});
        return Scan::found;
    }

private:
    static constexpr std::ptrdiff_t longest_token = 4095;

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
        set_token(at_, end - at_);
        at_ = end;
        return true;
    }

    void skip_blanks()
    {
        const char *at = at_;
        constexpr char padding[] = "        "; // numbers stand at the right of their fields
        while (end_ - at >= 8 && std::memcmp(at, padding, 8) == 0) at += 8;
        int lines = 0;
        for (; at != end_ && is_blank(*at); ++at) lines += *at == '\n';
        at_ = at;
        line_ += lines;
    }

    // One that the end of the buffer cuts.
    bool copy_token()
    {
        std::ptrdiff_t length = 0;
        while (length <= longest_token && (at_ != end_ || refill()) && !is_blank(*at_))
            token_[length++] = *at_++;
        set_token(token_, length);
        return true;
    }

    // One that is too long counts as no number, wherever the buffer ends.
    void set_token(const char *first, std::ptrdiff_t length)
    {
        first_ = first;
        last_ = first + (length <= longest_token ? length : 0);
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

    // Of a decimal number: where its first digit that is not 0 stands.
    bool is_below_one() const
    {
        const auto is_exponent = [](char c) { return c == 'e' || c == 'E'; };
        const char *exponent = std::find_if(first_, last_, is_exponent),
                   *point = std::find(first_, exponent, '.');
        const char *leading = std::find_if(first_, exponent, [](char c) { return c >= '1' && c <= '9'; });
        std::ptrdiff_t place = leading < point ? point - leading : point + 1 - leading, power = 0;
        if (exponent != last_) {
            const char *digits = exponent + 1 + (exponent[1] == '+');
            const auto scanned = std::from_chars(digits, last_, power);
            if (scanned.ec == std::errc::result_out_of_range) return *digits == '-';
        }
        return place + power <= 0;
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
    std::int64_t line_ = 1;
    const char *first_ = nullptr, *last_ = nullptr; // the token
    char token_[longest_token + 1];                 // where it is when the buffer does not hold it whole
};

} // namespace tavik
