// The benchmarks of one simulated phone: "kelchk_bench CHIP [options of Google Benchmark]" prints how much longer each
// operation of the library takes than its floor. "kelchk_bench CHIP count SIDE OPERATION CALLS" only makes the calls, for
// a tool that counts: SIDE is "library", "floor" or "nothing", OPERATION a number from 0 on. Runs inside the phone.
#include <benchmark/benchmark.h>
#include <valgrind/callgrind.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <stdexcept>
#include <string>
#include <vector>

#include "operations.h"
#include "system.h"

namespace {

using bench::Operation;
using Call = std::function<bool()>;

constexpr int kBlocks = 25;
constexpr double kBlockSeconds = 0.1;

// Returns the call's seconds. What it needs before is not part of them.
double time_call(const Operation& operation, const Call& call) {
  if (operation.before) operation.before();
  CALLGRIND_TOGGLE_COLLECT;
  const auto start = std::chrono::steady_clock::now();
  const bool ok = call();
  const auto end = std::chrono::steady_clock::now();
  CALLGRIND_TOGGLE_COLLECT;
  if (!ok) throw std::runtime_error(operation.name + " failed");
  return std::chrono::duration<double>(end - start).count();
}

double middle(std::vector<double> values) {
  const auto half = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), half, values.end());
  return *half;
}

// One block. Library and floor alternate call by call, so that both meet the same machine, and the middle one of each
// side's times stands for it: what interrupts a few calls does not count.
void run_block(benchmark::State& state, const Operation& operation) {
  if (operation.arrange) operation.arrange();
  std::vector<double> library, floor;
  for (auto _ : state) {
    library.push_back(time_call(operation, operation.library));
    floor.push_back(time_call(operation, operation.floor));
    state.SetIterationTime(library.back() + floor.back());
  }
  state.counters["floor"] = middle(floor);
  state.counters["ratio"] = middle(library) / middle(floor);
}

class Table : public benchmark::BenchmarkReporter {
 public:
  explicit Table(const std::vector<Operation>& operations) : operations_(operations) {}

  bool ReportContext(const Context&) override {
    std::printf("| operation | floor, us | ratio | lowest and highest of %d blocks | goal |\n"
                "| --- | ---: | ---: | :---: | ---: |\n", kBlocks);
    return true;
  }

  void ReportRuns(const std::vector<Run>& runs) override {
    std::vector<double> floors, ratios;
    for (const Run& run : runs) {
      if (run.run_type == Run::RT_Aggregate) continue;
      floors.push_back(run.counters.at("floor"));
      ratios.push_back(run.counters.at("ratio"));
    }
    if (ratios.empty()) return;
    const auto [lowest, highest] = std::minmax_element(ratios.begin(), ratios.end());
    const std::string name = runs.front().run_name.function_name;
    std::printf("| %s | %.1f | %.3f | %.3f to %.3f | %s |\n", name.c_str(), middle(floors) * 1e6, middle(ratios), *lowest,
                *highest, verdict(name, middle(ratios)).c_str());
    std::fflush(stdout);
  }

  bool missed() const { return missed_; }

 private:
  std::string verdict(const std::string& name, double ratio) {
    const auto operation = std::find_if(operations_.begin(), operations_.end(), [&](const Operation& o) { return o.name == name; });
    if (operation == operations_.end() || operation->goal == 0) return "";
    char goal[32];
    std::snprintf(goal, sizeof goal, "%.2f", operation->goal);
    if (ratio <= operation->goal) return goal;
    missed_ = true;
    return std::string(goal) + " missed";
  }

  const std::vector<Operation>& operations_;
  bool missed_ = false;
};

int run_benchmarks(const std::vector<Operation>& operations, int argc, char** argv) {
  for (const Operation& operation : operations) {
    benchmark::RegisterBenchmark(operation.name.c_str(), [&operation](benchmark::State& state) { run_block(state, operation); })
        ->UseManualTime()->MinTime(kBlockSeconds)->Repetitions(kBlocks);
  }
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
  Table table(operations);
  benchmark::RunSpecifiedBenchmarks(&table);
  return table.missed() ? 1 : 0;
}

void make_calls(const Operation& operation, const std::string& side, int calls) {
  bench::flush_to_storage();
  if (operation.arrange) operation.arrange();
  const Call nothing = [] { return true; };
  const Call& call = side == "library" ? operation.library : side == "floor" ? operation.floor : nothing;
  for (int i = 0; i < calls; ++i) time_call(operation, call);
}

}  // namespace

int main(int argc, char** argv) try {
  const std::string chip = argc > 1 ? argv[1] : "";
  if (chip != "mediatek" && chip != "unisoc") throw std::invalid_argument("CHIP is mediatek or unisoc");
  const phone::Chip family = chip == "unisoc" ? phone::Chip::kUnisoc : phone::Chip::kMediaTek;
  bench::make_phone(family);
  const std::vector<Operation> operations = bench::make_operations(family);
  if (argc == 6 && std::string(argv[2]) == "count") {
    const Operation& operation = operations.at(static_cast<size_t>(std::atoi(argv[4])));
    make_calls(operation, argv[3], std::atoi(argv[5]));
    std::puts(operation.name.c_str());
    return 0;
  }
  return run_benchmarks(operations, argc - 1, argv + 1);
} catch (const std::exception& error) {
  std::fprintf(stderr, "kelchk_bench: %s\n", error.what());
  return 2;
}
