#include "bench/comparison.h"

#include <benchmark/benchmark.h>
#include <fmt/format.h>

#include <algorithm>
#include <cstdio>

namespace bench {
namespace {

constexpr int kBlocks = 25;
constexpr double kBlockSeconds = 0.1;

double median(std::vector<double> values) {
  const auto half = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), half, values.end());
  return *half;
}

// The two sides alternate call by call, so that both meet the same machine. Medians ignore what interrupts a few calls.
void run_block(benchmark::State& state, const Comparison& comparison) {
  if (comparison.arrange) comparison.arrange();
  std::vector<double> subject;
  std::vector<double> baseline;
  while (state.KeepRunning()) {
    subject.push_back(comparison.subject());
    baseline.push_back(comparison.baseline());
    state.SetIterationTime(subject.back() + baseline.back());
  }
  state.counters["baseline"] = median(baseline);
  state.counters["ratio"] = median(subject) / median(baseline);
}

class RatioTable : public benchmark::BenchmarkReporter {
 public:
  explicit RatioTable(const std::vector<Comparison>& comparisons) : comparisons_(comparisons) {}

  bool ReportContext(const Context& /*context*/) override {
    fmt::print(
        "| operation | floor, us | ratio | lowest and highest of {} blocks | goal |\n"
        "| --- | ---: | ---: | :---: | ---: |\n",
        kBlocks);
    return true;
  }

  void ReportRuns(const std::vector<Run>& runs) override {
    std::vector<double> baselines;
    std::vector<double> ratios;
    for (const Run& run : runs) {
      if (run.run_type == Run::RT_Aggregate) continue;
      baselines.push_back(run.counters.at("baseline"));
      ratios.push_back(run.counters.at("ratio"));
    }
    if (!ratios.empty()) print_row(runs.front().run_name.function_name, baselines, ratios);
  }

  [[nodiscard]] bool missed() const { return missed_; }

 private:
  void print_row(const std::string& name, const std::vector<double>& baselines, const std::vector<double>& ratios) {
    const auto [lowest, highest] = std::minmax_element(ratios.begin(), ratios.end());
    fmt::print("| {} | {:.1f} | {:.3f} | {:.3f} to {:.3f} | {} |\n", name, median(baselines) * 1e6, median(ratios),
               *lowest, *highest, verdict(name, median(ratios)));
    static_cast<void>(std::fflush(stdout));
  }

  std::string verdict(const std::string& name, double ratio) {
    const auto comparison = std::find_if(comparisons_.begin(), comparisons_.end(),
                                         [&](const Comparison& candidate) { return candidate.name == name; });
    if (comparison == comparisons_.end() || comparison->goal == 0) return "";
    if (ratio <= comparison->goal) return fmt::format("{:.2f}", comparison->goal);
    missed_ = true;
    return fmt::format("{:.2f} missed", comparison->goal);
  }

  const std::vector<Comparison>& comparisons_;
  bool missed_ = false;
};

}  // namespace

int run_comparisons(const std::vector<Comparison>& comparisons, int argc, char** argv) {
  for (const Comparison& comparison : comparisons) {
    // The analyzer takes the registered benchmark, which Google Benchmark keeps, for a leak.
    benchmark::RegisterBenchmark(  // NOLINT(clang-analyzer-cplusplus.NewDeleteLeaks)
        comparison.name.c_str(), [&comparison](benchmark::State& state) { run_block(state, comparison); })
        ->UseManualTime()
        ->MinTime(kBlockSeconds)
        ->Repetitions(kBlocks);
  }
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
  RatioTable table(comparisons);
  benchmark::RunSpecifiedBenchmarks(&table);
  return table.missed() ? 1 : 0;
}

}  // namespace bench
