// Coefficients of normal_quantile_kernel.hpp, minimax, made by tools/fit_normal_quantile.py. The error is
// that of the quantile, relative to it, before the coefficients were rounded to double.
#pragma once

#include "numerical/lanes.hpp"

namespace tavik::probability {
namespace {

using numerical::Coefficients;

// What the script has taken off before it fits.
constexpr double centre_slope = 45.0 / 16, tail_slope = 3.0 / 8, tail_offset = 7.0 / 16, far_shift = 1.0 / 2;

// Where one formula hands over to the next.
constexpr double centre_half_width = 7.0 / 16, float_centre_half_width = 235.0 / 512, far_from = 0x1p-14,
                 farther_from = 0x1p-80;

// error 2^-57.93
constexpr Coefficients centre_p({0x1.bbef2a1d01320p-24, 0x1.26254de6126aep-15, 0x1.315886ac9d301p-9,
                                 0x1.5f1294ae170a5p-5, 0x1.0e863f347b1eep-3, -0x1.95086ad40b1c6p+0,
                                 -0x1.0ef03837648a7p+3, -0x1.454c6317c527ep+3, -0x1.2ef87ca7777b0p+1});
constexpr Coefficients centre_q({0x1.d44c9812e9dccp-26, 0x1.e396051727e43p-17, 0x1.881d6ae6c4a23p-10,
                                 0x1.a166c5a714920p-5, 0x1.5c02555f6efa6p-1, 0x1.de44b80f3ea5ap+1,
                                 0x1.0507c8a1079e6p+3, 0x1.84db17ddd425fp+2, 0x1.0000000000000p+0});
// error 2^-56.03
constexpr Coefficients tail_p({-0x1.c560b5008529ep+16, -0x1.16bf601d1df4ap+19, -0x1.5aefc6aaea8afp+18,
                               0x1.be96ab2d0181ap+16, 0x1.eb9f95546a4b0p+15, 0x1.15e60963ee7b2p+9,
                               -0x1.cfb735d93062cp+9, -0x1.6128df073d50ep+5, -0x1.5868f4edede32p-2});
constexpr Coefficients tail_q({0x1.78b32b49647dbp+15, 0x1.aef578eea8c2cp+18, 0x1.808cf5ff79b2dp+19,
                               0x1.b2748dfee0d65p+18, 0x1.6921c61aac005p+16, 0x1.bde1c0a241f88p+12,
                               0x1.695d4fa090f33p+7, 0x1.0000000000000p+0});
// error 2^-57.66
constexpr Coefficients far_tail_p({-0x1.448750d3cc170p+16, -0x1.58f8fc8cdf1abp+17, -0x1.a4b449b0b7ebbp+12,
                                   0x1.fac514bc0addbp+12, 0x1.5bda04b270077p+7, -0x1.e8ec4a1e80786p+4,
                                   -0x1.fc0d362de7a03p-2});
constexpr Coefficients far_tail_q({-0x1.eb79907da3678p+14, -0x1.37e37a0ac84c1p+17, -0x1.ec389a4edefc5p+16,
                                   -0x1.1f59221f11caap+14, 0x1.088b3c549caf3p+8, 0x1.27a77af3249cdp+6,
                                   0x1.0000000000000p+0});
// error 2^-60.16
constexpr Coefficients farther_tail_p({0x1.bafe06797c117p+25, 0x1.bcbed362b2ab3p+26, 0x1.f9abffacfec53p+23,
                                       -0x1.dda17996a3b99p+21, -0x1.1f56b36b15f8fp+19, -0x1.4398ea989416ap+14,
                                       -0x1.ad4abcfeaa611p+7, -0x1.ff250b73bf82dp-2});
constexpr Coefficients farther_tail_q({0x1.5dde0ae23be9cp+24, 0x1.959b84269717ap+26, 0x1.59eb6d995e653p+26,
                                       0x1.3eded7f5fde56p+24, 0x1.91f057cbf098cp+20, 0x1.6ec2d7191fe8cp+15,
                                       0x1.bd54e73edf9c5p+8, 0x1.0000000000000p+0});
// error 2^-29.98
constexpr Coefficients float_centre_p({0x1.c3999e7a75c6ep-14, 0x1.0b9afe9ca7e53p-6, 0x1.825731adaed9dp-2,
                                       0x1.c36702300b628p+0, 0x1.1f38b689508c9p+0, -0x1.1426cd2f20e8bp-3});
constexpr Coefficients float_centre_q({0x1.26b55f7991a77p-16, 0x1.d844342e49cb5p-9, 0x1.c97c56babd04ap-4,
                                       0x1.87f1f8221ae13p-1, 0x1.0000000000000p+0});
// error 2^-31.83
constexpr Coefficients float_tail_p({-0x1.c3f01e938b452p+12, 0x1.c63ff4cfcd000p+11, 0x1.18a71cef8ebcfp+13,
                                     0x1.5e3243ab93a3fp+10, 0x1.d949bbfbf8710p+4});
constexpr Coefficients float_tail_q({0x1.41d7f26308513p+12, 0x1.60bb0850cc38dp+13, 0x1.b453c7d10116ap+11,
                                     0x1.82915d5e906cdp+7, 0x1.0000000000000p+0});

} // namespace
} // namespace tavik::probability
