// Editing a network: which options stand in the call, and the fixed order in which they are carried out.
#pragma once

#include "network_layers.hpp"
#include "network_links.hpp"
#include "network_print.hpp"

#include "frame/call.hpp"
#include "frame/options.hpp"

#include <optional>

namespace tavik::datamining {

// Nodes or layers.
struct Ends {
    int to, from;
};

template <class T> struct ValuesOfLayer {
    int layer;
    const T *values;
};

template <class Real> struct EditOptions {
    std::optional<int> new_perceptrons;
    std::optional<ValuesOfLayer<int>> activation;
    std::optional<ValuesOfLayer<Real>> bias;
    bool link_all = false;
    std::optional<Ends> link_layer, link_node, remove_link;
    const Real *weights = nullptr;
    int *n_links = nullptr;
    bool print = false;
};

// C++ leaves the order of a function's arguments open, but not that of an initialiser list.
inline Ends read_ends(OptionReader &reader)
{
    return Ends{reader.integer(), reader.integer()};
}

template <class Real> bool read_options(OptionReader reader, EditOptions<Real> &options)
{
    while (const int code = reader.next()) {
        switch (code) {
        case TAVIK_CREATE_HIDDEN_LAYER: options.new_perceptrons = reader.integer(); break;
        case TAVIK_ACTIVATION_FCN:
            options.activation =
                ValuesOfLayer<int>{reader.integer(), reader.pointer<const int>("TAVIK_ACTIVATION_FCN")};
            break;
        case TAVIK_BIAS:
            options.bias = ValuesOfLayer<Real>{reader.integer(), reader.pointer<const Real>("TAVIK_BIAS")};
            break;
        case TAVIK_LINK_ALL: options.link_all = true; break;
        case TAVIK_LINK_LAYER: options.link_layer = read_ends(reader); break;
        case TAVIK_LINK_NODE: options.link_node = read_ends(reader); break;
        case TAVIK_REMOVE_LINK: options.remove_link = read_ends(reader); break;
        case TAVIK_WEIGHTS: options.weights = reader.pointer<const Real>("TAVIK_WEIGHTS"); break;
        case TAVIK_N_LINKS: options.n_links = reader.pointer<int>("TAVIK_N_LINKS"); break;
        case TAVIK_PRINT:
        case TAVIK_PRINT_NETWORK: options.print = true; break;
        default: reader.unknown(11001); return false;
        }
    }
    if (options.link_all + options.link_layer.has_value() + options.link_node.has_value() +
            options.remove_link.has_value() >
        1)
        return raise(terminal, 11117,
                     "TAVIK_LINK_ALL, TAVIK_LINK_LAYER, TAVIK_LINK_NODE, and TAVIK_REMOVE_LINK");
    return !error_pending();
}

template <class Network> bool set_weights(Network &network, const RealOf<Network> *weights)
{
    if (!check_link_counts(network)) return false;
    for (int i = 0; i < network.n_links; ++i) network.links[i].weight = weights[i];
    return true;
}

// Every step ends the call when it fails.
template <class Network>
void carry_out(Network &network, const EditOptions<RealOf<Network>> &options, Workspace &workspace)
{
    if (options.new_perceptrons && !create_hidden_layer(network, *options.new_perceptrons)) return;
    if (options.activation && !set_activation(network, options.activation->layer, options.activation->values))
        return;
    if (options.bias && !set_bias(network, options.bias->layer, options.bias->values)) return;
    if (options.link_all && !link_all(network, workspace)) return;
    if (options.link_layer &&
        !link_layer(network, options.link_layer->to, options.link_layer->from, workspace))
        return;
    if (options.link_node && !link_nodes(network, options.link_node->to, options.link_node->from)) return;
    if (options.remove_link &&
        !remove_link(network, options.remove_link->to, options.remove_link->from, workspace))
        return;
    if (options.weights != nullptr && !set_weights(network, options.weights)) return;
    if (options.n_links != nullptr) *options.n_links = network.n_links;
    if (options.print) print_network(network, workspace);
}

template <class Network> void l_mlff_network(Network *network, ArgumentList &list, Workspace &workspace)
{
    constexpr PositionRule all_arguments_count{2, 1, 1};
    EditOptions<RealOf<Network>> options;
    if (!read_options(OptionReader(list, all_arguments_count), options) ||
        !check_not_null(network, "network"))
        return;
    carry_out(*network, options, workspace);
}

} // namespace tavik::datamining
