// Trapping of signals. It is the process's affair and cannot be undone in every case, so each test runs in a
// child that starts anew, and whose status tells whether all expectations held.
#include "capture.hpp"

#include <csignal>
#include <omp.h>

#include <sys/mman.h>

using namespace capture;

namespace {

// A page that faults when it is read.
const double *bad_page()
{
    return static_cast<const double *>(mmap(nullptr, 4096, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
}

void fault_outside()
{
    (void)*const_cast<const volatile double *>(bad_page());
}

double *fault_inside()
{
    return tavik_d_simple_statistics(8, 2, bad_page(), 0);
}

void expect_good_call()
{
    const double x[] = {1, 2, 3, 4, 5, 6};
    double *result = tavik_d_simple_statistics(3, 2, x, 0);
    ASSERT_NE(result, nullptr);
    EXPECT_EQ(result[0] + tavik_error_type(), 3);
    tavik_free(result);
}

// The start of every child: the system's own dispositions.
void start(int trap, bool stopping = false)
{
    std::signal(SIGSEGV, SIG_DFL);
    std::signal(SIGILL, SIG_DFL);
    restore_defaults(stopping);
    tavik_error_options(TAVIK_SIGNAL_TRAPPING, trap, 0);
    EXPECT_EQ(tavik_signal_trap_status(), trap);
}

// Dispositions and mask as bytes, for comparison.
string dispositions()
{
    string bytes;
    const auto add = [&](const auto &part) {
        bytes.append(reinterpret_cast<const char *>(&part), 8);
    }; // 64 signals
    for (int number : {SIGSEGV, SIGILL}) {
        struct sigaction now;
        sigaction(number, nullptr, &now);
        bytes += to_string(now.sa_flags);
        add(now.sa_sigaction);
        add(now.sa_mask);
    }
    sigset_t mask;
    pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    add(mask);
    return bytes;
}

void set_own_dispositions()
{
    struct sigaction action = {};
    action.sa_sigaction = [](int, siginfo_t *, void *) {};
    action.sa_flags = SA_SIGINFO | SA_RESTART;
    sigaddset(&action.sa_mask, SIGUSR2);
    sigaction(SIGSEGV, &action, nullptr);
    action.sa_flags = SA_SIGINFO;
    sigaction(SIGILL, &action, nullptr);
    pthread_sigmask(SIG_BLOCK, &action.sa_mask, nullptr);
}

struct SignalDeathTest : NewProcessTest {
    void SetUp() override
    {
#if defined(__SANITIZE_THREAD__)
        GTEST_SKIP() << "the thread sanitizer takes every call inside of a handler for an error";
#endif
    }
};

TEST_F(SignalDeathTest, AFaultBecomesAnErrorAndLeavesNoTrace)
{
    in_child([] {
        start(1);
        set_own_dispositions();
        const string before = dispositions();
        for (int round = 0; round < 3; ++round) {
            EXPECT_EQ(outcome([] { EXPECT_EQ(fault_inside(), nullptr); }), "5 102");
            ASSERT_EQ(printed.size(), 2u);
            EXPECT_EQ(printed[0].code, 511);
            EXPECT_EQ(printed[1].code, 102);
            EXPECT_TRUE(dispositions() == before);
            expect_good_call();
            EXPECT_TRUE(dispositions() == before);
            Stream stream; // the stack is empty again, so that a header names the next routine
            tavik_error_options(TAVIK_SET_ERROR_FILE, stream.file, 0);
            raise_in("tavik_next", 6, "clean");
            EXPECT_EQ(stream.take(), block(6, "tavik_next", "clean"));
            tavik_error_options(TAVIK_SET_ERROR_FILE, stderr, 0);
        }
        tavik_error_options(TAVIK_SIGNAL_TRAPPING, 0, 0);
        EXPECT_EQ(tavik_signal_trap_status(), 0);
        expect_good_call();
        tavik_set_signal(1); // the installing routine by itself
        EXPECT_FALSE(dispositions() == before);
        tavik_set_signal(0);
        EXPECT_TRUE(dispositions() == before);
    });
}

int signal_in_print;

// The print procedure runs inside the routine, three levels below its name.
TEST_F(SignalDeathTest, BothSignalsUnwindThroughInnerLevels)
{
    for (const auto &[number, code] : {std::pair{SIGILL, 504L}, {SIGSEGV, 511L}})
        in_child([number = number, code = code] {
            start(1);
            signal_in_print = number;
            for (int round = 0; round < 3; ++round) {
                printed.clear();
                print_with([](int type, long error, const char *routine, const char *message) {
                    record(type, error, routine, message);
                    if (type == 6) std::raise(signal_in_print);
                });
                tavik_internal_generate_error(6, 3);
                EXPECT_EQ(tavik_error_code(), 102);
                ASSERT_EQ(printed.size(), 3u);
                EXPECT_EQ(printed[1].code, code);
                EXPECT_EQ(printed[2].code, 102);
                EXPECT_EQ(fill("%(i1)"), to_string(number));
                print_with(nullptr);
                expect_good_call();
            }
        });
}

TEST_F(SignalDeathTest, ASecondThreadMakesEveryCallFail)
{
    in_child([] {
        in_thread([] { tavik_err_init(); }); // before trapping is on it does no harm
        start(1);
        expect_good_call();
        in_thread([] { tavik_err_init(); });
        for (int round = 0; round < 2; ++round) {
            int width = -7;
            EXPECT_EQ(outcome([&] { tavik_page(1, &width); }), "4 499");
            EXPECT_EQ(width, -7);
            EXPECT_EQ(fault_inside(), nullptr); // nothing is read
            EXPECT_EQ(tavik_error_code(), 499);
        }
        tavik_skip_signal_handler();
        EXPECT_EQ(tavik_signal_trap_status(), 0);
    });
}

// A thread of the OpenMP runtime has a state since it worked for the library, but calls it for the first time
// only now.
TEST_F(SignalDeathTest, AWorkerThatBecomesACallerIsASecondThread)
{
    in_child(
        [] {
            start(0);
            omp_set_num_threads(2);
            const std::vector<double> x(1'000'000, 1.0);
            tavik_free(tavik_d_simple_statistics(1'000'000, 1, x.data(), 0));
            start(1);
#pragma omp parallel num_threads(2)
            tavik_d_machine(4);
        },
        4, testing::HasSubstr("from tavik_d_machine"));
}

TEST_F(SignalDeathTest, HowTheProcessEnds)
{
    const struct {
        const char *label;
        std::function<void()> act;
        int due;
    } rows[] = {
        {"trapped, default settings", [] { start(1, true), fault_inside(); }, 5},
        {"a second thread, default settings", [] { start(1), in_thread([] { tavik_initialize(); }); }, 4},
        {"not trapped", [] { start(0), fault_inside(); }, -SIGSEGV},
        {"switched off", [] { start(1), tavik_skip_signal_handler(), fault_inside(); }, -SIGSEGV},
        {"outside of any call", [] { start(1), expect_good_call(), fault_outside(); }, -SIGSEGV},
        {"after a trapped fault", [] { start(1), fault_inside(), fault_outside(); }, -SIGSEGV},
        {"on another thread", [] { start(1), tavik_set_signal(1), in_thread(fault_outside); }, -SIGSEGV},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.label);
        in_child(row.act, row.due);
    }
}

} // namespace
