// Layers of a network: a hidden layer between others, and what belongs to all nodes of a layer.
#pragma once

#include "network_checks.hpp"

#include <algorithm>
#include <climits>
#include <numeric>

namespace tavik::datamining {

// Numbers the nodes of a layer from `first` on.
inline void number_nodes(const Layer &layer, int first)
{
    std::iota(layer.nodes, layer.nodes + layer.n_nodes, first);
}

template <class Network> bool check_node_count(const Network &network, int more)
{
    if (more <= INT_MAX - network.n_nodes) return true;
    return raise(terminal, 40120, "nodes", network.n_nodes, more);
}

// Links keep the numbers of their nodes, also those to output nodes, which get others.
template <class Network> bool create_hidden_layer(Network &network, int n_perceptrons)
{
    int position = 0;
    tavik_c1iarg(n_perceptrons, "n_perceptrons", 1, -1, &position);
    if (error_pending() || !check_layers(network) || !check_node_count(network, n_perceptrons)) return false;
    const int created = network.n_layers - 1, first_output = network.n_nodes - network.n_outputs;
    auto *layers =
        static_cast<Layer *>(std::malloc((static_cast<std::size_t>(network.n_layers) + 1) * sizeof(Layer)));
    auto *numbers = static_cast<int *>(std::malloc(static_cast<std::size_t>(n_perceptrons) * sizeof(int)));
    auto *nodes = static_cast<NodeOf<Network> *>(
        std::malloc(static_cast<std::size_t>(network.n_nodes + n_perceptrons) * sizeof(NodeOf<Network>)));
    if (layers == nullptr || numbers == nullptr || nodes == nullptr) {
        std::free(layers);
        std::free(numbers);
        std::free(nodes);
        return raise(terminal, 200);
    }

    std::copy_n(network.layers, created, layers);
    layers[created] = {n_perceptrons, numbers};
    layers[created + 1] = network.layers[created];
    number_nodes(layers[created], first_output);
    number_nodes(layers[created + 1], first_output + n_perceptrons);

    std::copy_n(network.nodes, first_output, nodes);
    for (int i = 0; i < n_perceptrons; ++i)
        set_new_node<Network>(nodes[first_output + i], created, TAVIK_LOGISTIC);
    std::copy_n(network.nodes + first_output, network.n_outputs, nodes + first_output + n_perceptrons);
    network.n_nodes += n_perceptrons;
    for (int i = first_output + n_perceptrons; i < network.n_nodes; ++i) nodes[i].layer_id = created + 1;

    std::free(network.layers);
    std::free(network.nodes);
    network.layers = layers;
    network.nodes = nodes;
    ++network.n_layers;
    return true;
}

// A layer of perceptrons.
template <class Network> bool check_layer(const Network &network, int layer)
{
    if (layer < 1 || layer >= network.n_layers)
        return raise(terminal, 40097, "layer_id", layer, network.n_layers);
    return check_layers(network);
}

template <class Network> bool set_activation(Network &network, int layer, const int *codes)
{
    if (!check_layer(network, layer)) return false;
    const Layer &nodes = network.layers[layer];
    for (int i = 0; i < nodes.n_nodes; ++i) {
        if (codes[i] < TAVIK_LINEAR || codes[i] > TAVIK_SQUASH)
            return raise(terminal, 40089, "activation_fcn", i, codes[i], TAVIK_LINEAR, TAVIK_SQUASH);
        network.nodes[nodes.nodes[i]].activationFcn = codes[i];
    }
    return true;
}

template <class Network> bool set_bias(Network &network, int layer, const RealOf<Network> *biases)
{
    if (!check_layer(network, layer)) return false;
    const Layer &nodes = network.layers[layer];
    for (int i = 0; i < nodes.n_nodes; ++i) network.nodes[nodes.nodes[i]].bias = biases[i];
    return true;
}

} // namespace tavik::datamining
