// Records and the log file, from the library's sources.
#include "core/log.h"
#include "core/record.h"
#include "tests/support/phone_test.h"

namespace {

using namespace test;

TEST(Record, FindsWholeKeysOnly) {
  struct Row {
    const char *record, *key;
    size_t capacity;
    const char* value;
  };
  for (const Row& row : {Row{"factoryCert=AAA&sign=BBB", "sign", 64, "BBB"},
                         {"factoryCert=AAA", "Cert", 64, ""},
                         {"version=3", "ver", 64, ""},
                         {"x=sign=9&sign=7", "sign", 64, "7"},
                         {"k=12345&k=9", "k", 5, "9"},
                         {"k=1&k=2", "k", 5, "1"},
                         {"k=&k=2", "k", 5, ""},
                         {"k=1234", "k", 5, "1234"},
                         {"k=1234", "k", 4, ""},
                         {"k=1", "k", 1, ""},
                         {"", "k", 8, ""},
                         {"k", "k", 8, ""},
                         {"k=QQ==", "k", 8, "QQ=="},
                         {"a=1&k", "k", 8, ""},
                         {"K=1", "k", 8, ""},
                         {" k=1", "k", 8, ""},
                         {"&&k= 1\n&", "k", 8, " 1\n"},
                         {"=1&k=2", "", 8, ""}}) {
    const Guarded record(row.record), value(std::string(row.capacity, '#'));
    kelchk::get_value_by_key(record.view(), row.key, value.data(), row.capacity);
    EXPECT_STREQ(value.data(), row.value) << row.record << " " << row.key;
  }
}

class LogFileTest : public PhoneTest {};

TEST_F(LogFileTest, IsEmptiedOnceItHasReachedItsLimit) {
  constexpr char kLogFile[] = "/kelofs/startPara/log.txt";
  for (const size_t size : {size_t{0}, size_t{102399}, size_t{102400}, size_t{102401}}) {
    const std::string before(size, 'x');
    write_file(kLogFile, before);
    kelchk::logToFile("a line");
    kelchk::logToFile("and another");
    const std::string kept = size < 102400 ? before : "";
    EXPECT_EQ(read_file(kLogFile), size == 102399 ? "and another\n" : kept + "a line\nand another\n") << size;
  }
  test::remove("/kelofs/startPara");
  kelchk::logToFile("lost");
  EXPECT_EQ(take_log(), Lines{"6 Unable to open the log file\n"});
}

}  // namespace
