// Layout of the message file, shared by its reader and its compiler.
//
//   7 words   magic, 0, number of messages N, 0, size of the longest template, size of the longest name,
//             alignment exponent s
//   N words   codes, ascending (code modulo 100000, kept in 16 bits)
//   N+1 words offsets of the records in units of 2^s bytes, counted from the data start
//   records   template, NUL, symbolic name, NUL, at the data start: 4N+15 rounded up to a multiple of 2^s
//
// Words are unsigned, of 16 bits, in either byte order: the magic number tells which.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tavik::message_file {

constexpr char name[] = "tavik_e.bin";
constexpr std::uint16_t magic = 29432;
constexpr int header_words = 7;
enum HeaderWord {
    magic_word = 0,
    count_word = 2,
    template_size_word = 4,
    name_size_word = 5,
    alignment_word = 6
};

// The offsets have 16 bits, so no useful file has larger units than this; a larger exponent would overflow
// sizes.
constexpr unsigned largest_alignment = 24;

constexpr std::size_t data_start(std::size_t n_messages, unsigned alignment)
{
    const std::size_t unit = std::size_t{1} << alignment;
    return (4 * n_messages + 15 + unit - 1) / unit * unit;
}

constexpr std::uint16_t key(long code)
{
    return static_cast<std::uint16_t>(code % 100000);
}

constexpr std::uint16_t swap_bytes(std::uint16_t word)
{
    return static_cast<std::uint16_t>(word << 8 | word >> 8);
}

} // namespace tavik::message_file
