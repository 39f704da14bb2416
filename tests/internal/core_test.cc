// The codecs and the log file, from the library's sources.
#include "core/date.h"
#include "core/log.h"
#include "core/record.h"
#include "support/phone_test.h"

namespace {

using namespace test;

TEST(Record, FindsWholeKeysOnly) {
  struct Row { const char *record, *key; size_t capacity; const char* value; };
  for (const Row& row : {Row{"factoryCert=AAA&sign=BBB", "sign", 64, "BBB"}, {"factoryCert=AAA", "Cert", 64, ""},
                         {"version=3", "ver", 64, ""},     {"x=sign=9&sign=7", "sign", 64, "7"},
                         {"k=12345&k=9", "k", 5, "9"},     {"k=1&k=2", "k", 5, "1"},
                         {"k=&k=2", "k", 5, ""},           {"k=1234", "k", 5, "1234"},
                         {"k=1234", "k", 4, ""},           {"k=1", "k", 1, ""},
                         {"", "k", 8, ""},                 {"k", "k", 8, ""},
                         {"k=QQ==", "k", 8, "QQ=="},       {"a=1&k", "k", 8, ""},
                         {"K=1", "k", 8, ""},              {" k=1", "k", 8, ""},
                         {"&&k= 1\n&", "k", 8, " 1\n"},    {"=1&k=2", "", 8, ""}}) {
    const Guarded record(row.record), value(std::string(row.capacity, '#'));
    kelchk::get_value_by_key(record.view(), row.key, value.data(), row.capacity);
    EXPECT_STREQ(value.data(), row.value) << row.record << " " << row.key;
  }
}

TEST(Dates, ComparesTheDateParts) {
  struct Row { std::string old_date, new_date; int sign; Lines log; };
  const std::string differ = "6 [compare_dates] Date format is not same: ";
  const Row rows[] = {{"240101V1", "240429V7", -1, {}}, {"240429V1", "240101V7", 1, {}},
                      {"240429", "240429V3", 0, {}},    {"240429V9", "240429V3", 0, {}},
                      {"240428xx", "240429", -1, {}},   {"V1", "V2", 0, {}},
                      {"2404", "2404", 0, {}},          {"2404", "240429", -1, {}},
                      {"2401V1", "240429V1", 2, {differ + "old_date_len=4, new_date_len=6\n"}},
                      {"20240429V3", "240429", 2, {differ + "old_date_len=8, new_date_len=6\n"}}};
  for (const auto& [old_date, new_date, sign, log] : rows) {
    const Guarded guarded_old(old_date + '\0'), guarded_new(new_date + '\0');
    const int result = kelchk::compare_dates(guarded_old.data(), guarded_new.data());
    EXPECT_EQ(log.empty() ? (result > 0) - (result < 0) : result, sign) << old_date << " " << new_date;
    EXPECT_EQ(take_log(), log);
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
