// The factor of a fit: upper-triangular R with scale factors D, so that R'DR holds the weighted sums of squares and
// crossproducts of all columns, independent variables and responses. Rows are folded in, and taken out again, by
// modified Givens rotations. In long double: a fit of few rows, and a window that slides for long, keep all digits.
#pragma once

#include "rotations.hpp"

#include <cstddef>

namespace tavik::regression {

class Factor {
public:
    static constexpr std::size_t memory_size(std::size_t n_columns)
    {
        return rows_size(n_columns) + 5 * n_columns;
    }

    // An empty factor in the caller's memory of memory_size elements.
    void start(std::size_t n_columns, long double *memory);
    void clear();

    // Both use `row` up. Its elements before `first` are not looked at.
    void add_row(long double *row, long double weight, std::size_t first = 0);
    // False when the row cannot have been added, because a sum of squares would become clearly negative; with few
    // rows left, nothing is clear. What deletion leaves of a column below the rounding of what the column has been
    // counts as nothing.
    bool delete_row(long double *row, long double weight, bool few_left);

    // Adds the factor of a set of one, which starts from the same columns.
    void add(const FactorSet &other);

    // At most `rows` rows are left: no more columns than that can have something of their own. Those that have the
    // least, which is what rounding has left of them, lose it.
    void limit_rank(std::size_t rows);

    // Empties row i and folds what it says about later columns into their rows; column i is 0 from row i on.
    void dissolve_row(std::size_t i);

    // Has some column little of its own beside the columns before it? Arithmetic in double would show in its results.
    bool loses_digits() const;

    std::size_t n_columns() const
    {
        return n_;
    }

    long double scale(std::size_t i) const
    {
        return scale_[i];
    }

    // From element i on.
    const long double *row(std::size_t i) const
    {
        return r_ + row_offset(i);
    }

    // Sum over rows first to last - 1 of d_i r_ij r_ik.
    long double crossproduct(std::size_t first, std::size_t last, std::size_t j, std::size_t k) const;

    // A row that callers may fill for the next call.
    long double *scratch_row() const
    {
        return scratch_;
    }

private:
    static constexpr std::size_t rows_size(std::size_t n_columns)
    {
        return n_columns * (n_columns + 1) / 2;
    }

    // Rows stand one behind the other without their elements before the diagonal.
    std::size_t row_offset(std::size_t i) const
    {
        return i * n_ - i * (i + 1) / 2;
    }

    long double own_square(std::size_t i) const
    {
        const long double diagonal = row(i)[i];
        return scale_[i] * diagonal * diagonal;
    }

    void fold(long double *row, long double weight, std::size_t first);

    // Makes element i of the row zero.
    void rotate(long double *row, long double &weight, std::size_t i);

    std::size_t n_ = 0;
    long double cancellation_ = 1; // the most that deleting a row has cancelled of squares, as before / after
    long double *r_ = nullptr, *scale_ = nullptr, *scratch_ = nullptr, *dissolved_ = nullptr,
                *total_ = nullptr,
                *peak_ = nullptr; // each column's sum of squares, and the greatest that it has been
};

} // namespace tavik::regression
