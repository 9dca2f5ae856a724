// Normal deviates of a given mean and variance, by one of three methods.
#pragma once

#include "frame/call.hpp"
#include "frame/options.hpp"
#include "normal_inversion.hpp"
#include "normal_kinderman_ramage.hpp"
#include "normal_ziggurat.hpp"

#include <cmath>

namespace tavik::random {

enum class NormalMethod { inversion, kinderman_ramage, ziggurat };

template <class Real> struct NormalOptions {
    Real *user_result = nullptr;
    Real mean = 0, variance = 1;
    NormalMethod method = NormalMethod::inversion;
};

template <class Real> bool read_options(OptionReader reader, NormalOptions<Real> &options)
{
    const auto read_from = [&](const char *name, Real &value) {
        if (const Real *address = reader.pointer<const Real>(name)) value = *address;
    };
    while (const int code = reader.next()) {
        switch (code) {
        case TAVIK_RETURN_USER: options.user_result = reader.pointer<Real>("TAVIK_RETURN_USER"); break;
        case TAVIK_MEAN: options.mean = static_cast<Real>(reader.real()); break;
        case TAVIK_MEAN_ADR: read_from("TAVIK_MEAN_ADR", options.mean); break;
        case TAVIK_VARIANCE: options.variance = static_cast<Real>(reader.real()); break;
        case TAVIK_VARIANCE_ADR: read_from("TAVIK_VARIANCE_ADR", options.variance); break;
        case TAVIK_ACCEPT_REJECT: options.method = NormalMethod::kinderman_ramage; break;
        case TAVIK_ZIGGURAT: options.method = NormalMethod::ziggurat; break;
        default: reader.unknown(11001); return false;
        }
    }
    return !error_pending();
}

// n standard deviates; finish(part, count) is applied to every part of them once.
template <class Real, class Finish>
bool draw_normal(NormalMethod method, int n, Real *r, const Finish &finish)
{
    switch (method) {
    case NormalMethod::kinderman_ramage: return l_rnnoa(n, r, finish);
    case NormalMethod::ziggurat: return l_ziggurat(n, r, finish);
    default: return l_rnnor(n, r, finish);
    }
}

template <class Real>
void l_random_normal(int n_random, ArgumentList &list, Workspace &workspace, Real *&result)
{
    constexpr PositionRule all_arguments_count{2, 1, 1};
    NormalOptions<Real> options;
    if (!read_options(OptionReader(list, all_arguments_count), options)) return;
    int position = 0;
    tavik_c1iarg(n_random, "n_random", 1, -1, &position);
    if (error_pending()) return;
    if (!(options.variance > 0)) {
        tavik_e1std(1, static_cast<double>(options.variance));
        tavik_ermes(terminal, 20457);
        result = options.user_result;
        return;
    }
    Real *deviates = options.user_result;
    if (deviates == nullptr) deviates = workspace.result<Real>(static_cast<std::size_t>(n_random));
    if (deviates == nullptr) return;
    const Real deviation = std::sqrt(options.variance), mean = options.mean;
    const auto scale = [=](Real *part, std::int64_t n) {
        generator_kernels().uniform<Real>().scale_and_shift(part, static_cast<std::size_t>(n), deviation,
                                                            mean);
    };
    if (draw_normal(options.method, n_random, deviates, scale)) result = workspace.hand_over(deviates);
}

} // namespace tavik::random
