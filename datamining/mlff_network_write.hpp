// Writing a network to a text file:
//
//     version
//     n_inputs n_outputs n_layers n_links n_nodes next_link
//     for each layer: number of nodes, their numbers
//     for each link: from_node to_node weight gradient
//     for each node: layer_id n_inLinks n_outLinks activationFcn bias param, and lines of its in-links and out-links
#pragma once

#include "network_checks.hpp"
#include "network_file_options.hpp"

#include "frame/output_file.hpp"
#include "frame/text_writer.hpp"

#include <cerrno>
#include <cstring>
#include <iterator>

namespace tavik::datamining {

// With the last number the line ends.
inline void write_list(TextWriter &out, const int *list, int n)
{
    for (int k = 0; k < n; ++k) {
        out.integer(list[k]);
        out.character(k + 1 < n ? ' ' : '\n');
    }
}

inline void write_real(TextWriter &out, double value, char behind)
{
    out.general(value, 15, 20);
    out.character(behind);
}

template <class Network> void write_node(TextWriter &out, const NodeOf<Network> &node)
{
    for (const int value : {node.layer_id, node.n_inLinks, node.n_outLinks, node.activationFcn}) {
        out.integer(value);
        out.character(' ');
    }
    write_real(out, static_cast<double>(node.bias), ' ');
    write_real(out, static_cast<double>(node.param), '\n');
    write_list(out, node.inLinks, node.n_inLinks);
    write_list(out, node.outLinks, node.n_outLinks);
}

template <class Network> void write_record(TextWriter &out, const Network &network)
{
    out.text("1.000000\n");
    const int counts[] = {network.n_inputs, network.n_outputs, network.n_layers,
                          network.n_links,  network.n_nodes,   network.next_link};
    write_list(out, counts, static_cast<int>(std::size(counts)));
    for (int l = 0; l < network.n_layers; ++l) {
        const Layer &layer = network.layers[l];
        out.integer(layer.n_nodes);
        out.character(' ');
        write_list(out, layer.nodes, layer.n_nodes);
    }
    for (int i = 0; i < network.n_links; ++i) {
        const LinkOf<Network> &link = network.links[i];
        out.integer(link.from_node);
        out.character(' ');
        out.integer(link.to_node);
        out.character(' ');
        write_real(out, static_cast<double>(link.weight), ' ');
        write_real(out, static_cast<double>(link.gradient), '\n');
    }
    for (int i = 0; i < network.n_nodes; ++i) write_node<Network>(out, network.nodes[i]);
}

// Of the file, but for that of the version.
template <class Network> long long count_lines(const Network &network)
{
    long long lines = 1LL + network.n_layers + network.n_links + network.n_nodes;
    for (int i = 0; i < network.n_nodes; ++i)
        lines += (network.nodes[i].n_inLinks > 0) + (network.nodes[i].n_outLinks > 0);
    return lines;
}

// In English, whatever the locale.
inline bool raise_not_written(const char *name, int error)
{
    const char *reason = strerrordesc_np(error);
    return raise(terminal, 65374, name,
                 reason != nullptr && error != 0 ? reason : "the stream reports an error");
}

template <class Network>
void l_mlff_network_write(const Network *network, const char *filename, ArgumentList &list,
                          Workspace &workspace)
{
    NetworkFileOptions options;
    if (!read_options(OptionReader(list, count_codes), options)) return;
    if ((filename == nullptr && options.stream == nullptr) || !check_not_null(network, "network")) return;
    char *buffer = workspace.array<char>(TextWriter::buffer_size);
    if (buffer == nullptr || !check_record(*network) || !check_next_link(*network) || !check_lists(*network))
        return;

    FILE *progress = nullptr, *stream = options.stream;
    tavik_umach(2, &progress);
    OutputFile *file = nullptr;
    if (stream == nullptr) {
        if (options.print)
            std::fprintf(progress, "Opening %s for writing network data structure\n", filename);
        file = OutputFile::open(filename, workspace);
        if (file == nullptr) {
            if (!error_pending()) raise(terminal, 65359, "ASCII", filename, "storing the neural network");
            return;
        }
        stream = file->stream();
    } else if (!lock_until_return(stream, workspace)) {
        return;
    }
    if (options.print) std::fputs("Writing Neural Network... ", progress);

    errno = 0;
    TextWriter out(stream, buffer);
    write_record(out, *network);
    const bool written = out.flush() && std::fflush(stream) == 0 && (file == nullptr || file->finish());
    if (!written) {
        raise_not_written(name_of(filename), errno);
        return;
    }
    if (!options.print) return;
    const long long lines = count_lines(*network);
    if (file != nullptr)
        std::fprintf(progress, "%lld Lines written to network file. \nFile %s closed\n", lines, filename);
    else std::fprintf(progress, "%lld Lines written to network file.  \nFile not closed.\n", lines);
}

} // namespace tavik::datamining
