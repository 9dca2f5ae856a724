// A new network of two layers.
#pragma once

#include "network_layers.hpp"

#include "frame/call.hpp"

namespace tavik::datamining {

template <class Network>
void l_mlff_network_init(int n_inputs, int n_outputs, Workspace &workspace, Network *&result)
{
    int position = 0;
    tavik_c1iarg(n_inputs, "n_inputs", 1, -1, &position);
    if (error_pending()) return;
    tavik_c1iarg(n_outputs, "n_outputs", 1, -1, &position);
    if (error_pending()) return;
    auto *network = new_network<Network>(workspace);
    if (network == nullptr) return;
    network->n_inputs = network->n_nodes = n_inputs;
    network->n_outputs = n_outputs;
    if (!check_node_count(*network, n_outputs)) return;

    network->layers = allocate_zeroed<Layer>(2);
    if (network->layers == nullptr) return;
    network->n_layers = 2;
    network->nodes = allocate_zeroed<NodeOf<Network>>(static_cast<std::size_t>(n_inputs) +
                                                      static_cast<std::size_t>(n_outputs));
    if (network->nodes == nullptr) return;
    network->n_nodes += n_outputs;
    for (int l = 0, first = 0; l < 2; ++l) {
        Layer &layer = network->layers[l];
        layer.n_nodes = l == 0 ? n_inputs : n_outputs;
        layer.nodes = allocate_zeroed<int>(static_cast<std::size_t>(layer.n_nodes));
        if (layer.nodes == nullptr) return;
        number_nodes(layer, first);
        for (int i = 0; i < layer.n_nodes; ++i)
            set_new_node<Network>(network->nodes[first + i], l, TAVIK_LINEAR);
        first += layer.n_nodes;
    }
    result = workspace.hand_over(network);
}

} // namespace tavik::datamining
