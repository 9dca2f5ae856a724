#include "factor.hpp"

#include "numerical/modified_givens.hpp"

#include <algorithm>
#include <cmath>

namespace tavik::regression {

void Factor::start(std::size_t n_columns, long double *memory)
{
    n_ = n_columns;
    r_ = memory;
    scale_ = r_ + n_ * n_;
    scratch_ = scale_ + n_;
    dissolved_ = scratch_ + n_;
    given_ = dissolved_ + n_;
    rounding_ = given_ + n_;
    clear();
}

void Factor::clear()
{
    std::fill_n(r_, n_ * n_ + n_, 0.0L);
    std::fill_n(rounding_, n_, 0.0L);
}

void Factor::add_row(long double *row, long double weight, std::size_t first)
{
    for (std::size_t i = first; i < n_ && weight != 0; ++i) rotate(row, weight, i);
}

bool Factor::delete_row(long double *row, long double weight)
{
    constexpr long double unit = 0x1p-62L; // a few roundings
    constexpr long double safety = 16, clearly = 0x1p-30L;

    for (std::size_t i = 0; i < n_; ++i) given_[i] = weight * row[i] * row[i];
    weight = -weight;
    long double amplification = 1; // of the roundings in later rows, by what earlier ones have lost
    for (std::size_t i = 0; i < n_ && weight != 0; ++i) {
        const long double before = scale_[i] * r_[i * n_ + i] * r_[i * n_ + i];
        const long double left = before + weight * row[i] * row[i];
        rounding_[i] += unit * amplification * before;
        if (left < -safety * rounding_[i] && left < -clearly * (before + given_[i])) return false;
        if (!(left <= safety * rounding_[i])) { // so NaN spreads
            amplification = std::max(amplification, before / left);
            rotate(row, weight, i);
        } else if (before > 0) {
            dissolve_row(i); // the column has nothing of its own any more
        }
    }
    return true;
}

void Factor::rotate(long double *row, long double &weight, std::size_t i)
{
    long double *pivot_row = r_ + i * n_;
    const auto rotation = numerical::rotmg(scale_[i], weight, pivot_row[i], row[i]);
    const auto behind = static_cast<std::ptrdiff_t>(n_ - i - 1);
    numerical::rotm(behind, pivot_row + i + 1, 1, row + i + 1, 1, rotation);
}

void Factor::add(const Factors &other)
{
    for (std::size_t i = 0; i < n_; ++i) {
        const long double x = other.diagonal[i];
        if (x == 0) continue;
        const std::size_t panel_first = i / other.panel * other.panel;
        const std::size_t panel_end = std::min(panel_first + other.panel, n_);
        scratch_[i] = x;
        for (std::size_t j = i + 1; j < panel_end; ++j)
            scratch_[j] = other.within[i * other.panel + j - panel_first];
        if (panel_end < n_)
            std::copy(other.row_behind(0, i) + panel_end, other.row_behind(0, i) + n_, scratch_ + panel_end);
        // An overflow must be seen in the results.
        const long double scale = other.p[i] / x;
        add_row(scratch_, std::isfinite(scale) ? scale : std::nanl(""), i);
    }
}

void Factor::dissolve_row(std::size_t i)
{
    long double *row = r_ + i * n_;
    const long double scale = scale_[i];
    std::copy(row + i + 1, row + n_, dissolved_ + i + 1);
    std::fill(row + i, row + n_, 0.0L);
    scale_[i] = rounding_[i] = 0;
    add_row(dissolved_, scale, i + 1);
}

bool Factor::loses_digits() const
{
    constexpr long double little = 1e-4L; // two digits of a column, four of its square
    for (std::size_t j = 0; j < n_; ++j) {
        if (crossproduct(j, j + 1, j, j) < little * crossproduct(0, j + 1, j, j)) return true;
    }
    return false;
}

long double Factor::crossproduct(std::size_t first, std::size_t last, std::size_t j, std::size_t k) const
{
    long double sum = 0;
    for (std::size_t i = first; i < last; ++i) sum += scale_[i] * r_[i * n_ + j] * r_[i * n_ + k];
    return sum;
}

} // namespace tavik::regression
