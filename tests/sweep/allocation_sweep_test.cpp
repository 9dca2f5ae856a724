// Fails the k-th allocation of every public routine, for k = 1, 2, ... until it succeeds: each failure must
// give its error and a null result, leave no block behind, and leave the library usable.
//
// A new routine joins with one line in cases().
#include "failing_malloc.hpp"

#include "internal.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdarg>
#include <fstream>
#include <functional>
#include <numeric>
#include <omp.h>
#include <set>
#include <string>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

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
template <class Call> void *in_stages(Call call)
{
    for (int ido : {1, 2}) {
        tavik_free(call(ido));
        if (tavik_error_type() == 5) return no_result;
    }
    return call(3);
}

double d[] = {1, 2, 3, 4, 5, 6}, d_mass[] = {1, 2, 1};
float f[] = {1, 2, 3, 4, 5, 6}, f_mass[] = {1, 2, 1};
float no_rotation_f[] = {-2}, scratch_f[8];
double no_rotation_d[] = {-2}, scratch_d[8];
char text[] = "./";
int number = 80;
const int zero = 0;
const float zero_f = 0;
const double zero_d = 0;
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
template <class Call> std::function<void *()> with_new_twister(int generator, Call call)
{
    return [=] {
        tavik_random_MT32_table_set(no_twister_32);
        tavik_random_MT64_table_set(no_twister_64);
        tavik_random_option(generator);
        return call();
    };
}

// With every output. The coefficients are given back; the others are released, or null after a failure.
template <class Real, class Regression>
void *with_outputs(Regression regression, const Real *x, const Real *mass)
{
    Real *outputs[6], leverages[3];
    int rank;
    void *b = regression(3, 1, x, x + 3, TAVIK_FREQUENCIES, mass, TAVIK_WEIGHTS, mass, TAVIK_ANOVA_TABLE,
                         &outputs[0], TAVIK_COEF_STATISTICS, &outputs[1], TAVIK_COEF_COVARIANCES, &outputs[2],
                         TAVIK_RESIDUALS, &outputs[3], TAVIK_VARIABLE_MEANS, &outputs[4], TAVIK_R_FACTOR,
                         &outputs[5], TAVIK_LEVERAGES_USER, leverages, TAVIK_RANK, &rank, 0);
    for (Real *output : outputs) {
        EXPECT_EQ(output == nullptr, b == nullptr);
        tavik_free(output);
    }
    return b;
}

template <class Real> const Real *many_values()
{
    static const std::vector<Real> values = [] {
        std::vector<Real> squares;
        for (int i = 0; i < 60000; ++i) squares.push_back(static_cast<Real>(i * i % 101));
        return squares;
    }();
    return values.data();
}

// Rows enough for several blocks, without an intercept; columns are by index.
template <class Real, class Regression> void *with_many_rows(Regression regression)
{
    const int independent[] = {2, 0}, dependent[] = {1};
    Real *crossproducts;
    void *b = regression(20000, 2, many_values<Real>(), nullptr, TAVIK_X_INDICES, independent, dependent, -1,
                         -1, TAVIK_NO_INTERCEPT, TAVIK_ERROR_CROSSPRODUCTS, &crossproducts, 0);
    tavik_free(crossproducts);
    return b;
}

// Many rows, then some: stages take their memory array by array.
template <class Real, class Regression> void *with_many_columns(Regression regression)
{
    int columns[30];
    std::iota(columns, columns + 30, 0);
    return in_stages([&](int ido) {
        return regression(ido == 1   ? 2000
                          : ido == 2 ? 100
                                     : 0,
                          29, many_values<Real>(), nullptr, TAVIK_X_INDICES, columns, columns + 29, -1, -1,
                          TAVIK_IDO, ido, 0);
    });
}

// Three rows, one of which is taken out again.
template <class Real, class Regression> void *with_deletion(Regression regression, const Real *x)
{
    return in_stages([=](int ido) {
        return regression(ido == 1   ? 3
                          : ido == 2 ? 1
                                     : 0,
                          1, x, x + 3, TAVIK_IDO, ido, ido == 2 ? TAVIK_ROWS_DELETE : TAVIK_ROWS_ADD, 0);
    });
}

// With every output, and a column that is selected.
template <class Real, class Cluster> void *with_clusters(Cluster cluster, const Real *x, const Real *mass)
{
    const int column[] = {1};
    Real *means, *squares;
    int *counts, *history, n_iterations;
    void *found = cluster(3, 1, x, 2, x, TAVIK_X_COL_DIM, 2, TAVIK_CLUSTER_VARIABLES, column,
                          TAVIK_FREQUENCIES, mass, TAVIK_CLUSTER_MEANS, &means, TAVIK_CLUSTER_SSQ, &squares,
                          TAVIK_CLUSTER_COUNTS, &counts, TAVIK_CLUSTER_HISTORY, &n_iterations, &history, 0);
    for (void *output : {static_cast<void *>(means), static_cast<void *>(squares),
                         static_cast<void *>(counts), static_cast<void *>(history)}) {
        EXPECT_EQ(output == nullptr, found == nullptr);
        tavik_free(output);
    }
    return found;
}

// Networks that a case leaves, since releasing one at once would clear the error.
template <class Network> Network *network_left = nullptr;

void release_networks()
{
    tavik_f_mlff_network_free(std::exchange(network_left<tavik_f_network>, nullptr));
    tavik_d_mlff_network_free(std::exchange(network_left<tavik_d_network>, nullptr));
}

template <class Network> void *leave(Network *network)
{
    network_left<Network> = network;
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
template <class Network, class Init, class Edit> void *with_edits(Init init, Edit edit)
{
    Network *network = init(2, 9);
    leave(network);
    static FILE *const nowhere = std::fopen("/dev/null", "w");
    const auto step = [=](auto... options) {
        const int n_links = network->n_links, n_layers = network->n_layers;
        edit(network, options..., 0);
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
template <class Network, class Init, class Edit> Network *linked_network(Init init, Edit edit)
{
    static Network *const network = [=] {
        Network *made = init(2, 3);
        edit(made, TAVIK_CREATE_HIDDEN_LAYER, 9, TAVIK_LINK_ALL, 0);
        return made;
    }();
    return network;
}
tavik_f_network *linked_f()
{
    return linked_network<tavik_f_network>(tavik_f_mlff_network_init, tavik_f_mlff_network);
}
tavik_d_network *linked_d()
{
    return linked_network<tavik_d_network>(tavik_d_mlff_network_init, tavik_d_mlff_network);
}

const char *network_file()
{
    static const struct File {
        std::string name = testing::TempDir() + "network_" + std::to_string(getpid());
        File()
        {
            tavik_d_mlff_network_write(linked_d(), name.c_str(), 0);
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
        tavik_d_mlff_network_write(linked_d(), nullptr, TAVIK_FILE, made, 0);
        return made;
    }();
    std::rewind(stream);
    return stream;
}

template <class Real, class Eigen> void *with_vectors(Eigen eig_sym, const Real *a)
{
    Real *vectors;
    void *values = eig_sym(2, a, TAVIK_VECTORS, &vectors, 0);
    EXPECT_EQ(vectors == nullptr, values == nullptr);
    tavik_free(vectors);
    return values;
}

template <class Initialize, class Network, class Real>
std::function<void *()> with_weights(Initialize initialize, Network *(*network)(), const Real *x, int method)
{
    return [=] {
        static const int classes[] = {0, 1, 2};
        return initialize(network(), 3, 0, 2, nullptr, x, TAVIK_METHOD, method, TAVIK_CLASSIFICATION, classes,
                          0);
    };
}

const std::vector<Case> &cases()
{
    static const std::vector<Case> all = {
        {"tavik_aligned_malloc", [] { return tavik_aligned_malloc(100); }, Without::null},
        {"tavik_aligned_free", done([] { tavik_aligned_free(nullptr); })},
        {"tavik_ctime", done(tavik_ctime)},
        {"tavik_d_aligned_malloc", [] { return tavik_d_aligned_malloc(3, 5); }, Without::null},
        {"tavik_d_beta_incomplete", done([] { tavik_d_beta_incomplete(0.5, 2, 3); })},
        {"tavik_d_cluster_k_means", [] { return with_clusters(tavik_d_cluster_k_means, d, d_mass); }},
        {"tavik_d_cluster_seeds", [] { return tavik_d_cluster_seeds(3, 1, d, 2, 0); }},
        {"tavik_d_eig_sym", [] { return with_vectors(tavik_d_eig_sym, d); }},
        {"tavik_d_machine", done([] { tavik_d_machine(4); })},
        {"tavik_d_mlff_initialize_weights", with_weights(tavik_d_mlff_initialize_weights, linked_d, d, 2)},
        {"tavik_d_mlff_initialize_weights", with_weights(tavik_d_mlff_initialize_weights, linked_d, d, 3)},
        {"tavik_d_mlff_initialize_weights", with_weights(tavik_d_mlff_initialize_weights, linked_d, d, 4)},
        {"tavik_d_mlff_network",
         [] { return with_edits<tavik_d_network>(tavik_d_mlff_network_init, tavik_d_mlff_network); }},
        {"tavik_d_mlff_network_free", done([] { tavik_d_mlff_network_free(nullptr); })},
        {"tavik_d_mlff_network_init", [] { return leave(tavik_d_mlff_network_init(2, 3)); }},
        {"tavik_d_mlff_network_read", [] { return leave(tavik_d_mlff_network_read(network_file(), 0)); },
         Without::null},
        {"tavik_d_mlff_network_read",
         [] { return leave(tavik_d_mlff_network_read(nullptr, TAVIK_FILE, network_stream(), 0)); }},
        {"tavik_d_mlff_network_write",
         done([] { tavik_d_mlff_network_write(linked_d(), network_file(), 0); }), Without::null},
        {"tavik_d_mlff_network_write",
         done([] { tavik_d_mlff_network_write(linked_d(), nullptr, TAVIK_FILE, network_stream(), 0); })},
        {"tavik_d_omp_roundup", done([] { tavik_d_omp_roundup(9); })},
        {"tavik_d_random_normal", [] { return tavik_d_random_normal(3, 0); }},
        {"tavik_d_random_normal", [] { return tavik_d_random_normal(3, TAVIK_ZIGGURAT, 0); }},
        {"tavik_d_random_table_get", table_of<double>(tavik_d_random_table_get)},
        {"tavik_d_random_table_set", done([] { tavik_d_random_table_set(&zero_d); })},
        {"tavik_d_random_uniform", [] { return tavik_d_random_uniform(3, 0); }},
        {"tavik_d_random_uniform", with_new_twister(8, [] { return tavik_d_random_uniform(3, 0); }),
         Without::error, 1},
        {"tavik_d_random_uniform", with_new_twister(9, [] { return tavik_d_random_uniform(3, 0); }),
         Without::error, 1},
        {"tavik_d_random_uniform_discrete", [] { return tavik_d_random_uniform_discrete(3, 6, 0); }},
        {"tavik_d_regression", [] { return with_outputs(tavik_d_regression, d, d_mass); }},
        {"tavik_d_regression", [] { return with_many_rows<double>(tavik_d_regression); }},
        {"tavik_d_regression", [] { return with_many_columns<double>(tavik_d_regression); }},
        {"tavik_d_regression",
         [] {
             return in_stages([](int ido) { return tavik_d_regression(3, 1, d, d + 3, TAVIK_IDO, ido, 0); });
         }},
        {"tavik_d_regression", [] { return with_deletion(tavik_d_regression, d); }},
        {"tavik_d_simple_statistics", [] { return tavik_d_simple_statistics(3, 2, d, 0); }},
        {"tavik_d_simple_statistics",
         [] {
             return tavik_d_simple_statistics(3, 1, d, TAVIK_X_COL_DIM, 2, TAVIK_MEDIAN_AND_SCALE,
                                              TAVIK_FREQUENCIES, d_mass, TAVIK_WEIGHTS, d_mass,
                                              TAVIK_MISSING_LISTWISE, 0);
         }},
        {"tavik_d_simple_statistics",
         [] {
             return in_stages([](int ido) { return tavik_d_simple_statistics(3, 2, d, TAVIK_IDO, ido, 0); });
         }},
        {"tavik_drotm", done([] { tavik_drotm(2, d, 1, d_mass, 1, no_rotation_d); })},
        {"tavik_drotmg",
         done([] { tavik_drotmg(scratch_d, scratch_d + 1, scratch_d + 2, 1, scratch_d + 3); })},
        {"tavik_error_code", done(tavik_error_code)},
        {"tavik_error_message",
         [] {
             char *message = tavik_error_message(); // of the version that main asked for
             return static_cast<void *>(message);
         },
         Without::null},
        {"tavik_error_options",
         done([] { tavik_error_options(TAVIK_ERROR_MSG_PATH, text, TAVIK_ERROR_MSG_NAME, text, 0); }),
         Without::error, 2},
        {"tavik_error_type", done(tavik_error_type)},
        {"tavik_f_aligned_malloc", [] { return tavik_f_aligned_malloc(3, 5); }, Without::null},
        {"tavik_f_beta_incomplete", done([] { tavik_f_beta_incomplete(0.5f, 2, 3); })},
        {"tavik_f_cluster_k_means", [] { return with_clusters(tavik_f_cluster_k_means, f, f_mass); }},
        {"tavik_f_cluster_seeds", [] { return tavik_f_cluster_seeds(3, 1, f, 2, 0); }},
        {"tavik_f_eig_sym", [] { return with_vectors(tavik_f_eig_sym, f); }},
        {"tavik_f_machine", done([] { tavik_f_machine(4); })},
        {"tavik_f_mlff_initialize_weights", with_weights(tavik_f_mlff_initialize_weights, linked_f, f, 2)},
        {"tavik_f_mlff_initialize_weights", with_weights(tavik_f_mlff_initialize_weights, linked_f, f, 3)},
        {"tavik_f_mlff_initialize_weights", with_weights(tavik_f_mlff_initialize_weights, linked_f, f, 4)},
        {"tavik_f_mlff_network",
         [] { return with_edits<tavik_f_network>(tavik_f_mlff_network_init, tavik_f_mlff_network); }},
        {"tavik_f_mlff_network_free", done([] { tavik_f_mlff_network_free(nullptr); })},
        {"tavik_f_mlff_network_init", [] { return leave(tavik_f_mlff_network_init(2, 3)); }},
        {"tavik_f_mlff_network_read", [] { return leave(tavik_f_mlff_network_read(network_file(), 0)); },
         Without::null},
        {"tavik_f_mlff_network_read",
         [] { return leave(tavik_f_mlff_network_read(nullptr, TAVIK_FILE, network_stream(), 0)); }},
        {"tavik_f_mlff_network_write",
         done([] { tavik_f_mlff_network_write(linked_f(), network_file(), 0); }), Without::null},
        {"tavik_f_mlff_network_write",
         done([] { tavik_f_mlff_network_write(linked_f(), nullptr, TAVIK_FILE, network_stream(), 0); })},
        {"tavik_f_omp_roundup", done([] { tavik_f_omp_roundup(9); })},
        {"tavik_f_random_normal", [] { return tavik_f_random_normal(3, 0); }},
        {"tavik_f_random_normal", [] { return tavik_f_random_normal(3, TAVIK_ZIGGURAT, 0); }},
        {"tavik_f_random_table_get", table_of<float>(tavik_f_random_table_get)},
        {"tavik_f_random_table_set", done([] { tavik_f_random_table_set(&zero_f); })},
        {"tavik_f_random_uniform", [] { return tavik_f_random_uniform(3, 0); }},
        {"tavik_f_random_uniform", with_new_twister(8, [] { return tavik_f_random_uniform(3, 0); }),
         Without::error, 1},
        {"tavik_f_random_uniform", with_new_twister(9, [] { return tavik_f_random_uniform(3, 0); }),
         Without::error, 1},
        {"tavik_f_random_uniform_discrete", [] { return tavik_f_random_uniform_discrete(3, 6, 0); }},
        {"tavik_f_regression", [] { return with_outputs(tavik_f_regression, f, f_mass); }},
        {"tavik_f_regression", [] { return with_many_rows<float>(tavik_f_regression); }},
        {"tavik_f_regression", [] { return with_many_columns<float>(tavik_f_regression); }},
        {"tavik_f_regression",
         [] {
             return in_stages([](int ido) { return tavik_f_regression(3, 1, f, f + 3, TAVIK_IDO, ido, 0); });
         }},
        {"tavik_f_regression", [] { return with_deletion(tavik_f_regression, f); }},
        {"tavik_f_simple_statistics", [] { return tavik_f_simple_statistics(3, 2, f, 0); }},
        {"tavik_f_simple_statistics",
         [] {
             return tavik_f_simple_statistics(3, 1, f, TAVIK_X_COL_DIM, 2, TAVIK_MEDIAN_AND_SCALE,
                                              TAVIK_FREQUENCIES, f_mass, TAVIK_WEIGHTS, f_mass,
                                              TAVIK_MISSING_LISTWISE, 0);
         }},
        {"tavik_f_simple_statistics",
         [] {
             return in_stages([](int ido) { return tavik_f_simple_statistics(3, 2, f, TAVIK_IDO, ido, 0); });
         }},
        {"tavik_fopen",
         [] {
             if (FILE *file = tavik_fopen("/dev/null", "r")) tavik_fclose(file);
             return no_result;
         },
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
        {"tavik_random_GFSR_table_set", done([] { tavik_random_GFSR_table_set(&zero); })},
        {"tavik_random_MT32_init", with_new_twister(8, done([] { tavik_random_MT32_init(2, key_32); })),
         Without::error, 1},
        {"tavik_random_MT32_table_get",
         with_new_twister(8, table_of<std::uint32_t>(tavik_random_MT32_table_get)), Without::error, 1},
        {"tavik_random_MT32_table_set",
         with_new_twister(8, done([] { tavik_random_MT32_table_set(twister_32); })), Without::error, 1},
        {"tavik_random_MT64_init", with_new_twister(9, done([] { tavik_random_MT64_init(2, key_64); })),
         Without::error, 1},
        {"tavik_random_MT64_table_get",
         with_new_twister(9, table_of<std::uint64_t>(tavik_random_MT64_table_get)), Without::error, 1},
        {"tavik_random_MT64_table_set",
         with_new_twister(9, done([] { tavik_random_MT64_table_set(twister_64); })), Without::error, 1},
        {"tavik_random_option", done([] { tavik_random_option(1); })},
        {"tavik_random_option_get", done(tavik_random_option_get)},
        {"tavik_random_seed_get", done(tavik_random_seed_get)},
        {"tavik_random_seed_set", done([] { tavik_random_seed_set(1); })},
        {"tavik_random_substream_seed_get", done([] { tavik_random_substream_seed_get(1); })},
        {"tavik_set_at_checksum", done([] { tavik_set_at_checksum(nullptr); })},
        {"tavik_set_user_fcn_return_flag", done([] { tavik_set_user_fcn_return_flag(1); })},
        {"tavik_signal_trap_status", done(tavik_signal_trap_status)},
        {"tavik_skip_signal_handler", done(tavik_skip_signal_handler)},
        {"tavik_srotm", done([] { tavik_srotm(2, f, 1, f_mass, 1, no_rotation_f); })},
        {"tavik_srotmg",
         done([] { tavik_srotmg(scratch_f, scratch_f + 1, scratch_f + 2, 1, scratch_f + 3); })},
        {"tavik_version", [] { return tavik_version(TAVIK_LIBRARY_VERSION); }},
    };
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
