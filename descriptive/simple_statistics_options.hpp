// What a call of the simple statistics asks for.
#pragma once

namespace tavik::descriptive {

enum class MedianRows { none, median, median_and_scale };

template <class Real> struct SimpleStatisticsOptions {
    Real mean_level = 95, variance_level = 95; // percent
    const Real *frequencies = nullptr, *weights = nullptr;
    MedianRows medians = MedianRows::none;
    int n_median_options = 0;
    bool listwise = false;
    Real *user_result = nullptr;
    int stat_col_dim = 0, x_col_dim = 0;
    int ido = 0;

    int n_rows() const
    {
        switch (medians) {
        case MedianRows::none: return 14;
        case MedianRows::median: return 15;
        default: return 17;
        }
    }
};

} // namespace tavik::descriptive
