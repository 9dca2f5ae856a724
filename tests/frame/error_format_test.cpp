// How a message template and its parameters become a message.
#include "capture.hpp"

#include <climits>

using namespace capture;

namespace {

struct ErrorFormat : FrameTest {
    ErrorFormat()
    {
        tavik_e1sti(1, 7);
        tavik_e1std(2, 2.5);
        tavik_e1str(3, 0.1f);
        tavik_e1stc(1, {1.5f, -2.0f});
        tavik_e1stz(2, {1e300, 0.25});
        tavik_e1stl(1, "abc");
        tavik_e1stl(2, nullptr);
        tavik_e1stl(-3, "%(i1)%/%s%n"); // the absolute value counts
    }
};

TEST_F(ErrorFormat, Templates)
{
    static const struct {
        const char *label, *text, *due;
    } rows[] = {
        {"integer, real, line break", "%(i1) of %(r2)%/next", "7 of 2.500000e+00\nnext"},
        {"letters of integers and strings", "%(i1)%(I1) %(l1)%(L1)%(s1)%(S1)", "77 abcabcabcabc"},
        {"letters of reals", "%(r2%g)%(R2%g)%(d2%g)%(D2%g)%(f2%g)%(F2%g)", "2.52.52.52.52.52.5"},
        {"letters of complex numbers", "%(c1)%(C1%g)%(z1%g)%(Z1%g)",
         "(1.500000e+00,-2.000000e+00)(1.5,-2)(1.5,-2)(1.5,-2)"},
        {"double complex", "%(z2)", "(1.000000e+300,2.500000e-01)"},
        {"float is widened", "%(r3%.12f)", "0.100000001490"},
        {"unknown letter", "a %(q1) b", "a %(q1) b"},
        {"no letter and digit", "%() %(i) %(11) %(ab) %(", "%() %(i) %(11) %(ab) %("},
        {"lone per cent signs", "100% of %d %% and %", "100% of %d %% and %"},
        {"two line breaks", "a%/%/b", "a\n\nb"},
        {"integer formats", "[%(i1%5d)][%(i1%-5d)][%(i1%+d)][%(i1%03d)]", "[    7][7    ][+7][007]"},
        {"real formats", "[%(r2%8.3f)][%(r2%g)][%(r2%.1e)]", "[   2.500][2.5][2.5e+00]"},
        {"string formats", "[%(l1%6s)][%(l1%-4s)][%(l1%.2s)]", "[   abc][abc ][ab]"},
        {"text after the conversion", "%(i1%d items) left", "7 items left"},
        {"a parameter is not expanded again", "<%(l3)>", "<%(i1)%/%s%n>"},
    };
    for (const auto &row : rows) EXPECT_EQ(fill(row.text), row.due) << row.label;
}

TEST_F(ErrorFormat, HostileFormatsFallBack)
{
    const struct {
        string parameter, due;
        std::vector<string> formats;
    } rows[] = {
        {"i1",
         "7",
         {"%n", "%s", "%f", "%ld", "%lld", "%hhd", "%*d", "%.*d", "%d%d", "%d%n", "%1000d", "%.1000d", "%",
          "%5", "%1$d", "%'d", "%d %s"}},
        {"r2", "2.500000e+00", {"%d", "%s", "%n", "%Lf", "%*f", "%.1000f", "%f%f", "%lf", "%"}},
        {"l1", "abc", {"%d", "%n", "%f", "%ls", "%*s", "%.*s", "%s%s", "%s%n", "%9999s", "%"}},
        {"c1", "(1.500000e+00,-2.000000e+00)", {"%d", "%s", "%n", "%Lf", "%*f", "%f%n"}},
    };
    for (const auto &[parameter, due, formats] : rows)
        for (const string &format : formats)
            EXPECT_EQ(fill("<%(" + parameter + format + ")>"), "<" + due + ">") << parameter << format;
    // No slot, no string: the text around still arrives. No end: so does the text before.
    for (const char *text : {"a%(i0)b", "a%(l0)b", "a%(l2)b", "a%(l2%5s)b"})
        EXPECT_THAT(fill(text), testing::MatchesRegex("a.*b")) << text;
    for (const char *text : {"a%(i1", "a%(i1%5d", "a%(i1%"}) EXPECT_EQ(fill(text)[0], 'a') << text;
}

TEST_F(ErrorFormat, SlotsOutsideOneToNineAreIgnored)
{
    for (int k : {1, 2, 3, 4, 5, 6, 7, 8, 9, 0, 10, -10, 100, INT_MAX, INT_MIN}) {
        tavik_e1sti(k, k);
        tavik_e1std(k, k);
        tavik_e1stz(k, {1.0 * k, 0.0});
        tavik_e1stl(k, k < 1 || k > 9 ? "bad" : "s");
    }
    for (const string n : {"1", "2", "3", "4", "5", "6", "7", "8", "9"})
        EXPECT_EQ(fill("%(i" + n + ") %(r" + n + "%g) %(z" + n + "%g) %(l" + n + ")"),
                  n + " " + n + " (" + n + ",0) s");
}

TEST_F(ErrorFormat, MessagesOfAnyLengthArriveWhole)
{
    for (std::size_t length : {1535u, 1536u, 1537u, 2047u, 2048u, 2049u, 4096u, 100000u}) {
        const string word = string(length, 'x') + "y";
        tavik_e1stl(4, word.c_str());
        EXPECT_TRUE(fill(word) == word) << length;
        EXPECT_TRUE(fill("<%(l4)|%(l4)>") == "<" + word + "|" + word + ">") << length;
        tavik_e1stl(4, "");
    }
}

} // namespace
