// Networks are made, edited and printed: numbers and lists by hand, every error, and damaged records.
#include "datamining/networks.hpp"

#include <array>
#include <climits>

extern "C" [[gnu::weak]] void __lsan_disable();
extern "C" [[gnu::weak]] void __lsan_enable();

namespace {

using namespace networks;

template <class Real> struct NetworkEdits : NetworkTest {
    using R = Routines<Real>;

    template <class... Options>
    static void expect_edit(const string &due, Network<Real> *net, Options... options)
    {
        expect_outcome(due, [&] { R::edit(net, options..., 0); });
    }
};
TYPED_TEST_SUITE(NetworkEdits, Reals);

// By hand: {0, 1}, {2, 3}, {4}. Of equal options the later one wins, and links come after the layers.
TYPED_TEST(NetworkEdits, NumberNodesAndLinks)
{
    using Real = TypeParam;
    using Links = std::vector<std::array<int, 2>>; // to, from
    const int codes[] = {2, 3};
    const Real bias[] = {5, 6}, weights[] = {1, 2, 3, 4, 5, 6, 7};
    int count = -1, unset = -1;
    const auto net = make<Real>(2, 1);
    const auto expect = [&](const std::vector<std::vector<int>> &layers, const Links &links,
                            const std::vector<double> &linked) {
        const Record seen(*net);
        EXPECT_EQ(seen.layers, layers);
        ASSERT_EQ(seen.links.size(), links.size());
        EXPECT_EQ(seen.next_link, int(links.size()));
        std::vector<std::vector<int>> in(seen.nodes.size()), out = in;
        for (int k = 0; k < seen.next_link; ++k) {
            EXPECT_EQ((std::array{seen.links[k].to, seen.links[k].from}), links[k]) << k;
            EXPECT_EQ(seen.links[k].weight, linked[k]) << k;
            in[seen.links[k].to].push_back(k), out[seen.links[k].from].push_back(k);
        }
        for (std::size_t i = 0; i < seen.nodes.size(); ++i) { // also which layer each node is in
            EXPECT_TRUE(seen.nodes[i].in == in[i] && seen.nodes[i].out == out[i]) << i;
            EXPECT_THAT(layers.at(seen.nodes[i].layer), testing::Contains(int(i)));
        }
    };
    this->expect_edit("0 0", net.get(), TAVIK_N_LINKS, &unset, TAVIK_WEIGHTS, weights, TAVIK_LINK_LAYER, 1, 0,
                      TAVIK_N_LINKS, &count, TAVIK_LINK_LAYER, 2, 1, TAVIK_BIAS, 1, bias,
                      TAVIK_ACTIVATION_FCN, 1, codes, TAVIK_CREATE_HIDDEN_LAYER, 9, TAVIK_CREATE_HIDDEN_LAYER,
                      2);
    EXPECT_EQ(count * 10 + unset, 19);
    expect({{0, 1}, {2, 3}, {4}}, {{4, 2}, {4, 3}}, {1, 2});
    this->expect_edit("6 40096 to 4 from 3", net.get(), TAVIK_LINK_ALL); // what there is stays
    EXPECT_EQ(capture::printed.size(), 2U);
    this->expect_edit("0 0", net.get(), TAVIK_WEIGHTS, weights, TAVIK_LINK_NODE, 4, 0);
    const Links all = {{4, 2}, {4, 3}, {2, 0}, {3, 0}, {2, 1}, {3, 1}, {4, 0}};
    expect({{0, 1}, {2, 3}, {4}}, all, {1, 2, 3, 4, 5, 6, 7});
    net->links[5].gradient = 7; // what a trainer may store is carried along
    this->expect_edit("0 0", net.get(), TAVIK_REMOVE_LINK, 4, 3);
    this->expect_edit("0 0", net.get(), TAVIK_REMOVE_LINK, 2, 0);
    this->expect_edit("0 0", net.get(), TAVIK_REMOVE_LINK, 4, 0);
    this->expect_edit("0 0", net.get(), TAVIK_LINK_NODE, 4, 0);
    expect({{0, 1}, {2, 3}, {4}}, {{4, 2}, {3, 0}, {2, 1}, {3, 1}, {4, 0}}, {1, 4, 5, 6, 0});
    const Record seen(*net);
    EXPECT_EQ(seen.links[3].gradient, 7);
    for (int i = 0; i < 5; ++i) {
        const bool hidden = i == 2 || i == 3;
        EXPECT_EQ(seen.nodes[i].activation, hidden ? i : 0);
        EXPECT_EQ(seen.nodes[i].bias, hidden ? i + 3 : 0);
    }
    // Outputs move behind a new layer, with their lists; links keep their numbers.
    this->expect_edit("0 0", net.get(), TAVIK_CREATE_HIDDEN_LAYER, 2);
    const Record moved(*net);
    EXPECT_EQ(moved.layers, (std::vector<std::vector<int>>{{0, 1}, {2, 3}, {4, 5}, {6}}));
    EXPECT_TRUE(moved.links == seen.links && moved.nodes[6].in == seen.nodes[4].in);
    EXPECT_TRUE(moved.nodes[6].layer == 3 && moved.nodes[4].layer == 2 && moved.nodes[4].activation == 1);
}

// Each error, at both ends of what is allowed, leaves a network of layers {0, 1}, {2, 3}, {4} as it was.
TYPED_TEST(NetworkEdits, TellOfErrors)
{
    const auto net = make<TypeParam>(2, 1);
    this->expect_edit("0 0", net.get(), TAVIK_CREATE_HIDDEN_LAYER, 2, TAVIK_LINK_LAYER, 1, 0);
    const Record before(*net);
    const struct {
        const char *due;
        int option, to, from;
    } cases[] = {
        {"5 40097 to 0 3", TAVIK_LINK_LAYER, 0, 0},
        {"5 40097 to 3 3", TAVIK_LINK_LAYER, 3, 2},
        {"5 40098 from 2 3", TAVIK_LINK_LAYER, 2, 2},
        {"5 40092 to 1 from 1", TAVIK_LINK_LAYER, 1, 1},
        {"0 0", TAVIK_LINK_LAYER, 1, -1},
        {"6 40096 to 3 from 1", TAVIK_LINK_LAYER, 1, 0},
        {"5 602 to 1 2 4", TAVIK_LINK_NODE, 1, 9},
        {"5 602 to 5 2 4", TAVIK_LINK_NODE, 5, 0},
        {"5 602 from -1 0 3", TAVIK_LINK_NODE, 4, -1},
        {"5 602 from 4 0 3", TAVIK_LINK_NODE, 4, 4},
        {"5 40092 to 3 from 2", TAVIK_LINK_NODE, 3, 2},
        {"6 40096 to 2 from 0", TAVIK_LINK_NODE, 2, 0},
        {"5 40094 to -1 0 3", TAVIK_REMOVE_LINK, -1, 9},
        {"5 40094 to 4 0 3", TAVIK_REMOVE_LINK, 4, 0},
        {"5 40094 from 4 0 3", TAVIK_REMOVE_LINK, 2, 4},
        {"5 40094 from -1 0 3", TAVIK_REMOVE_LINK, 2, -1},
        {"5 40095 to 3 from 2", TAVIK_REMOVE_LINK, 3, 2},
    };
    for (const auto &[due, option, to, from] : cases) {
        this->expect_edit(due, net.get(), option, to, from);
        ASSERT_EQ(Record(*net), before) << due;
    }
    this->expect_edit("5 603 n_perceptrons 0 1", net.get(), TAVIK_CREATE_HIDDEN_LAYER, 0);
    const TypeParam bias[] = {1, 1};
    const int none[] = {-1}, five[] = {4};
    for (const int layer : {0, 3}) {
        const string due = format("5 40097 layer_id %d 3", layer);
        this->expect_edit(due, net.get(), TAVIK_BIAS, layer, bias);
        this->expect_edit(due, net.get(), TAVIK_ACTIVATION_FCN, layer, none);
    }
    this->expect_edit("5 40089 activation_fcn 0 -1 0 3", net.get(), TAVIK_ACTIVATION_FCN, 2, none);
    this->expect_edit("5 40089 activation_fcn 0 4 0 3", net.get(), TAVIK_ACTIVATION_FCN, 1, five);
    EXPECT_EQ(Record(*net), before);
    // An error ends the call; codes before a bad one are stored.
    const int codes[] = {2, 4};
    int unset = -1;
    this->expect_edit("5 40089 activation_fcn 1 4 0 3", net.get(), TAVIK_N_LINKS, &unset, TAVIK_LINK_ALL,
                      TAVIK_ACTIVATION_FCN, 1, codes);
    EXPECT_TRUE(unset == -1 && net->n_links == 4 && net->nodes[2].activationFcn == 2);
    // Backwards, where the layers leave room.
    const auto deep = make<TypeParam>(1, 1);
    this->expect_edit("0 0", deep.get(), TAVIK_CREATE_HIDDEN_LAYER, 1);
    this->expect_edit("0 0", deep.get(), TAVIK_CREATE_HIDDEN_LAYER, 1);
    this->expect_edit("5 605 1 2", deep.get(), TAVIK_LINK_LAYER, 1, 2);
    this->expect_edit("5 605 1 2", deep.get(), TAVIK_LINK_NODE, 1, 2);
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

TYPED_TEST(NetworkEdits, Print)
{
    const auto net = make<TypeParam>(2, 1);
    const TypeParam weights[] = {-0.25, 3}, bias[] = {-1.25};
    this->expect_edit("0 0", net.get(), TAVIK_CREATE_HIDDEN_LAYER, 1, TAVIK_BIAS, 1, bias, TAVIK_LINK_NODE, 2,
                      1);
    this->expect_edit("0 0", net.get(), TAVIK_LINK_NODE, 3, 2, TAVIK_WEIGHTS, weights);
    EXPECT_EQ(this->output.take(), "");
    const string rule = "-----------------\n";
    const string due = "\nInput Layer \n" + rule +
                       "     NODE_0\nActivation Fcn = 0\nBias = 0.000000 \n"
                       "     NODE_1\nActivation Fcn = 0\nBias = 0.000000 \n  Output Links :   0\n"
                       "\n\nLayer 1 \n" +
                       rule +
                       "     NODE_2\nActivation Fcn = 1\nBias = -1.250000 \n  Input Links  :   0\n"
                       "  Output Links :   1\n\n\nOutput Layer \n" +
                       rule +
                       "     NODE_3\nActivation Fcn = 0\nBias = 0.000000 \n  Input Links  :   1\n"
                       "\n\n\n******* Links  ********\n"
                       "network->links[0].weight =    -0.25000000000000000000 \n"
                       "network->links[0].gradient =     1.00000000000000000000 \n"
                       "network->links[0].to_node = 2 \nnetwork->links[0].from_node = 1 \n"
                       "network->links[1].weight =     3.00000000000000000000 \n"
                       "network->links[1].gradient =     1.00000000000000000000 \n"
                       "network->links[1].to_node = 3 \nnetwork->links[1].from_node = 2 \n";
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
