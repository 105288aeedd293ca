/// @file
/// What the table is made of: the median time of each benchmark over its interleaved repetitions.
#pragma once

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

/// Collects the time per iteration of every repetition instead of printing it.
class Medians : public benchmark::BenchmarkReporter {
public:
    bool ReportContext(const Context& /*context*/) override { return true; }

    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs)
            if (run.run_type == Run::RT_Iteration && !run.error_occurred)
                _seconds[run.run_name.function_name].push_back(run.real_accumulated_time / double(run.iterations));
    }

    /// Seconds per iteration. @throws std::runtime_error when the benchmark did not run.
    double of(const std::string& name) const {
        const auto found = _seconds.find(name);
        if (found == _seconds.end()) throw std::runtime_error("the benchmark '" + name + "' gave no time");
        std::vector<double> sorted = found->second;
        std::sort(sorted.begin(), sorted.end());
        return sorted[sorted.size() / 2];
    }

private:
    std::map<std::string, std::vector<double>> _seconds;
};
