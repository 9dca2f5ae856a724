// What the tests of networks share: the routines of either precision, and a plain copy of a record.
#pragma once

#include "frame/capture.hpp"

#include <cstdio>
#include <memory>
#include <ostream>
#include <sstream>

namespace networks {

using capture::of_type, capture::Reals;
using std::string;

template <class Real> struct Routines {
    using Network = std::conditional_t<std::is_same_v<Real, float>, tavik_f_network, tavik_d_network>;
    static constexpr auto init = of_type<Real>(tavik_f_mlff_network_init, tavik_d_mlff_network_init);
    static constexpr auto edit = of_type<Real>(tavik_f_mlff_network, tavik_d_mlff_network);
    static constexpr auto release = of_type<Real>(tavik_f_mlff_network_free, tavik_d_mlff_network_free);
    static constexpr auto write = of_type<Real>(tavik_f_mlff_network_write, tavik_d_mlff_network_write);
    static constexpr auto read = of_type<Real>(tavik_f_mlff_network_read, tavik_d_mlff_network_read);
    static constexpr auto initialize =
        of_type<Real>(tavik_f_mlff_initialize_weights, tavik_d_mlff_initialize_weights);
    static constexpr auto uniform = of_type<Real>(tavik_f_random_uniform, tavik_d_random_uniform);
};

template <class Real> using Network = typename Routines<Real>::Network;
template <class Real> struct Release {
    void operator()(Network<Real> *network) const
    {
        Routines<Real>::release(network);
    }
};
template <class Real> using Owned = std::unique_ptr<Network<Real>, Release<Real>>;

template <class Real> Owned<Real> make(int n_inputs, int n_outputs)
{
    return Owned<Real>(Routines<Real>::init(n_inputs, n_outputs));
}

// Layers of these sizes, the first one the inputs, each linked to the next.
template <class Real> Owned<Real> linked(const std::vector<int> &sizes)
{
    auto net = make<Real>(sizes.front(), sizes.back());
    for (std::size_t l = 1; l + 1 < sizes.size(); ++l)
        Routines<Real>::edit(net.get(), TAVIK_CREATE_HIDDEN_LAYER, sizes[l], 0);
    Routines<Real>::edit(net.get(), TAVIK_LINK_ALL, 0);
    return net;
}

struct Record {
    struct Link {
        double weight = 0, gradient = 1;
        int to = -1, from = -1;
        bool operator==(const Link &) const = default;
    };
    struct Node {
        int layer = 0;
        std::vector<int> in, out;
        double param = 1, bias = 0;
        int activation = 0;
        bool operator==(const Node &) const = default;
    };
    int n_inputs = 0, n_outputs = 0, next_link = 0;
    std::vector<std::vector<int>> layers;
    std::vector<Link> links;
    std::vector<Node> nodes;
    bool operator==(const Record &) const = default;

    template <class AnyNetwork> explicit Record(const AnyNetwork &net)
    {
        n_inputs = net.n_inputs, n_outputs = net.n_outputs, next_link = net.next_link;
        for (int l = 0; l < net.n_layers; ++l)
            layers.emplace_back(net.layers[l].nodes, net.layers[l].nodes + net.layers[l].n_nodes);
        for (int k = 0; k < net.n_links; ++k) {
            const auto &link = net.links[k];
            links.push_back({link.weight, link.gradient, link.to_node, link.from_node});
        }
        for (int i = 0; i < net.n_nodes; ++i) {
            const auto &node = net.nodes[i];
            nodes.push_back({node.layer_id,
                             {node.inLinks, node.inLinks + node.n_inLinks},
                             {node.outLinks, node.outLinks + node.n_outLinks},
                             node.param,
                             node.bias,
                             node.activationFcn});
        }
    }

    friend void PrintTo(const Record &record, std::ostream *out)
    {
        const auto print = [out](const auto &...parts) {
            ((*out << testing::PrintToString(parts) << ' '), ...);
        };
        print(record.n_inputs, record.n_outputs, record.next_link, record.layers);
        for (const auto &[weight, gradient, to, from] : record.links) {
            *out << "\n  link (to, from, weight, gradient): ";
            print(to, from, weight, gradient);
        }
        for (const Node &node : record.nodes) {
            *out << "\n  node (layer, activation, bias, param, in, out): ";
            print(node.layer, node.activation, node.bias, node.param, node.in, node.out);
        }
    }
};

template <class... Values> string format(const char *pattern, Values... values)
{
    char line[1000];
    std::snprintf(line, sizeof line, pattern, values...);
    return line;
}

// Expects that capture::outcome tells this of a call, like "5 602 to 3 1 2". What follows type and code are parameters:
// numbers, or else single words.
inline void expect_outcome(const string &due, const std::function<void()> &call)
{
    std::istringstream words(due);
    string type, code, word, kinds;
    for (words >> type >> code; words >> word;)
        kinds += word.find_first_not_of("-0123456789") == string::npos ? 'i' : 'l';
    EXPECT_EQ(capture::outcome(call, kinds), due);
}

struct NetworkTest : capture::FrameTest {
    capture::Stream output;
    NetworkTest()
    {
        tavik_output_file(TAVIK_SET_OUTPUT_FILE, output.file, 0);
    }
    ~NetworkTest() override
    {
        tavik_output_file(TAVIK_SET_OUTPUT_FILE, stdout, 0);
    }
};

} // namespace networks
