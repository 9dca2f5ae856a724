// Fails the k-th allocation of every public routine, for k = 1, 2, ... until it succeeds: each failure must
// give its error and a null result, leave no block behind, and leave the library usable.
//
// A new routine joins with one line in one of the lists of cases.
#include "failing_malloc.hpp"

#include "datamining/networks.hpp"

#include <fstream>
#include <numeric>
#include <omp.h>
#include <set>

namespace {

using capture::of_type, networks::Network;

// What a routine without memory does: an error (5, 200 or 5, 201), or null without one, as its comment says.
enum class Without { error, null };

struct Case {
    std::string routine;
    std::function<void *()> run; // gives what tavik_free releases: the routine's result or one of its outputs
    Without memory = Without::error;
    long keeps = 0; // blocks that stay the library's
};

void *const no_result = nullptr;

template <class Call> std::function<void *()> done(Call call)
{
    return [=] {
        call();
        return no_result;
    };
}

// First stages and the last one, whichever gets through.
template <class Call> std::function<void *()> in_stages(Call call)
{
    return [=]() -> void * {
        for (int ido : {1, 2}) {
            tavik_free(call(ido));
            if (tavik_error_type() == 5) return no_result;
        }
        return call(3);
    };
}

// Calls the routine of the precision at hand, which is Real.
#define CALL(name, ...) of_type<Real>(tavik_f_##name, tavik_d_##name)(__VA_ARGS__)

template <class Real> Real x[] = {1, 2, 3, 4, 5, 6};
template <class Real> Real mass[] = {1, 2, 1};
template <class Real> Real zeros[8] = {};
template <class Real> const Real no_rotation[] = {-2};
template <class Real> const Real zero = 0;
char text[] = "./";
int number = 80;
const std::uint32_t no_twister_32[] = {626}, twister_32[625] = {}, key_32[2] = {};
const std::uint64_t no_twister_64[] = {314}, twister_64[313] = {}, key_64[2] = {};

// What a routine of random numbers that gives a table allocates.
template <class T, class Get> std::function<void *()> table_of(Get get)
{
    return [=] {
        T *table = nullptr;
        get(&table, 0);
        return static_cast<void *>(table);
    };
}

// With a twister that must be made first; its state stays.
Case with_new_twister(const char *routine, int generator, const std::function<void *()> &call)
{
    const auto run = [=] {
        tavik_random_MT32_table_set(no_twister_32);
        tavik_random_MT64_table_set(no_twister_64);
        tavik_random_option(generator);
        return call();
    };
    return {routine, run, Without::error, 1};
}

// Outputs beside the result are released. They are null exactly when the result is.
template <class... Outputs> void *with_outputs(void *result, Outputs... outputs)
{
    for (void *output : {static_cast<void *>(outputs)...}) {
        EXPECT_EQ(output == nullptr, result == nullptr);
        tavik_free(output);
    }
    return result;
}

template <class Real> void *regression_with_every_output()
{
    Real *anova, *coefficients, *covariances, *residuals, *means, *factor, leverages[3];
    int rank;
    void *b = CALL(regression, 3, 1, x<Real>, x<Real> + 3, TAVIK_FREQUENCIES, mass<Real>, TAVIK_WEIGHTS,
                   mass<Real>, TAVIK_ANOVA_TABLE, &anova, TAVIK_COEF_STATISTICS, &coefficients,
                   TAVIK_COEF_COVARIANCES, &covariances, TAVIK_RESIDUALS, &residuals, TAVIK_VARIABLE_MEANS,
                   &means, TAVIK_R_FACTOR, &factor, TAVIK_LEVERAGES_USER, leverages, TAVIK_RANK, &rank, 0);
    return with_outputs(b, anova, coefficients, covariances, residuals, means, factor);
}

template <class Real>
const std::vector<Real> many_values = [] {
    std::vector<Real> squares;
    for (int i = 0; i < 60000; ++i) squares.push_back(static_cast<Real>(i * i % 101));
    return squares;
}();

// Rows enough for several blocks, without an intercept; columns are by index.
template <class Real> void *regression_of_many_rows()
{
    const int independent[] = {2, 0}, dependent[] = {1};
    Real *crossproducts;
    void *b = CALL(regression, 20000, 2, many_values<Real>.data(), nullptr, TAVIK_X_INDICES, independent,
                   dependent, -1, -1, TAVIK_NO_INTERCEPT, TAVIK_ERROR_CROSSPRODUCTS, &crossproducts, 0);
    return with_outputs(b, crossproducts);
}

// Many rows, then some: stages take their memory array by array.
template <class Real> void *regression_of_many_columns(int ido)
{
    const int n_rows[] = {2000, 100, 0};
    int columns[30];
    std::iota(columns, columns + 30, 0);
    return CALL(regression, n_rows[ido - 1], 29, many_values<Real>.data(), nullptr, TAVIK_X_INDICES, columns,
                columns + 29, -1, -1, TAVIK_IDO, ido, 0);
}

// With every output, and a column that is selected.
template <class Real> void *clusters()
{
    const int column[] = {1};
    Real *means, *squares;
    int *counts, *history, n_iterations;
    void *found =
        CALL(cluster_k_means, 3, 1, x<Real>, 2, x<Real>, TAVIK_X_COL_DIM, 2, TAVIK_CLUSTER_VARIABLES, column,
             TAVIK_FREQUENCIES, mass<Real>, TAVIK_CLUSTER_MEANS, &means, TAVIK_CLUSTER_SSQ, &squares,
             TAVIK_CLUSTER_COUNTS, &counts, TAVIK_CLUSTER_HISTORY, &n_iterations, &history, 0);
    return with_outputs(found, means, squares, counts, history);
}

// Networks that a case leaves, since releasing one at once would clear the error.
template <class Real> Network<Real> *network_left = nullptr;

void release_networks()
{
    tavik_f_mlff_network_free(std::exchange(network_left<float>, nullptr));
    tavik_d_mlff_network_free(std::exchange(network_left<double>, nullptr));
}

template <class Real> void *leave(Network<Real> *network)
{
    network_left<Real> = network;
    return no_result;
}

// Every link is in the lists of its nodes, and nothing else is in any.
template <class Network> bool lists_match(const Network &network)
{
    int listed = 0;
    bool match = network.next_link == network.n_links;
    for (int i = 0; i < network.n_nodes; ++i) {
        const auto &node = network.nodes[i];
        for (int k = 0; k < node.n_inLinks; ++k, ++listed)
            match &= node.inLinks[k] < network.n_links && network.links[node.inLinks[k]].to_node == i;
        for (int k = 0; k < node.n_outLinks; ++k, ++listed)
            match &= node.outLinks[k] < network.n_links && network.links[node.outLinks[k]].from_node == i;
    }
    return match && listed == 2 * network.n_links;
}

// Edits one by one. The one that fails leaves the network as it was.
template <class Real> void *edits()
{
    Network<Real> *network = CALL(mlff_network_init, 2, 9);
    leave<Real>(network);
    static FILE *const nowhere = std::fopen("/dev/null", "w");
    const auto step = [=](auto... options) {
        const int n_links = network->n_links, n_layers = network->n_layers;
        CALL(mlff_network, network, options..., 0);
        EXPECT_TRUE(lists_match(*network));
        if (tavik_error_type() != 5) return true;
        EXPECT_TRUE(network->n_links == n_links && network->n_layers == n_layers);
        return false;
    };
    if (network == nullptr || !step(TAVIK_CREATE_HIDDEN_LAYER, 9) || !step(TAVIK_LINK_NODE, 3, 1) ||
        !step(TAVIK_LINK_LAYER, 1, 0) || !step(TAVIK_REMOVE_LINK, 2, 1) || !step(TAVIK_LINK_ALL) ||
        !step(TAVIK_LINK_NODE, 11, 0))
        return no_result;
    tavik_output_file(TAVIK_SET_OUTPUT_FILE, nowhere, 0);
    step(TAVIK_PRINT);
    return no_result;
}

// A network to write, to read and to give weights to; it is made when nothing fails, like the file.
template <class Real> Network<Real> *linked()
{
    static Network<Real> *const network = networks::linked<Real>({2, 9, 3}).release();
    return network;
}

const char *network_file()
{
    static const struct File {
        std::string name = testing::TempDir() + "network_" + std::to_string(getpid());
        File()
        {
            tavik_d_mlff_network_write(linked<double>(), name.c_str(), 0);
        }
        ~File()
        {
            std::remove(name.c_str());
        }
    } file;
    return file.name.c_str();
}

// The stream has its buffer.
FILE *network_stream()
{
    static FILE *const stream = [] {
        static char buffer[BUFSIZ];
        FILE *made = std::tmpfile();
        std::setvbuf(made, buffer, _IOFBF, sizeof buffer);
        tavik_d_mlff_network_write(linked<double>(), nullptr, TAVIK_FILE, made, 0);
        return made;
    }();
    std::rewind(stream);
    return stream;
}

// Those that come in both precisions, named without the prefix.
template <class Real> std::vector<Case> cases_of_precision()
{
    const auto first_weights = [](int method) {
        return [=] {
            const int classes[] = {0, 1, 2};
            return CALL(mlff_initialize_weights, linked<Real>(), 3, 0, 2, nullptr, x<Real>, TAVIK_METHOD,
                        method, TAVIK_CLASSIFICATION, classes, 0);
        };
    };
    const auto uniforms = [] { return CALL(random_uniform, 3, 0); };
    return {
        {"aligned_malloc", [] { return CALL(aligned_malloc, 3, 5); }, Without::null},
        {"beta_incomplete", done([] { CALL(beta_incomplete, 0.5, 2, 3); })},
        {"cluster_k_means", clusters<Real>},
        {"cluster_seeds", [] { return CALL(cluster_seeds, 3, 1, x<Real>, 2, 0); }},
        {"eig_sym",
         [] {
             Real *vectors;
             void *values = CALL(eig_sym, 2, x<Real>, TAVIK_VECTORS, &vectors, 0);
             return with_outputs(values, vectors);
         }},
        {"machine", done([] { CALL(machine, 4); })},
        {"mlff_initialize_weights", first_weights(2)},
        {"mlff_initialize_weights", first_weights(3)},
        {"mlff_initialize_weights", first_weights(4)},
        {"mlff_network", edits<Real>},
        {"mlff_network_free", done([] { CALL(mlff_network_free, nullptr); })},
        {"mlff_network_init", [] { return leave<Real>(CALL(mlff_network_init, 2, 3)); }},
        {"mlff_network_read", [] { return leave<Real>(CALL(mlff_network_read, network_file(), 0)); },
         Without::null},
        {"mlff_network_read",
         [] { return leave<Real>(CALL(mlff_network_read, nullptr, TAVIK_FILE, network_stream(), 0)); }},
        {"mlff_network_write", done([] { CALL(mlff_network_write, linked<Real>(), network_file(), 0); }),
         Without::null},
        {"mlff_network_write",
         done([] { CALL(mlff_network_write, linked<Real>(), nullptr, TAVIK_FILE, network_stream(), 0); })},
        {"omp_roundup", done([] { CALL(omp_roundup, 9); })},
        {"random_normal", [] { return CALL(random_normal, 3, 0); }},
        {"random_normal", [] { return CALL(random_normal, 3, TAVIK_ZIGGURAT, 0); }},
        {"random_table_get", table_of<Real>([](auto... arguments) { CALL(random_table_get, arguments...); })},
        {"random_table_set", done([] { CALL(random_table_set, &zero<Real>); })},
        {"random_uniform", uniforms},
        with_new_twister("random_uniform", 8, uniforms),
        with_new_twister("random_uniform", 9, uniforms),
        {"random_uniform_discrete", [] { return CALL(random_uniform_discrete, 3, 6, 0); }},
        {"regression", regression_with_every_output<Real>},
        {"regression", regression_of_many_rows<Real>},
        {"regression", in_stages(regression_of_many_columns<Real>)},
        {"regression",
         in_stages([](int ido) { return CALL(regression, 3, 1, x<Real>, x<Real> + 3, TAVIK_IDO, ido, 0); })},
        {"regression", in_stages([](int ido) { // three rows, one of which is taken out again
             const int n_rows[] = {3, 1, 0};
             return CALL(regression, n_rows[ido - 1], 1, x<Real>, x<Real> + 3, TAVIK_IDO, ido,
                         ido == 2 ? TAVIK_ROWS_DELETE : TAVIK_ROWS_ADD, 0);
         })},
        {"simple_statistics", [] { return CALL(simple_statistics, 3, 2, x<Real>, 0); }},
        {"simple_statistics",
         [] {
             return CALL(simple_statistics, 3, 1, x<Real>, TAVIK_X_COL_DIM, 2, TAVIK_MEDIAN_AND_SCALE,
                         TAVIK_FREQUENCIES, mass<Real>, TAVIK_WEIGHTS, mass<Real>, TAVIK_MISSING_LISTWISE, 0);
         }},
        {"simple_statistics",
         in_stages([](int ido) { return CALL(simple_statistics, 3, 2, x<Real>, TAVIK_IDO, ido, 0); })},
    };
}

std::vector<Case> cases_without_precision()
{
    return {
        {"tavik_aligned_malloc", [] { return tavik_aligned_malloc(100); }, Without::null},
        {"tavik_aligned_free", done([] { tavik_aligned_free(nullptr); })},
        {"tavik_ctime", done(tavik_ctime)},
        {"tavik_drotm", done([] { tavik_drotm(2, x<double>, 1, mass<double>, 1, no_rotation<double>); })},
        {"tavik_drotmg", done([] {
             tavik_drotmg(zeros<double>, zeros<double> + 1, zeros<double> + 2, 1, zeros<double> + 3);
         })},
        {"tavik_error_code", done(tavik_error_code)},
        {"tavik_error_message", tavik_error_message, Without::null}, // of the error that before() leaves
        {"tavik_error_options",
         done([] { tavik_error_options(TAVIK_ERROR_MSG_PATH, text, TAVIK_ERROR_MSG_NAME, text, 0); }),
         Without::error, 2},
        {"tavik_error_type", done(tavik_error_type)},
        {"tavik_fopen", done([] {
             if (FILE *file = tavik_fopen("/dev/null", "r")) tavik_fclose(file);
         }),
         Without::null},
        {"tavik_fclose", done([] {})}, // with tavik_fopen
        {"tavik_free", done([] { tavik_free(nullptr); })},
        {"tavik_i_aligned_malloc", [] { return tavik_i_aligned_malloc(3, 5); }, Without::null},
        {"tavik_i_machine", done([] { tavik_i_machine(4); })},
        {"tavik_i_omp_roundup", done([] { tavik_i_omp_roundup(9); })},
        {"tavik_initialize", done(tavik_initialize)},
        {"tavik_initialize_error_handler", done(tavik_initialize_error_handler)},
        {"tavik_internal_generate_error", done([] { tavik_internal_generate_error(1, 3); })},
        {"tavik_malloc_internal", [] { return tavik_malloc_internal(100); }, Without::null},
        {"tavik_malloc_option", done([] { tavik_malloc_option(1, 2); })},
        {"tavik_omp_options", done([] { tavik_omp_options(TAVIK_GET_FUNCTIONS_THREAD_SAFE, &number, 0); })},
        {"tavik_output_file", done([] { tavik_output_file(TAVIK_SET_OUTPUT_FILE, stdout, 0); })},
        {"tavik_page", done([] { tavik_page(1, &number); })},
        {"tavik_random_GFSR_table_get", table_of<int>(tavik_random_GFSR_table_get)},
        {"tavik_random_GFSR_table_set", done([] { tavik_random_GFSR_table_set(&zero<int>); })},
        with_new_twister("tavik_random_MT32_init", 8, done([] { tavik_random_MT32_init(2, key_32); })),
        with_new_twister("tavik_random_MT32_table_get", 8,
                         table_of<std::uint32_t>(tavik_random_MT32_table_get)),
        with_new_twister("tavik_random_MT32_table_set", 8,
                         done([] { tavik_random_MT32_table_set(twister_32); })),
        with_new_twister("tavik_random_MT64_init", 9, done([] { tavik_random_MT64_init(2, key_64); })),
        with_new_twister("tavik_random_MT64_table_get", 9,
                         table_of<std::uint64_t>(tavik_random_MT64_table_get)),
        with_new_twister("tavik_random_MT64_table_set", 9,
                         done([] { tavik_random_MT64_table_set(twister_64); })),
        {"tavik_random_option", done([] { tavik_random_option(1); })},
        {"tavik_random_option_get", done(tavik_random_option_get)},
        {"tavik_random_seed_get", done(tavik_random_seed_get)},
        {"tavik_random_seed_set", done([] { tavik_random_seed_set(1); })},
        {"tavik_random_substream_seed_get", done([] { tavik_random_substream_seed_get(1); })},
        {"tavik_set_at_checksum", done([] { tavik_set_at_checksum(nullptr); })},
        {"tavik_set_user_fcn_return_flag", done([] { tavik_set_user_fcn_return_flag(1); })},
        {"tavik_signal_trap_status", done(tavik_signal_trap_status)},
        {"tavik_skip_signal_handler", done(tavik_skip_signal_handler)},
        {"tavik_srotm", done([] { tavik_srotm(2, x<float>, 1, mass<float>, 1, no_rotation<float>); })},
        {"tavik_srotmg",
         done([] { tavik_srotmg(zeros<float>, zeros<float> + 1, zeros<float> + 2, 1, zeros<float> + 3); })},
        {"tavik_version", [] { return tavik_version(TAVIK_LIBRARY_VERSION); }},
    };
}

const std::vector<Case> &cases()
{
    static const std::vector<Case> all = [] {
        std::vector<Case> made = cases_without_precision();
        for (const auto &[prefix, of_precision] :
             {std::pair{"tavik_f_", cases_of_precision<float>()}, {"tavik_d_", cases_of_precision<double>()}})
            for (const Case &c : of_precision) made.push_back({prefix + c.routine, c.run, c.memory, c.keeps});
        return made;
    }();
    return all;
}

// These give memory back and need none.
const std::set<std::string> only_release = {"tavik_free_allocated_memory", "tavik_free_error_handlers"};

struct Sweep : testing::Test {
    Sweep()
    {
        omp_set_num_threads(1);
        for (int type : {4, 5}) tavik_error_options(TAVIK_SET_STOP, type, 0, TAVIK_SET_PRINT, type, 0, 0);
        tavik_error_options(TAVIK_SET_PRINT, 6, 0, 0);
        tavik_free(tavik_version(-1)); // opens the message file, and leaves an error to ask for
    }
};

TEST_F(Sweep, EveryAllocationOfEveryRoutineMayFail)
{
    for (const Case &c : cases()) {
        SCOPED_TRACE(c.routine);
        const auto before = [&] {
            tavik_free(c.routine == "tavik_error_message" ? tavik_version(-1) : nullptr);
        };
        before();
        tavik_free(c.run());
        release_networks(); // warm: what a first call sets up for good is not in question here
        constexpr long far_more_than_any_needs = 1000;
        for (long k = 1;; ++k) {
            ASSERT_LT(k, far_more_than_any_needs);
            before();
            failing_malloc::arm(k);
            void *result = c.run();
            const bool failed = failing_malloc::disarm();
            if (failed) {
                EXPECT_EQ(result, nullptr) << "allocation " << k;
                if (c.memory == Without::error) {
                    EXPECT_EQ(tavik_error_type(), 5) << "allocation " << k;
                    EXPECT_THAT(tavik_error_code(), testing::AnyOf(200, 201, 202, 203)) << "allocation " << k;
                }
            }
            tavik_free(result);
            release_networks();
            EXPECT_LE(failing_malloc::live_blocks(), c.keeps) << "allocation " << k;
            if (!failed) break;
        }
    }
}

TEST_F(Sweep, HasEveryPublicRoutine)
{
    std::set<std::string> swept = only_release, names;
    for (const Case &c : cases()) swept.insert(c.routine);
    std::ifstream map(VERSION_MAP);
    for (std::string word; map >> word && word != "local:";) {
        if (word.rfind("tavik_", 0) == 0) names.insert(word.substr(0, word.size() - 1));
    }
    EXPECT_EQ(swept, names);
}

TEST_F(Sweep, AThreadWithoutMemoryForItsStateStopsTheProcess)
{
    const auto first_call_without_memory = [](long k) {
        std::thread([=] {
            failing_malloc::arm(k);
            tavik_initialize();
        }).join();
    };
    for (long k : {1, 2, 3}) {
        SCOPED_TRACE(k);
        EXPECT_EXIT(first_call_without_memory(k), testing::ExitedWithCode(5),
                    "TERMINAL Error from TAVI Kestrel.  Out of Memory. The TAVI");
    }
    std::thread([] {
        failing_malloc::arm(1);
        EXPECT_EQ(tavik_initialize_error_handler(), 1);
        EXPECT_TRUE(failing_malloc::disarm());
        EXPECT_EQ(tavik_initialize_error_handler(), 0);
    }).join();
}

// The generators' state is made by a thread's first call of them.
TEST_F(Sweep, AThreadWithoutMemoryForItsGeneratorsGetsAnError)
{
    for (const Case &c : cases()) {
        if (c.routine.find("_random_") == std::string::npos || c.keeps != 0) continue;
        SCOPED_TRACE(c.routine);
        bool failed = true;
        for (long k = 1; failed; ++k)
            std::thread([&] {
                tavik_error_options(TAVIK_SET_STOP, 5, 0, TAVIK_SET_PRINT, 5, 0, 0);
                failing_malloc::arm(k);
                void *result = c.run();
                failed = failing_malloc::disarm();
                EXPECT_EQ(tavik_error_code(), failed ? 200 : 0) << "allocation " << k;
                EXPECT_TRUE(!failed || result == nullptr) << "allocation " << k;
                tavik_free(result);
                tavik_free(c.run());
                EXPECT_EQ(tavik_error_type(), 0) << "allocation " << k;
            }).join();
    }
}

TEST_F(Sweep, AMessageThatCannotGrowStopsTheProcess)
{
    const std::string longer_than_the_buffer(100000, 'a');
    EXPECT_EXIT(
        {
            tavik_e1psh("long");
            tavik_e1stl(1, longer_than_the_buffer.c_str());
            failing_malloc::arm(1);
            tavik_e1mes(1, 4, "%(s1)");
            exit(1); // not reached
        },
        testing::ExitedWithCode(5), "Out of memory in error handler");
}

} // namespace
