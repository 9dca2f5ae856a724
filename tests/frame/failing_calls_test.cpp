// Calls that fail: type, code and parameters of the error, the level that raises it, and the name in its
// header.
#include "capture.hpp"

using namespace capture;

namespace {

int at, flag; // the position counter of the checkers; what an option is read into
int *const no_int = nullptr;
FILE *file_read, **const no_file = nullptr;

struct Row {
    const char *routine; // one that begins with "l_" is a level that the test makes
    std::function<void()> call;
    const char *due, *kinds = "", *raised_in = "";
};

struct FailingCalls : FrameTest {
    void check(const Row &row)
    {
        SCOPED_TRACE(string(row.routine) + ": " + row.due);
        const auto run = [&] {
            const bool own_level = string(row.routine).starts_with("l_");
            if (own_level) tavik_e1psh(row.routine);
            row.call();
            if (own_level) tavik_e1pop(row.routine);
        };
        EXPECT_EQ(outcome(run, row.kinds), row.due);
        EXPECT_TRUE(*row.raised_in == '\0' || printed.back().routine == row.raised_in);
        stream.take();
        run();
        const int type = row.due[0] - '0';
        EXPECT_THAT(stream.take(), testing::StartsWith(type == 0 ? "" : header(type, row.routine)));
    }
};

TEST_F(FailingCalls, Checkers)
{
    const Row rows[] = {
        {"l_range", [] { tavik_c1iarg(6, "ido", 1, 5, &at); }, "5 602 6 1 5 ido", "iiil"},
        {"l_open", [] { tavik_c1iarg(0, "n", 1, -1, &at); }, "5 603 0 1 n", "iil"},
        {"l_limit", [] { tavik_c12ile(4, "n", 3, "max", &at); }, "5 601 4 3 n max", "iill"},
        {"l_index", [] { tavik_c1ind(1, 3, "i", 3, "n", &at); }, "0 0"},
        {"l_index", [] { tavik_c1ind(1, 0, "i", 3, "n", &at); }, "5 603 0 1 i", "iil"},
        {"l_index", [] { tavik_c1ind(1, 4, "i", 3, "n", &at); }, "5 601 4 3 i n", "iill"},
        {"l_index", [] { tavik_c1ind(1, 4, "i", 0, "n", &at); }, "0 0"},
        {"l_dimension", [] { tavik_c1dim(1, 3, "n", 3, "dim", &at); }, "0 0"},
        {"l_dimension", [] { tavik_c1dim(1, 4, "n", 3, "dim", &at); }, "5 601 4 3 n dim", "iill"},
        {"l_dimension", [] { tavik_c1dim(1, 0, "n", 3, "dim", &at); }, "5 603 0 1 n", "iil"},
        {"l_dimension", [] { tavik_c1dim(1, 4, "n", 0, "dim", &at); }, "5 603 0 1 dim", "iil"},
        {"l_starred", [] { tavik_c1dim(1, 0, "*n", 3, "dim", &at); }, "0 0"},
        {"l_starred", [] { tavik_c1dim(1, 4, "*n", 3, "dim", &at); }, "5 601 4 3 n dim", "iill"},
        {"l_starred", [] { tavik_c1dim(1, 4, "*n", 0, "dim", &at); }, "5 603 0 1 dim", "iil"},
        {"l_sign", [] { tavik_c1ge0("x", -0.5f, &at); }, "5 11061 -0.5 x", "rl"},
        {"l_sign", [] { tavik_dc1ge0("x", -1e-300, &at); }, "5 11061 -1e-300 x", "rl"},
        {"l_sign", [] { tavik_c1ge0("x", 0.0f, &at); }, "0 0"},
        {"l_percentage", [] { tavik_c1cip("c", 100.0f, &at); }, "5 20403 100 c", "rl"},
        {"l_percentage", [] { tavik_dc1cip("c", -0.25, &at); }, "5 20403 -0.25 c", "rl"},
        {"l_percentage", [] { tavik_c1cip("c", 0.25f, &at); }, "6 20404 0.25 c", "rl"},
        {"l_percentage", [] { tavik_dc1cip("c", 49.75, &at); }, "6 20404 49.75 c", "rl"},
        {"l_percentage", [] { tavik_c1cip("c", 0.0f, &at); }, "0 0"},
        {"l_percentage", [] { tavik_dc1cip("c", 50.0, &at); }, "0 0"},
        {"l_percentage", [] { tavik_dc1cip("c", 99.999, &at); }, "0 0"},
    };
    for (const Row &row : rows) {
        at = 40;
        check(row); // two calls
        EXPECT_EQ(at, 42) << row.routine << row.due;
    }
    for (int value = -1; value <= 4; ++value) {
        check({"l_sweep", [=] { tavik_c1iarg(value, "n", 1, 3, &at); },
               value < 1 || value > 3 ? "5 602" : "0 0"});
        check({"l_sweep", [=] { tavik_c1iarg(value, "n", 1, 0, &at); }, value < 1 ? "5 603" : "0 0"});
    }
}

TEST_F(FailingCalls, Arguments)
{
    const Row rows[] = {
        {"tavik_f_machine", [] { EXPECT_EQ(tavik_f_machine(0), 0); }, "5 132 1 8 0", "iii", "l_machine"},
        {"tavik_d_machine", [] { EXPECT_EQ(tavik_d_machine(9), 0); }, "5 132 1 8 9", "iii", "l_machine"},
        {"tavik_i_machine", [] { EXPECT_EQ(tavik_i_machine(13), 0); }, "5 132 0 12 13 n", "iiil"},
        {"tavik_i_machine", [] { EXPECT_EQ(tavik_i_machine(-1), 0); }, "5 132 0 12 -1 n", "iiil"},
        {"tavik_amach", [] { EXPECT_EQ(tavik_amach(9), 0); }, "5 12009 9", "i", "tavik_amach"},
        {"l_imach", [] { EXPECT_EQ(tavik_imach(0), 8); }, "5 132 1 12 0 n", "iiil"},
        {"l_umach", [] { tavik_umach(4, &file_read); }, "5 12010 4", "i"},
        {"tavik_e1pos", [] { tavik_e1pos(9, &flag, &flag); }, "5 132 -8 8 9 type", "iiil", "tavik_e1pos"},
        {"tavik_e1pos", [] { tavik_e1pos(-9, &flag, &flag); }, "5 132 -8 8 -9 type", "iiil", "tavik_e1pos"},
        {"tavik_page", [] { tavik_page(3, &flag); }, "5 10020"},
        {"tavik_page", [] { tavik_page(-1, &(flag = 9)); }, "5 10021 9", "i"},
        {"tavik_page", [] { tavik_page(-2, &(flag = -60)); }, "5 10022 -60", "i"},
        {"tavik_page", [] { tavik_page(1, nullptr); }, "5 150"},
        {"tavik_version", [] { EXPECT_EQ(tavik_version(1), nullptr); }, "5 103 1 1", "ii", "l_version"},
        {"tavik_fopen", [] { EXPECT_EQ(tavik_fopen(nullptr, "r"), nullptr); }, "5 65371"},
        {"tavik_fopen", [] { EXPECT_EQ(tavik_fopen("/dev/null", nullptr), nullptr); }, "5 150 mode", "l"},
        {"tavik_fclose", [] { EXPECT_EQ(tavik_fclose(nullptr), -1); }, "5 150 file", "l"},
    };
    for (const Row &row : rows) check(row);
    tavik_page(1, &flag);
    EXPECT_EQ(flag, 78);
    tavik_page(2, &flag);
    EXPECT_EQ(flag, 60);
}

TEST_F(FailingCalls, OptionLists)
{
    const double x[] = {1, 2, 3};
    double user[14] = {-5};
    flag = -1;
    file_read = nullptr;
    const auto bad_list = [] { tavik_error_options(14520, 2, 1, 11990, 1, &flag, -9, 0); };
    const auto bad_units = [] { tavik_output_file(14510, stdin, 14490, stdin, 11980, &file_read, 99, 0); };
    const auto bad_statistics = [&] {
        EXPECT_EQ(tavik_d_simple_statistics(3, 1, x, 14280, user, 10880, 90.0, 9, 0), nullptr);
    };
    const Row rows[] = {
        {"tavik_error_options", bad_list, "5 103 -9 3", "ii"},
        {"tavik_error_options", [] { tavik_error_options(99, 0); }, "5 103 99 1", "ii"},
        {"tavik_error_options", [] { set(TAVIK_SET_PRINT, 0, 1); }, "5 132 1 5 0 type", "iiil"},
        {"tavik_error_options", [] { set(TAVIK_SET_STOP, 8, 0); }, "5 132 1 5 8 type", "iiil"},
        {"tavik_error_options", [] { EXPECT_EQ(get(11990, -3), -77); }, "5 132 1 5 -3 type", "iiil"},
        {"tavik_error_options", [] { tavik_error_options(TAVIK_GET_STOP, 3, no_int, 0); }, "5 150"},
        {"tavik_error_options", [] { tavik_error_options(TAVIK_ERROR_HANDLER_ID, no_int, 0); }, "5 150"},
        {"tavik_error_options", [] { tavik_error_options(TAVIK_GET_ERROR_FILE, no_file, 0); }, "5 150"},
        {"tavik_output_file", [] { tavik_output_file(TAVIK_GET_OUTPUT_FILE, no_file, 0); }, "5 150"},
        {"tavik_output_file", bad_units, "5 103 99 4", "ii"},
        {"tavik_omp_options", [] { tavik_omp_options(50741, 1, 7, 0); }, "5 103 7 2", "ii"},
        {"tavik_omp_options", [] { tavik_omp_options(50742, no_int, 0); }, "5 150"},
        {"tavik_d_simple_statistics", bad_statistics, "5 11001 9 3", "ii"}, // a code of its own
    };
    for (const Row &row : rows) check(row);
    // An unknown code voids its whole list, except for the thread controls, where what came before it acts.
    EXPECT_EQ(get(TAVIK_GET_PRINT, 2), 0);
    EXPECT_EQ(flag, -1);
    EXPECT_EQ(user[0], -5);
    FILE *output = nullptr, *error = nullptr;
    tavik_output_file(TAVIK_GET_OUTPUT_FILE, &output, TAVIK_GET_ERROR_FILE, &error, 0);
    EXPECT_THAT((std::vector{output, error, file_read}), testing::ElementsAre(stdout, stream.file, nullptr));
    tavik_omp_options(TAVIK_GET_FUNCTIONS_THREAD_SAFE, &flag, 0);
    EXPECT_EQ(flag, 1);
    tavik_omp_options(TAVIK_SET_FUNCTIONS_THREAD_SAFE, 0, 0);
    // A bad type leaves out its own option only.
    tavik_error_options(TAVIK_SET_PRINT, 1, 1, TAVIK_SET_PRINT, 9, 1, 0);
    EXPECT_EQ(get(TAVIK_GET_PRINT, 1), 1);
}

} // namespace
