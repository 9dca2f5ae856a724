// What a public call costs before it does anything.
#include "ratios.hpp"
#include "tavikstat.h"

#include <cmath>
#include <cstdlib>

namespace {

void frame_call(benchmark::State &state)
{
    for (auto _ : state) benchmark::DoNotOptimize(tavik_d_machine(4));
}
BENCHMARK(frame_call)->Name("frame/tavik_d_machine")->Repetitions(5)->ReportAggregatesOnly();

// The promise is absolute, 25 ns, so the peer is a clock that waits so long.
void twenty_five_nanoseconds(benchmark::State &state)
{
    for (auto _ : state) state.SetIterationTime(25e-9);
}
BENCHMARK(twenty_five_nanoseconds)
    ->Name("frame/25 ns")
    ->UseManualTime()
    ->Iterations(1000)
    ->Repetitions(2)
    ->ReportAggregatesOnly();

const bool compared = bench::compare("frame/tavik_d_machine", "frame/25 ns", 1);

} // namespace
