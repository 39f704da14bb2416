// The benchmarks of one simulated phone, inside it:
//   kelchk_bench CHIP PROPERTIES [options of Google Benchmark]
//     prints how much longer each operation of the library takes than its floor; ends with 1 when one misses its goal
//   kelchk_bench load [options of Google Benchmark]
//     the same for loading the library
//   kelchk_bench CHIP PROPERTIES count [SIDE OPERATION CALLS]
//     only makes the calls, for a tool that counts, and prints how often they read a property: SIDE is library, floor
//     or nothing, OPERATION a number from 0 on; without them names the operations
// PROPERTIES is where they are read from: file or memory.
#include <benchmark/benchmark.h>
#include <valgrind/callgrind.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <exception>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/operations.h"
#include "bench/system.h"

namespace {

using bench::Operation;
using Call = std::function<bool()>;

constexpr int kBlocks = 25;
constexpr double kBlockSeconds = 0.1;
constexpr double kLoadGoal = 1.10;

// What is timed: both sides, each of which returns the seconds that it took.
struct Pair {
  std::string name;
  double goal;
  std::function<void()> arrange;
  std::function<double()> library, floor;
};

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

// In a new process, which has nothing loaded that the library needs.
double time_load(const char* library) {
  FILE* const process = ::popen((std::string("exec " LOAD_TIME " ") + library).c_str(), "re");
  double nanoseconds = 0;
  const bool ok = process != nullptr && std::fscanf(process, "%lf", &nanoseconds) == 1;
  if (process == nullptr || ::pclose(process) != 0 || !ok)
    throw std::runtime_error(std::string("cannot load ") + library);
  return nanoseconds / 1e9;
}

std::vector<Pair> make_pairs(const std::vector<Operation>& operations) {
  std::vector<Pair> pairs;
  for (const Operation& operation : operations) {
    pairs.push_back({operation.name, operation.goal, operation.arrange,
                     [&operation] { return time_call(operation, operation.library); },
                     [&operation] { return time_call(operation, operation.floor); }});
  }
  return pairs;
}

Pair make_load_pair() {
  return {"dlopen", kLoadGoal, nullptr, [] { return time_load(LOAD_FOLDER "/libkelchk.so"); },
          [] { return time_load(LOAD_FOLDER "/libempty.so"); }};
}

double middle(std::vector<double> values) {
  const auto half = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), half, values.end());
  return *half;
}

// One block. Library and floor alternate call by call, so that both meet the same machine, and the middle one of each
// side's times stands for it: what interrupts a few calls does not count.
void run_block(benchmark::State& state, const Pair& pair) {
  if (pair.arrange) pair.arrange();
  std::vector<double> library, floor;
  for (auto _ : state) {
    library.push_back(pair.library());
    floor.push_back(pair.floor());
    state.SetIterationTime(library.back() + floor.back());
  }
  state.counters["floor"] = middle(floor);
  state.counters["ratio"] = middle(library) / middle(floor);
}

class Table : public benchmark::BenchmarkReporter {
 public:
  explicit Table(const std::vector<Pair>& pairs) : pairs_(pairs) {}

  bool ReportContext(const Context&) override {
    std::printf(
        "| operation | floor, us | ratio | lowest and highest of %d blocks | goal |\n"
        "| --- | ---: | ---: | :---: | ---: |\n",
        kBlocks);
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
    std::printf("| %s | %.1f | %.3f | %.3f to %.3f | %s |\n", name.c_str(), middle(floors) * 1e6, middle(ratios),
                *lowest, *highest, verdict(name, middle(ratios)).c_str());
    std::fflush(stdout);
  }

  bool missed() const { return missed_; }

 private:
  std::string verdict(const std::string& name, double ratio) {
    const auto pair = std::find_if(pairs_.begin(), pairs_.end(), [&](const Pair& p) { return p.name == name; });
    if (pair == pairs_.end() || pair->goal == 0) return "";
    char goal[32];
    std::snprintf(goal, sizeof goal, "%.2f", pair->goal);
    if (ratio <= pair->goal) return goal;
    missed_ = true;
    return std::string(goal) + " missed";
  }

  const std::vector<Pair>& pairs_;
  bool missed_ = false;
};

int run_benchmarks(const std::vector<Pair>& pairs, int argc, char** argv) {
  for (const Pair& pair : pairs) {
    benchmark::RegisterBenchmark(pair.name.c_str(), [&pair](benchmark::State& state) { run_block(state, pair); })
        ->UseManualTime()
        ->MinTime(kBlockSeconds)
        ->Repetitions(kBlocks);
  }
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
  Table table(pairs);
  benchmark::RunSpecifiedBenchmarks(&table);
  return table.missed() ? 1 : 0;
}

void make_calls(const Operation& operation, const std::string& side, int calls) {
  bench::flush_to_storage();
  if (operation.arrange) operation.arrange();
  const Call nothing = [] { return true; };
  const Call& call = side == "library" ? operation.library : side == "floor" ? operation.floor : nothing;
  const int before = bench::properties_read();
  for (int i = 0; i < calls; ++i) time_call(operation, call);
  std::printf("%d\n", bench::properties_read() - before);
}

}  // namespace

int main(int argc, char** argv) try {
  if (argc > 1 && std::string(argv[1]) == "load") return run_benchmarks({make_load_pair()}, argc - 1, argv + 1);
  const std::string chip = argc > 2 ? argv[1] : "";
  const std::string properties = argc > 2 ? argv[2] : "";
  if (chip != "mediatek" && chip != "unisoc") throw std::invalid_argument("CHIP is mediatek or unisoc");
  if (properties != "file" && properties != "memory") throw std::invalid_argument("PROPERTIES is file or memory");
  const auto family = chip == "unisoc" ? phone::Chip::kUnisoc : phone::Chip::kMediaTek;
  const phone::Identity identity = phone::default_identity(family);
  bench::make_phone(identity);
  if (properties == "memory") bench::keep_properties_in_memory(identity);

  const std::vector<Operation> operations = bench::make_operations(family);
  if (argc < 4 || std::string(argv[3]) != "count") return run_benchmarks(make_pairs(operations), argc - 2, argv + 2);
  const std::string side = argc == 7 ? argv[4] : "";
  if (side.empty()) {
    for (const Operation& operation : operations) std::puts(operation.name.c_str());
  } else {
    make_calls(operations.at(std::stoul(argv[5])), side, std::stoi(argv[6]));
  }
  return 0;
} catch (const std::exception& error) {
  std::fprintf(stderr, "kelchk_bench: %s\n", error.what());
  return 2;
}
