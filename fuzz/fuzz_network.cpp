// Any bytes, up to the first that is 0, as a network file; those behind it as edits of the network that was read, or of
// a new one. The reader may not take more memory than the bytes could fill. What it accepts is written and read again,
// without any change, before the edits and after them, and after each edit lists and links must match.
#include "bytes.hpp"

#include "frame/tavikstat.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <string>
#include <vector>

extern "C" int __sanitizer_install_malloc_and_free_hooks(void (*)(const volatile void *, std::size_t),
                                                         void (*)(const volatile void *));

namespace {

void expect(bool condition, int line = __builtin_LINE())
{
    if (condition) return;
    std::fprintf(stderr, "line %d: error %d, %ld\n", line, tavik_error_type(), tavik_error_code());
    std::abort();
}

std::size_t largest_allowed = SIZE_MAX;

void on_allocation(const volatile void *, std::size_t size)
{
    expect(size <= largest_allowed);
}

void on_release(const volatile void *)
{
}

template <class Real> struct Routines;

template <> struct Routines<float> {
    using Network = tavik_f_network;
    static constexpr auto init = tavik_f_mlff_network_init;
    static constexpr auto edit = tavik_f_mlff_network;
    static constexpr auto release = tavik_f_mlff_network_free;
    static constexpr auto write = tavik_f_mlff_network_write;
    static constexpr auto read = tavik_f_mlff_network_read;
};

template <> struct Routines<double> {
    using Network = tavik_d_network;
    static constexpr auto init = tavik_d_mlff_network_init;
    static constexpr auto edit = tavik_d_mlff_network;
    static constexpr auto release = tavik_d_mlff_network_free;
    static constexpr auto write = tavik_d_mlff_network_write;
    static constexpr auto read = tavik_d_mlff_network_read;
};

template <class Real> class Program {
    using R = Routines<Real>;
    using Network = typename R::Network;

public:
    Program(std::string text, Bytes bytes) : bytes_(bytes)
    {
        network_ = read(text);
        if (network_ != nullptr) expect_same_again();
        else network_ = R::init(1 + bytes_.byte() % 4, 1 + bytes_.byte() % 4);
    }
    Program(const Program &) = delete;
    ~Program()
    {
        R::release(network_);
    }

    void run()
    {
        for (int steps = 0; bytes_.any() && steps < 100; ++steps) {
            edit();
            expect(tavik_error_type() == 0 || tavik_error_type() == 5 || tavik_error_code() == 40096);
            expect(tavik_error_code() != 40121 || !lists_match_);
            expect_consistent();
        }
        if (lists_match_) expect_same_again();
    }

private:
    static Network *read(std::string &text)
    {
        if (text.empty()) return nullptr;
        FILE *file = fmemopen(text.data(), text.size(), "r");
        largest_allowed = std::max<std::size_t>(100 * text.size(), 1 << 16);
        Network *network = R::read(nullptr, TAVIK_FILE, file, 0);
        largest_allowed = SIZE_MAX;
        expect(network != nullptr ||
               (tavik_error_type() == 5 && (tavik_error_code() == 65372 || tavik_error_code() == 65373)));
        std::fclose(file);
        return network;
    }

    static std::string written(Network *network)
    {
        char *text = nullptr;
        std::size_t size = 0;
        FILE *file = open_memstream(&text, &size);
        R::write(network, nullptr, TAVIK_FILE, file, 0);
        expect(tavik_error_type() == 0);
        std::fclose(file);
        const std::string copy(text, size);
        std::free(text);
        return copy;
    }

    // The largest numbers round up to infinity when they are written with 15 digits.
    bool has_largest() const
    {
        const auto large = [](double value) {
            return std::isfinite(value) && std::fabs(value) > 1.797693134862314e308;
        };
        return std::any_of(network_->links, network_->links + network_->n_links,
                           [&](const auto &link) { return large(link.weight) || large(link.gradient); }) ||
               std::any_of(network_->nodes, network_->nodes + network_->n_nodes,
                           [&](const auto &node) { return large(node.bias) || large(node.param); });
    }

    void expect_same_again()
    {
        expect_consistent();
        std::string text = written(network_);
        Network *same = read(text);
        expect(same != nullptr && (written(same) == text || has_largest()));
        R::release(same);
    }

    void expect_consistent() const
    {
        const Network &net = *network_;
        expect(net.next_link == net.n_links && net.n_layers >= 2 && net.layers[0].n_nodes == net.n_inputs &&
               net.layers[net.n_layers - 1].n_nodes == net.n_outputs);
        int next = 0;
        for (int l = 0; l < net.n_layers; ++l) {
            for (int i = 0; i < net.layers[l].n_nodes; ++i, ++next)
                expect(net.layers[l].nodes[i] == next && net.nodes[next].layer_id == l);
        }
        expect(next == net.n_nodes);
        if (!lists_match_) return;
        std::vector<int> listed(static_cast<std::size_t>(net.n_links));
        for (int i = 0; i < net.n_nodes; ++i) {
            const auto &node = net.nodes[i];
            for (int k = 0; k < node.n_inLinks; ++k) {
                expect(node.inLinks[k] < net.n_links && net.links[node.inLinks[k]].to_node == i);
                listed[static_cast<std::size_t>(node.inLinks[k])] += 1;
            }
            for (int k = 0; k < node.n_outLinks; ++k) {
                expect(node.outLinks[k] < net.n_links && net.links[node.outLinks[k]].from_node == i);
                listed[static_cast<std::size_t>(node.outLinks[k])] += 1 << 16;
            }
        }
        for (int ends : listed) expect(ends == (1 << 16) + 1);
    }

    void edit()
    {
        const int a = bytes_.byte() % 32 - 2, b = bytes_.byte() % 32 - 2;
        switch (bytes_.byte() % 10) {
        case 0:
            if (network_->n_layers > 20) break;
            lists_match_ =
                lists_match_ && (network_->n_links == 0 || a < 1); // links keep the numbers of outputs
            R::edit(network_, TAVIK_CREATE_HIDDEN_LAYER, std::min(a, 6), 0);
            break;
        case 1:
            if (network_->n_nodes < 100) R::edit(network_, TAVIK_LINK_ALL, 0);
            break;
        case 2:
            if (network_->n_nodes < 100) R::edit(network_, TAVIK_LINK_LAYER, a % 8, b % 8, 0);
            break;
        case 3: {
            std::vector<Real> weights(static_cast<std::size_t>(network_->n_links) + 1, Real(a) / 3);
            R::edit(network_, TAVIK_WEIGHTS, weights.data(), 0);
            break;
        }
        case 4: {
            std::vector<int> codes(static_cast<std::size_t>(network_->n_nodes), a % 5);
            R::edit(network_, TAVIK_ACTIVATION_FCN, b % 6, codes.data(), 0);
            break;
        }
        case 5:
        case 6: R::edit(network_, TAVIK_REMOVE_LINK, a, b, 0); break;
        case 7:
            if (network_->n_links == 0) break;
            R::edit(network_, TAVIK_REMOVE_LINK, network_->links[(a + 2) % network_->n_links].to_node,
                    network_->links[(a + 2) % network_->n_links].from_node, 0);
            break;
        default: R::edit(network_, TAVIK_LINK_NODE, a, b, 0);
        }
    }

    Bytes bytes_;
    Network *network_ = nullptr;
    bool lists_match_ = true;
};

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    __sanitizer_install_malloc_and_free_hooks(on_allocation, on_release);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size)
{
    for (int type : {4, 5, 6}) tavik_error_options(TAVIK_SET_STOP, type, 0, TAVIK_SET_PRINT, type, 0, 0);
    const uint8_t *end = std::find(data, data + size, 0);
    const std::string text(data, end);
    if (end < data + size) ++end;
    const Bytes edits(end, static_cast<std::size_t>(data + size - end));
    Program<float>(text, edits).run();
    Program<double>(text, edits).run();
    return 0;
}
