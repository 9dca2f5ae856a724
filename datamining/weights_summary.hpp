// The initial weights of a network on the output unit.
#pragma once

#include "network_record.hpp"
#include "patterns.hpp"

#include "frame/locked_stream.hpp"
#include "frame/text_writer.hpp"

namespace tavik::datamining {

template <class Network> int class_count(const Network &network)
{
    return network.n_outputs == 1 ? 2 : network.n_outputs;
}

inline void print_count(TextWriter &out, const char *title, std::int64_t value)
{
    out.text(title);
    out.integer(value);
    out.character('\n');
}

// From an input or a perceptron.
template <class Network>
void print_weight(TextWriter &out, const Network &network, const LinkOf<Network> &link, int n_nominal)
{
    const int from = link.from_node;
    out.text(from < n_nominal ? "\tN" : from < network.n_inputs ? "\tX" : "\tP");
    out.integer(from < n_nominal          ? from
                : from < network.n_inputs ? from - n_nominal
                                          : from - network.n_inputs);
    out.text(" \t\t\t ");
    out.fixed(static_cast<double>(link.weight), 6);
    out.text(" \n");
}

struct WeightsSummary {
    FILE *stream = nullptr;
    char *buffer = nullptr;

    // False, with an error, without memory.
    bool prepare(Workspace &workspace)
    {
        buffer = workspace.array<char>(TextWriter::buffer_size);
        stream = lock_output_unit(workspace);
        return buffer != nullptr && stream != nullptr;
    }

    template <class Network>
    void print(const Network &network, const Patterns<RealOf<Network>> &patterns, int method,
               bool with_classes) const
    {
        TextWriter out(stream, buffer);
        const int n_perceptrons = network.n_nodes - network.n_inputs;
        out.text("\n-------------------------------------------\n-\t NETWORK WEIGHTS INITIALIZED USING \n");
        out.text(method == TAVIK_EQUAL_WEIGHTS          ? "-\t EQUAL WEIGHTS\n"
                 : method == TAVIK_DISCRIMINANT_WEIGHTS ? "-\t DISCRIMINANT WEIGHTS\n"
                                                        : "-\t RANDOM WEIGHTS\n");
        print_count(out, "-\t  Input Attributes:    ", network.n_inputs);
        print_count(out, "-\t     Nominal:          ", patterns.n_nominal);
        print_count(out, "-\t     Nominal(encoded): ", patterns.n_nominal);
        print_count(out, "-\t     Continuous:       ", patterns.n_continuous);
        print_count(out, "-\t  Output Attributes:   ", network.n_outputs);
        if (with_classes) print_count(out, "-\t     n_classes:        ", class_count(network));
        print_count(out, "-\t  Layers:              ", network.n_layers - 1);
        print_count(out, "-\t  Perceptrons:         ", n_perceptrons);
        print_count(out, "-\t  Weights:             ", std::int64_t{network.n_links} + n_perceptrons);
        print_count(out, "-\t  Patterns:            ", patterns.n);
        out.text("-------------------------------------------\n");
        for (int i = network.n_inputs; i < network.n_nodes; ++i) {
            const NodeOf<Network> &node = network.nodes[i];
            out.text("\n\t--- Perceptron ");
            out.integer(i - network.n_inputs);
            out.text(" ---\n");
            for (int k = 0; k < node.n_inLinks; ++k)
                print_weight(out, network, network.links[node.inLinks[k]], patterns.n_nominal);
            out.text("\tBias ");
            out.general(static_cast<double>(node.bias), 6);
            out.text(" \n");
        }
        out.flush();
    }
};

} // namespace tavik::datamining
