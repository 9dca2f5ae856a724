// The text that an error prints: header, wrapping, traceback.
#include "capture.hpp"

using namespace capture;

namespace {

struct ErrorPrint : FrameTest {
    string print(int type, const string &routine, const string &message)
    {
        set(TAVIK_SET_PRINT, type, 1);
        raise_in(routine.c_str(), type, message);
        return stream.take();
    }
};

TEST_F(ErrorPrint, Headers)
{
    for (int type = 1; type <= 7; ++type)
        EXPECT_EQ(print(type, "tavik_x", "text"), block(type, "tavik_x", "text"));
    // The header names the routine that the user called, here or from a function that the library called.
    for (const char *routine : {"tavik_outer", "l_outer"}) tavik_e1psh(routine);
    raise_in("l_deep", 6, "one");
    EXPECT_EQ(stream.take(), block(6, "tavik_outer", "one"));
    tavik_e1usr("ON");
    for (const char *routine : {"tavik_inner", "l_deep"}) tavik_e1psh(routine);
    raise_in("l_deeper", 6, "two");
    EXPECT_EQ(stream.take(), block(6, "tavik_inner", "two"));
    for (const char *routine : {"l_deep", "tavik_inner", "l_outer", "tavik_outer"}) tavik_e1pop(routine);
}

// The header takes 35 columns, its line break included, so 42 characters fit beside it; a continuation line
// holds 65, the blank at its start included.
TEST_F(ErrorPrint, WrapBoundaries)
{
    const string head = "\n*** TERMINAL Error from tavik_x.  ", next = "\n***         ";
    const auto a = [](int n) { return string(n, 'a'); };
    const struct {
        const char *label;
        string message, due;
    } rows[] = {
        {"just fits", a(20) + " " + a(21), a(20) + " " + a(21)},
        {"one too long", a(20) + " " + a(22), a(20) + next + " " + a(22)},
        {"last blank that is allowed", a(42) + " b", a(42) + next + " b"},
        {"blank one column too late", "c " + a(41) + " b", "c" + next + " " + a(41) + " b"},
        {"continuation just fits", a(42) + " " + a(62) + " b", a(42) + next + " " + a(62) + " b"},
        {"continuation wraps", a(42) + " " + a(62) + " bb", a(42) + next + " " + a(62) + next + " bb"},
        {"no blank: fresh line", a(50), next + a(50)},
        {"no blank on a whole line: cut", a(100), next + a(65) + next + a(35)},
        {"cut after a blank", "b " + a(100), "b" + next + " " + a(64) + next + a(36)},
        {"line breaks", "one\n\ntwo " + a(60), "one" + next + next + "two " + a(60)},
        {"line break behind the last blank", "c " + a(40) + "\nb", "c" + next + " " + a(40) + next + "b"},
        {"run of blanks", "c   " + a(40), "c  " + next + " " + a(40)},
    };
    for (const auto &row : rows)
        EXPECT_EQ(print(5, "tavik_x", row.message), head + row.due + "\n\n") << row.label;
    for (int length : {48, 49, 50, 51, 120}) { // "\n*** TERMINAL Error from " and ".  " take 28 columns
        const string routine(length, 'r'), gap = next + (length + 28 > 77 ? " " : "");
        EXPECT_EQ(print(5, routine, "words follow"), header(5, routine) + gap + "words follow\n\n") << length;
    }
}

TEST_F(ErrorPrint, Traceback)
{
    const string head = "Here is a traceback of the calls in reverse order.\n"
                        "  Error Type        Error Code              Routine\n"
                        "  ----------        ----------              -------\n";
    const auto plain = [](const string &routine) { return string(44, ' ') + routine + "\n"; };
    for (int type = 3; type <= 7; ++type) set(TAVIK_SET_TRACEBACK, type, 1);
    EXPECT_EQ(print(3, "tavik_x", "late"), block(3, "tavik_x", "late") + head +
                                               " TAVIK_WARNING     4                         tavik_x\n" +
                                               plain("USER"));
    for (int full : {0, 1}) {
        tavik_error_options(TAVIK_FULL_TRACEBACK, full, 0);
        for (const char *routine : {"tavik_x", "l_middle"}) tavik_e1psh(routine);
        raise_in("l_inner", 6, "deep");
        for (const char *routine : {"l_middle", "tavik_x"}) tavik_e1pop(routine);
        const string inner =
            " TAVIK_WARNING_IMMEDIATE   4                         l_inner\n" + plain("l_middle");
        EXPECT_EQ(stream.take(), block(6, "tavik_x", "deep") + head + (full ? inner : "") + plain("tavik_x") +
                                     plain("USER"));
    }
}

TEST_F(ErrorPrint, NothingWhenPrintingIsOffOrTheMessageIsEmpty)
{
    for (int type : {3, 5}) {
        set(TAVIK_SET_TRACEBACK, type, 1);
        set(TAVIK_SET_PRINT, type, 0);
        raise_in("tavik_x", type, "quiet", 1000);
        EXPECT_EQ(stream.take(), "");
        EXPECT_EQ(own(tavik_error_message()) + to_string(tavik_error_type() + tavik_error_code()),
                  "quiet" + to_string(type + 1000));
    }
    EXPECT_EQ(print(3, "tavik_x", " "), "");
    EXPECT_EQ(tavik_error_type(), 3);
    EXPECT_EQ(own(tavik_error_message()), "");
}

} // namespace
