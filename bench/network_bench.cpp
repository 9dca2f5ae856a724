// Networks: time a link, growth with the number of links, and files beside the same text by fprintf and fscanf.
#include "ratios.hpp"
#include "tavikstat.h"

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <unistd.h>

namespace {

constexpr int repetitions = 9;

struct FreeNetwork {
    void operator()(tavik_d_network *network) const
    {
        tavik_d_mlff_network_free(network);
    }
};
using Network = std::unique_ptr<tavik_d_network, FreeNetwork>;

// Three layers of n nodes, without links.
Network three_layers(int n)
{
    Network network(tavik_d_mlff_network_init(n, n));
    tavik_d_mlff_network(network.get(), TAVIK_CREATE_HIDDEN_LAYER, n, 0);
    return network;
}

// Two layers of n nodes, linked, with weights of 15 digits.
Network two_layers(int n)
{
    Network network(tavik_d_mlff_network_init(n, n));
    std::vector<double> weights(static_cast<std::size_t>(n) * static_cast<std::size_t>(n));
    tavik_random_option(1);
    tavik_random_seed_set(20261121);
    tavik_d_random_normal(n * n, TAVIK_RETURN_USER, weights.data(), 0);
    tavik_d_mlff_network(network.get(), TAVIK_LINK_ALL, TAVIK_WEIGHTS, weights.data(), 0);
    return network;
}

double seconds_of(const std::function<void()> &work)
{
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// As many links in all, in `networks` networks.
void link_all(benchmark::State &state, int networks, int nodes_in_layer)
{
    for (auto _ : state) {
        double seconds = 0;
        for (int k = 0; k < networks; ++k) {
            const Network network = three_layers(nodes_in_layer);
            seconds += seconds_of([&] { tavik_d_mlff_network(network.get(), TAVIK_LINK_ALL, 0); });
        }
        state.SetIterationTime(seconds);
    }
}

// The first link, so that all others move, and again the new first one.
void remove_links(benchmark::State &state, int networks, int nodes_in_layer)
{
    constexpr int removed = 8;
    std::vector<Network> all;
    for (int k = 0; k < networks; ++k) all.push_back(two_layers(nodes_in_layer));
    int next = 0;
    for (auto _ : state) {
        for (const Network &network : all) {
            for (int k = 0; k < removed; ++k)
                tavik_d_mlff_network(network.get(), TAVIK_REMOVE_LINK, nodes_in_layer + next + k, 0, 0);
        }
        next += removed;
    }
}

void clock_of(benchmark::State &state, double seconds)
{
    for (auto _ : state) state.SetIterationTime(seconds);
}

std::string file_name()
{
    return std::filesystem::temp_directory_path() / ("network_" + std::to_string(getpid()) + ".net");
}

void write_with_fprintf(const tavik_d_network &n, const char *name)
{
    FILE *file = std::fopen(name, "w");
    std::fprintf(file, "%f\n%d %d %d %d %d %d\n", 1.0, n.n_inputs, n.n_outputs, n.n_layers, n.n_links,
                 n.n_nodes, n.next_link);
    const auto list = [&](const int *values, int count) {
        for (int k = 0; k < count; ++k) std::fprintf(file, k + 1 < count ? "%d " : "%d\n", values[k]);
    };
    for (int l = 0; l < n.n_layers; ++l) {
        std::fprintf(file, "%d ", n.layers[l].n_nodes);
        list(n.layers[l].nodes, n.layers[l].n_nodes);
    }
    for (int i = 0; i < n.n_links; ++i)
        std::fprintf(file, "%d %d %20.15g %20.15g\n", n.links[i].from_node, n.links[i].to_node,
                     n.links[i].weight, n.links[i].gradient);
    for (int i = 0; i < n.n_nodes; ++i) {
        const tavik_d_node &node = n.nodes[i];
        std::fprintf(file, "%d %d %d %d %20.15g %20.15g\n", node.layer_id, node.n_inLinks, node.n_outLinks,
                     node.activationFcn, node.bias, node.param);
        list(node.inLinks, node.n_inLinks);
        list(node.outLinks, node.n_outLinks);
    }
    std::fclose(file);
}

// All numbers of the file into memory that is there already. Returns how many there are.
std::size_t read_with_fscanf(const tavik_d_network &n, const char *name, std::vector<tavik_d_link> &links,
                             std::vector<int> &numbers)
{
    FILE *file = std::fopen(name, "r");
    std::size_t found = 0;
    double version = 0, real[2];
    found += static_cast<std::size_t>(std::fscanf(file, "%lf", &version));
    const auto integers = [&](int count) {
        for (int k = 0; k < count; ++k)
            found += static_cast<std::size_t>(std::fscanf(file, "%d", &numbers[static_cast<std::size_t>(k)]));
    };
    integers(6);
    for (int l = 0; l < n.n_layers; ++l) {
        integers(1);
        integers(numbers[0]);
    }
    for (tavik_d_link &link : links)
        found += static_cast<std::size_t>(
            std::fscanf(file, "%d %d %lf %lf", &link.from_node, &link.to_node, &link.weight, &link.gradient));
    for (int i = 0; i < n.n_nodes; ++i) {
        int node[4];
        found += static_cast<std::size_t>(std::fscanf(file, "%d %d %d %d %lf %lf", &node[0], &node[1],
                                                      &node[2], &node[3], &real[0], &real[1]));
        integers(node[1]);
        integers(node[2]);
    }
    std::fclose(file);
    return found;
}

void write_ours(benchmark::State &state)
{
    const Network network = two_layers(1000);
    const std::string name = file_name();
    for (auto _ : state) tavik_d_mlff_network_write(network.get(), name.c_str(), 0);
    std::filesystem::remove(name);
}

// A peer that writes something else is no peer.
void write_theirs(benchmark::State &state)
{
    const Network network = two_layers(1000);
    const std::string name = file_name(), ours = name + ".ours";
    for (auto _ : state) write_with_fprintf(*network, name.c_str());
    tavik_d_mlff_network_write(network.get(), ours.c_str(), 0);
    const std::string compare = "cmp -s '" + name + "' '" + ours + "'";
    if (std::system(compare.c_str()) != 0) state.SkipWithError("the files differ");
    std::filesystem::remove(name);
    std::filesystem::remove(ours);
}

void read_ours(benchmark::State &state)
{
    const std::string name = file_name();
    tavik_d_mlff_network_write(two_layers(1000).get(), name.c_str(), 0);
    for (auto _ : state) {
        Network network;
        state.SetIterationTime(
            seconds_of([&] { network.reset(tavik_d_mlff_network_read(name.c_str(), 0)); }));
    }
    std::filesystem::remove(name);
}

void read_theirs(benchmark::State &state)
{
    const Network network = two_layers(1000);
    const std::string name = file_name();
    tavik_d_mlff_network_write(network.get(), name.c_str(), 0);
    std::vector<tavik_d_link> links(static_cast<std::size_t>(network->n_links));
    std::vector<int> numbers(static_cast<std::size_t>(network->n_links));
    for (auto _ : state)
        state.SetIterationTime(seconds_of(
            [&] { benchmark::DoNotOptimize(read_with_fscanf(*network, name.c_str(), links, numbers)); }));
    std::filesystem::remove(name);
}

enum Clock { wall_clock, own_clock };

template <class... Arguments>
void add(const char *name, Clock clock, void (*run)(benchmark::State &, Arguments...), Arguments... arguments)
{
    auto *added = benchmark::RegisterBenchmark(name, run, arguments...);
    if (clock == own_clock) added->UseManualTime();
    else added->UseRealTime();
    added->Unit(benchmark::kMillisecond)->Iterations(1)->Repetitions(repetitions)->ReportAggregatesOnly();
}

const bool registered = [] {
    constexpr double seconds_a_link = 20e-9, links = 2e6;
    add("network/2,000,000 links", own_clock, link_all, 1, 1000);
    add("network/20 ns a link", own_clock, clock_of, seconds_a_link * links);
    add("network/8,000,000 links", own_clock, link_all, 1, 2000);
    add("network/4 x 2,000,000 links", own_clock, link_all, 4, 1000);
    add("network/remove from 1,000,000", wall_clock, remove_links, 1, 1000);
    add("network/remove from 4 x 250,000", wall_clock, remove_links, 4, 500);
    add("network/write 1,000,000 links", wall_clock, write_ours);
    add("network/fprintf", wall_clock, write_theirs);
    add("network/read 1,000,000 links", own_clock, read_ours);
    add("network/fscanf", own_clock, read_theirs);
    bench::compare("network/2,000,000 links", "network/20 ns a link", 1);
    // Smaller networks would lie in memory that the allocator keeps, and cost no page faults.
    bench::compare("network/8,000,000 links", "network/4 x 2,000,000 links", 0.7);
    bench::compare("network/remove from 1,000,000", "network/remove from 4 x 250,000", 0.7);
    bench::compare("network/write 1,000,000 links", "network/fprintf", 4);
    bench::compare("network/read 1,000,000 links", "network/fscanf", 4);
    return true;
}();

} // namespace
