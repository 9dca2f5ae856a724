// From the caller's rows to block moments: applies frequencies, weights and missing values, block by block
// and without a copy of the data.
#pragma once

#include "moments.hpp"

#include "frame/checkers.hpp"
#include "frame/precision.hpp"
#include "frame/workspace.hpp"

#include <algorithm>
#include <cstring>

namespace tavik::descriptive {

// The rows of one call.
template <class Real> struct Rows {
    const Real *x;
    std::int64_t n;
    std::size_t n_variables, stride;
    const Real *frequencies, *weights; // null: all ones
    bool listwise;                     // a missing element drops its row

    bool has_masses() const
    {
        return frequencies != nullptr || weights != nullptr;
    }

    double frequency(std::int64_t row) const
    {
        return frequencies != nullptr ? static_cast<double>(frequencies[row]) : 1;
    }

    double weight(std::int64_t row) const
    {
        return weights != nullptr ? static_cast<double>(weights[row]) : 1;
    }
};

// What becomes of a row: a NaN frequency or weight makes it missing, a frequency of 0 leaves it out.
enum class RowUse { used, left_out, missing };

template <class Real> RowUse use_of_row(const Rows<Real> &rows, std::int64_t row)
{
    const double f = rows.frequency(row), w = rows.weight(row);
    if (std::isnan(f) || std::isnan(w)) return RowUse::missing;
    if (f == 0) return RowUse::left_out;
    if (rows.listwise) {
        const Real *x = rows.x + static_cast<std::size_t>(row) * rows.stride;
        for (std::size_t j = 0; j < rows.n_variables; ++j) {
            if (std::isnan(x[j])) return RowUse::missing;
        }
    }
    return RowUse::used;
}

// The first negative or infinite frequency or weight in the order of the rows raises 4, 11055, in stages
// 11054.
template <class Real> bool check_masses(const Rows<Real> &rows, bool staged)
{
    const auto bad = [](double mass) { return mass < 0 || std::isinf(mass); };
    for (std::int64_t row = 0; rows.has_masses() && row < rows.n; ++row) {
        const double f = rows.frequency(row), w = rows.weight(row);
        if (std::isnan(f) || std::isnan(w) || f == 0 || (!bad(f) && !bad(w))) continue;
        // Frequencies stand behind the variables, weights behind both.
        const bool is_weight = !bad(f);
        const int column =
            static_cast<int>(rows.n_variables) + 1 + (is_weight && rows.frequencies != nullptr);
        tavik_e1sti(1, column);
        tavik_e1std(1, is_weight ? w : f);
        tavik_e1sti(2, static_cast<int>(row + 1));
        tavik_ermes(fatal, staged ? 11054 : 11055);
        return false;
    }
    return true;
}

// Reads blocks for one thread, which has the cache line of its flags to itself.
template <class Real> class alignas(64) RowReader {
public:
    // Takes its arrays from the workspace. False when there is no memory.
    bool prepare(const Rows<Real> &rows, Workspace &workspace)
    {
        rows_ = &rows;
        const auto p = static_cast<std::int64_t>(rows.n_variables);
        most_rows_ = static_cast<std::size_t>(rows_per_block(p));
        const std::size_t size =
            static_cast<std::size_t>(blocks_per_piece(p)) * moments_size(rows.n_variables);
        blocks_ = workspace.array<double>(size, "n_variables");
        scratch_ = workspace.array<double>(block_scratch_size(rows.n_variables), "n_variables");
        value_ = workspace.array<double>(most_rows_);
        if (blocks_ == nullptr || scratch_ == nullptr || value_ == nullptr) return false;
        std::fill_n(blocks_, size, 0.0); // the padding, too
        packs_ = rows.n_variables <= most_grouped_variables && rows.stride != rows.n_variables;
        if (packs_) packed_ = workspace.array<Real>(most_rows_ * rows.n_variables);
        selects_ = rows.has_masses() || rows.listwise;
        if (selects_) {
            row_ = workspace.array<std::size_t>(most_rows_);
            frequency_ = workspace.array<double>(most_rows_);
            mass_ = workspace.array<double>(most_rows_);
            value_mass_ = workspace.array<double>(most_rows_);
        }
        return !fatal_pending();
    }

    // Moments of a piece, block by block: `count` rows from `first` on, as block `block` of the piece.
    void read(std::int64_t first, std::int64_t count, std::int64_t block)
    {
        block_ = moments_of(block);
        const Real *x = rows_->x + static_cast<std::size_t>(first) * rows_->stride;
        if (!rows_->has_masses() && read_whole(count, x)) return;
        if (selects_) read_selected(first, count, x);
        else read_present(count, x);
    }

    Moments moments_of(std::int64_t block) const
    {
        return {blocks_ + static_cast<std::size_t>(block) * moments_size(rows_->n_variables),
                padded_size(rows_->n_variables)};
    }

    bool met_missing() const
    {
        return met_missing_;
    }

private:
    static void call_block(const float *x, std::int64_t rows, std::size_t stride, std::size_t p,
                           double *scratch, const Moments &block)
    {
        moment_kernels().block_f(x, rows, stride, p, scratch, block);
    }

    static void call_block(const double *x, std::int64_t rows, std::size_t stride, std::size_t p,
                           double *scratch, const Moments &block)
    {
        moment_kernels().block_d(x, rows, stride, p, scratch, block);
    }

    // Every row has mass 1: the fast kernel takes the block whole. False when it met values that are not
    // finite.
    bool read_whole(std::int64_t count, const Real *x)
    {
        const std::size_t p = rows_->n_variables;
        const Real *source = packs_ ? pack(count, x) : x;
        call_block(source, count, packs_ ? p : rows_->stride, p, scratch_, block_);
        const double *mean = block_[Moments::mean];
        return std::all_of(mean, mean + p, [](double m) { return std::isfinite(m); });
    }

    // Behind read_whole: the variables that it could not do are done one by one from their values that are
    // present.
    void read_present(std::int64_t count, const Real *x)
    {
        for (std::size_t j = 0; j < rows_->n_variables; ++j) {
            if (std::isfinite(block_[Moments::mean][j])) continue;
            std::size_t n = 0;
            for (std::int64_t i = 0; i < count; ++i) {
                value_[n] = static_cast<double>(x[static_cast<std::size_t>(i) * rows_->stride + j]);
                n += !std::isnan(value_[n]);
            }
            met_missing_ = met_missing_ || n < static_cast<std::size_t>(count);
            set_column(j, n, nullptr, static_cast<double>(n));
        }
    }

    const Real *pack(std::int64_t count, const Real *x)
    {
        const std::size_t p = rows_->n_variables;
        for (std::size_t i = 0; i < static_cast<std::size_t>(count); ++i)
            std::memcpy(packed_ + i * p, x + i * rows_->stride, p * sizeof(Real));
        return packed_;
    }

    // Rows have masses, or some are dropped: lists those that are used, then gathers each variable from them.
    void read_selected(std::int64_t first, std::int64_t count, const Real *x)
    {
        std::size_t used = 0;
        for (std::int64_t i = 0; i < count; ++i) {
            const RowUse use = use_of_row(*rows_, first + i);
            met_missing_ = met_missing_ || use == RowUse::missing;
            if (use != RowUse::used) continue;
            row_[used] = static_cast<std::size_t>(i) * rows_->stride;
            frequency_[used] = rows_->frequency(first + i);
            mass_[used] = frequency_[used] * rows_->weight(first + i);
            ++used;
        }
        for (std::size_t j = 0; j < rows_->n_variables; ++j) {
            std::size_t n = 0;
            double frequencies = 0;
            for (std::size_t i = 0; i < used; ++i) {
                const auto value = static_cast<double>(x[row_[i] + j]);
                const bool present = !std::isnan(value);
                value_[n] = value;
                value_mass_[n] = mass_[i];
                frequencies += present ? frequency_[i] : 0;
                n += present;
            }
            met_missing_ = met_missing_ || n < used;
            set_column(j, n, rows_->has_masses() ? value_mass_ : nullptr, frequencies);
        }
    }

    // Variable j of the block from the n values that were gathered.
    void set_column(std::size_t j, std::size_t n, const double *mass, double frequencies)
    {
        const Moments column{block_.data + j, block_.padded};
        if (n == 0) set_extraordinary_moments(value_, mass, 0, column, 0);
        else if (mass != nullptr) moment_kernels().weighted(value_, mass, n, column, 0);
        else moment_kernels().block_d(value_, static_cast<std::int64_t>(n), 1, 1, scratch_, column);
        if (!std::isfinite(column[Moments::mean][0])) set_extraordinary_moments(value_, mass, n, column, 0);
        column[Moments::count][0] = frequencies;
    }

    const Rows<Real> *rows_ = nullptr;
    std::size_t most_rows_ = 0;
    bool packs_ = false, selects_ = false, met_missing_ = false;
    double *blocks_ = nullptr; // moments of the blocks of a piece
    Moments block_{};          // those of the block that is read
    double *scratch_ = nullptr;
    Real *packed_ = nullptr;
    std::size_t *row_ = nullptr;                      // offsets of the rows that are used,
    double *frequency_ = nullptr, *mass_ = nullptr;   // their frequencies and masses
    double *value_ = nullptr, *value_mass_ = nullptr; // values of one variable that are not missing
};

} // namespace tavik::descriptive
