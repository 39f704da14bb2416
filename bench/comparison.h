// Times an operation beside what it cannot do without, and checks the ratio against a goal.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace bench {

struct Comparison {
  std::string name;
  double goal = 0;                     // the highest ratio that passes; 0: none
  std::function<void()> arrange = {};  // brings the phone into the state that the calls need; once a block
  std::function<double()> subject;     // both make one call and return the seconds that it took
  std::function<double()> baseline;
};

// Runs the comparisons, prints a table of their ratios and returns 0, 1 when a ratio misses its goal, or 2 when |argv|
// holds something that is no option of Google Benchmark. Each 0.1 s block reports its median; the result is the median
// of 25 block ratios.
int run_comparisons(const std::vector<Comparison>& comparisons, int argc, char** argv);

}  // namespace bench
