// First weights of a network: the rule of each method against a second computation from the same draws, and what the
// potentials of the first layer must satisfy over the patterns.
#include "datamining/networks.hpp"

#include <climits>
#include <cmath>
#include <limits>
#include <numeric>
#include <random>

namespace {

using namespace networks;
using Column = std::vector<double>;

double dot(const Column &a, const Column &b)
{
    return std::inner_product(a.begin(), a.end(), b.begin(), 0.0);
}

double mean(const Column &x)
{
    return std::accumulate(x.begin(), x.end(), 0.0) / static_cast<double>(x.size());
}

Column centred(Column x)
{
    const double m = mean(x);
    for (double &value : x) value -= m;
    return x;
}

double covariance(const Column &a, const Column &b)
{
    return dot(centred(a), centred(b)) / static_cast<double>(a.size() - 1);
}

template <class Real> struct InitializeWeights : NetworkTest {
    using R = Routines<Real>;
    using Weights = std::vector<Real>;
    static constexpr double near = sizeof(Real) == sizeof(float) ? 2e-5 : 1e-11;

    // 40 patterns of two nominal and three continuous inputs, whose variances differ, in three classes.
    int n_patterns = 40;
    std::vector<int> nominal, classes;
    Weights continuous;

    InitializeWeights()
    {
        tavik_random_option(1);
        tavik_random_seed_set(2026);
        std::mt19937 bits(5);
        const auto unit = [&bits] { return bits() / 4294967296.0 - 0.5; };
        for (int p = 0; p < n_patterns; ++p) {
            classes.push_back(p % 3);
            nominal.insert(nominal.end(), {p / 3 % 2, bits() % 3 == 0});
            const double x = unit() + p % 3, y = unit() - 0.3 * (p % 3 == 1);
            for (double value : {x, 10 * y + 3 * x, 0.01 * unit()}) continuous.push_back(Real(value));
        }
    }

    // Layers of these sizes, the first one the inputs, each linked to the next.
    static Owned<Real> network(const std::vector<int> &sizes)
    {
        auto net = make<Real>(sizes.front(), sizes.back());
        for (std::size_t l = 1; l + 1 < sizes.size(); ++l)
            R::edit(net.get(), TAVIK_CREATE_HIDDEN_LAYER, sizes[l], 0);
        R::edit(net.get(), TAVIK_LINK_ALL, 0);
        return net;
    }

    // The weights, which are the network's, too.
    template <class... Options> Weights weights(const Owned<Real> &net, Options... options)
    {
        Real *made =
            R::initialize(net.get(), n_patterns, 2, 3, nominal.data(), continuous.data(), options..., 0);
        if (made == nullptr) {
            ADD_FAILURE() << "error " << tavik_error_code();
            return Weights(net->n_links + net->n_nodes - net->n_inputs);
        }
        const Weights copy(made, made + net->n_links + net->n_nodes - net->n_inputs);
        tavik_free(made);
        Weights own;
        for (int k = 0; k < net->n_links; ++k) own.push_back(net->links[k].weight);
        for (int i = net->n_inputs; i < net->n_nodes; ++i) own.push_back(net->nodes[i].bias);
        EXPECT_EQ(copy, own);
        return copy;
    }

    Column input(int i) const
    {
        Column x;
        for (int p = 0; p < n_patterns; ++p)
            x.push_back(i < 2 ? nominal[p * 2 + i] : double{continuous[p * 3 + i - 2]});
        return x;
    }

    Column potential(const Network<Real> &net, int node) const
    {
        Column z(n_patterns, net.nodes[node].bias);
        for (int k = 0; k < net.nodes[node].n_inLinks; ++k) {
            const auto &link = net.links[net.nodes[node].inLinks[k]];
            const Column x = input(link.from_node);
            for (int p = 0; p < n_patterns; ++p) z[p] += double{link.weight} * x[p];
        }
        return z;
    }

    void expect_standard_potentials(const Network<Real> &net) const
    {
        for (int i = 0; i < net.layers[1].n_nodes; ++i) {
            const Column z = potential(net, net.layers[1].nodes[i]);
            const double size = 1 + std::fabs(double{net.nodes[net.layers[1].nodes[i]].bias});
            EXPECT_NEAR(mean(z), 0, near * size) << "perceptron " << i;
            EXPECT_NEAR(covariance(z, z), 1, 10 * near) << "perceptron " << i;
        }
    }

    static double draw()
    {
        Real u;
        R::uniform(1, TAVIK_RETURN_USER, &u, 0);
        return double{u} - 0.5;
    }

    // The literal rule of random weights, from perceptron `first` of the first layer on.
    void expect_random(const Network<Real> &net, int first = 0) const
    {
        for (int node = net.n_inputs + first; node < net.n_nodes; ++node) {
            const auto &[layer, d, n_out, in, out, param, bias, activation] = net.nodes[node];
            Column u(d + 1);
            if (layer == 1) {
                for (double &value : u) value = draw();
                Column z(n_patterns, u[0]);
                for (int k = 0; k < d; ++k) {
                    const Column x = input(net.links[in[k]].from_node);
                    for (int p = 0; p < n_patterns; ++p) z[p] += u[k + 1] * x[p];
                }
                double s = std::sqrt(covariance(z, z));
                if (!(s > 1e-14)) s = 1; // what is less is rounding here
                u[0] -= mean(z);
                for (double &value : u) value /= s;
            } else {
                for (int k = 1; k <= d; ++k) u[k] = draw();
                u[0] = draw();
            }
            EXPECT_NEAR(bias, u[0], near * (1 + std::fabs(u[0]))) << "node " << node;
            for (int k = 0; k < d; ++k)
                EXPECT_NEAR(net.links[in[k]].weight, u[k + 1], near * (1 + std::fabs(u[k + 1])))
                    << "node " << node << ", in-link " << k;
        }
    }
};
using Reals = testing::Types<float, double>;
TYPED_TEST_SUITE(InitializeWeights, Reals);

TYPED_TEST(InitializeWeights, EqualOnesAreOneOverTheirNumber)
{
    const auto net = this->network({5, 4, 2});
    net->nodes[6].bias = 3;
    const auto w = this->weights(net, TAVIK_METHOD, TAVIK_EQUAL_WEIGHTS);
    for (int k = 0; k < 20; ++k) EXPECT_EQ(w[k], TypeParam(1) / 5);
    for (int k = 20; k < 28; ++k) EXPECT_EQ(w[k], TypeParam(1) / 4);
    for (int k = 28; k < 34; ++k) EXPECT_EQ(w[k], 0);
    EXPECT_EQ(tavik_random_seed_get(), 2026) << "nothing is drawn";
}

TYPED_TEST(InitializeWeights, RandomOnesFollowTheRule)
{
    auto partly =
        make<TypeParam>(5, 2); // with links that were not made in the order of the inputs, and over a layer
    Routines<TypeParam>::edit(partly.get(), TAVIK_CREATE_HIDDEN_LAYER, 3, 0);
    for (const auto &[to, from] :
         {std::pair{6, 4}, {5, 3}, {8, 6}, {6, 0}, {5, 2}, {8, 1}, {9, 5}, {6, 3}, {8, 5}})
        Routines<TypeParam>::edit(partly.get(), TAVIK_LINK_NODE, to, from, 0);
    for (const auto &net : {this->network({5, 4, 3, 2}), this->network({5, 3}), std::move(partly)}) {
        tavik_random_seed_set(77);
        const auto w = this->weights(net);
        const int end = tavik_random_seed_get();
        tavik_random_seed_set(77);
        this->expect_random(*net);
        EXPECT_EQ(tavik_random_seed_get(), end);
        if (net->nodes[7].n_inLinks > 0) this->expect_standard_potentials(*net);
        EXPECT_EQ(this->weights(net, TAVIK_METHOD, TAVIK_RANDOM_WEIGHTS).size(), w.size());
        EXPECT_NE(tavik_random_seed_get(), end) << "the stream goes on";
    }
}

// The weights of component k on standardised inputs are the k-th eigenvector of the correlations.
TYPED_TEST(InitializeWeights, PrincipalComponentsAreThoseOfTheCorrelations)
{
    const auto net = this->network({5, 7, 2});
    const auto expect_components = [&](int due) {
        tavik_random_seed_set(3);
        this->weights(net, TAVIK_METHOD, TAVIK_PRINCIPAL_COMPONENT_WEIGHTS);
        this->expect_standard_potentials(*net);
        tavik_random_seed_set(3);
        this->expect_random(*net, due);
        double sum = 0, last = INFINITY;
        for (int c = 0; c < due; ++c) {
            Column a, product(5);
            for (int j = 0; j < 5; ++j)
                a.push_back(net->links[net->nodes[5 + c].inLinks[j]].weight *
                            std::sqrt(covariance(this->input(j), this->input(j))));
            for (int i = 0; i < 5; ++i) {
                for (int j = 0; j < 5; ++j) {
                    const Column x = this->input(i), y = this->input(j);
                    const double scale = std::sqrt(covariance(x, x) * covariance(y, y));
                    if (scale > 0) product[i] += covariance(x, y) / scale * a[j];
                }
            }
            const double lambda = dot(a, product) / dot(a, a);
            for (int i = 0; i < 5; ++i) EXPECT_NEAR(product[i], lambda * a[i], 10 * this->near) << c;
            EXPECT_LT(lambda, last);
            EXPECT_GT(*std::max_element(a.begin(), a.end()), -*std::min_element(a.begin(), a.end()));
            sum += last = lambda;
        }
        EXPECT_NEAR(sum, due, 1e-4); // all of the variance
    };
    expect_components(5);
    for (int p = 0; p < this->n_patterns; ++p) this->continuous[3 * p + 1] = 4; // a constant input
    expect_components(4);
}

// With B between and W within classes: B w = lambda W w. B has rank 2, so these are all.
TYPED_TEST(InitializeWeights, DiscriminantFunctionsSeparateTheClasses)
{
    const auto net = this->network({5, 4, 3});
    tavik_random_seed_set(3);
    this->weights(net, TAVIK_METHOD, TAVIK_DISCRIMINANT_WEIGHTS, TAVIK_CLASSIFICATION, this->classes.data());
    EXPECT_EQ(this->output.take(), "") << "the classes are far apart";
    this->expect_standard_potentials(*net);
    tavik_random_seed_set(3);
    this->expect_random(*net, 2);
    const auto within_and_means = [&](Column x) {
        double sum[3] = {}, count[3] = {};
        for (int p = 0; p < this->n_patterns; ++p) sum[p % 3] += x[p], ++count[p % 3];
        Column means;
        for (int p = 0; p < this->n_patterns; ++p) {
            means.push_back(sum[p % 3] / count[p % 3]);
            x[p] -= means.back();
        }
        return std::pair{x, means};
    };
    double last = INFINITY;
    for (int c = 0; c < 2; ++c) {
        const auto [z, z_means] = within_and_means(this->potential(*net, 5 + c));
        const double lambda = covariance(z_means, z_means) / covariance(z, z);
        for (int i = 0; i < 5; ++i) {
            const auto [x, x_means] = within_and_means(this->input(i));
            const double scale = std::sqrt(covariance(this->input(i), this->input(i))) * lambda;
            EXPECT_NEAR(covariance(x_means, z_means) / scale, lambda * covariance(x, z) / scale,
                        10 * this->near)
                << "function " << c << ", input " << i;
        }
        EXPECT_GT(lambda, 0.01);
        EXPECT_LT(lambda, last);
        last = lambda;
    }
}

TYPED_TEST(InitializeWeights, TellOfAPoorDiscriminant)
{
    // Classes that no line separates: opposite corners of a square.
    const auto net = make<TypeParam>(2, 1);
    Routines<TypeParam>::edit(net.get(), TAVIK_LINK_ALL, 0);
    const TypeParam corners[] = {0, 0, 0, 1, 1, 0, 1, 1, 0, 0, 0, 1, 1, 0, 1, 1};
    const int opposite[] = {0, 1, 1, 0, 0, 1, 1, 0}, sides[] = {0, 0, 1, 1, 0, 0, 1, 1};
    const auto printed = [&](const int *classes) {
        tavik_free(Routines<TypeParam>::initialize(net.get(), 8, 0, 2, nullptr, corners, TAVIK_METHOD, 4,
                                                   TAVIK_CLASSIFICATION, classes, 0));
        EXPECT_EQ(tavik_error_type(), 0);
        return this->output.take();
    };
    EXPECT_EQ(printed(opposite),
              "Warning:  Input layer weights poorly determined using discriminant analysis. \n");
    EXPECT_EQ(printed(sides), "");
    EXPECT_GT(net->links[0].weight, 1);
    EXPECT_NEAR(net->links[1].weight, 0, 1e-6);
}

TYPED_TEST(InitializeWeights, WithoutClassesDiscriminantOnesAreRandom)
{
    const auto net = this->network({5, 4, 2});
    const auto random = this->weights(net);
    tavik_random_seed_set(2026);
    string outcome = capture::outcome([&] {
        EXPECT_EQ(this->weights(net, TAVIK_METHOD, TAVIK_DISCRIMINANT_WEIGHTS, TAVIK_PRINT), random);
    });
    EXPECT_EQ(outcome, "3 40114");
    EXPECT_NE(this->output.take().find("-\t RANDOM WEIGHTS\n"), string::npos);
}

TYPED_TEST(InitializeWeights, LeaveOutPatternsWithMissingValues)
{
    const auto net = this->network({5, 7, 3});
    for (int method : {2, 3, 4}) {
        const auto w = [&] {
            tavik_random_seed_set(9);
            return this->weights(net, TAVIK_METHOD, method, TAVIK_CLASSIFICATION, this->classes.data());
        };
        const auto without = w();
        for (double bad : {NAN, INFINITY}) {
            this->nominal.insert(this->nominal.begin(), {1, 1});
            this->continuous.insert(this->continuous.begin(), {1, TypeParam(bad), 100});
            this->classes.insert(this->classes.begin(), 2);
            ++this->n_patterns;
        }
        EXPECT_EQ(w(), without) << "method " << method;
        this->nominal.erase(this->nominal.begin(), this->nominal.begin() + 4);
        this->continuous.erase(this->continuous.begin(), this->continuous.begin() + 6);
        this->classes.erase(this->classes.begin(), this->classes.begin() + 2);
        this->n_patterns -= 2;
    }
    // Inputs that do not vary, and no pattern at all: weights are those drawn, potentials still 0.
    std::fill(this->nominal.begin(), this->nominal.end(), 1);
    std::fill(this->continuous.begin(), this->continuous.end(), TypeParam(0.25));
    tavik_random_seed_set(9);
    this->weights(net);
    tavik_random_seed_set(9);
    this->expect_random(*net);
    std::fill(this->continuous.begin(), this->continuous.end(), TypeParam(NAN));
    for (int method : {2, 3, 4}) {
        for (auto value :
             this->weights(net, TAVIK_METHOD, method, TAVIK_CLASSIFICATION, this->classes.data()))
            EXPECT_LE(std::fabs(value), 3) << "method " << method; // and no NaN
    }
}

TYPED_TEST(InitializeWeights, AreCheckedInOrder)
{
    using R = Routines<TypeParam>;
    const auto net = make<TypeParam>(2, 3);
    R::edit(net.get(), TAVIK_LINK_ALL, 0);
    const TypeParam x[] = {1, 2, 3, 4, 5, 7, 8, 9, 9, 9, 0, 3};
    const int inputs[] = {0, 1, 0, 1, 0, 1, 0, 1, 0, 1, 0, 1}, bad[] = {0, 1, 2, 3},
              negative[] = {0, -1, 2, 0};
    const auto outcome = [&](const string &kinds, auto *network, int n_patterns, int n_nominal,
                             int n_continuous, auto... options) {
        return capture::outcome(
            [&] {
                EXPECT_EQ(
                    R::initialize(network, n_patterns, n_nominal, n_continuous, inputs, x, options..., 0),
                    nullptr);
            },
            kinds);
    };
    // Each call mends the fault that the one before it was refused for, and has all that are tested later.
    Network<TypeParam> *const none = nullptr;
    const auto later = [&](const string &kinds, auto *network, int n, int n_nominal, int n_continuous) {
        return outcome(kinds, network, n, n_nominal, n_continuous, TAVIK_METHOD, 0, TAVIK_CLASSIFICATION,
                       bad);
    };
    EXPECT_EQ(later("l", none, -1, -2, -3), "5 150 network");
    EXPECT_EQ(later("lii", net.get(), -1, -2, -3), "5 603 n_nominal -2 0");
    EXPECT_EQ(later("lii", net.get(), -1, 0, -3), "5 603 n_continuous -3 0");
    EXPECT_EQ(later("", net.get(), -1, 0, 0), "5 40115");
    EXPECT_EQ(later("lii", net.get(), 3, 1, 2), "5 40102 n_patterns 3 3");
    EXPECT_EQ(later("ii", net.get(), 4, 1, 2), "5 40085 3 2");
    EXPECT_EQ(later("", net.get(), 4, 1, 1), "5 40100");
    EXPECT_EQ(outcome("", net.get(), 4, 1, 1, TAVIK_METHOD, 5), "5 40100");
    for (int method : {1, 2, 3, 4}) {
        EXPECT_EQ(outcome("liii", net.get(), 4, 1, 1, TAVIK_METHOD, method, TAVIK_CLASSIFICATION, bad),
                  "5 602 classification 3 0 2");
        EXPECT_EQ(outcome("liii", net.get(), 4, 1, 1, TAVIK_METHOD, method, TAVIK_CLASSIFICATION, negative),
                  "5 602 classification -1 0 2");
    }
    const auto two = make<TypeParam>(2, 1); // one output: two classes
    EXPECT_EQ(outcome("liii", two.get(), 4, 1, 1, TAVIK_CLASSIFICATION, bad), "5 602 classification 2 0 1");
    EXPECT_EQ(outcome("", net.get(), INT_MAX, INT_MAX, INT_MAX), "5 40102");
    EXPECT_EQ(outcome("ii", net.get(), 4, 1, 1, TAVIK_METHOD, 1, 12345), "5 11001 12345 2");
    EXPECT_EQ(capture::outcome([&] { R::initialize(net.get(), 4, 1, 1, nullptr, x, 0); }, "l"),
              "5 150 nominal");
    EXPECT_EQ(capture::outcome([&] { R::initialize(net.get(), 4, 1, 1, inputs, nullptr, 0); }, "l"),
              "5 150 continuous");
    for (int k = 0; k < 6; ++k) EXPECT_EQ(net->links[k].weight, 0) << "no refused call stores";
    TypeParam user[10];
    user[9] = 5;
    EXPECT_EQ(R::initialize(net.get(), 4, 1, 1, inputs, x, TAVIK_RETURN_USER, user, 0), user);
    EXPECT_EQ(user[8], net->nodes[4].bias);
    EXPECT_EQ(user[9], 5);
}

TYPED_TEST(InitializeWeights, PrintASummary)
{
    using R = Routines<TypeParam>;
    const auto net = this->network({5, 1, 2});
    R::edit(net.get(), TAVIK_LINK_NODE, 7, 1, 0);
    int classes[40];
    for (int p = 0; p < 40; ++p) classes[p] = p % 3 > 0;
    const auto line = [](const char *format, auto... values) {
        char text[200];
        std::snprintf(text, sizeof text, format, values...);
        return string(text);
    };
    const std::pair<int, string> methods[] = {
        {1, "EQUAL"}, {2, "RANDOM"}, {3, "RANDOM"}, {4, "DISCRIMINANT"}};
    for (const auto &[method, name] : methods) {
        for (bool classification : {true, false}) {
            if (method == 4 && !classification) continue;
            const auto w = this->weights(net, TAVIK_PRINT, TAVIK_METHOD, method,
                                         classification ? TAVIK_CLASSIFICATION : 0, classes);
            string due = "\n-------------------------------------------\n"
                         "-\t NETWORK WEIGHTS INITIALIZED USING \n"
                         "-\t " +
                         name + " WEIGHTS\n" +
                         "-\t  Input Attributes:    5\n"
                         "-\t     Nominal:          2\n"
                         "-\t     Nominal(encoded): 2\n"
                         "-\t     Continuous:       3\n"
                         "-\t  Output Attributes:   2\n" +
                         (classification ? "-\t     n_classes:        2\n" : "") +
                         "-\t  Layers:              2\n"
                         "-\t  Perceptrons:         3\n"
                         "-\t  Weights:             11\n"
                         "-\t  Patterns:            40\n"
                         "-------------------------------------------\n";
            due += "\n\t--- Perceptron 0 ---\n";
            const char *inputs[] = {"N0", "N1", "X0", "X1", "X2"};
            for (int k = 0; k < 5; ++k) due += line("\t%s \t\t\t %f \n", inputs[k], double{w[k]});
            due += line("\tBias %g \n", double{w[8]});
            due +=
                line("\n\t--- Perceptron 1 ---\n\tP0 \t\t\t %f \n\tBias %g \n", double{w[5]}, double{w[9]});
            due += line("\n\t--- Perceptron 2 ---\n\tP0 \t\t\t %f \n\tN1 \t\t\t %f \n\tBias %g \n",
                        double{w[6]}, double{w[7]}, double{w[10]});
            EXPECT_EQ(this->output.take(), due);
        }
    }
}

} // namespace
