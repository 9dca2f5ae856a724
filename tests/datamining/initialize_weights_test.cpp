// First weights of a network: the rule of each method against a second computation from the same draws, and what the
// potentials of the first layer must satisfy over the patterns.
#include "datamining/networks.hpp"

#include <algorithm>
#include <climits>
#include <cmath>
#include <numeric>
#include <random>

namespace {

using namespace networks;
using Column = std::vector<double>;

double mean(const Column &x)
{
    return std::accumulate(x.begin(), x.end(), 0.0) / static_cast<double>(x.size());
}

double covariance(const Column &x, const Column &y)
{
    double sum = 0;
    for (std::size_t p = 0; p < x.size(); ++p) sum += (x[p] - mean(x)) * (y[p] - mean(y));
    return sum / static_cast<double>(x.size() - 1);
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

    // The weights, which are the network's, too.
    template <class... Options> Weights weights(const Owned<Real> &net, Options... options) const
    {
        Weights own;
        Real *made =
            R::initialize(net.get(), n_patterns, 2, 3, nominal.data(), continuous.data(), options..., 0);
        for (int k = 0; k < net->n_links; ++k) own.push_back(net->links[k].weight);
        for (int i = net->n_inputs; i < net->n_nodes; ++i) own.push_back(net->nodes[i].bias);
        EXPECT_TRUE(made != nullptr && std::equal(own.begin(), own.end(), made)) << tavik_error_code();
        tavik_free(made);
        return own;
    }
    template <class... Options>
    Weights weights_from(int seed, const Owned<Real> &net, Options... options) const
    {
        tavik_random_seed_set(seed);
        return weights(net, options...);
    }

    Column input(int i) const
    {
        Column x;
        for (int p = 0; p < n_patterns; ++p)
            x.push_back(i < 2 ? nominal[p * 2 + i] : double{continuous[p * 3 + i - 2]});
        return x;
    }

    // Of a node whose in-links have these weights.
    Column potential(const Network<Real> &net, int node, double bias, const Column &weights) const
    {
        Column z(n_patterns, bias);
        for (std::size_t k = 0; k < weights.size(); ++k) {
            const Column x = input(net.links[net.nodes[node].inLinks[k]].from_node);
            for (int p = 0; p < n_patterns; ++p) z[p] += weights[k] * x[p];
        }
        return z;
    }
    Column potential(const Network<Real> &net, int node) const
    {
        Column weights;
        for (int k = 0; k < net.nodes[node].n_inLinks; ++k)
            weights.push_back(net.links[net.nodes[node].inLinks[k]].weight);
        return potential(net, node, net.nodes[node].bias, weights);
    }

    void expect_standard_potentials(const Network<Real> &net) const
    {
        const Record record(net);
        for (int node : record.layers[1]) {
            const Column z = potential(net, node);
            EXPECT_NEAR(mean(z), 0, near * (1 + std::fabs(double{net.nodes[node].bias}))) << "node " << node;
            EXPECT_NEAR(covariance(z, z), 1, 10 * near) << "node " << node;
        }
    }

    // The literal rule of random weights, from perceptron `first` of the first layer on.
    void expect_random_from(int seed, const Network<Real> &net, int first = 0) const
    {
        tavik_random_seed_set(seed);
        for (int node = net.n_inputs + first; node < net.n_nodes; ++node) {
            const auto &[layer, d, n_out, in, out, param, bias, activation] = net.nodes[node];
            Column u;
            while (static_cast<int>(u.size()) <= d) {
                Real drawn;
                R::uniform(1, TAVIK_RETURN_USER, &drawn, 0);
                u.push_back(double{drawn} - 0.5);
            }
            double own = layer == 1 ? u.front() : u.back();
            u.erase(layer == 1 ? u.begin() : u.end() - 1);
            if (layer == 1) {
                const Column z = potential(net, node, own, u);
                double s = std::sqrt(covariance(z, z));
                if (!(s > 1e-14)) s = 1; // what is less is rounding here
                own = (own - mean(z)) / s;
                for (double &value : u) value /= s;
            }
            EXPECT_NEAR(bias, own, near * (1 + std::fabs(own))) << "node " << node;
            for (int k = 0; k < d; ++k)
                EXPECT_NEAR(net.links[in[k]].weight, u[k], near * (1 + std::fabs(u[k])))
                    << "node " << node << ", in-link " << k;
        }
    }
};
TYPED_TEST_SUITE(InitializeWeights, Reals);

TYPED_TEST(InitializeWeights, EqualOnesAreOneOverTheirNumber)
{
    using Real = TypeParam;
    const auto net = linked<TypeParam>({5, 4, 2});
    net->nodes[6].bias = 3;
    std::vector<Real> due(34, 0);
    std::fill_n(due.begin(), 20, Real(1) / 5);
    std::fill_n(due.begin() + 20, 8, Real(1) / 4);
    EXPECT_EQ(this->weights(net, TAVIK_METHOD, TAVIK_EQUAL_WEIGHTS), due);
    EXPECT_EQ(tavik_random_seed_get(), 2026) << "nothing is drawn";
}

TYPED_TEST(InitializeWeights, RandomOnesFollowTheRule)
{
    // One with links that were not made in the order of the inputs, and over a layer.
    auto partly = make<TypeParam>(5, 2);
    Routines<TypeParam>::edit(partly.get(), TAVIK_CREATE_HIDDEN_LAYER, 3, 0);
    for (const auto &[to, from] :
         {std::pair{6, 4}, {5, 3}, {8, 6}, {6, 0}, {5, 2}, {8, 1}, {9, 5}, {6, 3}, {8, 5}})
        Routines<TypeParam>::edit(partly.get(), TAVIK_LINK_NODE, to, from, 0);
    for (const auto &net : {linked<TypeParam>({5, 4, 3, 2}), linked<TypeParam>({5, 3}), std::move(partly)}) {
        const auto w = this->weights_from(77, net);
        const int end = tavik_random_seed_get();
        this->expect_random_from(77, *net);
        EXPECT_EQ(tavik_random_seed_get(), end);
        if (net->nodes[7].n_inLinks > 0) this->expect_standard_potentials(*net);
        EXPECT_NE(this->weights(net, TAVIK_METHOD, TAVIK_RANDOM_WEIGHTS), w) << "the stream goes on";
        // Without classes there are no others.
        expect_outcome("3 40114", [&, &net = net] {
            EXPECT_EQ(this->weights_from(77, net, TAVIK_METHOD, TAVIK_DISCRIMINANT_WEIGHTS), w);
        });
    }
}

// The weights of component k on standardised inputs are the k-th eigenvector of the correlations.
TYPED_TEST(InitializeWeights, PrincipalComponentsAreThoseOfTheCorrelations)
{
    const auto net = linked<TypeParam>({5, 7, 2});
    const auto expect_components = [&](int due) {
        this->weights_from(3, net, TAVIK_METHOD, TAVIK_PRINCIPAL_COMPONENT_WEIGHTS);
        this->expect_standard_potentials(*net);
        this->expect_random_from(3, *net, due);
        double sum = 0, last = INFINITY;
        for (int c = 0; c < due; ++c) {
            const Column z = this->potential(*net, 5 + c);
            // The product of the correlations with a is what the inputs have in common with z.
            Column a, product;
            for (int i = 0; i < 5; ++i) {
                const double deviation = std::sqrt(covariance(this->input(i), this->input(i)));
                a.push_back(net->links[net->nodes[5 + c].inLinks[i]].weight * deviation);
                product.push_back(deviation > 0 ? covariance(this->input(i), z) / deviation : 0);
            }
            const double lambda = std::inner_product(a.begin(), a.end(), product.begin(), 0.0) /
                                  std::inner_product(a.begin(), a.end(), a.begin(), 0.0);
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
    const auto net = linked<TypeParam>({5, 4, 3});
    this->weights_from(3, net, TAVIK_METHOD, TAVIK_DISCRIMINANT_WEIGHTS, TAVIK_CLASSIFICATION,
                       this->classes.data());
    EXPECT_EQ(this->output.take(), "") << "the classes are far apart";
    this->expect_standard_potentials(*net);
    this->expect_random_from(3, *net, 2);
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

// Of classes that no line separates: opposite corners of a square.
TYPED_TEST(InitializeWeights, TellOfAPoorDiscriminant)
{
    const auto net = linked<TypeParam>({2, 1});
    const TypeParam corners[] = {0, 0, 0, 1, 1, 0, 1, 1};
    const int classes[] = {0, 1, 1, 0};
    tavik_free(Routines<TypeParam>::initialize(net.get(), 4, 0, 2, nullptr, corners, TAVIK_METHOD, 4,
                                               TAVIK_CLASSIFICATION, classes, 0));
    EXPECT_EQ(tavik_error_type(), 0);
    EXPECT_EQ(this->output.take(),
              "Warning:  Input layer weights poorly determined using discriminant analysis. \n");
}

TYPED_TEST(InitializeWeights, LeaveOutPatternsWithMissingValues)
{
    const auto net = linked<TypeParam>({5, 7, 3});
    const auto by_method = [&](int method) {
        return this->weights_from(9, net, TAVIK_METHOD, method, TAVIK_CLASSIFICATION, this->classes.data());
    };
    const auto by_methods = [&] { return std::vector{by_method(2), by_method(3), by_method(4)}; };
    const auto without = by_methods();
    for (double bad : {NAN, INFINITY}) {
        this->nominal.insert(this->nominal.begin(), {1, 1});
        this->continuous.insert(this->continuous.begin(), {1, TypeParam(bad), 100});
        this->classes.insert(this->classes.begin(), 2);
        ++this->n_patterns;
    }
    EXPECT_EQ(by_methods(), without);
    // Inputs that do not vary, and no pattern at all: weights are those drawn, potentials still 0.
    std::fill(this->nominal.begin(), this->nominal.end(), 1);
    std::fill(this->continuous.begin(), this->continuous.end(), TypeParam(0.25));
    this->weights_from(9, net);
    this->expect_random_from(9, *net);
    std::fill(this->continuous.begin(), this->continuous.end(), TypeParam(NAN));
    for (const auto &weights : by_methods())
        EXPECT_THAT(weights, testing::Each(testing::AllOf(testing::Ge(-3), testing::Le(3))));
}

TYPED_TEST(InitializeWeights, AreCheckedInOrder)
{
    using R = Routines<TypeParam>;
    const auto three = linked<TypeParam>({2, 3}), one = linked<TypeParam>({2, 1}); // one output: two classes
    const TypeParam x[] = {1, 2, 3, 4, 5, 7, 8, 9, 9, 9, 0, 3};
    const int inputs[] = {0, 1, 0, 1}, bad[] = {0, 1, 2, 3}, negative[] = {0, -1, 2, 0};
    const auto refuse = [&](const string &due, auto *net, int n_patterns, int n_nominal, int n_continuous,
                            const int *nominal, const TypeParam *continuous, int method, auto... options) {
        expect_outcome(due, [&] {
            EXPECT_EQ(R::initialize(net, n_patterns, n_nominal, n_continuous, nominal, continuous,
                                    TAVIK_METHOD, method, options..., 0),
                      nullptr);
        });
    };
    // Each call mends the fault that the one before it was refused for, and has all that are tested later.
    Network<TypeParam> *const net = three.get(), *const none = nullptr;
    const auto refuse_bad = [&](auto... arguments) { refuse(arguments..., TAVIK_CLASSIFICATION, bad); };
    refuse_bad("5 150 network", none, -1, -2, -3, nullptr, nullptr, 0);
    refuse_bad("5 603 n_nominal -2 0", net, -1, -2, -3, nullptr, nullptr, 0);
    refuse_bad("5 603 n_continuous -3 0", net, -1, 0, -3, nullptr, nullptr, 0);
    refuse_bad("5 40115", net, -1, 0, 0, nullptr, nullptr, 0);
    refuse_bad("5 40102 n_patterns 3 3", net, 3, 1, 2, nullptr, nullptr, 0);
    refuse_bad("5 40085 3 2", net, 4, 1, 2, nullptr, nullptr, 0);
    refuse_bad("5 40100", net, 4, 1, 1, nullptr, nullptr, 0);
    refuse_bad("5 40100", net, 4, 1, 1, nullptr, nullptr, 5);
    refuse_bad("5 150 nominal", net, 4, 1, 1, nullptr, nullptr, 2);
    refuse_bad("5 150 continuous", net, 4, 1, 1, inputs, nullptr, 2);
    refuse_bad("5 602 classification 2 0 1", one.get(), 4, 1, 1, inputs, x, 2);
    for (int method : {1, 2, 3, 4}) {
        refuse_bad("5 602 classification 3 0 2", net, 4, 1, 1, inputs, x, method);
        refuse("5 602 classification -1 0 2", net, 4, 1, 1, inputs, x, method, TAVIK_CLASSIFICATION,
               negative);
    }
    refuse("5 40102", net, INT_MAX, INT_MAX, INT_MAX, inputs, x, 2);
    refuse("5 11001 12345 2", net, 4, 1, 1, inputs, x, 1, 12345);
    for (int k = 0; k < 6; ++k) EXPECT_EQ(three->links[k].weight, 0) << "no refused call stores";
    TypeParam user[10];
    user[9] = 5;
    EXPECT_EQ(R::initialize(three.get(), 4, 1, 1, inputs, x, TAVIK_RETURN_USER, user, 0), user);
    EXPECT_EQ(user[8], three->nodes[4].bias);
    EXPECT_EQ(user[9], 5);
}

TYPED_TEST(InitializeWeights, PrintASummary)
{
    const auto net = linked<TypeParam>({5, 1, 2});
    Routines<TypeParam>::edit(net.get(), TAVIK_LINK_NODE, 7, 1, 0);
    for (int &c : this->classes) c = c > 0;
    const auto call = [&](int method, int classification) {
        return this->weights(net, TAVIK_PRINT, TAVIK_METHOD, method, classification, this->classes.data());
    };
    for (const auto &[method, name] : {std::pair{1, "EQUAL"}, {2, "RANDOM"}, {3, "RANDOM"}, {4, "RANDOM"}}) {
        call(method, 0); // without classes, and fewer perceptrons than components
        EXPECT_THAT(this->output.take(), testing::StartsWith("\n-------------------------------------------\n"
                                                             "-\t NETWORK WEIGHTS INITIALIZED USING \n-\t " +
                                                             string(name) + " WEIGHTS\n"));
    }
    const auto w = call(4, TAVIK_CLASSIFICATION);
    string due = "-\t DISCRIMINANT WEIGHTS\n-\t  Input Attributes:    5\n"
                 "-\t     Nominal:          2\n-\t     Nominal(encoded): 2\n-\t     Continuous:       3\n"
                 "-\t  Output Attributes:   2\n-\t     n_classes:        2\n"
                 "-\t  Layers:              2\n-\t  Perceptrons:         3\n"
                 "-\t  Weights:             11\n-\t  Patterns:            40\n"
                 "-------------------------------------------\n";
    const std::vector<const char *> inputs[] = {{"N0", "N1", "X0", "X1", "X2"}, {"P0"}, {"P0", "N1"}};
    for (int i = 0, k = 0; i < 3; ++i) {
        due += format("\n\t--- Perceptron %d ---\n", i);
        for (const char *from : inputs[i]) due += format("\t%s \t\t\t %f \n", from, double{w[k++]});
        due += format("\tBias %g \n", double{w[8 + i]});
    }
    EXPECT_THAT(this->output.take(), testing::EndsWith(due));
}

} // namespace
