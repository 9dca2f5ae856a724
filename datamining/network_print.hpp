// A network on the output unit.
#pragma once

#include "network_checks.hpp"

#include "frame/locked_stream.hpp"
#include "frame/text_writer.hpp"

namespace tavik::datamining {

inline void print_list(TextWriter &out, const char *title, const int *list, int n)
{
    if (n == 0) return;
    out.text(title);
    for (int k = 0; k < n; ++k) {
        out.text("  ");
        out.integer(list[k]);
    }
    out.character('\n');
}

template <class Network> void print_layer(TextWriter &out, const Network &network, int l)
{
    if (l == 0) out.text("\nInput Layer \n");
    else if (l == network.n_layers - 1) out.text("\n\nOutput Layer \n");
    else {
        out.text("\n\nLayer ");
        out.integer(l);
        out.text(" \n");
    }
    out.text("-----------------\n");
    const Layer &layer = network.layers[l];
    for (int i = 0; i < layer.n_nodes; ++i) {
        const NodeOf<Network> &node = network.nodes[layer.nodes[i]];
        out.text("     NODE_");
        out.integer(layer.nodes[i]);
        out.text("\nActivation Fcn = ");
        out.integer(node.activationFcn);
        out.text("\nBias = ");
        out.fixed(static_cast<double>(node.bias), 6);
        out.text(" \n");
        print_list(out, "  Input Links  : ", node.inLinks, node.n_inLinks);
        print_list(out, "  Output Links : ", node.outLinks, node.n_outLinks);
    }
}

template <class Network> void print_link(TextWriter &out, const Network &network, int i)
{
    const LinkOf<Network> &link = network.links[i];
    const auto begin = [&](const char *field) {
        out.text("network->links[");
        out.integer(i);
        out.text(field);
    };
    const auto real = [&](const char *field, RealOf<Network> value) {
        begin(field);
        out.fixed(static_cast<double>(value), 20, 26);
        out.text(" \n");
    };
    const auto integer = [&](const char *field, int value) {
        begin(field);
        out.integer(value);
        out.text(" \n");
    };
    real("].weight = ", link.weight);
    real("].gradient = ", link.gradient);
    integer("].to_node = ", link.to_node);
    integer("].from_node = ", link.from_node);
}

template <class Network> bool print_network(const Network &network, Workspace &workspace)
{
    if (!check_record(network)) return false;
    char *buffer = workspace.array<char>(TextWriter::buffer_size);
    FILE *stream = lock_output_unit(workspace);
    if (buffer == nullptr || stream == nullptr) return false;
    TextWriter out(stream, buffer);
    for (int l = 0; l < network.n_layers; ++l) print_layer(out, network, l);
    out.text("\n\n\n******* Links  ********\n");
    for (int i = 0; i < network.n_links; ++i) print_link(out, network, i);
    out.flush();
    return true;
}

} // namespace tavik::datamining
