// Directions in the space of a network's inputs: the principal components of their correlation matrix, and the
// canonical discriminant functions of classes (Rao 1948), in which classes differ most beside the spread within them.
//
// Both are found on standardised inputs, so they do not depend on units. For the discriminant functions, T makes the
// spread within classes W the identity, T'WT = I; the eigenvectors of T'BT, with the spread between classes B, turn T
// into them.
#pragma once

#include "patterns.hpp"

#include "numerical/symmetric_eigensystem.hpp"

#include "frame/error.hpp"

namespace tavik::datamining {

// Directions found on standardised inputs, as weights of the inputs themselves.
struct Directions {
    double *deviations = nullptr; // of the inputs
    double *vectors = nullptr;    // n_inputs x n_inputs, in columns
    int n_inputs = 0, count = 0;

    double weight(int input, int direction) const
    {
        const auto i = static_cast<std::size_t>(input), n = static_cast<std::size_t>(n_inputs);
        return deviations[i] > 0 ? vectors[i * n + static_cast<std::size_t>(direction)] / deviations[i] : 0;
    }
};

// What varies less than this, beside a standardised input, may be the rounding of data with many equal digits.
constexpr double least_variance = 1e-10;

template <class Real> class DirectionFinder {
public:
    // False, with an error, without memory.
    bool prepare(const Patterns<Real> &patterns, Workspace &workspace)
    {
        patterns_ = &patterns;
        const std::size_t n = n_ = static_cast<std::size_t>(patterns.n_inputs());
        directions_.n_inputs = patterns.n_inputs();
        directions_.deviations = workspace.array<double>(n);
        directions_.vectors = workspace.array<double>(n * n);
        values_ = workspace.array<double>(n);
        row_ = workspace.array<double>(n);
        if (fatal_pending()) return false;
        for (int input = 0; input < patterns.n_inputs(); ++input)
            directions_.deviations[input] =
                standard_deviation(patterns.n_used, [&](int k) { return patterns.deviation(k, input); });
        return true;
    }

    Directions principal_components()
    {
        std::fill_n(directions_.vectors, n_ * n_, 0.0);
        for (int k = 0; k < patterns_->n_used; ++k) {
            standardise_into_row(k);
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
        sizes_ = workspace.array<int>(k);
        centres_ = workspace.array<double>(k * n_);
        scores_ = workspace.array<double>((k + 1) * n_);
        whitening_ = workspace.array<double>(n_ * n_);
        between_ = workspace.array<double>(n_ * n_);
        if (fatal_pending()) return false;
        find_centres(classes, n_classes);
        poor = true;
        if (whiten(classes) && separate(n_classes)) {
            const auto present = k - static_cast<std::size_t>(std::count(sizes_, sizes_ + k, 0));
            if (present > 0) count_directions(std::min(n_, present - 1), std::max(1.0, values_[0]));
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

    // A constant input is 0.
    void standardise_into_row(int k) const
    {
        for (std::size_t j = 0; j < n_; ++j) {
            const double deviation = directions_.deviations[j];
            row_[j] = deviation > 0 ? patterns_->deviation(k, static_cast<int>(j)) / deviation : 0;
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
            const int c = classes[patterns_->used[k]];
            standardise_into_row(k);
            ++sizes_[c];
            for (std::size_t j = 0; j < n_; ++j) centre(c)[j] += (row_[j] - centre(c)[j]) / sizes_[c];
        }
    }

    // T. Where classes do not spread at all, the spread counts as the least: classes that differ there are told apart
    // well.
    bool whiten(const int *classes)
    {
        std::fill_n(whitening_, n_ * n_, 0.0);
        for (int k = 0; k < patterns_->n_used; ++k) {
            standardise_into_row(k);
            const double *own = centre(classes[patterns_->used[k]]);
            for (std::size_t j = 0; j < n_; ++j) row_[j] -= own[j];
            add_square(row_, whitening_);
        }
        divide(whitening_, patterns_->n_used);
        if (!numerical::eigenvectors(n_, whitening_, values_)) return false;
        for (std::size_t k = 0; k < n_ * n_; ++k)
            whitening_[k] /= std::sqrt(std::max(values_[k % n_], least_variance));
        return true;
    }

    // T times the eigenvectors of T'BT. The mean of all patterns is 0.
    bool separate(int n_classes)
    {
        std::fill_n(between_, n_ * n_, 0.0);
        for (int c = 0; c < n_classes; ++c) {
            multiply(centre(c), whitening_, n_, row_);
            add_square(row_, between_, sizes_[c]);
        }
        divide(between_, patterns_->n_used);
        if (!numerical::eigenvectors(n_, between_, values_)) return false;
        for (std::size_t i = 0; i < n_; ++i)
            multiply(whitening_ + i * n_, between_, n_, directions_.vectors + i * n_);
        for (std::size_t k = 0; k < n_; ++k) set_sign(k);
        return true;
    }

    // So that the largest element is positive, as in eigenvectors.
    void set_sign(std::size_t k) const
    {
        double largest = 0;
        for (std::size_t i = 0; i < n_; ++i) {
            if (std::fabs(directions_.vectors[i * n_ + k]) > std::fabs(largest))
                largest = directions_.vectors[i * n_ + k];
        }
        for (std::size_t i = 0; i < n_ && largest < 0; ++i) directions_.vectors[i * n_ + k] *= -1;
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
            standardise_into_row(k);
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
            right += closest == classes[patterns_->used[k]];
        }
        return right;
    }

    const Patterns<Real> *patterns_ = nullptr;
    std::size_t n_ = 0;
    Directions directions_;
    double *values_ = nullptr, *row_ = nullptr;
    double *whitening_ = nullptr, *between_ = nullptr; // T, T'BT and its eigenvectors
    int *sizes_ = nullptr;                             // of the classes
    double *centres_ = nullptr;                        // of the classes, standardised
    double *scores_ = nullptr;                         // of the centres, and of a pattern
};

} // namespace tavik::datamining
