#include "factor.hpp"

#include "numerical/modified_givens.hpp"

#include <algorithm>
#include <cmath>
#include <limits>

namespace tavik::regression {

void Factor::start(std::size_t n_columns, long double *memory)
{
    n_ = n_columns;
    r_ = memory;
    scale_ = r_ + rows_size(n_);
    scratch_ = scale_ + n_;
    dissolved_ = scratch_ + n_;
    total_ = dissolved_ + n_;
    peak_ = total_ + n_;
    clear();
}

void Factor::clear()
{
    std::fill_n(r_, rows_size(n_) + n_, 0.0L);
    std::fill_n(total_, 2 * n_, 0.0L);
    cancellation_ = 1;
}

void Factor::add_row(long double *row, long double weight, std::size_t first)
{
    for (std::size_t i = first; i < n_; ++i) {
        total_[i] += weight * row[i] * row[i];
        peak_[i] = std::max(peak_[i], total_[i]);
    }
    fold(row, weight, first);
}

void Factor::fold(long double *row, long double weight, std::size_t first)
{
    for (std::size_t i = first; i < n_ && weight != 0; ++i) rotate(row, weight, i);
}

bool Factor::delete_row(long double *row, long double weight, bool few_left)
{
    // Parts of a column's greatest sum of squares: what is left below the first is rounding; below minus the second it is
    // not, unless deletion has cancelled so much before that rounding has grown by as much.
    constexpr long double rounding = 0x1p-56L, clearly = 0x1p-40L;

    long double cancelled = 1; // by this row, in all columns so far
    weight = -weight;
    for (std::size_t i = 0; i < n_; ++i) total_[i] += weight * row[i] * row[i];
    for (std::size_t i = 0; i < n_ && weight != 0; ++i) {
        const long double before = own_square(i), left = before + weight * row[i] * row[i];
        if (!few_left && left < -std::max(clearly, rounding * cancellation_) * peak_[i]) return false;
        const long double least = rounding * peak_[i];
        if (before > 0) cancelled *= before / std::max(left, least);
        cancellation_ = std::max(cancellation_, cancelled);
        if (left <= least) dissolve_row(i);
        else rotate(row, weight, i); // NaN, too, so that it spreads
    }
    return true;
}

void Factor::limit_rank(std::size_t rows)
{
    if (rows >= n_) return;
    for (;;) {
        std::size_t left = 0, least = 0;
        long double least_part = std::numeric_limits<long double>::infinity();
        for (std::size_t i = 0; i < n_; ++i) {
            const long double own = own_square(i);
            left += own != 0;
            if (own > 0 && own < least_part * peak_[i]) {
                least_part = own / peak_[i];
                least = i;
            }
        }
        if (left <= rows || least_part > 1) return; // the latter with NaN alone
        dissolve_row(least);
    }
}

void Factor::rotate(long double *row, long double &weight, std::size_t i)
{
    long double *pivot_row = r_ + row_offset(i);
    if (scale_[i] == 0 && row[i] != 0 && std::isfinite(row[i]) && std::isfinite(weight)) { // an empty place
        std::copy(row + i, row + n_, pivot_row + i);
        scale_[i] = weight;
        weight = 0;
        return;
    }
    const auto rotation = numerical::rotmg(scale_[i], weight, pivot_row[i], row[i]);
    const auto behind = static_cast<std::ptrdiff_t>(n_ - i - 1);
    numerical::rotm(behind, pivot_row + i + 1, 1, row + i + 1, 1, rotation);
}

void Factor::add(const FactorSet &other)
{
    for (std::size_t i = 0; i < n_; ++i) {
        if (other.diagonal[i] == 0) continue;
        other.copy_row(i, 0, 1, scratch_);
        // An overflow must be seen in the results.
        const long double scale = static_cast<long double>(other.p[i]) / scratch_[i];
        const bool finite = std::isfinite(scale) && std::isfinite(scratch_[i]);
        add_row(scratch_, finite ? scale : std::nanl(""), i);
    }
}

void Factor::dissolve_row(std::size_t i)
{
    long double *row = r_ + row_offset(i);
    const long double scale = scale_[i];
    std::copy(row + i + 1, row + n_, dissolved_ + i + 1);
    std::fill(row + i, row + n_, 0.0L);
    scale_[i] = 0;
    fold(dissolved_, scale, i + 1);
}

bool Factor::loses_digits() const
{
    constexpr long double little = 1e-4L; // two digits of a column, four of its square
    for (std::size_t j = 0; j < n_; ++j) {
        if (!(own_square(j) > little * crossproduct(0, j + 1, j, j))) return true; // NaN, too
    }
    return false;
}

long double Factor::crossproduct(std::size_t first, std::size_t last, std::size_t j, std::size_t k) const
{
    long double sum = 0;
    const std::size_t end = std::min({last, j + 1, k + 1});
    for (std::size_t i = first; i < end; ++i) sum += scale_[i] * row(i)[j] * row(i)[k];
    for (std::size_t i = std::max(first, end); i < last; ++i) sum += scale_[i] * 0; // NaN spreads
    return sum;
}

} // namespace tavik::regression
