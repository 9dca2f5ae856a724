// Training patterns as inputs of a network, and what their distribution gives for first-layer weights.
//
// Directions in the space of the inputs: the principal components of their correlation matrix, and the canonical
// discriminant functions of classes (Rao 1948), which are the directions in which classes differ most beside the spread
// within them. Both are found on standardised inputs, so they do not depend on units.
#pragma once

#include "numerical/eig_sym.hpp"

#include "frame/workspace.hpp"

#include <algorithm>
#include <cmath>

namespace tavik::datamining {

// Inputs are the nominal columns, 0 or 1, then the continuous ones.
template <class Real> struct Patterns {
    int n, n_nominal, n_continuous;
    const int *nominal;
    const Real *continuous;
    int *used = nullptr; // those whose values are all finite
    int n_used = 0;

    int n_inputs() const
    {
        return n_nominal + n_continuous;
    }

    // False, with an error, without memory.
    bool find_used(Workspace &workspace)
    {
        used = workspace.array<int>(static_cast<std::size_t>(n), "n_patterns");
        for (int p = 0; used != nullptr && p < n; ++p) {
            const Real *row = continuous + at(p, n_continuous);
            if (std::all_of(row, row + n_continuous, [](Real x) { return std::isfinite(x); }))
                used[n_used++] = p;
        }
        return used != nullptr;
    }

    double value(int pattern, int input) const
    {
        if (input < n_nominal) return nominal[at(pattern, n_nominal) + static_cast<std::size_t>(input)];
        return continuous[at(pattern, n_continuous) + static_cast<std::size_t>(input - n_nominal)];
    }

private:
    static std::size_t at(int pattern, int columns)
    {
        return static_cast<std::size_t>(pattern) * static_cast<std::size_t>(columns);
    }
};

// Directions found on standardised inputs, as weights of the inputs themselves.
struct Directions {
    double *means = nullptr, *deviations = nullptr; // of the inputs
    double *vectors = nullptr;                      // n_inputs x n_inputs, in columns
    int n_inputs = 0, count = 0;

    double weight(int input, int direction) const
    {
        const auto i = static_cast<std::size_t>(input), n = static_cast<std::size_t>(n_inputs);
        return deviations[i] > 0 ? vectors[i * n + static_cast<std::size_t>(direction)] / deviations[i] : 0;
    }
};

// What varies less than this, beside a standardised input, is rounding.
constexpr double least_variance = 1e-10;

template <class Real> class DirectionFinder {
public:
    // False, with an error, without memory.
    bool prepare(const Patterns<Real> &patterns, Workspace &workspace)
    {
        patterns_ = &patterns;
        const std::size_t n = n_ = static_cast<std::size_t>(patterns.n_inputs());
        directions_.n_inputs = patterns.n_inputs();
        directions_.means = workspace.array<double>(n, "n_inputs");
        directions_.deviations = workspace.array<double>(n, "n_inputs");
        directions_.vectors = workspace.array<double>(n * n, "n_inputs");
        matrix_ = workspace.array<double>(n * n, "n_inputs");
        values_ = workspace.array<double>(n, "n_inputs");
        row_ = workspace.array<double>(n, "n_inputs");
        if (fatal_pending()) return false;
        standardise();
        return true;
    }

    Directions principal_components()
    {
        std::fill_n(directions_.vectors, n_ * n_, 0.0);
        for (int k = 0; k < patterns_->n_used; ++k) {
            read(patterns_->used[k]);
            add_square(row_, directions_.vectors);
        }
        divide(directions_.vectors, patterns_->n_used - 1);
        if (numerical::eigenvectors(n_, directions_.vectors, values_)) count_directions(n_, values_[0]);
        return directions_;
    }

    // `poor` when the functions put no more patterns into their class than the largest class has. False, with an error,
    // without memory.
    bool discriminants(const int *classes, int n_classes, Workspace &workspace, Directions &found, bool &poor)
    {
        const auto k = static_cast<std::size_t>(n_classes);
        sizes_ = workspace.array<int>(k, "n_classes");
        centres_ = workspace.array<double>(k * n_, "n_classes");
        scores_ = workspace.array<double>((k + 1) * n_, "n_classes");
        if (fatal_pending()) return false;
        find_centres(classes, n_classes);
        poor = true;
        if (whiten(classes) && separate(n_classes)) {
            count_directions(std::min(n_, k - 1), 1);
            poor = count_right(classes, n_classes) <= *std::max_element(sizes_, sizes_ + k);
        }
        found = directions_;
        return true;
    }

private:
    double *centre(int c) const
    {
        return centres_ + static_cast<std::size_t>(c) * n_;
    }

    void standardise()
    {
        for (std::size_t j = 0; j < n_; ++j) {
            double mean = 0, square = 0;
            const int input = static_cast<int>(j), n_used = patterns_->n_used;
            for (int k = 0; k < n_used; ++k)
                mean += (patterns_->value(patterns_->used[k], input) - mean) / (k + 1);
            for (int k = 0; k < n_used; ++k) {
                const double difference = patterns_->value(patterns_->used[k], input) - mean;
                square += difference * difference;
            }
            directions_.means[j] = mean;
            directions_.deviations[j] = n_used > 1 ? std::sqrt(square / (n_used - 1)) : 0;
        }
    }

    // A pattern, standardised; a constant input is 0.
    void read(int pattern) const
    {
        for (std::size_t j = 0; j < n_; ++j) {
            const double deviation = directions_.deviations[j],
                         difference = patterns_->value(pattern, static_cast<int>(j)) - directions_.means[j];
            row_[j] = deviation > 0 ? difference / deviation : 0;
        }
    }

    // The lower triangle.
    void add_square(const double *x, double *sums, double mass = 1) const
    {
        for (std::size_t i = 0; i < n_; ++i) {
            for (std::size_t j = 0; j <= i; ++j) sums[i * n_ + j] += mass * x[i] * x[j];
        }
    }

    void divide(double *sums, int by) const
    {
        for (std::size_t k = 0; k < n_ * n_; ++k) sums[k] /= std::max(by, 1);
    }

    void count_directions(std::size_t most, double scale)
    {
        while (directions_.count < static_cast<int>(most) &&
               values_[directions_.count] > least_variance * scale)
            ++directions_.count;
    }

    void find_centres(const int *classes, int n_classes)
    {
        std::fill_n(sizes_, n_classes, 0);
        std::fill_n(centres_, static_cast<std::size_t>(n_classes) * n_, 0.0);
        for (int k = 0; k < patterns_->n_used; ++k) {
            const int pattern = patterns_->used[k], c = classes[pattern];
            read(pattern);
            ++sizes_[c];
            for (std::size_t j = 0; j < n_; ++j) centre(c)[j] += (row_[j] - centre(c)[j]) / sizes_[c];
        }
    }

    // The matrix becomes the one that makes the spread within classes 1 in all directions. Where there is none, it
    // counts as the least: classes that differ there are told apart well.
    bool whiten(const int *classes)
    {
        std::fill_n(matrix_, n_ * n_, 0.0);
        for (int k = 0; k < patterns_->n_used; ++k) {
            const int pattern = patterns_->used[k];
            read(pattern);
            for (std::size_t j = 0; j < n_; ++j) row_[j] -= centre(classes[pattern])[j];
            add_square(row_, matrix_);
        }
        divide(matrix_, patterns_->n_used);
        if (!numerical::eigenvectors(n_, matrix_, values_)) return false;
        for (std::size_t k = 0; k < n_ * n_; ++k)
            matrix_[k] /= std::sqrt(std::max(values_[k % n_], least_variance));
        return true;
    }

    // Turns that matrix so that its columns are the discriminant functions.
    bool separate(int n_classes)
    {
        double *between = directions_.vectors, *whitened = scores_;
        std::fill_n(between, n_ * n_, 0.0);
        for (int c = 0; c < n_classes; ++c) {
            multiply(centre(c), matrix_, n_, whitened);
            add_square(whitened, between, sizes_[c]);
        }
        divide(between, patterns_->n_used);
        if (!numerical::eigenvectors(n_, between, values_)) return false;
        for (std::size_t i = 0; i < n_; ++i) {
            std::copy_n(matrix_ + i * n_, n_, row_);
            multiply(row_, between, n_, matrix_ + i * n_);
        }
        for (std::size_t k = 0; k < n_; ++k) copy_direction(k);
        return true;
    }

    // So that its largest element is positive, as in eigenvectors.
    void copy_direction(std::size_t k) const
    {
        double largest = 0;
        for (std::size_t i = 0; i < n_; ++i) {
            if (std::fabs(matrix_[i * n_ + k]) > std::fabs(largest)) largest = matrix_[i * n_ + k];
        }
        for (std::size_t i = 0; i < n_; ++i)
            directions_.vectors[i * n_ + k] = std::copysign(1, largest) * matrix_[i * n_ + k];
    }

    // The first `columns` elements of x' m.
    void multiply(const double *x, const double *m, std::size_t columns, double *product) const
    {
        std::fill_n(product, columns, 0.0);
        for (std::size_t i = 0; i < n_; ++i) {
            for (std::size_t j = 0; j < columns; ++j) product[j] += x[i] * m[i * n_ + j];
        }
    }

    // Patterns that are closest to the centre of their own class in the space of the functions.
    int count_right(const int *classes, int n_classes) const
    {
        const auto m = static_cast<std::size_t>(directions_.count);
        double *score = scores_ + static_cast<std::size_t>(n_classes) * n_;
        for (int c = 0; c < n_classes; ++c)
            multiply(centre(c), directions_.vectors, m, scores_ + static_cast<std::size_t>(c) * n_);
        int right = 0;
        for (int k = 0; k < patterns_->n_used; ++k) {
            const int pattern = patterns_->used[k];
            read(pattern);
            multiply(row_, directions_.vectors, m, score);
            int closest = -1;
            double least = 0;
            for (int c = 0; c < n_classes; ++c) {
                if (sizes_[c] == 0) continue;
                const double *of_class = scores_ + static_cast<std::size_t>(c) * n_;
                double square = 0;
                for (std::size_t j = 0; j < m; ++j)
                    square += (score[j] - of_class[j]) * (score[j] - of_class[j]);
                if (closest >= 0 && !(square < least)) continue;
                closest = c;
                least = square;
            }
            right += closest == classes[pattern];
        }
        return right;
    }

    const Patterns<Real> *patterns_ = nullptr;
    std::size_t n_ = 0;
    Directions directions_;
    double *matrix_ = nullptr, *values_ = nullptr, *row_ = nullptr;
    int *sizes_ = nullptr;      // of the classes
    double *centres_ = nullptr; // of the classes, standardised
    double *scores_ = nullptr;  // of the centres, and of a pattern
};

} // namespace tavik::datamining
