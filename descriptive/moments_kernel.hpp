// The moment kernels, written once. A file of a few lines compiles them for each instruction level;
// everything here has internal linkage, so that no level's code can stand in for another's at link time.

#include "moments.hpp"

#include "numerical/four_lanes.hpp"

namespace tavik::descriptive {
namespace {

using namespace four_lanes;
static_assert(sizeof(V) == lanes * sizeof(double));

constexpr double infinite = __builtin_inf();
constexpr int second_level = 2; // of cache: a panel and its successor do not both fit the first
constexpr double undefined = __builtin_nan("");

// What one sweep over the rows of a block gathers of each column, as arrays of one slot a column: power sums
// about `shift`, and the extremes.
struct PowerSums {
    explicit PowerSums(double *memory, std::size_t slots)
        : shift(memory), s1(shift + slots), s2(s1 + slots), s3(s2 + slots), s4(s3 + slots), low(s4 + slots),
          high(low + slots)
    {
    }

    double *shift, *s1, *s2, *s3, *s4, *low, *high;
};

// Adds `rows` rows of a strip of columns whose first slot is `slot`. The sums stay in registers from the
// first row to the last. While a panel is worked on, the next one is fetched.
template <int vectors, class Real>
inline void sweep_strip(const Real *x, std::int64_t rows, std::size_t stride, const PowerSums &sums,
                        std::size_t slot)
{
    V s1[vectors], s2[vectors], s3[vectors], s4[vectors], low[vectors], high[vectors];
    for (int k = 0; k < vectors; ++k) {
        const std::size_t at = slot + lanes * static_cast<std::size_t>(k);
        s1[k] = load(sums.s1 + at);
        s2[k] = load(sums.s2 + at);
        s3[k] = load(sums.s3 + at);
        s4[k] = load(sums.s4 + at);
        low[k] = load(sums.low + at);
        high[k] = load(sums.high + at);
    }
    const std::size_t ahead = static_cast<std::size_t>(rows) * stride;
    for (std::int64_t i = 0; i < rows; ++i, x += stride) {
        __builtin_prefetch(x + ahead, 0, second_level);
        for (int k = 0; k < vectors; ++k) {
            const V v = load(x + lanes * static_cast<std::size_t>(k));
            const V d = v - load(sums.shift + slot + lanes * static_cast<std::size_t>(k)), square = d * d;
            s1[k] += d;
            s2[k] += square;
            s3[k] += square * d;
            s4[k] += square * square;
            low[k] = v < low[k] ? v : low[k];
            high[k] = v > high[k] ? v : high[k];
        }
    }
    for (int k = 0; k < vectors; ++k) {
        const std::size_t at = slot + lanes * static_cast<std::size_t>(k);
        store(sums.s1 + at, s1[k]);
        store(sums.s2 + at, s2[k]);
        store(sums.s3 + at, s3[k]);
        store(sums.s4 + at, s4[k]);
        store(sums.low + at, low[k]);
        store(sums.high + at, high[k]);
    }
}

// Sweeps panels of rows that fit the first-level cache, strip by strip. `width` is at least 4; the columns
// behind the last whole vector go as a vector that ends with the last column and has slots of its own.
template <class Real>
inline void sweep(const Real *x, std::int64_t rows, std::size_t stride, std::size_t width,
                  const PowerSums &sums)
{
    constexpr std::size_t panel_values = 4096;
    const auto panel = static_cast<std::int64_t>(width < panel_values / 8 ? panel_values / width : 8);
    const std::size_t whole = width / lanes * lanes;
    for (std::int64_t done = 0; done < rows; done += panel) {
        const std::int64_t count = rows - done < panel ? rows - done : panel;
        const Real *top = x + static_cast<std::size_t>(done) * stride;
        std::size_t column = 0;
        for (; column + 2 * lanes <= whole; column += 2 * lanes)
            sweep_strip<2>(top + column, count, stride, sums, column);
        if (column < whole) sweep_strip<1>(top + column, count, stride, sums, column);
        if (whole < width) sweep_strip<1>(top + width - lanes, count, stride, sums, whole);
    }
}

inline void clear(const PowerSums &sums, std::size_t slots)
{
    for (std::size_t k = 0; k < slots; ++k) {
        sums.s1[k] = sums.s2[k] = sums.s3[k] = sums.s4[k] = 0;
        sums.low[k] = infinite;
        sums.high[k] = -infinite;
    }
}

// The shift of a column is the mean of the first sixteenth of its rows. A part f of the rows cannot have its
// mean more than sqrt((1 - f) / f) standard deviations from the mean of the whole. With f at least 1/32, the
// least that rounding down to whole rows leaves, that bounds what the conversion to central moments can lose,
// whatever the data.
inline std::int64_t leading_rows(std::int64_t rows)
{
    return rows < 32 ? 1 : rows / 16;
}

// step[k] is how far the mean of the leading rows of column k lies from its first value: 0 for equal values.
template <class Real>
inline void leading_steps(const Real *x, std::int64_t rows, std::size_t stride, std::size_t width,
                          double *step)
{
    const std::int64_t leading = leading_rows(rows);
    for (std::size_t k = 0; k < width; ++k) step[k] = 0;
    for (std::int64_t i = 1; i < leading; ++i) {
        const Real *row = x + static_cast<std::size_t>(i) * stride;
        for (std::size_t k = 0; k < width; ++k)
            step[k] += static_cast<double>(row[k]) - static_cast<double>(x[k]);
    }
    for (std::size_t k = 0; k < width; ++k) step[k] /= static_cast<double>(leading);
}

// The mean from the sum about `shift`, as the sum of two doubles.
inline void set_mean(const Moments &block, std::size_t j, double shift, double sum, double mass)
{
    const double step = sum / mass, mean = shift + step;
    const double rounded_step = mean - shift;
    block[Moments::mean][j] = mean;
    block[Moments::mean_low][j] = (shift - (mean - rounded_step)) + (step - rounded_step);
}

// Central moments from power sums about a point: the mean lies d beside it.
inline void set_moments(const Moments &block, std::size_t j, double d, double s2, double s3, double s4,
                        double mass)
{
    const double m2 = s2 - mass * d * d;
    block[Moments::m2][j] = m2 < 0 ? 0 : m2;
    block[Moments::m3][j] = s3 - 3 * d * s2 + 2 * mass * d * d * d;
    block[Moments::m4][j] = s4 - 4 * d * s3 + 6 * d * d * s2 - 3 * mass * d * d * d * d;
}

inline void set_unit_masses(const Moments &block, std::size_t j, double rows)
{
    block[Moments::count][j] = block[Moments::mass][j] = rows;
    block[Moments::divisor][j] = rows - 1;
}

// Many variables: a slot a variable.
template <class Real>
void wide_block(const Real *x, std::int64_t rows, std::size_t stride, std::size_t p, double *scratch,
                const Moments &block)
{
    const std::size_t slots = padded_size(p), whole = p / lanes * lanes;
    const PowerSums sums(scratch, slots);
    leading_steps(x, rows, stride, p, sums.s1);
    for (std::size_t k = 0; k < slots; ++k) {
        const std::size_t j = k < whole ? k : k - whole + p - lanes;
        sums.shift[k] = x[j] + sums.s1[j];
    }
    clear(sums, slots);
    sweep(x, rows, stride, p, sums);
    const auto n = static_cast<double>(rows);
    for (std::size_t j = 0; j < p; ++j) {
        const std::size_t k = j < whole ? j : j + whole + lanes - p;
        block[Moments::minimum][j] = sums.low[k];
        block[Moments::maximum][j] = sums.high[k];
        set_unit_masses(block, j, n);
        set_mean(block, j, sums.shift[k], sums.s1[k], n);
        set_moments(block, j, sums.s1[k] / n, sums.s2[k], sums.s3[k], sums.s4[k], n);
    }
}

// Few variables: 16 / gcd(16, p) contiguous rows are one group, as wide as a whole number of strips, in which
// each variable has several slots. The rows behind the last whole group are added one by one.
template <class Real>
void grouped_block(const Real *x, std::int64_t rows, std::size_t p, double *scratch, const Moments &block)
{
    const std::size_t odd_part = p >> __builtin_ctzll(p);
    const std::size_t width = 16 * odd_part; // p has at most three factors of 2
    const auto group = static_cast<std::int64_t>(width / p);
    const std::int64_t groups = rows / group;
    const PowerSums sums(scratch, width);
    if (groups > 0) leading_steps(x, groups, width, width, sums.s1);
    for (std::size_t j = 0; j < p; ++j) {
        const double first = x[j];
        double step = 0;
        for (std::size_t k = j; groups > 0 && k < width; k += p) step += (x[k] - first) + sums.s1[k];
        for (std::size_t k = j; k < width; k += p) sums.shift[k] = first + step / static_cast<double>(group);
    }
    clear(sums, width);
    sweep(x, groups, width, width, sums);
    const Real *rest = x + static_cast<std::size_t>(groups) * width;
    const auto rest_size = static_cast<std::size_t>(rows % group) * p;
    for (std::size_t k = 0; k < rest_size; ++k) {
        const double v = rest[k], d = v - sums.shift[k], square = d * d;
        sums.s1[k] += d;
        sums.s2[k] += square;
        sums.s3[k] += square * d;
        sums.s4[k] += square * square;
        sums.low[k] = v < sums.low[k] ? v : sums.low[k];
        sums.high[k] = v > sums.high[k] ? v : sums.high[k];
    }
    const auto n = static_cast<double>(rows);
    for (std::size_t j = 0; j < p; ++j) {
        double s1 = sums.s1[j], s2 = sums.s2[j], s3 = sums.s3[j], s4 = sums.s4[j];
        double low = sums.low[j], high = sums.high[j];
        for (std::size_t k = j + p; k < width; k += p) {
            s1 += sums.s1[k];
            s2 += sums.s2[k];
            s3 += sums.s3[k];
            s4 += sums.s4[k];
            low = sums.low[k] < low ? sums.low[k] : low;
            high = sums.high[k] > high ? sums.high[k] : high;
        }
        block[Moments::minimum][j] = low;
        block[Moments::maximum][j] = high;
        set_unit_masses(block, j, n);
        set_mean(block, j, sums.shift[j], s1, n);
        set_moments(block, j, s1 / n, s2, s3, s4, n);
    }
}

template <class Real>
void block_moments(const Real *x, std::int64_t rows, std::size_t stride, std::size_t n_variables,
                   double *scratch, const Moments &block)
{
    if (n_variables > most_grouped_variables) wide_block(x, rows, stride, n_variables, scratch, block);
    else grouped_block(x, rows, n_variables, scratch, block);
}

inline double sum_lanes(V v)
{
    return (v[0] + v[1]) + (v[2] + v[3]);
}

void weighted_moments(const double *x, const double *mass, std::size_t n, const Moments &block, std::size_t j)
{
    // The first sweep gives mass, extremes and a mean about the first value that has mass: one without any
    // must not cost the others their digits.
    std::size_t first = 0;
    while (first + 1 < n && !(mass[first] > 0)) ++first;
    const double shift = x[first];
    V masses = broadcast(0), pairs = broadcast(0), sums = broadcast(0);
    V lows = broadcast(infinite), highs = broadcast(-infinite);
    const std::size_t whole = n / lanes * lanes;
    for (std::size_t i = 0; i < whole; i += lanes) {
        const V v = load(x + i), m = load(mass + i);
        pairs += m * masses;
        masses += m;
        sums += m * (v - shift);
        lows = v < lows ? v : lows;
        highs = v > highs ? v : highs;
    }
    double total = 0, pair = 0, sum = sum_lanes(sums), low = infinite, high = -infinite;
    for (std::size_t k = 0; k < lanes; ++k) {
        pair += pairs[k] + total * masses[k];
        total += masses[k];
        low = lows[k] < low ? lows[k] : low;
        high = highs[k] > high ? highs[k] : high;
    }
    for (std::size_t i = whole; i < n; ++i) {
        pair += mass[i] * total;
        total += mass[i];
        sum += mass[i] * (x[i] - shift);
        low = x[i] < low ? x[i] : low;
        high = x[i] > high ? x[i] : high;
    }
    block[Moments::mass][j] = total;
    block[Moments::divisor][j] = total > 0 ? 2 * (pair / total) : 0;
    block[Moments::minimum][j] = low;
    block[Moments::maximum][j] = high;
    const double center = total > 0 ? shift + sum / total : 0;

    // The second sweep takes powers about that mean, the first one among them: what the first sweep's mean
    // lacks, should its shift have been an outlier of little mass, the set-up of the moments makes good.
    V p1 = broadcast(0), p2 = broadcast(0), p3 = broadcast(0), p4 = broadcast(0);
    for (std::size_t i = 0; i < whole; i += lanes) {
        const V d = load(x + i) - center, d2 = d * d, m = load(mass + i);
        const V md2 = m * d2;
        p1 += m * d;
        p2 += md2;
        p3 += md2 * d;
        p4 += md2 * d2;
    }
    double q1 = sum_lanes(p1), q2 = sum_lanes(p2), q3 = sum_lanes(p3), q4 = sum_lanes(p4);
    for (std::size_t i = whole; i < n; ++i) {
        const double d = x[i] - center, d2 = d * d, md2 = mass[i] * d2;
        q1 += mass[i] * d;
        q2 += md2;
        q3 += md2 * d;
        q4 += md2 * d2;
    }
    if (total > 0) {
        set_mean(block, j, center, q1, total);
        set_moments(block, j, q1 / total, q2, q3, q4, total);
    } else {
        constexpr Moments::Field without_mass[] = {Moments::mean, Moments::mean_low, Moments::m2, Moments::m3,
                                                   Moments::m4};
        for (Moments::Field field : without_mass) block[field][j] = 0;
    }
}

inline V absolute(V v)
{
    return v < 0 ? -v : v;
}

void merge_moments(const Moments &total, const Moments &block)
{
    const V zero = broadcast(0), largest = broadcast(__DBL_MAX__), nan = broadcast(undefined);
    for (std::size_t j = 0; j < total.padded; j += lanes) {
        const auto of_total = [&](Moments::Field field) { return load(total[field] + j); };
        const auto of_block = [&](Moments::Field field) { return load(block[field] + j); };
        const auto set = [&](Moments::Field field, V v) { store(total[field] + j, v); };

        set(Moments::count, of_total(Moments::count) + of_block(Moments::count));
        const V low = of_block(Moments::minimum), high = of_block(Moments::maximum);
        const V old_low = of_total(Moments::minimum), old_high = of_total(Moments::maximum);
        // The minimum and maximum of no value are NaN, which the first value replaces.
        set(Moments::minimum, old_low <= low ? old_low : (low <= low ? low : old_low));
        set(Moments::maximum, old_high >= high ? old_high : (high >= high ? high : old_high));

        const V wa = of_total(Moments::mass), wb = of_block(Moments::mass), w = wa + wb;
        set(Moments::mass, w);
        const VMask a_empty = wa == zero, b_empty = wb == zero;
        const V not_zero = w == zero ? broadcast(1) : w;
        const V ra = wa / not_zero, rb = wb / not_zero;
        set(Moments::divisor,
            ra * of_total(Moments::divisor) + rb * of_block(Moments::divisor) + 2 * wa * rb);

        const V ma = of_total(Moments::mean), mb = of_block(Moments::mean);
        const V la = of_total(Moments::mean_low), lb = of_block(Moments::mean_low);
        V d = (mb - ma) + (lb - la);
        d = a_empty | b_empty ? zero : d;
        const VMask overflow = absolute(d) > largest;
        const V step = overflow ? rb * mb - rb * ma : rb * d;
        const V sum = ma + step, rounded_step = sum - ma;
        const V error = (ma - (sum - rounded_step)) + (step - rounded_step);
        V low_part = la + error;
        V mean = sum + low_part;
        low_part = (sum - mean) + low_part;
        mean = a_empty ? mb : (b_empty ? ma : mean);
        low_part = a_empty ? lb : (b_empty ? la : low_part);

        const V m2a = of_total(Moments::m2), m2b = of_block(Moments::m2);
        const V m3a = of_total(Moments::m3), m3b = of_block(Moments::m3);
        const V d2 = d * d, cross = wa * rb;
        V m2 = m2a + m2b + d2 * cross;
        V m3 = m3a + m3b + d2 * d * cross * (ra - rb) + 3 * d * (ra * m2b - rb * m2a);
        V m4 = of_total(Moments::m4) + of_block(Moments::m4) +
               d2 * d2 * cross * (ra * ra - ra * rb + rb * rb) + 6 * d2 * (ra * ra * m2b + rb * rb * m2a) +
               4 * d * (ra * m3b - rb * m3a);

        // An infinite mean is what the infinite values among the data make it, and it stays.
        const VMask finite = (absolute(ma) <= largest) & (absolute(mb) <= largest);
        if (any(~finite)) {
            const V plain_sum = a_empty ? mb : (b_empty ? ma : ma + mb);
            mean = finite ? mean : plain_sum;
            low_part = finite ? low_part : zero;
            m2 = finite ? m2 : nan;
            m3 = finite ? m3 : nan;
            m4 = finite ? m4 : nan;
        }
        set(Moments::mean, mean);
        set(Moments::mean_low, low_part);
        set(Moments::m2, m2);
        set(Moments::m3, m3);
        set(Moments::m4, m4);
    }
}

constexpr MomentKernels kernels_of_this_level = {block_moments<float>, block_moments<double>,
                                                 weighted_moments, merge_moments};

} // namespace
} // namespace tavik::descriptive
