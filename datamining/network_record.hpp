// The network record of either precision: its types, how its arrays grow, and what is checked before it is walked.
//
// Links, and the lists of links at nodes, lie in blocks with places for the next power of two above their count. So a
// block needs no number of its own in the record that callers see, and elements are added in amortised constant time.
#pragma once

#include "frame/raise.hpp"
#include "frame/workspace.hpp"

#include <algorithm>
#include <bit>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <sys/mman.h>

namespace tavik::datamining {

template <class Network> using LinkOf = std::remove_pointer_t<decltype(Network::links)>;
template <class Network> using NodeOf = std::remove_pointer_t<decltype(Network::nodes)>;
template <class Network> using RealOf = decltype(LinkOf<Network>::weight);
using Layer = tavik_layer;

constexpr std::size_t places_for(std::size_t n)
{
    constexpr std::size_t least = 4;
    return n == 0 ? 0 : std::max(least, std::bit_ceil(n));
}

// A large block is about to be filled from its first byte to its last: the kernel shall give it large pages, each of
// which costs hardly more than a small one.
inline void expect_filling(void *block, std::size_t bytes)
{
    constexpr std::uintptr_t large_page = 1 << 21;
    const auto first = reinterpret_cast<std::uintptr_t>(block);
    const std::uintptr_t begin = (first + large_page - 1) / large_page * large_page,
                         end = (first + bytes) / large_page * large_page;
    if (begin >= end) return;
    // NOLINTNEXTLINE(performance-no-int-to-ptr): within the block
    madvise(reinterpret_cast<void *>(begin), end - begin, MADV_HUGEPAGE); // a wish, which may stay one
}

// Makes room for n elements in a block that was made for `now` of them, or more. False, with an error, without memory;
// then nothing has changed.
template <class T> bool make_room(T *&block, std::size_t now, std::size_t n)
{
    const std::size_t places = places_for(n);
    if (places <= places_for(now)) return true;
    std::size_t bytes = 0;
    void *larger = nullptr;
    if (!__builtin_mul_overflow(places, sizeof(T), &bytes)) larger = std::realloc(block, bytes);
    if (larger == nullptr) return raise(terminal, 200);
    expect_filling(larger, bytes);
    block = static_cast<T *>(larger);
    return true;
}

inline bool make_room(int *&list, int now, std::int64_t n)
{
    return make_room(list, static_cast<std::size_t>(now), static_cast<std::size_t>(n));
}

// Null, with an error, without memory.
template <class T> T *allocate_zeroed(std::size_t n)
{
    void *block = std::calloc(n, sizeof(T));
    if (block == nullptr) raise(terminal, 200);
    return static_cast<T *>(block);
}

// Also of a record that is only partly there.
template <class Network> void free_network(Network *network)
{
    if (network == nullptr) return;
    for (int l = 0; network->layers != nullptr && l < network->n_layers; ++l)
        std::free(network->layers[l].nodes);
    for (int i = 0; network->nodes != nullptr && i < network->n_nodes; ++i) {
        std::free(network->nodes[i].inLinks);
        std::free(network->nodes[i].outLinks);
    }
    std::free(network->layers);
    std::free(network->nodes);
    std::free(network->links);
    std::free(network);
}

// A record without anything. The workspace frees it until it is handed over. Null, with an error, without memory.
template <class Network> Network *new_network(Workspace &workspace)
{
    auto *network = allocate_zeroed<Network>(1);
    if (network == nullptr || !workspace.keep(network, [](Network *kept) { free_network(kept); }))
        return nullptr;
    return network;
}

template <class Network> void set_new_node(NodeOf<Network> &node, int layer, int activation)
{
    node = {};
    node.layer_id = layer;
    node.param = 1;
    node.activationFcn = activation;
}

template <class Network> LinkOf<Network> new_link(int to, int from)
{
    return {0, 1, to, from};
}

inline bool raise_damaged(const char *finding, int number)
{
    return raise(terminal, 40121, finding, number);
}

// Layers and nodes are there, and numbers run through them.
template <class Network> bool check_layers(const Network &network)
{
    if (network.n_layers < 2) return raise_damaged("the number of layers is less than 2", network.n_layers);
    if (network.layers == nullptr) return raise_damaged("the array of layers is null", network.n_layers);
    if (network.nodes == nullptr) return raise_damaged("the array of nodes is null", network.n_nodes);
    int next = 0;
    for (int l = 0; l < network.n_layers; ++l) {
        const Layer &layer = network.layers[l];
        if (layer.n_nodes < 1) return raise_damaged("a layer has no nodes", l);
        if (layer.nodes == nullptr) return raise_damaged("a layer's list of nodes is null", l);
        for (int i = 0; i < layer.n_nodes; ++i, ++next) {
            if (next >= network.n_nodes || layer.nodes[i] != next)
                return raise_damaged("the nodes of the layers are not numbered one by one", next);
            if (network.nodes[next].layer_id != l)
                return raise_damaged("a node names another layer than its own", next);
        }
    }
    if (next != network.n_nodes) return raise_damaged("a node is in no layer", next);
    if (network.layers[0].n_nodes != network.n_inputs)
        return raise_damaged("the input layer has not n_inputs nodes", network.n_inputs);
    if (network.layers[network.n_layers - 1].n_nodes != network.n_outputs)
        return raise_damaged("the output layer has not n_outputs nodes", network.n_outputs);
    return true;
}

// The counts of links, for who makes or removes some.
template <class Network> bool check_link_counts(const Network &network)
{
    if (network.n_links < 0) return raise_damaged("the number of links is negative", network.n_links);
    if (network.links == nullptr && network.n_links > 0)
        return raise_damaged("the array of links is null", network.n_links);
    return true;
}

template <class Network> bool check_next_link(const Network &network)
{
    if (network.next_link == network.n_links) return true;
    return raise_damaged("next_link is not the number of links", network.next_link);
}

// A list of links at a node is there.
template <class Network> bool check_list_block(const Network &network, const int *list, int n, int node)
{
    if (n < 0 || n > network.n_links) return raise_damaged("a node counts more links than there are", node);
    return list != nullptr || n == 0 || raise_damaged("a node's list of links is null", node);
}

// It names links.
template <class Network> bool check_list(const Network &network, const int *list, int n, int node)
{
    if (!check_list_block(network, list, n, node)) return false;
    for (int k = 0; k < n; ++k) {
        if (list[k] < 0 || list[k] >= network.n_links)
            return raise_damaged("a node lists a link that there is not", node);
    }
    return true;
}

template <class Network> bool check_ends(const Network &network, int link)
{
    const int to = network.links[link].to_node, from = network.links[link].from_node;
    if (to >= 0 && to < network.n_nodes && from >= 0 && from < network.n_nodes) return true;
    return raise_damaged("a link has an end that is no node", link);
}

// All of a record can be walked. Whether lists and links match is not checked: they do not where a layer was made
// after links.
template <class Network> bool check_record(const Network &network)
{
    if (!check_layers(network) || !check_link_counts(network)) return false;
    for (int i = 0; i < network.n_links; ++i) {
        if (!check_ends(network, i)) return false;
    }
    for (int i = 0; i < network.n_nodes; ++i) {
        const NodeOf<Network> &node = network.nodes[i];
        if (!check_list(network, node.inLinks, node.n_inLinks, i) ||
            !check_list(network, node.outLinks, node.n_outLinks, i))
            return false;
    }
    return true;
}

} // namespace tavik::datamining
