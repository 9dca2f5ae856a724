// A staged computation of the calling thread, from its first to its last call.
#pragma once

#include "frame/error.hpp"
#include "frame/thread_exit.hpp"
#include "moments.hpp"

#include <algorithm>
#include <climits>

namespace tavik::descriptive {

struct Series {
    bool open;
    bool weighted; // one of its stages had weights
    int n_variables;
    Moments moments; // null when there is none
    ThreadExit at_thread_exit;
};

inline void close_series(Series &series)
{
    tavik_aligned_free(series.moments.data);
    series.moments = {};
    series.open = series.weighted = false;
}

// One series a thread and element type.
template <class Real> Series &thread_series()
{
    thread_local Series series{
        false, false, 0, {}, {[] { close_series(thread_series<Real>()); }, false, nullptr}};
    return series;
}

// New moments for a series; their data are null, with an error, when there is no memory.
inline Moments open_series(Series &series, int n_variables)
{
    close_series(series);
    const auto p = static_cast<std::size_t>(n_variables);
    const std::size_t size = moments_size(p);
    if (release_at_thread_exit(series.at_thread_exit))
        series.moments = {static_cast<double *>(tavik_aligned_malloc(size * sizeof(double))), padded_size(p)};
    if (series.moments.data == nullptr) {
        tavik_e1sti(1, static_cast<int>(std::min<std::size_t>(size, INT_MAX)));
        tavik_e1stl(1, "n_variables");
        tavik_ermes(terminal, 201);
    }
    series.n_variables = n_variables;
    return series.moments;
}

} // namespace tavik::descriptive
