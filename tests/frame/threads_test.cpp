// Many threads raise, print and query at once: no line is torn, no state is another thread's.
#include "capture.hpp"
#include "parallel.hpp"

#include <array>
#include <atomic>
#include <malloc.h>
#include <omp.h>
#include <random>
#include <set>
#include <string_view>
#include <sys/wait.h>

using namespace capture;

namespace {

constexpr int kThreads = 8, kRounds = 300;
constexpr const char *kNames[kThreads] = {"tavik_t0", "tavik_t1", "tavik_t2", "tavik_t3",
                                          "tavik_t4", "tavik_t5", "tavik_t6", "tavik_t7"};

struct Threads : FrameTest {};

TEST_F(Threads, PrintedErrorsNeverInterleaveAndStatesNeverMix)
{
    const auto text = [](int id, int round) {
        return to_string(round) + " of " + kNames[id] + string(70, ' ') + string(90, char('a' + id)) +
               "\nend";
    };
    const auto code = [](int id, int round) { return kCode + 100000L * (1000 * id + round); };
    const auto type = [](int round) { return 3 + round % 2 * 3; };
    std::atomic<int> wrong = 0;
    in_threads(kThreads, [&](int id) {
        tavik_error_options(TAVIK_SET_ERROR_FILE, stream.file, TAVIK_SET_TRACEBACK, 1, id % 2, 0);
        for (int round = 0; round < kRounds; ++round) {
            const string due = text(id, round), rest = due.substr(to_string(round).size());
            tavik_e1sti(1, round);
            tavik_e1stl(1, rest.c_str());
            std::this_thread::yield();
            raise_in(kNames[id], type(round), "%(i1)%(l1)", code(id, round));
            wrong += tavik_error_type() != type(round) || tavik_error_code() != code(id, round) ||
                     own(tavik_error_message()) != due || get(TAVIK_GET_TRACEBACK, 1) != id % 2;
        }
    });
    EXPECT_EQ(wrong, 0);
    const string all = stream.take();
    std::array<int, kThreads> round{};
    for (std::string_view rest = all; !rest.empty();) {
        int id = -1;
        string due;
        do {
            ASSERT_LT(++id, kThreads) << "no thread printed this: " << rest.substr(0, 300);
            const int n = round[id];
            due = block(type(n), kNames[id], text(id, n), to_string(code(id, n)));
        } while (!rest.starts_with(due));
        rest.remove_prefix(due.size());
        ++round[id];
    }
    EXPECT_THAT(round, testing::Each(kRounds));
}

TEST_F(Threads, LookUpsInTheMessageFileNeverMix)
{
    const auto text = [](long code) {
        for (int k = 1; k <= 9; ++k) {
            tavik_e1sti(k, k);
            tavik_e1std(k, k);
            tavik_e1stl(k, "name");
        }
        tavik_e1psh("tavik_x");
        tavik_ermes(2, code);
        tavik_e1pop("tavik_x");
        return own(tavik_error_message());
    };
    std::vector<std::pair<long, string>> due;
    std::set<string> distinct;
    for (long code :
         {103L, 108L, 132L, 150L, 601L, 602L, 603L, 11001L, 11061L, 12116L, 20403L, 20404L, kCode})
        distinct.insert(due.emplace_back(code, text(code)).second);
    EXPECT_NE(due.front().second, "Error code 103."); // the file was found
    EXPECT_EQ(due.back().second, "Error code 4.");
    EXPECT_EQ(distinct.size(), due.size());
    std::atomic<int> wrong = 0;
    in_threads(kThreads, [&](int id) {
        std::mt19937 bits(id);
        for (int round = 0; round < kRounds; ++round) {
            const auto &[code, message] = due[bits() % due.size()];
            wrong += text(code) != message;
        }
    });
    EXPECT_EQ(wrong, 0);
}

// A thread leaves an error, its texts and an open series behind.
TEST_F(Threads, TenThousandShortLivedOnesLeaveNoMemoryBehind)
{
    const auto run = [](int count) {
        for (int i = 0; i < count; ++i)
            in_thread([] {
                restore_defaults(false);
                const double x[] = {1, 2, 3};
                tavik_d_simple_statistics(3, 1, x, TAVIK_IDO, 1, 0);
                tavik_internal_generate_error(1, 2);
                tavik_error_options(TAVIK_ERROR_MSG_PATH, "./", 0);
            });
        return mallinfo2().uordblks; // bytes in use, of all threads
    };
    const std::size_t before = run(100), after = run(10000);
    EXPECT_LT(after, before + 1'000'000); // ten thousand states are 300 MB
}

using ThreadsDeathTest = NewProcessTest;

TEST_F(ThreadsDeathTest, AChildOfForkWorksWithoutTheThreadsThatItHasNot)
{
    in_child([] {
        restore_defaults(false);
        omp_set_num_threads(2);
        const std::vector<double> x(1'000'000, 1.0);
        const auto call = [&] { return tavik_d_simple_statistics(1'000'000, 1, x.data(), TAVIK_MEDIAN, 0); };
        tavik_free(call());
        const pid_t child = fork();
        if (child == 0) {
            alarm(30);
            double *result = call();
            const bool right = result != nullptr && result[9] == 1e6;
            tavik_free(result);
            tavik_free_allocated_memory();
            _exit(right ? 0 : 1);
        }
        int status = -1;
        waitpid(child, &status, 0);
        EXPECT_EQ(status, 0);
    });
}

// What one thread writes between parts, the others read in the next one, and the other way round. Meanwhile it has work
// of its own, beside which they come to the part.
TEST(Crew, DoesEveryPieceOnceAndSharesWhatWasWritten)
{
    constexpr int n_pieces = 7, n_parts = 3000;
    std::array<int, n_pieces> done{};
    int part = 0, wrong = 0, beside = 0;
    std::atomic<int> n_done{0};
    bool has_come[3] = {};
    tavik::Crew crew;
    crew.enlist(3, [&] {
        for (part = 1; part <= n_parts; ++part) {
            tavik::OrderedPieces pieces(n_pieces);
            const auto body = [&](int thread) {
                has_come[thread] = true;
                for (std::int64_t k = pieces.take(); k >= 0; k = pieces.take()) {
                    done[std::size_t(k)] += part;
                    ++n_done;
                    if (part % 100 == 0) std::this_thread::sleep_for(std::chrono::microseconds(100));
                }
            };
            n_done = 0;
            crew.start(body);
            if (part % 100 == 0) std::this_thread::sleep_for(std::chrono::milliseconds(1));
            beside += n_done > 0;
            crew.finish();
            for (const int sum : done) wrong += sum != part * (part + 1) / 2;
        }
    });
    EXPECT_EQ(wrong, 0);
    EXPECT_GT(beside, 0);
    EXPECT_TRUE(has_come[0]);
    EXPECT_TRUE(has_come[1] || has_come[2]) << "nobody has helped";
}

} // namespace
