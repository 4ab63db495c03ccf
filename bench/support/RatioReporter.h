// Console output of Google Benchmark, plus, at the end, one line per pair of
// benchmarks: the median wall time of each and their ratio, and for pairs
// that move a known number of bytes, the throughput in MB/s (10^6 bytes per
// second). Benchmarks are matched by the name they were registered with.
// Each line also gives the CPU time per iteration of both and their ratio,
// as the benchmarks measured it (the whole process's when registered with
// MeasureProcessCPUTime): the median's where there are repetitions.
// Without repetitions (no median aggregate) the single run's time is used
// and the line says so.
//
//   RatioReporter reporter;
//   reporter.addPair("lookup unix", "lookup/unix/module", "lookup/unix/floor");
//   benchmark::RunSpecifiedBenchmarks(&reporter);
#ifndef MOX_BENCH_RATIOREPORTER_H
#define MOX_BENCH_RATIOREPORTER_H

#include <benchmark/benchmark.h>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

class RatioReporter : public benchmark::ConsoleReporter {
public:
    // `bytes`: what one iteration of either benchmark moves (0: no MB/s).
    void addPair(const std::string& label, const std::string& measured, const std::string& floor,
                 uint64_t bytes = 0);

    // True once any benchmark stopped with an error (SkipWithError): the
    // programs then exit with status 1, so that a run that checks them fails.
    bool anyError() const { return mAnyError; }

    void ReportRuns(const std::vector<Run>& reports) override;
    void Finalize() override;

private:
    struct Pair {
        std::string label;
        std::string measured;
        std::string floor;
        uint64_t bytes;
    };
    struct Time {
        double seconds = 0;     // wall
        double cpuSeconds = 0;  // CPU
        bool median = false;
    };

    std::string line(const Pair& pair) const;
    static std::string describe(double seconds, uint64_t bytes);

    std::vector<Pair> mPairs;
    std::map<std::string, Time> mTimes;  // registered name -> wall time per iteration
    bool mAnyError = false;
};

#endif  // MOX_BENCH_RATIOREPORTER_H
