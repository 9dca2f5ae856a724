// Making and removing links.
//
// Whether a link exists is asked of the node that it comes from: that node knows its links under a number that never
// changes. Layers are linked in three steps: count what exists, make room for all, make what is missing; so without
// memory no link is made at all.
#pragma once

#include "growing_blocks.hpp"
#include "network_checks.hpp"

#include <climits>
#include <utility>

namespace tavik::datamining {

inline void raise_link_exists(int to, int from)
{
    raise(warning_immediate, 40096, "to", to, "from", from);
}

// Room has been made. Returns the link, of which the target is still to be told.
template <class Network> int append_link_of_source(Network &network, int to, int from)
{
    NodeOf<Network> &source = network.nodes[from];
    const int link = network.next_link++;
    network.links[link] = new_link<Network>(to, from);
    ++network.n_links;
    source.outLinks[source.n_outLinks++] = link;
    return link;
}

template <class Network> void append_link(Network &network, int to, int from)
{
    NodeOf<Network> &target = network.nodes[to];
    target.inLinks[target.n_inLinks++] = append_link_of_source(network, to, from);
}

// Pairs of layers, each linked from the one `distance` below it.
struct LayerPairs {
    int first_to, last_to, distance;
};

template <class Network> class LayerLinker {
public:
    LayerLinker(Network &network, LayerPairs pairs)
        : network_(network), pairs_(pairs), n_links_(network.n_links)
    {
    }

    bool link(Workspace &workspace)
    {
        if (!prepare(workspace)) return false;
        for (int l = pairs_.first_to; l <= pairs_.last_to; ++l) {
            if (!count_existing(l)) return false;
        }
        if (!check_link_count() || !make_room_for_all()) return false;
        for (int l = pairs_.first_to; l <= pairs_.last_to; ++l) make_missing(l);
        return !fatal_pending();
    }

private:
    bool prepare(Workspace &workspace)
    {
        const auto n = static_cast<std::size_t>(network_.n_nodes);
        linked_from_ = workspace.array<int>(n);
        existing_in_ = workspace.array<int>(n);
        existing_out_ = workspace.array<int>(n);
        if (error_pending()) return false;
        std::fill_n(linked_from_, n, -1);
        std::fill_n(existing_in_, n, 0);
        std::fill_n(existing_out_, n, 0);
        return true;
    }

    const Layer &layer(int l) const
    {
        return network_.layers[l];
    }

    // Marks the nodes to which a node has links; tells visit(to) of each once.
    template <class Visit> void mark_links_from(int from, const Visit &visit)
    {
        const NodeOf<Network> &node = network_.nodes[from];
        for (int k = 0; k < node.n_outLinks; ++k) {
            const LinkOf<Network> &link = network_.links[node.outLinks[k]];
            if (link.from_node != from || linked_from_[link.to_node] == from) continue;
            linked_from_[link.to_node] = from;
            visit(link.to_node);
        }
    }

    bool count_existing(int to_layer)
    {
        const Layer &targets = layer(to_layer), &sources = layer(to_layer - pairs_.distance);
        n_links_ += std::int64_t{targets.n_nodes} * sources.n_nodes;
        for (int i = 0; i < sources.n_nodes; ++i) {
            const int from = sources.nodes[i];
            if (!check_links_from(from)) return false;
            mark_links_from(from, [&](int to) {
                if (network_.nodes[to].layer_id != to_layer) return;
                ++existing_in_[to];
                ++existing_out_[from];
                --n_links_;
            });
        }
        for (int i = 0; i < targets.n_nodes; ++i) {
            const NodeOf<Network> &node = network_.nodes[targets.nodes[i]];
            if (!check_list_block(network_, node.inLinks, node.n_inLinks, targets.nodes[i])) return false;
        }
        return true;
    }

    bool check_links_from(int from) const
    {
        const NodeOf<Network> &node = network_.nodes[from];
        if (!check_list(network_, node.outLinks, node.n_outLinks, from)) return false;
        return std::all_of(node.outLinks, node.outLinks + node.n_outLinks,
                           [&](int link) { return check_ends(network_, link); });
    }

    bool check_link_count() const
    {
        if (n_links_ <= INT_MAX) return true;
        return raise(terminal, 40120, "links", network_.n_links,
                     static_cast<int>(std::min<std::int64_t>(n_links_ - network_.n_links, INT_MAX)));
    }

    bool make_room_for_all()
    {
        for (int l = pairs_.first_to; l <= pairs_.last_to; ++l) {
            const Layer &targets = layer(l), &sources = layer(l - pairs_.distance);
            for (int i = 0; i < targets.n_nodes; ++i) {
                NodeOf<Network> &node = network_.nodes[targets.nodes[i]];
                const std::int64_t missing = sources.n_nodes - existing_in_[targets.nodes[i]];
                if (!make_room(node.inLinks, node.n_inLinks, node.n_inLinks + missing)) return false;
            }
            for (int i = 0; i < sources.n_nodes; ++i) {
                NodeOf<Network> &node = network_.nodes[sources.nodes[i]];
                const std::int64_t missing = targets.n_nodes - existing_out_[sources.nodes[i]];
                if (!make_room(node.outLinks, node.n_outLinks, node.n_outLinks + missing)) return false;
            }
        }
        return make_room(network_.links, static_cast<std::size_t>(network_.n_links),
                         static_cast<std::size_t>(n_links_));
    }

    // A few sources at a time, so that their targets' lists are not fetched anew for every link.
    void make_missing(int to_layer)
    {
        const Layer &targets = layer(to_layer), &sources = layer(to_layer - pairs_.distance);
        for (int i = 0; i < sources.n_nodes; i += sources_at_once) {
            const int *from = sources.nodes + i, n = std::min(sources.n_nodes - i, sources_at_once);
            if (std::all_of(from, from + n, [&](int node) { return existing_out_[node] == 0; }))
                make_links(targets, from, n);
            else make_missing_links(targets, from, n);
        }
    }

    // Of sources none of which has links to the targets.
    void make_links(const Layer &targets, const int *sources, int n)
    {
        const int first = network_.next_link;
        for (int i = 0; i < n; ++i) {
            for (int k = 0; k < targets.n_nodes; ++k)
                append_link_of_source(network_, targets.nodes[k], sources[i]);
        }
        for (int k = 0; k < targets.n_nodes; ++k) {
            NodeOf<Network> &target = network_.nodes[targets.nodes[k]];
            for (int i = 0; i < n; ++i) target.inLinks[target.n_inLinks++] = first + i * targets.n_nodes + k;
        }
    }

    void make_missing_links(const Layer &targets, const int *sources, int n)
    {
        for (int i = 0; i < n; ++i) {
            const int from = sources[i];
            mark_links_from(from, [](int) {});
            for (int k = 0; k < targets.n_nodes; ++k) {
                const int to = targets.nodes[k];
                if (linked_from_[to] == from) raise_link_exists(to, from);
                else append_link(network_, to, from);
            }
        }
    }

    static constexpr int sources_at_once = 16;

    Network &network_;
    LayerPairs pairs_;
    std::int64_t n_links_;       // that there will be
    int *linked_from_ = nullptr; // of each node: the last node that was found to have a link to it
    int *existing_in_ = nullptr, *existing_out_ = nullptr; // of each node: links of the pairs that exist
};

template <class Network> bool link_all(Network &network, Workspace &workspace)
{
    if (!check_layers(network) || !check_link_counts(network) || !check_next_link(network)) return false;
    return LayerLinker<Network>(network, {1, network.n_layers - 1, 1}).link(workspace);
}

template <class Network> bool link_layer(Network &network, int to, int from, Workspace &workspace)
{
    if (to <= 0 || to >= network.n_layers) return raise(terminal, 40097, "to", to, network.n_layers);
    if (from >= network.n_layers - 1) return raise(terminal, 40098, "from", from, network.n_layers);
    if (to == from) return raise(terminal, 40092, "to", to, "from", from);
    if (to < from) return raise(terminal, 605, "to", "from", to, from);
    if (from < 0) return true;
    if (!check_layers(network) || !check_link_counts(network) || !check_next_link(network)) return false;
    return LayerLinker<Network>(network, {to, to, to - from}).link(workspace);
}

// The last of the links between two nodes; -1 if there is none, or, with an error, in a damaged record.
template <class Network> int find_link(const Network &network, int to, int from)
{
    const NodeOf<Network> &node = network.nodes[from];
    if (!check_list(network, node.outLinks, node.n_outLinks, from)) return -1;
    int found = -1;
    for (int k = 0; k < node.n_outLinks; ++k) {
        const LinkOf<Network> &link = network.links[node.outLinks[k]];
        if (link.to_node == to && link.from_node == from) found = std::max(found, node.outLinks[k]);
    }
    return found;
}

// Only the two nodes are walked: networks are built link by link, too.
template <class Network> bool link_nodes(Network &network, int to, int from)
{
    if (network.nodes == nullptr || network.layers == nullptr || network.n_layers < 2)
        return check_layers(network);
    const Layer &last_sources = network.layers[network.n_layers - 2];
    if (last_sources.n_nodes < 1 || last_sources.n_nodes > network.n_nodes || last_sources.nodes == nullptr)
        return check_layers(network);
    const int last_source = last_sources.nodes[last_sources.n_nodes - 1];
    if (last_source >= network.n_nodes) return check_layers(network);
    if (to < network.n_inputs || to >= network.n_nodes)
        return raise(terminal, 602, "to", to, network.n_inputs, network.n_nodes - 1);
    if (from < 0 || from > last_source) return raise(terminal, 602, "from", from, 0, last_source);
    if (to < 0) return check_layers(network);
    NodeOf<Network> &target = network.nodes[to], &source = network.nodes[from];
    if (target.layer_id < 1) return raise(terminal, 40091, "to", to, "Input");
    if (source.layer_id >= network.n_layers - 1) return raise(terminal, 40093, "from", from, "Output");
    if (target.layer_id == source.layer_id) return raise(terminal, 40092, "to", to, "from", from);
    if (to < from) return raise(terminal, 605, "link_to_node_idx", "link_from_node_idx", to, from);

    if (!check_link_counts(network) || !check_next_link(network)) return false;
    const int existing = find_link(network, to, from);
    if (fatal_pending()) return false;
    if (existing >= 0) {
        raise_link_exists(to, from);
        return true;
    }
    if (!check_list_block(network, target.inLinks, target.n_inLinks, to)) return false;
    if (network.n_links == INT_MAX) return raise(terminal, 40120, "links", network.n_links, 1);
    const auto n_links = static_cast<std::size_t>(network.n_links);
    if (!make_room(target.inLinks, target.n_inLinks, std::int64_t{target.n_inLinks} + 1) ||
        !make_room(source.outLinks, source.n_outLinks, std::int64_t{source.n_outLinks} + 1) ||
        !make_room(network.links, n_links, n_links + 1))
        return false;
    append_link(network, to, from);
    return true;
}

// Lists grow at their ends, so what changes in them is found there.
inline void erase_from(int *list, int &n, int link)
{
    for (int k = n - 1; k >= 0; --k) {
        if (list[k] != link) continue;
        std::copy(list + k + 1, list + n, list + k);
        --n;
        return;
    }
}

// `moved` links of a list, all behind the one that was removed, move down one place. The list may name links of other
// nodes, where a layer was made after links: those stay as they are.
template <class Belongs> void renumber(int *list, int n, int removed, int moved, const Belongs &belongs)
{
    for (int k = n - 1; k >= 0 && moved > 0; --k) {
        if (list[k] <= removed || !belongs(list[k])) continue;
        --list[k];
        --moved;
    }
}

// How many links, from the removed one on, each node lists: those whose places change.
struct MovedLinks {
    int *in, *out; // of each node
};

template <class Network>
bool count_moved(const Network &network, int removed, Workspace &workspace, MovedLinks &moved)
{
    const auto n = static_cast<std::size_t>(network.n_nodes);
    moved = {workspace.array<int>(n), workspace.array<int>(n)};
    if (error_pending()) return false;
    std::fill_n(moved.in, n, 0);
    std::fill_n(moved.out, n, 0);
    for (int i = removed; i < network.n_links; ++i) {
        if (!check_ends(network, i)) return false;
        const int to = network.links[i].to_node, from = network.links[i].from_node;
        const NodeOf<Network> &target = network.nodes[to], &source = network.nodes[from];
        if (moved.in[to]++ == 0 && !check_list_block(network, target.inLinks, target.n_inLinks, to))
            return false;
        if (moved.out[from]++ == 0 && !check_list_block(network, source.outLinks, source.n_outLinks, from))
            return false;
    }
    return true;
}

template <class Network> void renumber_lists(const Network &network, int removed, const MovedLinks &moved)
{
    for (int i = removed + 1; i < network.n_links; ++i) {
        const int to = network.links[i].to_node, from = network.links[i].from_node;
        const NodeOf<Network> &target = network.nodes[to], &source = network.nodes[from];
        const auto ends_at_target = [&](int k) {
            return k < network.n_links && network.links[k].to_node == to;
        };
        const auto starts_at_source = [&](int k) {
            return k < network.n_links && network.links[k].from_node == from;
        };
        renumber(target.inLinks, target.n_inLinks, removed, std::exchange(moved.in[to], 0), ends_at_target);
        renumber(source.outLinks, source.n_outLinks, removed, std::exchange(moved.out[from], 0),
                 starts_at_source);
    }
}

template <class Network> bool remove_link(Network &network, int to, int from, Workspace &workspace)
{
    if (!check_link_counts(network) || !check_next_link(network)) return false;
    const int last = network.n_links - 1;
    if (to < 0 || to > last) return raise(terminal, 40094, "to", to, 0, last);
    if (from < 0 || from > last) return raise(terminal, 40094, "from", from, 0, last);
    if (network.nodes == nullptr) return check_layers(network);
    const int removed = from < network.n_nodes ? find_link(network, to, from) : -1;
    if (fatal_pending()) return false;
    if (removed < 0) return raise(terminal, 40095, "to", to, "from", from);

    MovedLinks moved{};
    if (!count_moved(network, removed, workspace, moved)) return false;
    erase_from(network.nodes[to].inLinks, network.nodes[to].n_inLinks, removed);
    erase_from(network.nodes[from].outLinks, network.nodes[from].n_outLinks, removed);
    --moved.in[to];
    --moved.out[from];
    renumber_lists(network, removed, moved);
    std::copy(network.links + removed + 1, network.links + network.n_links, network.links + removed);
    --network.n_links;
    --network.next_link;
    return true;
}

} // namespace tavik::datamining
