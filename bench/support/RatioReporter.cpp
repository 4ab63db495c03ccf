#include "RatioReporter.h"

#include <cstdio>
#include <ostream>

void RatioReporter::addPair(const std::string& label, const std::string& measured,
                            const std::string& floor, uint64_t bytes) {
    mPairs.push_back(Pair{label, measured, floor, bytes});
}

void RatioReporter::ReportRuns(const std::vector<Run>& reports) {
    for (const Run& run : reports) {
        if (run.error_occurred) {
            mAnyError = true;
            continue;
        }
        if (run.iterations == 0) {
            continue;
        }
        const std::string& name = run.run_name.function_name;
        const double unit = benchmark::GetTimeUnitMultiplier(run.time_unit);
        const double seconds = run.GetAdjustedRealTime() / unit;
        const double cpuSeconds = run.GetAdjustedCPUTime() / unit;
        if (run.run_type == Run::RT_Aggregate && run.aggregate_name == "median") {
            mTimes[name] = Time{seconds, cpuSeconds, true};
        } else if (run.run_type == Run::RT_Iteration && !mTimes[name].median) {
            mTimes[name] = Time{seconds, cpuSeconds, false};
        }
    }
    ConsoleReporter::ReportRuns(reports);
}

void RatioReporter::Finalize() {
    std::ostream& out = GetOutputStream();
    out << "\nRatios to the floor (median wall time per iteration; then CPU time):\n";
    for (const Pair& pair : mPairs) {
        out << line(pair) << "\n";
    }
    out.flush();
    ConsoleReporter::Finalize();
}

std::string RatioReporter::line(const Pair& pair) const {
    const auto measured = mTimes.find(pair.measured);
    const auto floor = mTimes.find(pair.floor);
    if (measured == mTimes.end() || floor == mTimes.end() || floor->second.seconds <= 0) {
        return pair.label + ": not measured in this run";
    }
    const Time& mine = measured->second;
    const Time& base = floor->second;
    char ratio[64];
    std::snprintf(ratio, sizeof(ratio), "ratio %.2f", mine.seconds / base.seconds);
    std::string text = pair.label + ": " + describe(mine.seconds, pair.bytes) + ", floor " +
                       describe(base.seconds, pair.bytes) + ", " + ratio;
    if (base.cpuSeconds > 0) {
        std::snprintf(ratio, sizeof(ratio), "ratio %.2f", mine.cpuSeconds / base.cpuSeconds);
        text += "; CPU " + describe(mine.cpuSeconds, 0) + ", floor " +
                describe(base.cpuSeconds, 0) + ", " + ratio;
    }
    if (!measured->second.median || !floor->second.median) {
        text += " (single runs, no median: use --benchmark_repetitions)";
    }
    return text;
}

std::string RatioReporter::describe(double seconds, uint64_t bytes) {
    char text[96];
    if (bytes == 0) {
        std::snprintf(text, sizeof(text), "%.1f us", seconds * 1e6);
    } else {
        std::snprintf(text, sizeof(text), "%.2f ms = %.1f MB/s", seconds * 1e3,
                      static_cast<double>(bytes) / seconds / 1e6);
    }
    return text;
}
