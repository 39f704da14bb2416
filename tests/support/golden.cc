#include "tests/support/golden.h"

#include <filesystem>
#include <fstream>
#include <iterator>

namespace test {

Golden::Golden() {
  const testing::TestInfo& info = *testing::UnitTest::GetInstance()->current_test_info();
  name_ = std::string(info.test_suite_name()) + "." + info.name() + ".txt";
  std::ifstream file(TEST_GOLDEN "/" + name_);
  expected_.assign(std::istreambuf_iterator<char>(file), {});
}

Golden::~Golden() {
  EXPECT_TRUE(actual_ == expected_) << "tests/golden/" << name_ << " differs from BUILD/tests/golden/new/" << name_;
  if (actual_ == expected_) return;
  std::filesystem::create_directories(TEST_GOLDEN "/new");
  std::ofstream(TEST_GOLDEN "/new/" + name_) << actual_;
}

void Golden::expect(const std::string& section, const Lines& lines) {
  std::string text = "# " + section + "\n";
  for (const std::string& line : lines) text += testing::PrintToString(line) + "\n";
  const size_t begin = std::min(actual_.size(), expected_.size());
  EXPECT_EQ(expected_.substr(begin, text.size()), text);
  actual_ += text;
}

}  // namespace test
