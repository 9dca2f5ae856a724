// Weights and biases with which the training of a network can begin.
//
// A perceptron of the first layer gets weights in some direction of the space of its inputs, random or found in the
// patterns, which are then scaled so that its potential has mean 0 and standard deviation 1 over the patterns: so
// its activation function is where it is steep, and not saturated, at the start.
#pragma once

#include "directions.hpp"
#include "network_checks.hpp"
#include "weights_summary.hpp"

#include "frame/call.hpp"
#include "frame/options.hpp"

#include <climits>
#include <cstdint>

namespace tavik::datamining {

template <class Real> struct WeightsOptions {
    int method = TAVIK_RANDOM_WEIGHTS;
    const int *classes = nullptr;
    bool print = false;
    Real *result = nullptr;
};

template <class Real> bool read_options(OptionReader reader, WeightsOptions<Real> &options)
{
    while (const int code = reader.next()) {
        switch (code) {
        case TAVIK_METHOD: options.method = reader.integer(); break;
        case TAVIK_CLASSIFICATION: options.classes = reader.pointer<const int>("TAVIK_CLASSIFICATION"); break;
        case TAVIK_PRINT: options.print = true; break;
        case TAVIK_RETURN_USER: options.result = reader.pointer<Real>("TAVIK_RETURN_USER"); break;
        default: reader.unknown(11001); return false;
        }
    }
    return !error_pending();
}

inline bool check_counts(int n_patterns, int n_nominal, int n_continuous, int n_inputs)
{
    int position = 0;
    tavik_c1iarg(n_nominal, "n_nominal", 0, -1, &position);
    if (error_pending()) return false;
    tavik_c1iarg(n_continuous, "n_continuous", 0, -1, &position);
    if (error_pending()) return false;
    if (n_nominal == 0 && n_continuous == 0) return raise(terminal, 40115);
    const auto n_attributes =
        static_cast<int>(std::min<std::int64_t>(std::int64_t{n_nominal} + n_continuous, INT_MAX));
    if (n_attributes >= n_patterns) return raise(terminal, 40102, "n_patterns", n_patterns, n_attributes);
    if (n_attributes != n_inputs) return raise(terminal, 40085, n_attributes, n_inputs);
    return true;
}

// Without classes, discriminant weights become random ones.
template <class Network> bool check_method(const Network &network, WeightsOptions<RealOf<Network>> &options)
{
    const int n_classes = class_count(network);
    if (options.method < TAVIK_EQUAL_WEIGHTS || options.method > TAVIK_DISCRIMINANT_WEIGHTS)
        return raise(terminal, 40100, options.method);
    if (options.method == TAVIK_DISCRIMINANT_WEIGHTS && options.classes == nullptr) {
        tavik_ermes(warning, 40114);
        options.method = TAVIK_RANDOM_WEIGHTS;
    }
    if (options.method == TAVIK_DISCRIMINANT_WEIGHTS && n_classes <= 1)
        return raise(terminal, 40101, n_classes);
    if (options.classes == nullptr || network.layers == nullptr || network.n_layers < 2)
        return check_record(network);
    const int output_size = network.layers[network.n_layers - 1].n_nodes;
    if (output_size == 1 && n_classes != 2) return raise(terminal, 40104, n_classes, 1);
    if (output_size > 1 && output_size != n_classes) return raise(terminal, 40105, n_classes, output_size);
    return check_record(network);
}

template <class Network>
bool check_patterns(const Network &network, const Patterns<RealOf<Network>> &patterns, const int *classes)
{
    if ((patterns.n_nominal > 0 && !check_not_null(patterns.nominal, "nominal")) ||
        (patterns.n_continuous > 0 && !check_not_null(patterns.continuous, "continuous")))
        return false;
    int position = 0;
    for (int p = 0; classes != nullptr && p < patterns.n; ++p) {
        if (classes[p] >= 0 && classes[p] < class_count(network)) continue;
        tavik_c1iarg(classes[p], "classification", 0, class_count(network) - 1, &position);
        return false;
    }
    return true;
}

inline void draw_uniforms(int n, float *r)
{
    tavik_rnun(n, r);
}

inline void draw_uniforms(int n, double *r)
{
    tavik_drnun(n, r);
}

template <class Network> class WeightsInitializer {
public:
    using Real = RealOf<Network>;

    // False, with an error, without memory or when a link into the first layer does not come from an input.
    bool prepare(Network &network, Patterns<Real> &patterns, Real *weights, Workspace &workspace)
    {
        network_ = &network;
        patterns_ = &patterns;
        weights_ = weights;
        int most_links = 0;
        for (int i = network.n_inputs; i < network.n_nodes; ++i) {
            if (!check_list(network, node(i).inLinks, node(i).n_inLinks, i) || !check_sources(i))
                return false;
            most_links = std::max(most_links, node(i).n_inLinks);
        }
        const auto n = static_cast<std::size_t>(most_links);
        deviates_ = workspace.array<Real>(n + 1);
        direction_ = workspace.array<double>(n);
        sources_ = workspace.array<int>(n);
        potentials_ = workspace.array<double>(static_cast<std::size_t>(patterns.n));
        return !fatal_pending() && patterns.prepare(workspace);
    }

    // Equal weights for a perceptron.
    void set_equal(int node)
    {
        const int n = this->node(node).n_inLinks;
        for (int k = 0; k < n; ++k) set_weight(node, k, 1.0 / n);
        set_bias(node, 0);
    }

    // In a layer that is not the first.
    bool set_uniform(int node)
    {
        const int n = this->node(node).n_inLinks;
        if (!draw(n + 1)) return false;
        for (int k = 0; k < n; ++k) set_weight(node, k, deviates_[k] - 0.5);
        set_bias(node, deviates_[n] - 0.5);
        return true;
    }

    // The random bias adds the same to all potentials, and so nothing once their mean is 0.
    bool set_random(int node)
    {
        const int n = this->node(node).n_inLinks;
        if (!draw(n + 1)) return false;
        for (int k = 0; k < n; ++k) direction_[k] = deviates_[k + 1] - 0.5;
        scale(node);
        return true;
    }

    void set_direction(int node, const Directions &directions, int which)
    {
        const int n = this->node(node).n_inLinks;
        for (int k = 0; k < n; ++k) direction_[k] = directions.weight(source(node, k), which);
        scale(node);
    }

private:
    NodeOf<Network> &node(int i) const
    {
        return network_->nodes[i];
    }

    int source(int node, int k) const
    {
        return network_->links[this->node(node).inLinks[k]].from_node;
    }

    // Perceptrons of the first layer read inputs.
    bool check_sources(int node) const
    {
        for (int k = 0; this->node(node).layer_id == 1 && k < this->node(node).n_inLinks; ++k) {
            if (source(node, k) >= network_->n_inputs)
                return raise_damaged("a link into the first layer does not come from an input",
                                     this->node(node).inLinks[k]);
        }
        return true;
    }

    bool draw(int n)
    {
        draw_uniforms(n, deviates_);
        return !fatal_pending();
    }

    void set_weight(int node, int k, double value)
    {
        const int link = this->node(node).inLinks[k];
        weights_[link] = network_->links[link].weight = static_cast<Real>(value);
    }

    void set_bias(int node, double value)
    {
        const auto at =
            static_cast<std::size_t>(network_->n_links) + static_cast<std::size_t>(node - network_->n_inputs);
        weights_[at] = this->node(node).bias = static_cast<Real>(value);
    }

    // Potentials in the direction get mean 0 and standard deviation 1. They are computed about the means of the inputs,
    // where constant inputs add exactly nothing.
    void scale(int node)
    {
        constexpr double least_deviation = 1e-20; // potentials that differ less are left as they are
        const int n = this->node(node).n_inLinks, n_used = patterns_->n_used;
        double origin = 0, mean = 0;
        for (int k = 0; k < n; ++k) {
            sources_[k] = source(node, k);
            origin += direction_[k] * patterns_->means[sources_[k]];
        }
        for (int p = 0; p < n_used; ++p) {
            potentials_[p] = potential(n, p);
            mean += (potentials_[p] - mean) / (p + 1);
        }
        double deviation = standard_deviation(n_used, [&](int p) { return potentials_[p] - mean; });
        if (!(deviation > least_deviation)) deviation = 1;
        for (int k = 0; k < n; ++k) set_weight(node, k, direction_[k] / deviation);
        set_bias(node, (0 - origin - mean) / deviation);
    }

    double potential(int n, int used_pattern) const
    {
        double sum = 0;
        for (int k = 0; k < n; ++k) sum += direction_[k] * patterns_->deviation(used_pattern, sources_[k]);
        return sum;
    }

    Network *network_ = nullptr;
    const Patterns<Real> *patterns_ = nullptr;
    Real *weights_ = nullptr;
    Real *deviates_ = nullptr;
    double *direction_ = nullptr;  // of a perceptron's links
    int *sources_ = nullptr;       // their inputs
    double *potentials_ = nullptr; // of the patterns that are used
};

// Without directions when the method has none.
template <class Network>
bool find_directions(const Network &network, const WeightsOptions<RealOf<Network>> &options,
                     const Patterns<RealOf<Network>> &patterns, Workspace &workspace, Directions &directions)
{
    if (options.method == TAVIK_EQUAL_WEIGHTS || options.method == TAVIK_RANDOM_WEIGHTS) return true;
    DirectionFinder<RealOf<Network>> finder;
    if (!finder.prepare(patterns, workspace)) return false;
    if (options.method == TAVIK_PRINCIPAL_COMPONENT_WEIGHTS) {
        directions = finder.principal_components();
        return true;
    }
    bool poor = false;
    if (!finder.discriminants(options.classes, class_count(network), workspace, directions, poor))
        return false;
    if (poor) {
        FILE *unit = nullptr;
        tavik_umach(2, &unit);
        std::fputs("Warning:  Input layer weights poorly determined using discriminant analysis. \n", unit);
    }
    return true;
}

// Perceptrons one after the other. False, with an error, when no uniforms can be drawn.
template <class Network>
bool set_weights(const Network &network, int method, const Directions &directions,
                 WeightsInitializer<Network> &initializer)
{
    for (int node = network.n_inputs; node < network.n_nodes; ++node) {
        const int which = node - network.n_inputs;
        bool drawn = true;
        if (method == TAVIK_EQUAL_WEIGHTS) initializer.set_equal(node);
        else if (network.nodes[node].layer_id > 1) drawn = initializer.set_uniform(node);
        else if (which < directions.count) initializer.set_direction(node, directions, which);
        else drawn = initializer.set_random(node);
        if (!drawn) return false;
    }
    return true;
}

template <class Network>
void l_mlff_initialize_weights(Network *network, Patterns<RealOf<Network>> &patterns, ArgumentList &list,
                               Workspace &workspace, RealOf<Network> *&result)
{
    WeightsOptions<RealOf<Network>> options;
    if (!read_options(OptionReader(list, count_codes), options) || !check_not_null(network, "network") ||
        !check_counts(patterns.n, patterns.n_nominal, patterns.n_continuous, network->n_inputs) ||
        !check_method(*network, options) || !check_patterns(*network, patterns, options.classes))
        return;
    const std::size_t n_weights = static_cast<std::size_t>(network->n_links) +
                                  static_cast<std::size_t>(network->n_nodes - network->n_inputs);
    auto *weights = options.result;
    if (weights == nullptr)
        weights = workspace.result<RealOf<Network>>(n_weights, "number of weights in network");
    if (weights == nullptr) return;
    WeightsInitializer<Network> initializer;
    Directions directions;
    WeightsSummary summary;
    if (!initializer.prepare(*network, patterns, weights, workspace) ||
        (options.print && !summary.prepare(workspace)) ||
        !find_directions(*network, options, patterns, workspace, directions))
        return;
    std::fill_n(weights, n_weights, RealOf<Network>{0});
    if (!set_weights(*network, options.method, directions, initializer)) return;
    if (options.print) summary.print(*network, patterns, options.method, options.classes != nullptr);
    result = workspace.hand_over(weights);
}

} // namespace tavik::datamining
