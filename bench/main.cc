// The benchmarks of one simulated phone, inside it:
//   kelchk_bench CHIP PROPERTIES [options of Google Benchmark]
//     prints how much longer each operation of the library takes than its floor; exits with 1 when one misses its goal
//   kelchk_bench load [options of Google Benchmark]
//     the same for loading the library
//   kelchk_bench openssl | sessions KELSIGN | check KELPHONE [options of Google Benchmark]
//     the same for a login verified by hand with OpenSSL 3, for signing sessions and for a whole program
//   kelchk_bench CHIP PROPERTIES count [SIDE OPERATION CALLS]
//     only makes the calls, for a tool that counts, and prints how many properties they read: SIDE is library, floor
//     or nothing, OPERATION a number from 0; without these three it lists the operations
// PROPERTIES is where properties are read from: file or memory.
#include <fmt/format.h>
#include <valgrind/callgrind.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <functional>
#include <iostream>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/comparison.h"
#include "bench/operations.h"
#include "bench/programs.h"
#include "bench/provisioning.h"
#include "bench/system.h"

namespace {

using bench::Comparison;
using bench::Operation;
using Call = std::function<bool()>;
using Words = std::vector<std::string>;

constexpr double kLoadGoal = 1.10;

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

struct ClosePipe {
  void operator()(FILE* process) const { ::pclose(process); }
};

// In a new process, which has loaded nothing that the library needs.
double time_load(const std::string& library) {
  const std::string command = "exec " LOAD_TIME " " + library;
  std::unique_ptr<FILE, ClosePipe> process(
      ::popen(command.c_str(), "re"));  // NOLINT(cert-env33-c): both paths are ours
  char text[32] = "";
  const bool has_answer = process && std::fgets(text, sizeof text, process.get()) != nullptr;
  const double nanoseconds = std::strtod(text, nullptr);
  if (!has_answer || ::pclose(process.release()) != 0 || nanoseconds <= 0) {
    throw std::runtime_error("cannot load " + library);
  }
  return nanoseconds / 1e9;
}

Comparison compare_sides(const Operation& operation) {
  return {.name = operation.name,
          .goal = operation.goal,
          .arrange = operation.arrange,
          .subject = [operation] { return time_call(operation, operation.library); },
          .baseline = [operation] { return time_call(operation, operation.floor); }};
}

Comparison compare_loading() {
  return {.name = "dlopen",
          .goal = kLoadGoal,
          .subject = [] { return time_load(LOAD_FOLDER "/libkelchk.so"); },
          .baseline = [] { return time_load(LOAD_FOLDER "/libempty.so"); }};
}

Call call_of(const Operation& operation, const std::string& side) {
  if (side == "library") return operation.library;
  if (side == "floor") return operation.floor;
  if (side == "nothing") return [] { return true; };
  throw std::invalid_argument("SIDE is library, floor or nothing");
}

void make_calls(const Operation& operation, const std::string& side, int calls) {
  const Call call = call_of(operation, side);
  bench::flush_to_storage();
  if (operation.arrange) operation.arrange();
  const int before = bench::properties_read();
  for (int i = 0; i < calls; ++i) time_call(operation, call);
  fmt::print("{}\n", bench::properties_read() - before);
}

// |words| are what follows "count".
int count(const std::vector<Operation>& operations, const Words& words) {
  if (words.empty()) {
    for (const Operation& operation : operations) fmt::print("{}\n", operation.name);
    return 0;
  }
  if (words.size() != 3) throw std::invalid_argument("after \"count\": SIDE OPERATION CALLS");
  make_calls(operations.at(std::stoul(words[1])), words[0], std::stoi(words[2]));
  return 0;
}

phone::Chip parse_chip(const std::string& name) {
  if (name == "mediatek") return phone::Chip::kMediaTek;
  if (name == "unisoc") return phone::Chip::kUnisoc;
  throw std::invalid_argument("CHIP is mediatek or unisoc");
}

void prepare_phone(phone::Chip chip, const std::string& properties) {
  if (properties != "file" && properties != "memory") throw std::invalid_argument("PROPERTIES is file or memory");
  const phone::Identity identity = phone::default_identity(chip);
  bench::make_phone(identity);
  if (properties == "memory") bench::keep_properties_in_memory(identity);
}

// Modes that choose their phone themselves, and whether they take a program.
const std::map<std::string, bool>& program_modes() {
  static const std::map<std::string, bool> modes = {
      {"load", false}, {"openssl", false}, {"sessions", true}, {"check", true}};
  return modes;
}

std::vector<Comparison> compare_programs(const std::string& mode, const std::string& program) {
  if (mode == "load") return {compare_loading()};
  if (mode == "sessions") return bench::compare_sessions(program);
  prepare_phone(phone::Chip::kMediaTek, "file");
  const bench::Provisioning provisioning = bench::provision(phone::Chip::kMediaTek);
  if (mode == "openssl") return {bench::compare_with_openssl(provisioning)};
  return {bench::compare_check(provisioning, program)};
}

int run(int argc, char** argv) {
  const Words words(argv + 1, argv + argc);
  const auto mode = program_modes().find(words.empty() ? "" : words[0]);
  const bool has_mode = mode != program_modes().end();
  const size_t needed = has_mode && !mode->second ? 1 : 2;
  if (words.size() < needed) throw std::invalid_argument("too few arguments; bench/main.cc names them");
  const int used = static_cast<int>(needed);
  if (has_mode) {
    return bench::run_comparisons(compare_programs(words[0], needed == 2 ? words[1] : ""), argc - used, argv + used);
  }

  const phone::Chip chip = parse_chip(words[0]);
  prepare_phone(chip, words[1]);
  const std::vector<Operation> operations = bench::make_operations(bench::provision(chip));
  if (words.size() > 2 && words[2] == "count") return count(operations, {words.begin() + 3, words.end()});

  std::vector<Comparison> comparisons;
  comparisons.reserve(operations.size());
  for (const Operation& operation : operations) comparisons.push_back(compare_sides(operation));
  return bench::run_comparisons(comparisons, argc - 2, argv + 2);
}

}  // namespace

int main(int argc, char** argv) try { return run(argc, argv); } catch (const std::exception& error) {
  std::cerr << "kelchk_bench: " << error.what() << "\n";
  return 2;
}
