// Reading a network from a text file (mlff_network_write.hpp shows its lines).
//
// A file is input from anywhere: nothing that it says is believed before it is checked, and memory grows with what has
// been read, not with what counts claim.
#pragma once

#include "growing_blocks.hpp"
#include "network_file_options.hpp"
#include "network_record.hpp"

#include "frame/text_scanner.hpp"

#include <algorithm>
#include <climits>

namespace tavik::datamining {

template <class Network> class NetworkReader {
public:
    NetworkReader(FILE *stream, char *buffer, const char *name, Workspace &workspace)
        : scanner_(stream, buffer), stream_(stream), name_(name), workspace_(workspace)
    {
    }

    // Null, with an error, when the file is not a network's. Otherwise the workspace owns it.
    Network *read()
    {
        if (!read_version()) return nullptr;
        network_ = new_network<Network>(workspace_);
        if (network_ == nullptr || !read_counts() || !read_layers() || !read_links() || !read_nodes())
            return nullptr;
        scanner_.stop();
        return network_;
    }

private:
    using Real = RealOf<Network>;

    // The six numbers of the second line.
    struct Counts {
        int inputs, outputs, layers, links, nodes, next_link;
    };

    bool fail(const char *reason) const
    {
        return raise(terminal, 65373, name_, reason, scanner_.line());
    }

    bool accept(Scan scan) const
    {
        switch (scan) {
        case Scan::found: return true;
        case Scan::end_of_file:
            return fail(std::feof(stream_) != 0 ? "the file ends early" : "it cannot be read");
        case Scan::no_number: return fail("a number is expected");
        default: return fail("a number is too large");
        }
    }

    bool take(int &value)
    {
        return accept(scanner_.integer(value));
    }

    bool take(Real &value)
    {
        return accept(scanner_.real(value));
    }

    bool take(int &value, int least, int most, const char *fault)
    {
        return take(value) && ((value >= least && value <= most) || fail(fault));
    }

    bool read_version()
    {
        float version = 0;
        if (!accept(scanner_.real(version))) return false;
        return version == 1 || raise(terminal, 65372, name_);
    }

    bool read_counts()
    {
        for (int *count : {&counts_.inputs, &counts_.outputs, &counts_.layers, &counts_.links, &counts_.nodes,
                           &counts_.next_link}) {
            if (!take(*count, 0, INT_MAX, "a count is negative")) return false;
        }
        if (counts_.inputs < 1 || counts_.outputs < 1) return fail("there are no inputs, or no outputs");
        if (counts_.layers < 2) return fail("there are less than two layers");
        if (counts_.next_link != counts_.links) return fail("next_link is not the number of links");
        network_->n_inputs = counts_.inputs;
        network_->n_outputs = counts_.outputs;
        return true;
    }

    // Adds a zeroed element to an array.
    template <class T> static T *add_to(T *&array, int &n)
    {
        const auto size = static_cast<std::size_t>(n);
        if (!make_room(array, size, size + 1)) return nullptr;
        T *added = &array[n++];
        *added = {};
        return added;
    }

    bool read_layers()
    {
        int next = 0;
        for (int l = 0; l < counts_.layers; ++l) {
            int size = 0;
            if (!take(size, 1, counts_.nodes - next, "a layer has no nodes, or more than there are"))
                return false;
            if ((l == 0 && size != counts_.inputs) || (l == counts_.layers - 1 && size != counts_.outputs))
                return fail("the input or the output layer has another number of nodes");
            Layer *layer = add_to(network_->layers, network_->n_layers);
            if (layer == nullptr) return false;
            while (layer->n_nodes < size) {
                int number = 0;
                if (!take(number, next, next, "the nodes of the layers are not numbered one by one"))
                    return false;
                int *added = add_to(layer->nodes, layer->n_nodes);
                if (added == nullptr) return false;
                *added = next++;
            }
        }
        if (next != counts_.nodes) return fail("the layers have less nodes than there are");
        layer_of_ = workspace_.array<int>(static_cast<std::size_t>(next));
        for (int l = 0; layer_of_ != nullptr && l < network_->n_layers; ++l) {
            const Layer &layer = network_->layers[l];
            std::fill_n(layer_of_ + layer.nodes[0], layer.n_nodes, l);
        }
        return layer_of_ != nullptr;
    }

    bool read_links()
    {
        for (int i = 0; i < counts_.links; ++i) {
            int from = 0, to = 0;
            Real weight = 0, gradient = 0;
            if (!take(from, 0, counts_.nodes - 1, "a link comes from no node") ||
                !take(to, 0, counts_.nodes - 1, "a link leads to no node"))
                return false;
            if (layer_of_[from] >= layer_of_[to])
                return fail("a link does not lead from a lower layer to a higher one");
            if (!take(weight) || !take(gradient)) return false;
            LinkOf<Network> *link = add_to(network_->links, network_->n_links);
            if (link == nullptr) return false;
            *link = {weight, gradient, to, from};
        }
        network_->next_link = counts_.next_link;
        return true;
    }

    enum End : char { at_source = 1, at_target = 2 };

    bool read_nodes()
    {
        const auto n_links = static_cast<std::size_t>(counts_.links);
        listed_ = workspace_.array<char>(n_links);
        if (listed_ == nullptr) return false;
        std::fill_n(listed_, n_links, char{0});
        for (int i = 0; i < counts_.nodes; ++i) {
            NodeOf<Network> *node = add_to(network_->nodes, network_->n_nodes);
            int n_in = 0, n_out = 0;
            if (node == nullptr ||
                !take(node->layer_id, layer_of_[i], layer_of_[i], "a node is in another layer") ||
                !take(n_in, 0, counts_.links, "a node has more links than there are") ||
                !take(n_out, 0, counts_.links, "a node has more links than there are") ||
                !take(node->activationFcn, TAVIK_LINEAR, TAVIK_SQUASH, "an activation code is not 0 to 3") ||
                !take(node->bias) || !take(node->param) ||
                !read_list(i, n_in, at_target, node->inLinks, node->n_inLinks) ||
                !read_list(i, n_out, at_source, node->outLinks, node->n_outLinks))
                return false;
        }
        const auto in_both_lists = [](char ends) { return ends == (at_source | at_target); };
        return std::all_of(listed_, listed_ + n_links, in_both_lists) ||
               fail("a link is missing in the lists of its nodes");
    }

    // Every link is in the list of either of its ends once. `size` is at most the number of links that have been read.
    bool read_list(int node, int size, End end, int *&list, int &n)
    {
        if (!make_room(list, 0, std::int64_t{size})) return false;
        while (n < size) {
            int link = 0;
            if (!take(link, 0, counts_.links - 1, "a node lists a link that there is not")) return false;
            const LinkOf<Network> &of_node = network_->links[link];
            if ((end == at_target ? of_node.to_node : of_node.from_node) != node)
                return fail("a node lists a link of other nodes");
            if ((listed_[link] & end) != 0) return fail("a node lists a link twice");
            listed_[link] = static_cast<char>(listed_[link] | end);
            list[n++] = link;
        }
        return true;
    }

    TextScanner scanner_;
    FILE *stream_;
    const char *name_;
    Workspace &workspace_;
    Counts counts_{};
    Network *network_ = nullptr;
    int *layer_of_ = nullptr; // of each node
    char *listed_ = nullptr;  // of each link: the ends whose lists have it
};

template <class Network>
void l_mlff_network_read(const char *filename, ArgumentList &list, Workspace &workspace, Network *&result)
{
    NetworkFileOptions options;
    if (!read_options(OptionReader(list, count_codes), options)) return;
    if (options.stream == nullptr && !check_not_null(filename, "filename")) return;
    FILE *progress = nullptr, *stream = options.stream;
    char *buffer = nullptr;
    tavik_umach(2, &progress);
    if (stream == nullptr) {
        buffer = workspace.array<char>(TextScanner::buffer_size);
        if (buffer == nullptr) return;
        if (options.print)
            std::fprintf(progress, "Attempting to open %s for \nreading network data structure\n", filename);
        stream = std::fopen(filename, "re");
        if (stream == nullptr) {
            raise(terminal, 65359, "ASCII", filename, "reading the neural network");
            return;
        }
        if (!workspace.keep(stream, [](FILE *opened) { std::fclose(opened); })) return;
        if (options.print) std::fprintf(progress, "File %s Successfully Opened\n", filename);
    } else if (!lock_until_return(stream, workspace)) {
        return;
    }

    NetworkReader<Network> reader(stream, buffer, name_of(filename), workspace);
    Network *network = reader.read();
    if (network == nullptr) return;
    if (options.stream == nullptr) std::fclose(workspace.hand_over(stream));
    if (options.print && options.stream == nullptr) std::fprintf(progress, "File %s closed\n", filename);
    else if (options.print) std::fputs("Network restored from file.  File not closed.\n", progress);
    result = workspace.hand_over(network);
}

} // namespace tavik::datamining
