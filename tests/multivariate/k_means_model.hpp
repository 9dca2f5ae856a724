// K-means by the optimal and quick transfers of Hartigan and Wong (Applied Statistics 28, 1979, 100-108), in plain
// loops that compute every distance in full and leave out no comparison but those that the live set excludes.
#pragma once

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>
#include <utility>
#include <vector>

namespace model {

using Doubles = std::vector<double>;
constexpr double nan_value = std::numeric_limits<double>::quiet_NaN();
constexpr double inf = std::numeric_limits<double>::infinity();

struct Problem {
    std::size_t n, p, k;
    Doubles x, seeds, mass; // by rows; NaN is missing
    int limit;
};

// Clusters count from 0, but from 1 in `membership`, `history` and `empty`.
struct KMeans : Problem {
    std::vector<int> membership, history, counts;
    Doubles means, ssq;
    int empty = 0; // a cluster that got no mass
    bool converged = false;
    double narrowest = inf; // the least relative difference between values that a decision hung on
    double scale = 0;       // the greatest square of a value
    std::vector<std::size_t> own, second;

    explicit KMeans(Problem problem) : Problem(std::move(problem)), last_change(k), quick(k, true), step(n)
    {
        for (const double v : x) scale = std::max(scale, std::isnan(v) ? 0 : v * v);
        assign();
        summarize();
        for (std::size_t c = k; c-- > 0;) empty = total[c] == 0 ? int(c) + 1 : empty;
        for (int iteration = 0; empty == 0 && !converged && iteration < limit; ++iteration) {
            converged = !optimal_pass();
            if (!converged) quick_stage();
            for (const std::size_t c : own) history.push_back(int(c) + 1);
        }
        for (const std::size_t c : own) membership.push_back(int(c) + 1);
        summarize();
    }

    // Where a membership leads; the best `second` is not looked for.
    KMeans(Problem problem, const std::vector<int> &given) : KMeans((problem.limit = 0, std::move(problem)))
    {
        membership = given;
        for (std::size_t i = 0; i < n; ++i) own[i] = std::size_t(given[i]) - 1;
        summarize();
    }

    double leaving(std::size_t i) const
    {
        const double w = total[own[i]];
        return w / (w - mass[i]) * distance(i, &means[own[i] * p]);
    }

    double joining(std::size_t i, std::size_t c) const
    {
        return total[c] / (total[c] + mass[i]) * distance(i, &means[c * p]);
    }

private:
    std::vector<std::size_t> last_change;
    std::vector<bool> quick; // changed in the last quick-transfer stage; at first, all have
    Doubles total, present;  // masses of a cluster, and of its members that have a variable
    std::size_t step;

    double distance(std::size_t i, const double *centre) const
    {
        double sum = 0;
        for (std::size_t j = 0; j < p; ++j) {
            const double v = x[i * p + j], difference = v - centre[j];
            if (!std::isnan(v)) sum += difference * difference;
        }
        return sum;
    }

    void assign()
    {
        std::vector<std::size_t> by_distance(k); // at equal distances the first seed comes first
        for (std::size_t i = 0; i < n; ++i) {
            std::iota(by_distance.begin(), by_distance.end(), 0);
            std::ranges::stable_sort(by_distance, {}, [&](auto c) { return distance(i, &seeds[c * p]); });
            own.push_back(by_distance[0]);
            second.push_back(by_distance[1]);
        }
    }

    void summarize()
    {
        counts.assign(k, 0);
        total.assign(k, 0);
        ssq.assign(k, 0);
        present.assign(k * p, 0);
        means.assign(k * p, 0);
        for (std::size_t i = 0; i < n; ++i) {
            ++counts[own[i]];
            total[own[i]] += mass[i];
            for (std::size_t j = 0; j < p; ++j) {
                if (std::isnan(x[i * p + j])) continue;
                present[own[i] * p + j] += mass[i];
                means[own[i] * p + j] += mass[i] * x[i * p + j];
            }
        }
        for (std::size_t j = 0; j < k * p; ++j) means[j] /= present[j]; // 0 / 0 where nobody has the variable
        for (std::size_t i = 0; i < n; ++i) ssq[own[i]] += mass[i] * distance(i, &means[own[i] * p]);
    }

    bool smaller(double a, double b)
    {
        const double difference = std::fabs(a - b) / (std::max(a, b) + 1e-8 * scale);
        if ((a != 0 || b != 0) && difference < narrowest) narrowest = difference;
        return a < b;
    }

    bool live(std::size_t c) const
    {
        return quick[c] || step - last_change[c] < n;
    }

    bool optimal_pass()
    {
        bool moved = false;
        for (std::size_t i = 0; i < n; ++i, ++step) {
            if (counts[own[i]] == 1) continue;
            std::size_t best = second[i];
            for (std::size_t c = 0; c < k; ++c) {
                if (c == own[i] || c == second[i] || (!live(c) && !live(own[i]))) continue;
                if (smaller(joining(i, c), joining(i, best))) best = c;
            }
            second[i] = best;
            if (!smaller(joining(i, best), leaving(i))) continue;
            move(i);
            last_change[own[i]] = last_change[second[i]] = step;
            moved = true;
        }
        quick.assign(k, false);
        return moved;
    }

    void quick_stage()
    {
        bool moved = true;
        for (int passes = 0; moved && passes <= 1000; ++passes) {
            moved = false;
            for (std::size_t i = 0; i < n; ++i) {
                if (counts[own[i]] == 1 || !smaller(joining(i, second[i]), leaving(i))) continue;
                move(i);
                quick[own[i]] = quick[second[i]] = moved = true;
            }
        }
        if (moved) narrowest = 0; // rounding turns in a circle
    }

    void move(std::size_t i)
    {
        const std::size_t from = own[i], to = second[i];
        const double w = mass[i];
        for (std::size_t j = 0; j < p; ++j) {
            const double v = x[i * p + j];
            if (std::isnan(v)) continue;
            double &left = means[from * p + j], &entered = means[to * p + j];
            double &had = present[from * p + j], &has = present[to * p + j];
            left = had > w ? (left * had - v * w) / (had - w) : nan_value;
            had = had > w ? had - w : 0;
            entered = std::isnan(entered) ? v : (v * w + entered * has) / (has + w);
            has += w;
        }
        total[from] -= w;
        total[to] += w;
        --counts[from];
        ++counts[to];
        std::swap(own[i], second[i]);
    }
};

} // namespace model
