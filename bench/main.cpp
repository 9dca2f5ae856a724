#include "ratios.hpp"

#include <cstdio>

bool bench::RatioReporter::print_ratios() const
{
    bool all_kept = true;
    std::printf("\n%-44s %-40s %8s %9s\n", "library", "against", "times", "at least");
    for (const Comparison &c : comparisons()) {
        const auto ours = median_.find(c.ours), peer = median_.find(c.peer);
        if (ours == median_.end() || peer == median_.end()) continue;
        const double ratio = peer->second / ours->second;
        const bool kept = ratio >= c.at_least;
        all_kept = all_kept && kept;
        std::printf("%-44s %-40s %8.2f %9.2f%s\n", c.ours.c_str(), c.peer.c_str(), ratio, c.at_least,
                    kept ? "" : "  MISSED");
    }
    if (failed_) std::printf("Some benchmarks ended with an error.\n");
    return all_kept && !failed_;
}

int main(int argc, char **argv)
{
    benchmark::Initialize(&argc, argv);
    bench::RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    return reporter.print_ratios() ? 0 : 1;
}
