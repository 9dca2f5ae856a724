// Networks are made, edited and printed. A plain model of the record, written from the rules, goes through the same
// random edits, and after each of them the error and every field must be the same.
#include "datamining/networks.hpp"

#include <climits>
#include <limits>
#include <map>
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

    string activation(int layer, const std::vector<int> &codes)
    {
        if (layer < 1 || layer >= n_layers()) return text("5 40097 layer_id", layer, n_layers());
        for (std::size_t i = 0; i < layers[layer].size(); ++i) {
            if (codes[i] < 0 || codes[i] > 3) return text("5 40089 activation_fcn", i, codes[i], 0, 3);
            nodes[layers[layer][i]].activation = codes[i];
        }
        return "0 0";
    }
    template <class Real> string bias(int layer, const std::vector<Real> &values)
    {
        if (layer < 1 || layer >= n_layers()) return text("5 40097 layer_id", layer, n_layers());
        for (std::size_t i = 0; i < layers[layer].size(); ++i) nodes[layers[layer][i]].bias = values[i];
        return "0 0";
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
    string link_layers(int to, int from)
    {
        string last = "0 0";
        for (int source : layers[from]) {
            for (int target : layers[to]) {
                if (const string seen = link(target, source); seen != "0 0") last = seen;
            }
        }
        return last;
    }
    string link_all()
    {
        string last = "0 0";
        for (int l = 1; l < n_layers(); ++l) {
            if (const string seen = link_layers(l, l - 1); seen != "0 0") last = seen;
        }
        return last;
    }
    string link_layer(int to, int from)
    {
        if (to < 1 || to >= n_layers()) return text("5 40097 to", to, n_layers());
        if (from >= n_layers() - 1) return text("5 40098 from", from, n_layers());
        if (to == from) return text("5 40092 to", to, "from", from);
        if (to < from) return text("5 605", to, from);
        return from < 0 ? "0 0" : link_layers(to, from);
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
        for (Node &node : nodes) {
            for (int &number : node.in) number -= number > k;
            for (int &number : node.out) number -= number > k;
        }
        --next_link;
        return "0 0";
    }
};

template <class Real> struct NetworkEdits : NetworkTest {
    using R = Routines<Real>;

    template <class... Options>
    static void expect_edit(const string &due, Network<Real> *net, Options... options)
    {
        expect_outcome(due, [&] { R::edit(net, options..., 0); });
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
        const auto perform = [&](const string &due, auto... options) {
            this->expect_edit(due, net.get(), options...);
            return due;
        };
        const auto create = [&] {
            const int n = from_to(0, 3);
            perform(model.create(n), TAVIK_CREATE_HIDDEN_LAYER, n);
        };
        const auto step = [&] {
            const int layer = from_to(-1, model.n_layers()), other = from_to(-1, model.n_layers());
            const int n_nodes = static_cast<int>(model.nodes.size()), n_links = model.next_link;
            int to = from_to(-1, n_nodes), from = from_to(-1, n_nodes);
            switch (from_to(0, 9)) {
            case 0: {
                const std::vector<int> codes = {from_to(0, 4), from_to(-1, 3), from_to(0, 9)};
                return perform(model.activation(layer, codes), TAVIK_ACTIVATION_FCN, layer, codes.data());
            }
            case 1: {
                const std::vector<Real> bias = {Real(from_to(-9, 9)), Real(0.1), Real(n_links)};
                return perform(model.bias(layer, bias), TAVIK_BIAS, layer, bias.data());
            }
            case 2:
                if (from_to(0, 3) > 0) break;
                return perform(model.link_all(), TAVIK_LINK_ALL);
            case 3: return perform(model.link_layer(layer, other), TAVIK_LINK_LAYER, layer, other);
            case 4: {
                std::vector<Real> weights;
                weights.reserve(1); // an address, also of no weights
                for (auto &link : model.links) weights.push_back(Real(link.weight = from_to(-99, 99)));
                int count = -1;
                perform("0 0", TAVIK_N_LINKS, &count, TAVIK_WEIGHTS, weights.data());
                EXPECT_EQ(count, n_links);
                return string("0 0");
            }
            case 5: // What a trainer may store is carried along.
                if (n_links == 0) break;
                model.links[n_links - 1].gradient = net->links[n_links - 1].gradient = Real(to);
                model.nodes[n_nodes - 1].param = net->nodes[n_nodes - 1].param = Real(from);
                break;
            case 6:
            case 7:
                if (n_links > 0 && from_to(0, 1) == 0) { // one that there is
                    const auto &link = model.links[from_to(0, n_links - 1)];
                    to = link.to, from = link.from;
                }
                return perform(model.remove(to, from), TAVIK_REMOVE_LINK, to, from);
            default: break;
            }
            return perform(model.link_node(to, from), TAVIK_LINK_NODE, to, from);
        };
        for (int layers = from_to(0, 3); layers > 0; --layers) create();
        for (int i = 0; i < 50; ++i) {
            model.duplicates = 0;
            const string due = step();
            ASSERT_FALSE(this->HasFailure()) << "program " << program << ", step " << i;
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
    const int codes[] = {2, 3, 4};
    const Real bias[] = {5, 6}, weights[] = {1, 2, 3, 4, 5, 6, 7, 8};
    int count = -1, unset = -1;
    const auto net = make<Real>(2, 2);
    this->expect_edit("0 0", net.get(), TAVIK_N_LINKS, &unset, TAVIK_WEIGHTS, weights, TAVIK_LINK_LAYER, 1, 0,
                      TAVIK_N_LINKS, &count, TAVIK_LINK_LAYER, 2, 1, TAVIK_BIAS, 2, bias,
                      TAVIK_ACTIVATION_FCN, 2, codes, TAVIK_CREATE_HIDDEN_LAYER, 9, TAVIK_CREATE_HIDDEN_LAYER,
                      3);
    Model due(2, 2);
    due.create(3);
    due.activation(2, {2, 3});
    due.bias(2, std::vector<Real>{5, 6});
    due.link_layer(2, 1);
    for (int k = 0; k < 6; ++k) due.links[k].weight = k + 1;
    EXPECT_EQ(Record(*net), due);
    EXPECT_EQ(count, 6);
    // An error ends the call.
    this->expect_edit("5 40089 activation_fcn 2 4 0 3", net.get(), TAVIK_N_LINKS, &unset, TAVIK_LINK_ALL,
                      TAVIK_ACTIVATION_FCN, 1, codes);
    due.activation(1, {2, 3, 4});
    EXPECT_EQ(Record(*net), due);
    EXPECT_EQ(unset, -1);
}

TYPED_TEST(NetworkEdits, RefuseWhatIsNoCall)
{
    using R = Routines<TypeParam>;
    const auto refuse = [](const string &due, int n_inputs, int n_outputs) {
        expect_outcome(due, [&] { EXPECT_EQ(R::init(n_inputs, n_outputs), nullptr); });
    };
    refuse("5 603 n_inputs 0 1", 0, 0);
    refuse("5 603 n_outputs -2 1", 3, -2);
    refuse("5 40120", INT_MAX, 1);
    refuse("5 40120", INT_MAX, INT_MAX);
    Network<TypeParam> *none = nullptr;
    const auto net = make<TypeParam>(2, 1);
    this->expect_edit("0 0", net.get(), TAVIK_LINK_ALL);
    const Record before(*net);
    this->expect_edit("5 40120", net.get(), TAVIK_CREATE_HIDDEN_LAYER, INT_MAX);
    this->expect_edit("5 150 network", none, TAVIK_LINK_ALL);
    this->expect_edit("5 11001 12345 7", net.get(), TAVIK_CREATE_HIDDEN_LAYER, 1, TAVIK_LINK_NODE, 2, 0,
                      12345);
    for (int option : {TAVIK_WEIGHTS, TAVIK_N_LINKS}) this->expect_edit("5 150", net.get(), option, none);
    for (int option : {TAVIK_BIAS, TAVIK_ACTIVATION_FCN})
        this->expect_edit("5 150", net.get(), option, 1, none);
    // Only one option of a call makes or removes links.
    const auto refuse_both = [&](auto... options) {
        const TypeParam bias[] = {7};
        EXPECT_EQ(
            capture::outcome(
                [&] { R::edit(net.get(), TAVIK_BIAS, 1, bias, TAVIK_CREATE_HIDDEN_LAYER, 2, options..., 0); },
                "l"),
            "5 11117 TAVIK_LINK_ALL, TAVIK_LINK_LAYER, TAVIK_LINK_NODE, and TAVIK_REMOVE_LINK");
    };
    refuse_both(TAVIK_LINK_ALL, TAVIK_LINK_LAYER, 1, 0);
    refuse_both(TAVIK_LINK_NODE, 2, 0, TAVIK_LINK_ALL);
    refuse_both(TAVIK_REMOVE_LINK, 2, 0, TAVIK_LINK_NODE, 2, 1);
    refuse_both(TAVIK_LINK_LAYER, 1, 0, TAVIK_REMOVE_LINK, 2, 0);
    EXPECT_EQ(Record(*net), before);
    R::release(nullptr);
}

TYPED_TEST(NetworkEdits, ManyLinksTakeNoLongerThanTheirNumber)
{
    constexpr int n = 900;
    const auto net = make<TypeParam>(n, n);
    this->expect_edit("0 0", net.get(), TAVIK_LINK_ALL);
    ASSERT_EQ(net->n_links, n * n);
    int wrong = 0;
    for (int k = 0; k < n * n; ++k) {
        const auto &[weight, gradient, to, from] = net->links[k];
        wrong += weight != 0 || gradient != 1 || to != n + k % n || from != k / n;
        wrong += net->nodes[to].inLinks[from] != k || net->nodes[from].outLinks[to - n] != k;
    }
    EXPECT_EQ(wrong, 0);
}

TYPED_TEST(NetworkEdits, Print)
{
    using Real = TypeParam;
    const auto net = make<Real>(2, 1);
    const Real weights[] = {Real(-0.1), std::numeric_limits<Real>::max(), 3}, bias[] = {Real(-1.25)},
               large[] = {Real(1e30)};
    this->expect_edit("0 0", net.get(), TAVIK_CREATE_HIDDEN_LAYER, 1, TAVIK_LINK_LAYER, 1, 0, TAVIK_BIAS, 1,
                      bias);
    this->expect_edit("0 0", net.get(), TAVIK_BIAS, 2, large, TAVIK_LINK_NODE, 3, 2, TAVIK_WEIGHTS, weights);
    EXPECT_EQ(this->output.take(), "");
    const string rule = "-----------------\n";
    const auto node = [&](int i, int activation, const string &links) {
        return format("     NODE_%d\nActivation Fcn = %d\nBias = %f \n", i, activation,
                      double{net->nodes[i].bias}) +
               links;
    };
    const auto link = [&](int k, int to, int from) {
        return format("network->links[%d].weight = %26.20f \n", k, double{weights[k]}) +
               format("network->links[%d].gradient =     1.00000000000000000000 \n", k) +
               format("network->links[%d].to_node = %d \nnetwork->links[%d].from_node = %d \n", k, to, k,
                      from);
    };
    const string due = "\nInput Layer \n" + rule + node(0, 0, "  Output Links :   0\n") +
                       node(1, 0, "  Output Links :   1\n") + "\n\nLayer 1 \n" + rule +
                       node(2, 1, "  Input Links  :   0  1\n  Output Links :   2\n") + "\n\nOutput Layer \n" +
                       rule + node(3, 0, "  Input Links  :   2\n") + "\n\n\n******* Links  ********\n" +
                       link(0, 2, 0) + link(1, 2, 1) + link(2, 3, 2);
    for (int option : {TAVIK_PRINT, TAVIK_PRINT_NETWORK}) {
        this->expect_edit("0 0", net.get(), option);
        EXPECT_EQ(this->output.take(), due);
    }
    this->expect_edit("5 40097", net.get(), TAVIK_PRINT, TAVIK_BIAS, 9, bias);
    EXPECT_EQ(this->output.take(), "") << "after an error";
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
            R::edit(net, TAVIK_CREATE_HIDDEN_LAYER, 2, TAVIK_LINK_ALL, 0);
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
