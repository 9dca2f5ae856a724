// What the tests of the frame share: streams that catch printed errors, levels, and a literal model of the
// printed layout, written from the rules and not from the printer.
#pragma once

#include "internal.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <unistd.h>

namespace capture {

using std::string, std::to_string;
using Reals = testing::Types<float, double>;

// The names as they are printed. By default types from 3 on are printed, types from 5 on at once, and 4, 5
// and 8 end the process.
inline constexpr const char *kTypes[] = {"INTERNAL",          "NOTE    ",        "ALERT   ",
                                         "WARNING ",          "FATAL   ",        "TERMINAL",
                                         "WARNING_IMMEDIATE", "FATAL_IMMEDIATE", "INTERNAL"};
inline constexpr long kCode = 4; // No message has this code, so a header names it "4".

inline void set(int option, int type, int flag)
{
    tavik_error_options(option, type, flag, 0);
}

inline int get(int option, int type)
{
    int flag = -77;
    tavik_error_options(option, type, &flag, 0);
    return flag;
}

inline void print_with(tavik_print_proc procedure)
{
    tavik_error_options(TAVIK_ERROR_PRINT_PROC, procedure, 0);
}

inline void restore_defaults(bool stopping = true)
{
    for (int type = 1; type <= 7; ++type) {
        set(TAVIK_SET_PRINT, type, type >= 3);
        set(TAVIK_SET_STOP, type, stopping && (type == 4 || type == 5));
        set(TAVIK_SET_TRACEBACK, type, 0);
    }
    tavik_error_options(TAVIK_FULL_TRACEBACK, 0, TAVIK_SET_ERROR_FILE, stderr, 0);
    print_with(nullptr);
    tavik_set_at_checksum(nullptr);
}

// The routine of a precision.
template <class Real, class F, class D> constexpr auto of_type(F f, D d)
{
    if constexpr (std::is_same_v<Real, float>) return f;
    else return d;
}

// Takes an array over; nothing for null.
template <class T> std::vector<T> take(T *array, std::size_t size)
{
    std::vector<T> copy;
    if (array != nullptr) copy.assign(array, array + size);
    tavik_free(array);
    return copy;
}

// A routine that raises one error. At the bottom of the stack it counts as the one that the user called.
inline void raise_in(const char *routine, int type, const string &message, long code = kCode)
{
    tavik_e1psh(routine);
    tavik_e1mes(type, code, message.c_str());
    tavik_e1pop(routine);
}

struct Stream {
    char *text = nullptr;
    std::size_t size = 0, taken = 0;
    FILE *file = open_memstream(&text, &size);
    ~Stream()
    {
        std::fclose(file);
        std::free(text);
    }
    // What was printed since the last call.
    string take()
    {
        std::fflush(file);
        return {text + std::exchange(taken, size), text + size};
    }
};

inline void in_thread(const std::function<void()> &body)
{
    std::thread(body).join();
}

// In so many threads at once, each with its number.
inline void in_threads(int count, const std::function<void(int)> &body)
{
    std::vector<std::thread> team;
    for (int id = 0; id < count; ++id) team.emplace_back(body, id);
    for (std::thread &thread : team) thread.join();
}

// Takes over a string of the library's.
inline string own(char *text)
{
    const string copy = text == nullptr ? "(null)" : text;
    tavik_free(text);
    return copy;
}

// The template, filled with the parameters that are set on this thread.
inline string fill(const string &message_template)
{
    raise_in("probe", 1, message_template);
    return own(tavik_error_message());
}

struct Printed {
    int type;
    long code;
    string routine, message;
};
inline thread_local std::vector<Printed> printed;
inline void record(int type, long code, const char *routine, const char *message)
{
    printed.push_back({type, code, routine, message});
}

// What a call leaves: type, code, and the first parameters of the given kinds ("iil": i1 i2 l1).
inline string outcome(const std::function<void()> &call, const string &kinds = "")
{
    printed.clear();
    print_with(&record);
    call();
    string seen = to_string(tavik_error_type()) + " " + to_string(tavik_error_code()), wanted;
    print_with(nullptr);
    for (int at[128] = {}; char kind : kinds)
        wanted += string(" %(") + kind + to_string(++at[int{kind}]) + (kind == 'r' ? "%g)" : ")");
    return kinds.empty() ? seen : seen + fill(wanted);
}

inline string header(int type, const string &routine, const string &code_name = "4")
{
    return string("\n*** ") + kTypes[type] + " Error " + (type < 5 ? code_name + " " : "") + "from " +
           routine + ".  ";
}

// The layout, rule by rule. A line is what fits, or what stands before the last blank, or else a cut word; a
// line break within it ends it sooner. A word that has no room behind the header moves to a line of its own.
inline string layout(const string &head, string rest)
{
    const string next_line = "\n***         ";
    string out = head.size() > 77 ? head + next_line + " " : head;
    for (std::size_t column = head.size() > 77 ? 12 : head.size();; column = 12) {
        const bool fits = rest.size() + column <= 77;
        const std::size_t blank = rest.substr(0, 78 - column).rfind(' ');
        const bool at_blank = !fits && blank != string::npos && blank > 0;
        const string piece = rest.substr(0, fits ? string::npos : at_blank ? blank : 78 - column);
        const std::size_t line_break = piece.find('\n');
        const bool at_line_break = line_break != string::npos;
        if (fits && !at_line_break) return out + rest + "\n\n";
        const std::size_t cut = at_line_break ? line_break
                                : at_blank    ? blank
                                : column > 12 ? 0
                                              : piece.size() - 1;
        out += rest.substr(0, cut) + next_line;
        rest.erase(0, cut + (at_line_break ? 1 : 0));
    }
}

inline string block(int type, const string &routine, const string &message, const string &code_name = "4")
{
    return layout(header(type, routine, code_name), message);
}

// Default settings, except that nothing stops the process and errors are printed into `stream`.
struct FrameTest : testing::Test {
    Stream stream;
    FrameTest()
    {
        restore_defaults(false);
        tavik_error_options(TAVIK_SET_ERROR_FILE, stream.file, 0);
    }
    ~FrameTest() override
    {
        restore_defaults();
    }
};

// Runs `act` in a child process, which must end with status `due`, or by the signal -due. When `act` returns,
// the status is 0 if no expectation failed in it; the child prints failures on its standard error.
inline void in_child(const std::function<void()> &act, int due = 0,
                     const testing::Matcher<const string &> &errors = testing::_)
{
    const auto child = [&] {
        alarm(60);
        act();
        const testing::TestResult &seen = *testing::UnitTest::GetInstance()->current_test_info()->result();
        for (int i = 0; i < seen.total_part_count(); ++i)
            std::fprintf(stderr, "line %d: %s\n", seen.GetTestPartResult(i).line_number(),
                         seen.GetTestPartResult(i).message());
        std::exit(seen.total_part_count() == 0 ? 0 : 1);
    };
    const auto ended = [=](int status) {
        return due < 0 ? testing::KilledBySignal(-due)(status) : testing::ExitedWithCode(due)(status);
    };
    EXPECT_EXIT(child(), ended, errors);
}

// For state that a process cannot take back: each child is a new process that runs the test up to its own
// part.
struct NewProcessTest : testing::Test {
    NewProcessTest()
    {
        GTEST_FLAG_SET(death_test_style, "threadsafe");
    }
};

} // namespace capture
