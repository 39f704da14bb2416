// Records and the log file, tested from the library's sources.
#include <sys/stat.h>

#include <limits>

#include "core/date.h"
#include "core/log.h"
#include "core/record.h"
#include "kelchk.h"
#include "tests/support/fault_injection.h"
#include "tests/support/phone_test.h"

namespace {

using namespace test;

TEST(Record, FindsOnlyWholeKeysWhoseValueFits) {
  struct Row {
    const char *record, *key, *value;
    size_t capacity = 8;
  };
  // clang-format off
  for (const Row& row : {
           Row{.record = "factoryCert=AAA&sign=BBB", .key = "sign", .value = "BBB"},
           Row{.record = "factoryCert=AAA", .key = "Cert", .value = ""},
           Row{.record = "version=3", .key = "ver", .value = ""},
           Row{.record = "x=sign=9&sign=7", .key = "sign", .value = "7"},
           Row{.record = "k=12345&k=9", .key = "k", .value = "9", .capacity = 5},
           Row{.record = "k=1234", .key = "k", .value = "1234", .capacity = 5},
           Row{.record = "k=1", .key = "k", .value = "", .capacity = 1},
           Row{.record = "k=1&k=2", .key = "k", .value = "1"},
           Row{.record = "k=&k=2", .key = "k", .value = ""},
           Row{.record = "", .key = "k", .value = ""},
           Row{.record = "k=QQ==", .key = "k", .value = "QQ=="},
           Row{.record = "a=1&k", .key = "k", .value = ""},
           Row{.record = "K=1", .key = "k", .value = ""},
           Row{.record = "&&k= 1\n&", .key = "k", .value = " 1\n"},
           Row{.record = "=1&k=2", .key = "", .value = ""}}) {
    // clang-format on
    const Guarded record(row.record), value(std::string(row.capacity, '#'));
    kelchk::get_value_by_key(record.view(), row.key, value.data(), row.capacity);
    EXPECT_STREQ(value.data(), row.value) << row.key << " in " << row.record;
  }
}

TEST(DateTime, IsMissingWithoutABufferOrInAYearBeyondTheCalendar) {
  EXPECT_EQ(kelchk::format_date_time(nullptr), -1);
  if (sizeof(time_t) == 4) return;
  set_clock(std::numeric_limits<time_t>::max());
  char out[kelchk::kDateTimeCap];
  EXPECT_EQ(kelchk::format_date_time(out), -1);
}

using LogFile = PhoneTest;

TEST_F(LogFile, IsEmptiedOnceItHasReachedItsLimit) {
  for (const size_t size : {0U, 102399U, 102400U, 102401U}) {
    const std::string before(size, 'x');
    write_file(KELCHK_LOG_FILE, before);
    kelchk::logToFile("a line");
    kelchk::logToFile("and another");
    const std::string kept = size < 102400 ? before : "";
    EXPECT_EQ(read_file(KELCHK_LOG_FILE), size == 102399 ? "and another\n" : kept + "a line\nand another\n") << size;
  }
  const std::string full(102400, 'x');
  write_file(KELCHK_LOG_FILE, full);
  const auto lose_line = [] { return kelchk::logToFile("lost"), 0; };
  run_with({.kind = Fault::kFails, .first = 3}, lose_line);  // the call that empties it
  EXPECT_EQ(read_file(KELCHK_LOG_FILE), full);
}

TEST_F(LogFile, TakesLinesCutToTheScratch) {
  ::umask(0);
  std::fill_n(g_log_buf, sizeof g_log_buf, '#');
  kelchk::log_file_line("line %d", 7);
  EXPECT_EQ(std::string(g_log_buf, sizeof g_log_buf), "line 7" + std::string(sizeof g_log_buf - 6, '\0'));
  kelchk::log_file_line("%s", std::string(3000, 'x').c_str());
  EXPECT_EQ(read_file(KELCHK_LOG_FILE), "line 7\n" + std::string(2047, 'x') + "\n");
  struct stat status = {};
  EXPECT_EQ(::stat(KELCHK_LOG_FILE, &status), 0);
  EXPECT_EQ(status.st_mode, S_IFREG | 0666U);

  test::remove(KELCHK_LOG_FILE);
  ::mkfifo(KELCHK_LOG_FILE, 0666);
  kelchk::logToFile("lost");
  EXPECT_EQ(take_log(), Lines()) << "a FIFO takes the line even without a reader";

  test::remove(KELCHK_STORE_BACKUP);
  kelchk::logToFile("lost");
  EXPECT_EQ(take_log(), Lines{"6 Unable to open the log file\n"});
}

}  // namespace
