// What is checked before a record is walked: callers hold it, and may have damaged it.
#pragma once

#include "network_record.hpp"

#include <algorithm>
#include <cstdint>

namespace tavik::datamining {

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
        if (layer.n_nodes > network.n_nodes - next) return raise_damaged("the layers have too many nodes", l);
        if (layer.nodes == nullptr) return raise_damaged("a layer's list of nodes is null", l);
        for (int i = 0; i < layer.n_nodes; ++i, ++next) {
            if (layer.nodes[i] != next)
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

// Layers, nodes and links can be walked, and lists printed. What lists name is checked by those who follow it: a layer
// that is made after links leaves the lists of the output nodes behind.
template <class Network> bool check_record(const Network &network)
{
    if (!check_layers(network) || !check_link_counts(network)) return false;
    for (int i = 0; i < network.n_links; ++i) {
        if (!check_ends(network, i)) return false;
    }
    for (int i = 0; i < network.n_nodes; ++i) {
        const NodeOf<Network> &node = network.nodes[i];
        if (!check_list_block(network, node.inLinks, node.n_inLinks, i) ||
            !check_list_block(network, node.outLinks, node.n_outLinks, i))
            return false;
    }
    return true;
}

// Lists and links agree, as they do in what can be read again.
template <class Network> bool check_lists(const Network &network)
{
    std::int64_t n_in = 0, n_out = 0;
    for (int i = 0; i < network.n_nodes; ++i) {
        const NodeOf<Network> &node = network.nodes[i];
        if (!check_list(network, node.inLinks, node.n_inLinks, i) ||
            !check_list(network, node.outLinks, node.n_outLinks, i))
            return false;
        const auto ends_here = [&](int link) { return network.links[link].to_node == i; };
        const auto starts_here = [&](int link) { return network.links[link].from_node == i; };
        if (!std::all_of(node.inLinks, node.inLinks + node.n_inLinks, ends_here) ||
            !std::all_of(node.outLinks, node.outLinks + node.n_outLinks, starts_here))
            return raise_damaged("a node lists a link of other nodes, as when a layer was made after links",
                                 i);
        n_in += node.n_inLinks;
        n_out += node.n_outLinks;
    }
    if (n_in == network.n_links && n_out == network.n_links) return true;
    return raise_damaged("the lists of the nodes have not as many links as there are", network.n_links);
}

} // namespace tavik::datamining
