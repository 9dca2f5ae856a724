// Kernels that bring slacks up to date, row after row without a call or an unforeseen branch in between.
//
// No decision depends on them: they read a state that stands still, and write nothing but slacks and proposals, so
// any number of threads may run them on different rows.

#include "distance_kernel.hpp"

namespace tavik::multivariate {
namespace {

using Rows = int __attribute__((vector_size(lanes * sizeof(int))));

// Bit j for lane j.
inline int lanes_in(VMask mask)
{
    return static_cast<int>(true_lanes(mask));
}

#ifdef __AVX2__
// For each set of lanes, where to take the rows from so that those of the set come first.
struct Orders {
    Rows of[1 << lanes];
    int count[1 << lanes];
};

constexpr Orders make_orders()
{
    Orders orders{};
    for (int set = 0; set < 1 << lanes; ++set) {
        int order[lanes] = {}, count = 0;
        for (int lane = 0; lane < static_cast<int>(lanes); ++lane) {
            if ((set >> lane & 1) != 0) order[count++] = lane;
        }
        orders.of[set] = Rows{order[0], order[1], order[2], order[3]};
        orders.count[set] = count;
    }
    return orders;
}

constexpr Orders orders = make_orders();

inline void append(Rows rows, int set, int *to, int &count)
{
    const F4 ordered = // integers, moved as if they were floats
        __builtin_ia32_vpermilvarps(__builtin_bit_cast(F4, rows), orders.of[set]);
    __builtin_memcpy(to + count, &ordered, sizeof ordered);
    count += orders.count[set];
}
#else
inline void append(Rows rows, int set, int *to, int &count)
{
    for (int lane = 0; lane < static_cast<int>(lanes); ++lane) {
        to[count] = rows[lane];
        count += set >> lane & 1;
    }
}
#endif

inline V at(const double *values, Rows index)
{
    return V{values[index[0]], values[index[1]], values[index[2]], values[index[3]]};
}

inline Rows at(const int *values, Rows index)
{
    return Rows{values[index[0]], values[index[1]], values[index[2]], values[index[3]]};
}

// The slacks of four rows.
inline V own_slacks(const SlackTable &slacks, Rows rows)
{
    return at(slacks.own_until, rows) -
           (at(slacks.drift.now, at(slacks.cluster, rows)) + at(slacks.drift.now, at(slacks.second, rows)));
}

inline V others_slacks(const SlackTable &slacks, Rows rows)
{
    return at(slacks.others_until, rows) -
           (at(slacks.drift_of_cycles.now, at(slacks.second, rows)) + *slacks.drift_of_cycles.now_any);
}

// Tables go by value where something is stored for each row, lest they be read anew.
template <bool is_optimal>
inline void scan_four(const SlackTable slacks, Rows rows, int set, const ScanMargins margins,
                      const ScanLists to, ScanCounts &counts)
{
    const V zero{}, near = zero + margins.near, kept = zero + margins.kept;
    const V own = own_slacks(slacks, rows);
    const int own_open = set & ~lanes_in(own > zero);
    if constexpr (is_optimal) {
        const V others = others_slacks(slacks, rows);
        const V left = others < own ? others : own;
        const int others_open = set & ~lanes_in(others > zero);
        append(rows, set & ~lanes_in(left > near), to.near, counts.near);
        append(rows, others_open, to.others_open, counts.others_open);
        append(rows, own_open & ~others_open, to.own_open, counts.own_open);
    } else {
        append(rows, set & ~lanes_in(own > kept), to.kept, counts.kept);
        append(rows, set & ~lanes_in(own > near), to.near, counts.near);
        append(rows, own_open, to.own_open, counts.own_open);
    }
}

// Four rows are stored at once: what is loaded next waits until it is known where the stores go.
template <bool is_optimal, bool is_listed>
inline ScanCounts scan_rows(const SlackTable slacks, int first, const int *rows, int n,
                            const ScanMargins margins, const ScanLists to)
{
    constexpr int at_once = static_cast<int>(lanes);
    const auto row = [&](int k) { return is_listed ? rows[k] : first + k; };
    ScanCounts counts{};
    int k = 0;
    for (; k + at_once <= n; k += at_once)
        scan_four<is_optimal>(slacks, Rows{row(k), row(k + 1), row(k + 2), row(k + 3)}, (1 << at_once) - 1,
                              margins, to, counts);
    if (k == n) return counts;
    const int last = n - 1;
    scan_four<is_optimal>(
        slacks, Rows{row(k), row(k + 1 < n ? k + 1 : last), row(k + 2 < n ? k + 2 : last), row(last)},
        (1 << (n - k)) - 1, margins, to, counts);
    return counts;
}

// The list is shortened in its place: what is stored ends where has been read already.
template <bool is_optimal> inline int keep_near_rows(const SlackTable slacks, int *rows, int n, double margin)
{
    constexpr int at_once = static_cast<int>(lanes);
    const V near = V{} + margin;
    int count = 0;
    for (int k = 0; k < n; k += at_once) {
        const int left = n - k, set = left < at_once ? (1 << left) - 1 : (1 << at_once) - 1;
        const auto row = [&](int lane) { return rows[lane < left ? k + lane : k]; };
        const Rows four{row(0), row(1), row(2), row(3)};
        V slack = own_slacks(slacks, four);
        if constexpr (is_optimal) {
            const V others = others_slacks(slacks, four);
            slack = others < slack ? others : slack;
        }
        append(four, set & ~lanes_in(slack > near), rows, count);
    }
    return count;
}

int keep_near(const SlackTable &slacks, bool is_optimal, int *rows, int n, double margin)
{
    return is_optimal ? keep_near_rows<true>(slacks, rows, n, margin)
                      : keep_near_rows<false>(slacks, rows, n, margin);
}

constexpr int rows_ahead = 8; // whose values are fetched

template <class Real> inline void prefetch(const Real *row, std::size_t n_variables)
{
    constexpr std::size_t line = 64 / sizeof(Real);
    for (std::size_t j = 0; j < n_variables; j += line) __builtin_prefetch(row + j);
}

// The instruction itself: sqrt() would look for errors.
inline Pair roots_of(Pair squares)
{
    using VTwo = double __attribute__((vector_size(2 * sizeof(double))));
    const VTwo roots = __builtin_ia32_sqrtpd(VTwo{squares.a, squares.b});
    return {roots[0], roots[1]};
}

template <class Real, bool complete>
inline void renew_own_slacks(const SlackTable slacks, const RowSource<Real> from, const Centres centres,
                             const int *rows, int n)
{
    for (int k = 0; k < n; ++k) {
        if (k + rows_ahead < n) prefetch(from.row(rows[k + rows_ahead]), centres.n_variables);
        const int i = rows[k];
        const auto own = static_cast<std::size_t>(slacks.cluster[i]),
                   second = static_cast<std::size_t>(slacks.second[i]);
        const Pair to = to_two_centres<Real, complete>(from.row(i), centres.n_variables, centres.row(own),
                                                       centres.row(second));
        const Pair roots = roots_of(to);
        slacks.own_until[i] = slacks.own_until_from(roots.a, roots.b, own, second);
    }
}

template <class Real>
void renew_own(const SlackTable &slacks, const RowSource<Real> &from, const Centres &centres, const int *rows,
               int n)
{
    if (from.complete) renew_own_slacks<Real, true>(slacks, from, centres, rows, n);
    else renew_own_slacks<Real, false>(slacks, from, centres, rows, n);
}

// The two least of shares x distances, but for those of two clusters, and the cluster that has the least.
struct LeastTwo {
    double least, next;
    std::size_t cluster;
};

inline LeastTwo find_least_two(const double *distances, const double *shares, std::size_t padded_clusters,
                               std::size_t but, std::size_t and_but)
{
    constexpr double infinity = __builtin_inf();
    const V infinite = V{} + infinity;
    const double but_first = static_cast<double>(but), but_next = static_cast<double>(and_but);
    V least = infinite, next = infinite, at = {}, cluster = {0, 1, 2, 3};
    for (std::size_t c = 0; c < padded_clusters; c += lanes, cluster = cluster + double{lanes}) {
        V part = load(shares + c) * load(distances + c);
        part = cluster == but_first || cluster == but_next ? infinite : part;
        const VMask less = part < least; // so NaN is passed over
        const V greater = less ? least : part;
        next = greater < next ? greater : next;
        at = less ? cluster : at;
        least = less ? part : least;
    }
    const auto join = [&](V other_least, V other_next, V other_at) {
        const VMask less = other_least < least;
        const V greater = less ? least : other_least;
        next = other_next < next ? other_next : next;
        next = greater < next ? greater : next;
        at = less ? other_at : at;
        least = less ? other_least : least;
    };
    join(__builtin_shufflevector(least, least, 2, 3, 0, 1), __builtin_shufflevector(next, next, 2, 3, 0, 1),
         __builtin_shufflevector(at, at, 2, 3, 0, 1));
    join(__builtin_shufflevector(least, least, 1, 0, 3, 2), __builtin_shufflevector(next, next, 1, 0, 3, 2),
         __builtin_shufflevector(at, at, 1, 0, 3, 2));
    return {least[0], next[0], static_cast<std::size_t>(at[0])};
}

template <class Real>
int renew_all(const SlackTable &slacks, const RowSource<Real> &from, const Centres &centres, const int *rows,
              int n, double *row, double *distances, Proposal *proposals)
{
    int n_proposals = 0;
    for (int k = 0; k < n; ++k) {
        if (k + rows_ahead < n) prefetch(from.row(rows[k + rows_ahead]), centres.n_variables);
        const int i = rows[k];
        const Real *values = from.row(i);
        for (std::size_t j = 0; j < centres.n_variables; ++j) row[j] = values[j];
        to_all(row, centres, from.complete, distances);
        const auto own = static_cast<std::size_t>(slacks.cluster[i]);
        auto second = static_cast<std::size_t>(slacks.second[i]);
        const LeastTwo others =
            find_least_two(distances, slacks.shares, centres.padded_clusters, own, second);
        double to_second = distances[second], rest = others.least;
        const bool proposes = (others.least < to_second) & (distances[others.cluster] < to_second);
        const double part = slacks.shares[second] * to_second, next = part < others.next ? part : others.next;
        rest = proposes ? next : rest;
        second = proposes ? others.cluster : second;
        to_second = distances[second];
        const Pair roots = roots_of({distances[own], to_second});
        const double own_until = slacks.own_until_from(roots.a, roots.b, own, second),
                     others_until = slacks.others_until_from(roots.b, roots_of({rest, rest}).a, second);
        proposals[n_proposals] = {i, static_cast<int>(second), own_until, others_until};
        n_proposals += proposes;
        slacks.own_until[i] = proposes ? slacks.own_until[i] : own_until;
        slacks.others_until[i] = proposes ? slacks.others_until[i] : others_until;
    }
    return n_proposals;
}

ScanCounts scan(const SlackTable &slacks, bool is_optimal, int first, const int *rows, int n,
                const ScanMargins &margins, const ScanLists &to)
{
    if (is_optimal) return scan_rows<true, false>(slacks, first, rows, n, margins, to);
    return rows != nullptr ? scan_rows<false, true>(slacks, first, rows, n, margins, to)
                           : scan_rows<false, false>(slacks, first, rows, n, margins, to);
}

constexpr DistanceKernels kernels_of_this_level = {to_two<float>,
                                                   to_two<double>,
                                                   to_all,
                                                   between,
                                                   find_below,
                                                   scan,
                                                   keep_near,
                                                   {renew_own<float>, renew_all<float>},
                                                   {renew_own<double>, renew_all<double>}};

} // namespace
} // namespace tavik::multivariate
