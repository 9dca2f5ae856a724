// Networks are made, edited and printed. A plain model of the record, written from the rules, goes through the same
// random edits, and after each of them the error and every field must be the same.
#include "datamining/networks.hpp"

#include <algorithm>
#include <climits>
#include <functional>
#include <random>

extern "C" [[gnu::weak]] void __lsan_disable();
extern "C" [[gnu::weak]] void __lsan_enable();

namespace {

using namespace networks;

struct Model : Record {
    int duplicates = 0;

    Model(int inputs, int outputs)
    {
        n_inputs = inputs, n_outputs = outputs;
        layers.resize(2);
        for (int i = 0; i < inputs + outputs; ++i) {
            layers[i >= inputs].push_back(i);
            nodes.push_back({.layer = i >= inputs, .in = {}, .out = {}});
        }
    }

    int n_layers() const
    {
        return static_cast<int>(layers.size());
    }

    string create(int n)
    {
        if (n < 1) return text("5 603 n_perceptrons", n, 1);
        std::vector<int> made;
        for (int i = 0; i < n; ++i) made.push_back(layers[n_layers() - 2].back() + 1 + i);
        const Node node = {.layer = n_layers() - 1, .in = {}, .out = {}, .activation = 1};
        nodes.insert(nodes.end() - n_outputs, static_cast<std::size_t>(n), node);
        layers.insert(layers.end() - 1, made);
        for (int &number : layers.back()) number += n, ++nodes[number].layer;
        return "0 0";
    }

    template <class Values, class Store> string fill(int layer, const Values &values, Store store)
    {
        if (layer < 1 || layer >= n_layers()) return text("5 40097 layer_id", layer, n_layers());
        for (std::size_t i = 0; i < layers[layer].size(); ++i) {
            if (!store(nodes[layers[layer][i]], values[i]))
                return text("5 40089 activation_fcn", i, values[i], 0, 3);
        }
        return "0 0";
    }
    string activation(int layer, const std::vector<int> &codes)
    {
        return fill(layer, codes, [](Node &node, int code) {
            if (code < 0 || code > 3) return false;
            node.activation = code;
            return true;
        });
    }
    template <class Real> string bias(int layer, const std::vector<Real> &values)
    {
        return fill(layer, values, [](Node &node, Real value) { return node.bias = value, true; });
    }

    string link(int to, int from)
    {
        for (const Link &other : links) {
            if (other.to == to && other.from == from)
                return ++duplicates, text("6 40096 to", to, "from", from);
        }
        nodes[to].in.push_back(next_link);
        nodes[from].out.push_back(next_link++);
        links.push_back({0, 1, to, from});
        return "0 0";
    }
    // The error that a call leaves is its last one.
    string link_nodes(const std::vector<int> &tos, const std::vector<int> &froms)
    {
        string last = "0 0";
        for (int from : froms) {
            for (int to : tos) {
                if (const string seen = link(to, from); seen != "0 0") last = seen;
            }
        }
        return last;
    }
    string link_all()
    {
        string last = "0 0";
        for (int l = 1; l < n_layers(); ++l) {
            if (const string seen = link_nodes(layers[l], layers[l - 1]); seen != "0 0") last = seen;
        }
        return last;
    }
    string link_layer(int to, int from)
    {
        if (to < 1 || to >= n_layers()) return text("5 40097 to", to, n_layers());
        if (from >= n_layers() - 1) return text("5 40098 from", from, n_layers());
        if (to == from) return text("5 40092 to", to, "from", from);
        if (to < from) return text("5 605", to, from);
        return from < 0 ? "0 0" : link_nodes(layers[to], layers[from]);
    }
    string link_node(int to, int from)
    {
        const int last = static_cast<int>(nodes.size()) - 1, last_from = layers[n_layers() - 2].back();
        if (to < n_inputs || to > last) return text("5 602 to", to, n_inputs, last);
        if (from < 0 || from > last_from) return text("5 602 from", from, 0, last_from);
        if (nodes[to].layer == nodes[from].layer) return text("5 40092 to", to, "from", from);
        if (to < from) return text("5 605", to, from);
        return link(to, from);
    }

    string remove(int to, int from)
    {
        const int last = static_cast<int>(links.size()) - 1;
        if (to < 0 || to > last) return text("5 40094 to", to, 0, last);
        if (from < 0 || from > last) return text("5 40094 from", from, 0, last);
        int k = last;
        while (k >= 0 && !(links[k].to == to && links[k].from == from)) --k;
        if (k < 0) return text("5 40095 to", to, "from", from);
        links.erase(links.begin() + k);
        std::erase(nodes[to].in, k);
        std::erase(nodes[from].out, k);
        for (int moved = k; moved < last; ++moved) {
            std::replace(nodes[links[moved].to].in.begin(), nodes[links[moved].to].in.end(), moved + 1,
                         moved);
            std::replace(nodes[links[moved].from].out.begin(), nodes[links[moved].from].out.end(), moved + 1,
                         moved);
        }
        --next_link;
        return "0 0";
    }
};

// The parameters that an error has.
string kinds_of(const string &outcome)
{
    for (const auto &[code, kinds] : {std::pair{" 602 ", "liii"},
                                      {" 603 ", "lii"},
                                      {" 605 ", "ii"},
                                      {" 40089 ", "liiii"},
                                      {" 40092 ", "lili"},
                                      {" 40094 ", "liii"},
                                      {" 40095 ", "lili"},
                                      {" 40096 ", "lili"},
                                      {" 40097 ", "lii"},
                                      {" 40098 ", "lii"}}) {
        if (outcome.find(code) == 1) return kinds;
    }
    return "";
}

template <class Real> struct NetworkEdits : NetworkTest {
    using R = Routines<Real>;

    // What an edit leaves, with the parameters that `due` has.
    template <class... Options> static string edit(Network<Real> *net, const string &due, Options... options)
    {
        return capture::outcome([&] { R::edit(net, options..., 0); }, kinds_of(due));
    }
};
using Reals = testing::Types<float, double>;
TYPED_TEST_SUITE(NetworkEdits, Reals);

TYPED_TEST(NetworkEdits, AgreeWithAPlainModel)
{
    using Real = TypeParam;
    std::map<string, int> seen;
    for (unsigned program = 0; program < 300; ++program) {
        std::mt19937 bits(program);
        const auto from_to = [&bits](int lo, int hi) {
            return lo + static_cast<int>(bits() % (hi - lo + 1));
        };
        Model model(from_to(1, 3), from_to(1, 3));
        const auto net = make<Real>(model.n_inputs, model.n_outputs);
        ASSERT_NE(net, nullptr);
        const auto create = [&] {
            const int n = from_to(0, 3);
            const string due = model.create(n);
            EXPECT_EQ(this->edit(net.get(), due, TAVIK_CREATE_HIDDEN_LAYER, n), due);
        };
        const auto step = [&] {
            const int layer = from_to(-1, model.n_layers()), other = from_to(-1, model.n_layers());
            const int n_nodes = static_cast<int>(model.nodes.size()), n_links = model.next_link;
            const int to = from_to(-1, n_nodes), from = from_to(-1, n_nodes);
            string due;
            switch (from_to(0, 15)) {
            case 0: {
                const std::vector<int> codes = {from_to(0, 4), from_to(-1, 3), from_to(0, 9)};
                due = model.activation(layer, codes);
                return std::pair{due, this->edit(net.get(), due, TAVIK_ACTIVATION_FCN, layer, codes.data())};
            }
            case 1: {
                const std::vector<Real> bias = {Real(from_to(-9, 9)), Real(0.1), Real(n_links)};
                due = model.bias(layer, bias);
                return std::pair{due, this->edit(net.get(), due, TAVIK_BIAS, layer, bias.data())};
            }
            case 2:
                if (from_to(0, 3) > 0) break;
                due = model.link_all();
                return std::pair{due, this->edit(net.get(), due, TAVIK_LINK_ALL)};
            case 3:
            case 4:
                due = model.link_layer(layer, other);
                return std::pair{due, this->edit(net.get(), due, TAVIK_LINK_LAYER, layer, other)};
            case 5: {
                std::vector<Real> weights;
                weights.reserve(1); // an address, also of no weights
                for (auto &link : model.links) weights.push_back(Real(link.weight = from_to(-99, 99)));
                int count = -1;
                due = "0 0";
                const string what =
                    this->edit(net.get(), due, TAVIK_N_LINKS, &count, TAVIK_WEIGHTS, weights.data());
                EXPECT_EQ(count, n_links);
                return std::pair{due, what};
            }
            case 6: // What a trainer may store is carried along.
                if (n_links > 0) {
                    model.links[n_links - 1].gradient = net->links[n_links - 1].gradient = Real(to);
                    model.nodes[n_nodes - 1].param = net->nodes[n_nodes - 1].param = Real(from);
                }
                break;
            case 7:
            case 8:
            case 9:
            case 10:
            case 11:
                due = model.remove(to, from);
                if (due.starts_with("5 40095") && n_links > 0 && from_to(0, 1) == 0) {
                    const auto [w, g, there, begin] = model.links[from_to(0, n_links - 1)];
                    due = model.remove(there, begin);
                    return std::pair{due, this->edit(net.get(), due, TAVIK_REMOVE_LINK, there, begin)};
                }
                return std::pair{due, this->edit(net.get(), due, TAVIK_REMOVE_LINK, to, from)};
            default: break;
            }
            due = model.link_node(to, from);
            return std::pair{due, this->edit(net.get(), due, TAVIK_LINK_NODE, to, from)};
        };
        for (int layers = from_to(0, 3); layers > 0; --layers) create();
        for (int i = 0; i < 50; ++i) {
            model.duplicates = 0;
            const auto [due, outcome] = step();
            ASSERT_EQ(outcome, due) << "program " << program << ", step " << i;
            ASSERT_EQ(Record(*net), model) << "program " << program << ", step " << i << ": " << due;
            if (due.starts_with("6")) {
                ASSERT_EQ(capture::printed.size(), model.duplicates);
            }
            ++seen[due.substr(0, 7)];
        }
        create(); // Links keep their numbers, and the outputs that moved keep their lists.
        ASSERT_EQ(Record(*net), model) << "program " << program << ", with a layer more";
    }
    for (const char *code : {"5 602 t", "5 602 f", "5 605 1", "5 40089", "5 40092", "5 40094", "5 40095",
                             "6 40096", "5 40097", "5 40098"})
        EXPECT_GT(seen[code], 10) << code;
}

TYPED_TEST(NetworkEdits, OptionsHaveTheirOrderAndTheLaterOneWins)
{
    using Real = TypeParam;
    const int layers[] = {3, 3, 3}, codes[] = {2, 3};
    const Real bias[] = {5, 6}, weights[] = {1, 2, 3, 4, 5, 6, 7, 8};
    int count = -1, unset = -1;
    const auto net = make<Real>(2, 2);
    EXPECT_EQ(this->edit(net.get(), "", TAVIK_N_LINKS, &unset, TAVIK_WEIGHTS, weights, TAVIK_LINK_LAYER, 1, 0,
                         TAVIK_N_LINKS, &count, TAVIK_LINK_LAYER, 2, 1, TAVIK_BIAS, 2, bias,
                         TAVIK_ACTIVATION_FCN, 2, codes, TAVIK_CREATE_HIDDEN_LAYER, 9,
                         TAVIK_CREATE_HIDDEN_LAYER, 3),
              "0 0");
    Model due(2, 2);
    due.create(layers[0]);
    due.activation(2, {2, 3});
    due.bias(2, std::vector<Real>{5, 6});
    due.link_layer(2, 1);
    for (int k = 0; k < 6; ++k) due.links[k].weight = k + 1;
    EXPECT_EQ(Record(*net), due);
    EXPECT_EQ(count, 6);
    EXPECT_EQ(unset, -1);
}

TYPED_TEST(NetworkEdits, AnErrorEndsTheCall)
{
    const int codes[] = {1, 2, 4, 3};
    const auto net = make<TypeParam>(3, 4);
    int count = -1;
    EXPECT_EQ(this->edit(net.get(), "5 40089 ", TAVIK_N_LINKS, &count, TAVIK_LINK_ALL, TAVIK_ACTIVATION_FCN,
                         1, codes),
              "5 40089 activation_fcn 2 4 0 3");
    Model due(3, 4);
    due.activation(1, {1, 2, 4, 3});
    EXPECT_EQ(Record(*net), due);
    EXPECT_EQ(count, -1);
}

TYPED_TEST(NetworkEdits, OnlyOneOptionOfACallMakesOrRemovesLinks)
{
    using Real = TypeParam;
    const string due = "5 11117 TAVIK_LINK_ALL, TAVIK_LINK_LAYER, TAVIK_LINK_NODE, and TAVIK_REMOVE_LINK";
    const auto net = make<Real>(2, 1);
    this->edit(net.get(), "", TAVIK_LINK_ALL);
    const Record before(*net);
    const auto outcome = [&](auto... options) {
        const Real bias[] = {7};
        return capture::outcome(
            [&] {
                Routines<Real>::edit(net.get(), TAVIK_BIAS, 1, bias, TAVIK_CREATE_HIDDEN_LAYER, 2, options...,
                                     0);
            },
            "l");
    };
    EXPECT_EQ(outcome(TAVIK_LINK_ALL, TAVIK_LINK_LAYER, 1, 0), due);
    EXPECT_EQ(outcome(TAVIK_LINK_NODE, 2, 0, TAVIK_LINK_ALL), due);
    EXPECT_EQ(outcome(TAVIK_REMOVE_LINK, 2, 0, TAVIK_LINK_NODE, 2, 1), due);
    EXPECT_EQ(outcome(TAVIK_LINK_LAYER, 1, 0, TAVIK_REMOVE_LINK, 2, 0), due);
    EXPECT_EQ(Record(*net), before);
}

TYPED_TEST(NetworkEdits, RefuseWhatIsNoCall)
{
    using R = Routines<TypeParam>;
    const auto init = [](int n_inputs, int n_outputs) {
        return capture::outcome(
            [&] { EXPECT_EQ(R::init(n_inputs, n_outputs), nullptr) << n_inputs << ' ' << n_outputs; }, "lii");
    };
    EXPECT_EQ(init(0, 0), "5 603 n_inputs 0 1");
    EXPECT_EQ(init(3, -2), "5 603 n_outputs -2 1");
    EXPECT_EQ(init(INT_MAX, 1).substr(0, 7), "5 40120");
    EXPECT_EQ(init(INT_MAX, INT_MAX).substr(0, 7), "5 40120");
    const auto net = make<TypeParam>(2, 1);
    const Record before(*net);
    EXPECT_EQ(this->edit(net.get(), "", TAVIK_CREATE_HIDDEN_LAYER, INT_MAX), "5 40120");
    const auto call = [&](auto *network, const string &kinds, auto... options) {
        return capture::outcome([&] { R::edit(network, options..., 0); }, kinds);
    };
    EXPECT_EQ(call(static_cast<Network<TypeParam> *>(nullptr), "l", TAVIK_LINK_ALL), "5 150 network");
    EXPECT_EQ(call(net.get(), "ii", TAVIK_CREATE_HIDDEN_LAYER, 1, TAVIK_LINK_NODE, 2, 0, 12345),
              "5 11001 12345 7");
    for (int option : {TAVIK_WEIGHTS, TAVIK_N_LINKS})
        EXPECT_EQ(call(net.get(), "", option, static_cast<void *>(nullptr)), "5 150");
    for (int option : {TAVIK_BIAS, TAVIK_ACTIVATION_FCN})
        EXPECT_EQ(call(net.get(), "", option, 1, static_cast<void *>(nullptr)), "5 150");
    EXPECT_EQ(Record(*net), before);
    R::release(nullptr);
}

TYPED_TEST(NetworkEdits, ManyLinksTakeNoLongerThanTheirNumber)
{
    constexpr int n = 900;
    const auto net = make<TypeParam>(n, n);
    this->edit(net.get(), "", TAVIK_LINK_ALL);
    ASSERT_EQ(net->n_links, n * n);
    int wrong = 0;
    for (int k = 0; k < n * n; ++k) {
        const auto &[weight, gradient, to, from] = net->links[k];
        wrong += weight != 0 || gradient != 1 || to != n + k % n || from != k / n;
        wrong += net->nodes[to].inLinks[from] != k || net->nodes[from].outLinks[to - n] != k;
    }
    EXPECT_EQ(wrong, 0);
    for (int i = 1; i <= 20; ++i) {
        EXPECT_EQ(this->edit(net.get(), "", TAVIK_REMOVE_LINK, n, i), "0 0");
        EXPECT_EQ(this->edit(net.get(), "", TAVIK_LINK_NODE, n, i), "0 0");
    }
    EXPECT_EQ(net->links[n * n - 1].from_node, 20);
    EXPECT_EQ(net->nodes[n].inLinks[n - 1], n * n - 1);
}

TYPED_TEST(NetworkEdits, Print)
{
    using Real = TypeParam;
    const auto net = make<Real>(2, 1);
    const Real weights[] = {Real(0.5), -12, 3}, bias[] = {Real(-1.25)};
    this->edit(net.get(), "", TAVIK_CREATE_HIDDEN_LAYER, 1, TAVIK_LINK_LAYER, 1, 0);
    this->edit(net.get(), "", TAVIK_BIAS, 1, bias, TAVIK_LINK_NODE, 3, 2, TAVIK_WEIGHTS, weights);
    EXPECT_EQ(this->output.take(), "");
    const string due = "\nInput Layer \n"
                       "-----------------\n"
                       "     NODE_0\n"
                       "Activation Fcn = 0\n"
                       "Bias = 0.000000 \n"
                       "  Output Links :   0\n"
                       "     NODE_1\n"
                       "Activation Fcn = 0\n"
                       "Bias = 0.000000 \n"
                       "  Output Links :   1\n"
                       "\n\nLayer 1 \n"
                       "-----------------\n"
                       "     NODE_2\n"
                       "Activation Fcn = 1\n"
                       "Bias = -1.250000 \n"
                       "  Input Links  :   0  1\n"
                       "  Output Links :   2\n"
                       "\n\nOutput Layer \n"
                       "-----------------\n"
                       "     NODE_3\n"
                       "Activation Fcn = 0\n"
                       "Bias = 0.000000 \n"
                       "  Input Links  :   2\n"
                       "\n\n\n******* Links  ********\n"
                       "network->links[0].weight =     0.50000000000000000000 \n"
                       "network->links[0].gradient =     1.00000000000000000000 \n"
                       "network->links[0].to_node = 2 \n"
                       "network->links[0].from_node = 0 \n"
                       "network->links[1].weight =   -12.00000000000000000000 \n"
                       "network->links[1].gradient =     1.00000000000000000000 \n"
                       "network->links[1].to_node = 2 \n"
                       "network->links[1].from_node = 1 \n"
                       "network->links[2].weight =     3.00000000000000000000 \n"
                       "network->links[2].gradient =     1.00000000000000000000 \n"
                       "network->links[2].to_node = 3 \n"
                       "network->links[2].from_node = 2 \n";
    for (int option : {TAVIK_PRINT, TAVIK_PRINT_NETWORK}) {
        this->edit(net.get(), "", option);
        EXPECT_EQ(this->output.take(), due);
    }
    this->edit(net.get(), "", TAVIK_PRINT, TAVIK_BIAS, 9, bias);
    EXPECT_EQ(this->output.take(), "") << "after an error";
    // Any value: longer than a number usually is, and in the precision of the network.
    net->links[0].weight = std::numeric_limits<Real>::max();
    net->links[1].weight = Real(-0.1);
    net->nodes[3].bias = Real(1e30);
    this->edit(net.get(), "", TAVIK_PRINT);
    const string seen = this->output.take();
    char line[500];
    for (int k : {0, 1}) {
        std::snprintf(line, sizeof line, "links[%d].weight = %26.20f \n", k, double{net->links[k].weight});
        EXPECT_NE(seen.find(line), string::npos) << line << "not in\n" << seen;
    }
    std::snprintf(line, sizeof line, "Bias = %f \n", double{net->nodes[3].bias});
    EXPECT_NE(seen.find(line), string::npos) << line << "not in\n" << seen;
}

// Each kind of damage, on a network of layers {0, 1}, {2, 3}, {4, 5} with all links: every routine works or tells of the
// damage, and printing or writing comes across it.
TYPED_TEST(NetworkEdits, DamagedRecordsAreToldOf)
{
    using Real = TypeParam;
    using R = Routines<Real>;
    using Damage = std::function<void(Network<Real> &)>;
    const std::pair<const char *, Damage> damages[] = {
        {"no layers", [](auto &net) { net.layers = nullptr; }},
        {"no links", [](auto &net) { net.links = nullptr; }},
        {"no nodes", [](auto &net) { net.nodes = nullptr; }},
        {"no numbers in a layer", [](auto &net) { net.layers[1].nodes = nullptr; }},
        {"no in-links", [](auto &net) { net.nodes[3].inLinks = nullptr; }},
        {"no out-links", [](auto &net) { net.nodes[3].outLinks = nullptr; }},
        {"one layer", [](auto &net) { net.n_layers = 1; }},
        {"negative layers", [](auto &net) { net.n_layers = -1; }},
        {"negative links", [](auto &net) { net.n_links = net.next_link = -1; }},
        {"fewer links", [](auto &net) { net.n_links = net.next_link = 3; }},
        {"fewer nodes", [](auto &net) { net.n_nodes = 4; }},
        {"negative nodes", [](auto &net) { net.n_nodes = -1; }},
        {"an empty layer", [](auto &net) { net.layers[1].n_nodes = 0; }},
        {"a layer of less than no nodes", [](auto &net) { net.layers[2].n_nodes = -7; }},
        {"a node number too large", [](auto &net) { net.layers[1].nodes[1] = 6; }},
        {"a negative node number", [](auto &net) { net.layers[1].nodes[0] = INT_MIN; }},
        {"a layer number too large", [](auto &net) { net.nodes[2].layer_id = 3; }},
        {"a negative layer number", [](auto &net) { net.nodes[2].layer_id = -1; }},
        {"a link to nowhere", [](auto &net) { net.links[1].to_node = INT_MAX; }},
        {"a link from nowhere", [](auto &net) { net.links[1].from_node = -1; }},
        {"an in-link too large", [](auto &net) { net.nodes[3].inLinks[1] = 8; }},
        {"a negative out-link", [](auto &net) { net.nodes[3].outLinks[1] = -1; }},
        {"less than no in-links", [](auto &net) { net.nodes[3].n_inLinks = -1; }},
    };
    const Real x[] = {1, 4, 2, 3, 5, 9};
    const int codes[] = {1, 1};
    const std::function<void(Network<Real> *)> calls[] = {
        [](auto *net) { R::edit(net, TAVIK_PRINT, 0); },
        [](auto *net) { R::write(net, "/dev/null", 0); },
        [](auto *net) { R::edit(net, TAVIK_LINK_ALL, 0); },
        [](auto *net) { R::edit(net, TAVIK_LINK_LAYER, 2, 0, 0); },
        [](auto *net) { R::edit(net, TAVIK_LINK_NODE, 4, 0, 0); },
        [](auto *net) { R::edit(net, TAVIK_REMOVE_LINK, 2, 0, 0); },
        [](auto *net) { R::edit(net, TAVIK_REMOVE_LINK, 3, 1, 0); },
        [&](auto *net) { R::edit(net, TAVIK_ACTIVATION_FCN, 1, codes, 0); },
        [&](auto *net) { R::edit(net, TAVIK_BIAS, 2, x, 0); },
        [&](auto *net) { tavik_free(R::initialize(net, 3, 0, 2, nullptr, x, 0)); },
        [](auto *net) { R::edit(net, TAVIK_CREATE_HIDDEN_LAYER, 2, 0); },
    };
    if (__lsan_disable != nullptr) __lsan_disable();
    for (const auto &[what, damage] : damages) {
        SCOPED_TRACE(what);
        int told = 0;
        for (std::size_t i = 0; i < std::size(calls); ++i) {
            Network<Real> *net = R::init(2, 2); // it cannot be released after that
            this->edit(net, "", TAVIK_CREATE_HIDDEN_LAYER, 2, TAVIK_LINK_ALL);
            damage(*net);
            const string outcome = capture::outcome([&] { calls[i](net); });
            EXPECT_THAT(outcome,
                        testing::AnyOf("0 0", "5 40121", "5 602", "5 40094", "5 40095", "5 40097", "6 40096"))
                << "call " << i;
            told += outcome == "5 40121";
        }
        EXPECT_GT(told, 0);
    }
    if (__lsan_enable != nullptr) __lsan_enable();
}

} // namespace
