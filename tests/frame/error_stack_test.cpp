// Raising errors: which one a level keeps, how it travels to the caller, when it is printed, who is told, and
// when the process stops.
#include "capture.hpp"

#include <algorithm>

using namespace capture;
using testing::ElementsAre;

namespace {

struct ErrorStack : FrameTest {};

TEST_F(ErrorStack, TheMoreSevereErrorTravelsAndTheInnerOneWinsATie)
{
    for (int held = 0; held <= 4; ++held)
        for (int inner = 0; inner <= 4; ++inner) {
            SCOPED_TRACE(testing::Message() << "caller holds " << held << ", inner routine raises " << inner);
            tavik_e1psh("tavik_x");
            if (held > 0) tavik_e1mes(held, 100 + held, "held");
            tavik_e1psh("l_x");
            EXPECT_EQ(tavik_n1rty(0), 0);
            if (inner > 0) tavik_e1mes(inner, 200 + inner, "inner");
            EXPECT_EQ(tavik_n1rcd(0), inner > 0 ? 200 + inner : 0);
            tavik_e1pop("l_x");
            EXPECT_EQ(tavik_n1rty(1), inner);
            EXPECT_TRUE(inner < held || tavik_n1rty(0) == inner);
            tavik_e1pop("tavik_x");
            EXPECT_EQ(tavik_error_type(), std::max(held, inner));
            EXPECT_EQ(tavik_error_code(), held > inner ? 100 + held : inner > 0 ? 200 + inner : 0);
        }
}

TEST_F(ErrorStack, InOneRoutineTheLaterErrorStays)
{
    const long rows[][4] = {// second type and code, type and code that stay
                            {2, 11, 2, 11},  {4, 11, 4, 11}, {-1, -1, 3, 10}, {-1, 12, 3, 12},
                            {-1, -2, 3, 10}, {-1, 0, 3, 10}, {0, 0, 0, 0},    {1, 1L << 40, 1, 1L << 40}};
    for (const auto &[type, code, due_type, due_code] : rows) {
        SCOPED_TRACE(testing::Message() << "type " << type << ", code " << code);
        tavik_e1psh("tavik_x");
        tavik_e1mes(3, 10, "text");
        tavik_e1mes(static_cast<int>(type), code, "text");
        EXPECT_EQ(tavik_n1rty(0), due_type);
        tavik_e1pop("tavik_x");
        EXPECT_EQ(tavik_error_type(), due_type);
        EXPECT_EQ(tavik_error_code(), due_code);
        EXPECT_EQ(own(tavik_error_message()), due_type > 0 ? "text" : "(null)");
        EXPECT_EQ(stream.take().empty(), due_type < 3);
    }
}

std::vector<string> told;

TEST_F(ErrorStack, HookIsToldOfEveryReportedErrorBeforeThePrintProcedure)
{
    told.clear();
    tavik_set_at_checksum([](int type, long code, const char *message, const char *same) {
        told.push_back("hook " + to_string(type) + to_string(code) + message + "|" + same);
    });
    print_with([](int type, long code, const char *routine, const char *message) {
        told.push_back("print " + to_string(type) + to_string(code) + routine + " " + message);
    });
    tavik_initialize(); // nothing to tell
    tavik_e1psh("tavik_x");
    raise_in("l_x", 6, "now");
    EXPECT_THAT(told, ElementsAre("hook 64now|now", "print 64l_x now"));
    tavik_e1mes(3, 8, "one%/line");
    tavik_e1pop("tavik_x");
    raise_in("tavik_y", 6, "at once");
    in_thread([] { raise_in("tavik_z", 2, "elsewhere"); }); // the hook serves every thread
    tavik_set_at_checksum(nullptr);
    raise_in("tavik_y", 2, "unheard");
    told.erase(told.begin(), told.begin() + 2);
    EXPECT_THAT(told, ElementsAre("hook 38one\nline|one\nline", "print 38tavik_x one\nline",
                                  "hook 64at once|at once", "print 64tavik_y at once", "hook 64|",
                                  "hook 24elsewhere|elsewhere"));
}

TEST_F(ErrorStack, UserFunctions)
{
    for (const auto &[on, off] : {std::pair{"ON", "OFF"}, {"on", "off"}, {"xN", "xx"}}) {
        tavik_e1psh("tavik_outer");
        tavik_e1usr(on); // what the user's function calls reports when it returns to that function
        raise_in("tavik_inner", 3, "from inside");
        EXPECT_EQ(stream.take(), block(3, "tavik_inner", "from inside")) << on;
        tavik_e1usr(off);
        raise_in("l_inner", 3, "held back");
        EXPECT_EQ(stream.take(), "") << off;
        tavik_e1pop("tavik_outer");
        EXPECT_EQ(stream.take(), block(3, "tavik_outer", "held back")) << off;
    }
    for (int value : {0, 1, 255, 256, 300}) { // a failure that the user's function reports
        tavik_e1psh("tavik_outer");
        tavik_e1usr("ON");
        tavik_set_user_fcn_return_flag(value);
        EXPECT_EQ(tavik_error_type(), 0);
        tavik_e1usr("OFF");
        EXPECT_EQ(tavik_n1rty(0), 4);
        EXPECT_EQ(tavik_n1rcd(0), 12116);
        tavik_e1mes(0, 0, "");
        tavik_e1usr("ON"); // the flag was taken down
        tavik_e1usr("OFF");
        EXPECT_EQ(tavik_n1rty(0), 0);
        tavik_e1pop("tavik_outer");
        EXPECT_EQ(fill("%(i1)"), to_string(value % 256));
    }
}

// The procedures of the caller's that report an error may call the library, and fail in it.
TEST_F(ErrorStack, ReportingProceduresMayCallTheLibrary)
{
    for (int type : {3, 5}) {
        told.clear();
        print_with([](int, long, const char *, const char *message) {
            const tavik_print_proc quiet = [](int, long, const char *, const char *) {};
            int width = 3;
            print_with(quiet);
            tavik_page(-1, &width);
            told.push_back(to_string(tavik_error_code()) + " in " + message);
        });
        raise_in("outer", type, "the outer error", 77);
        EXPECT_THAT(told, ElementsAre("10021 in the outer error"));
        EXPECT_EQ(to_string(tavik_error_type()) + to_string(tavik_error_code()) + own(tavik_error_message()),
                  to_string(type) + "77the outer error");
    }
}

TEST_F(ErrorStack, ErrorsOnPurpose)
{
    for (const auto &[type, depth, due, routine] : {std::tuple{2, 3, "2 108 2 3", ""},
                                                    {3, 0, "3 108 3 0", "tavik_internal_generate_error"},
                                                    {4, 3, "4 108 4 3", "tavik_internal_generate_error"},
                                                    {5, 0, "5 108 5 0", "tavik_internal_generate_error"},
                                                    {6, 1, "6 108 6 1", "l_fcn1"},
                                                    {7, 3, "7 108 7 3", "l_fcn3"}}) {
        EXPECT_EQ(outcome([t = type, d = depth] { tavik_internal_generate_error(t, d); }, "ii"), due);
        EXPECT_EQ(printed.empty() ? "" : printed[0].routine, routine);
    }
    for (auto [type, depth] : {std::pair{0, 1}, {8, 1}, {3, 4}}) {
        testing::internal::CaptureStderr();
        EXPECT_EQ(outcome([t = type, d = depth] { tavik_internal_generate_error(t, d); }), "0 0");
        EXPECT_THAT(testing::internal::GetCapturedStderr(),
                    testing::HasSubstr("*** Error from tavik_internal_generate_error.  Argument"));
    }
}

TEST_F(ErrorStack, ForkCopiesTheParentAndJoinKeepsTheMoreSevereError)
{
    const string parent_text(3000, 'p'), worker_text(9000, 'w');
    set(TAVIK_SET_TRACEBACK, 2, 1);
    for (int parent = 0; parent <= 4; ++parent)
        for (int worker = 0; worker <= 4; ++worker) {
            SCOPED_TRACE(testing::Message() << "parent " << parent << ", worker " << worker);
            tavik_e1psh("tavik_parallel");
            if (parent > 0) tavik_e1mes(parent, 10 + parent, parent_text.c_str());
            tavik_error_struct *state = tavik_error_struct_get();
            tavik_error_fork(state); // the parent itself works in its region, too
            in_thread([&] {
                tavik_error_fork(state);
                EXPECT_NE(tavik_err_init(), state);
                EXPECT_EQ(get(TAVIK_GET_TRACEBACK, 2), 1);
                raise_in("l_worker", worker, worker > 0 ? worker_text : "", worker > 0 ? 20 + worker : 0);
                tavik_error_join(state);
            });
            tavik_error_join(state);
            tavik_e1pop("tavik_parallel");
            EXPECT_EQ(tavik_error_type(), std::max(parent, worker));
            EXPECT_EQ(tavik_error_code(), worker > parent ? 20 + worker : parent > 0 ? 10 + parent : 0);
            const string due = worker > parent ? worker_text : parent > 0 ? parent_text : "(null)";
            EXPECT_TRUE(own(tavik_error_message()) == due);
        }
}

// Also outside of any routine; and the worker, who holds other settings of its own, has them back afterwards.
TEST_F(ErrorStack, ForkAndJoinAtTheBaseOfTheStack)
{
    in_thread([] {
        set(TAVIK_SET_TRACEBACK, 2, 1);
        tavik_error_struct *parent = tavik_err_init();
        in_thread([=] {
            set(TAVIK_SET_TRACEBACK, 1, 1);
            tavik_error_fork(parent);
            EXPECT_EQ(get(TAVIK_GET_TRACEBACK, 1) * 10 + get(TAVIK_GET_TRACEBACK, 2), 1);
            tavik_e1mes(2, 77, "of the worker");
            tavik_error_join(parent);
            EXPECT_EQ(get(TAVIK_GET_TRACEBACK, 1) * 10 + get(TAVIK_GET_TRACEBACK, 2), 10);
        });
        EXPECT_EQ(tavik_n1rty(0), 2);
        EXPECT_EQ(tavik_n1rcd(0), 77);
    });
}

TEST_F(ErrorStack, ReleasedStateStartsAnew)
{
    in_thread([] {
        EXPECT_EQ(tavik_initialize_error_handler(), 0);
        EXPECT_EQ(tavik_initialize(), 1);
        EXPECT_EQ(tavik_err_init(), tavik_error_struct_get());
        set(TAVIK_SET_PRINT, 1, 1);
        tavik_free_error_handlers();
        EXPECT_EQ(get(TAVIK_GET_PRINT, 1), 0);
        tavik_e1psh("tavik_x");
        tavik_e1mes(2, kCode, "kept");
        tavik_free_allocated_memory(); // nothing is lost inside a call
        tavik_e1pop("tavik_x");
        EXPECT_EQ(own(tavik_error_message()), "kept");
    });
}

using ErrorStopDeathTest = NewProcessTest;

void call(const std::function<void()> &act)
{
    tavik_e1psh("tavik_x");
    act();
    std::fputs("-", stderr); // the process ran on until the routine returned
    tavik_e1pop("tavik_x");
}

void nest(int levels)
{
    tavik_e1psh("l_nested");
    if (levels > 1) nest(levels - 1);
    tavik_e1pop("l_nested");
}

TEST_F(ErrorStopDeathTest, TheOutermostExitPrintsAndEndsTheProcessWithTheTypeAsStatus)
{
    for (int type = 1; type <= 7; ++type)
        for (bool stop : {false, true}) {
            SCOPED_TRACE(testing::Message() << "type " << type << ", stop " << stop);
            const string text = type >= 3 ? block(type, "tavik_x", "text") : "";
            const auto act = [=] {
                if (stop != (type == 4 || type == 5)) set(TAVIK_SET_STOP, type, stop);
                call([=] { raise_in("l_x", type, "text"); });
            };
            in_child(act, stop ? type : 0, type >= 5 ? text + "-" : "-" + text);
        }
}

TEST_F(ErrorStopDeathTest, UserFunctionsAndFaultsOfTheLibraryItself)
{
    const string range = "Error type must be -1,...,8, but type = ", x = header(8, "tavik_x");
    const struct {
        const char *label;
        std::function<void()> act;
        int due;
        string start;
    } rows[] = {
        {"user function", [] { tavik_e1usr("ON"), raise_in("tavik_y", 5, "!"); }, 5,
         block(5, "tavik_y", "!")},
        {"198 inner levels fit", [] { nest(198); }, 0, "-"},
        {"199 inner levels do not", [] { nest(199); }, 8, x},
        {"another name", [] { tavik_e1pop("tavik_y"); }, 8, x},
        {"level of the type", [] { tavik_n1rty(2); }, 8, x},
        {"level of the code", [] { tavik_n1rcd(-1); }, 8, x},
        {"type 9", [] { tavik_e1mes(9, 1, "no"); }, 8, layout(x, range + "9.  Message = \"no\"")},
        {"type -2", [] { tavik_e1mes(-2, 1, "no"); }, 8, layout(x, range + "-2.  Message = \"no\"")},
        {"type 8", [] { tavik_e1mes(8, kCode, "bad"); }, 8, layout(x, "bad") + "Here is a traceback of"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.label);
        in_child([&] { call(row.act); }, row.due, testing::StartsWith(row.start));
    }
}

} // namespace
