// Benchmarks that stand beside a peer: after the run, a table of how many times faster the library is.
//
// A benchmark is named WORK/SIDE. Register what is to be compared with compare(); times are the medians of
// the repetitions of one process run.
#pragma once

#include <benchmark/benchmark.h>

#include <map>
#include <string>
#include <vector>

namespace bench {

struct Comparison {
    std::string ours, peer;
    double at_least; // times faster that we promise; 0: for information
};

inline std::vector<Comparison> &comparisons()
{
    static std::vector<Comparison> all;
    return all;
}

inline bool compare(std::string ours, std::string peer, double at_least)
{
    comparisons().push_back({std::move(ours), std::move(peer), at_least});
    return true;
}

// Prints like the console and keeps the median real time of each benchmark, in nanoseconds.
class RatioReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run> &runs) override
    {
        for (const Run &run : runs) {
            failed_ = failed_ || run.error_occurred;
            if (run.aggregate_name == "median")
                median_[run.run_name.function_name] =
                    run.GetAdjustedRealTime() * 1e9 / benchmark::GetTimeUnitMultiplier(run.time_unit);
        }
        ConsoleReporter::ReportRuns(runs);
    }

    // False when a promise was missed, or a benchmark ended with an error.
    bool print_ratios() const;

private:
    std::map<std::string, double> median_;
    bool failed_ = false;
};

} // namespace bench
