// The network record of either precision: its types, and how one is made and freed.
#pragma once

#include "frame/raise.hpp"
#include "frame/workspace.hpp"

#include <cstdlib>
#include <type_traits>

namespace tavik::datamining {

template <class Network> using LinkOf = std::remove_pointer_t<decltype(Network::links)>;
template <class Network> using NodeOf = std::remove_pointer_t<decltype(Network::nodes)>;
template <class Network> using RealOf = decltype(LinkOf<Network>::weight);
using Layer = tavik_layer;

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

} // namespace tavik::datamining
