// Golden files: what a test case logs, compared with tests/golden/Suite.Case.txt byte by byte. To renew them after a
// wanted change, run the tests and copy what they left: cp BUILD/tests/golden/new/* tests/golden/
#pragma once

#include <string>

#include "tests/support/phone_test.h"

namespace test {

// Compares section by section, in order. Whatever differs, a missing or an extra section too, fails the case and leaves
// the whole new file.
class Golden {
 public:
  Golden();
  Golden(const Golden&) = delete;
  ~Golden();

  void expect(const std::string& section, const Lines& lines);

 private:
  std::string name_, expected_, actual_;
};

}  // namespace test
