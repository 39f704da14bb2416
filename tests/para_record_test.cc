// Building the device parameter record of a phone.
#include <cstring>

#include "kelchk.h"
#include "tests/support/golden.h"
#include "tests/support/stored_file.h"

namespace {

using namespace test;
using ParaRecord = RecordTest;

// Asks for the record; an empty one has been refused. What is not the record's in the caller's memory stays untouched.
std::string get_record(const std::string& request) {
  std::string out(KELCHK_RECORD_MAX + 100, '~');
  unsigned len = 7777;
  const int result = kelo_get_para(request.c_str(), 1, out.data(), &len);
  const std::string record = out.substr(0, result == 0 ? len : 0);
  EXPECT_EQ(out.substr(record.size()), std::string(out.size() - record.size(), '~'));
  EXPECT_EQ(len, result == 0 ? record.size() : 7777);
  EXPECT_EQ(result, record.empty() ? -1 : 0);
  return record;
}

TEST_F(ParaRecord, DescribesThePhone) {
  for (const Family& family : {kMediaTek, kUnisoc}) {
    start(family);
    std::memset(g_para_buf, 'x', sizeof g_para_buf);
    EXPECT_EQ(get_record(family.request), family.record);
    EXPECT_EQ(content_of(g_para_buf), family.record);
    expect_golden("record_" + family.name + ".log", take_transcript("kelo_get_para"));
  }
}

TEST_F(ParaRecord, TakesTheFeatureCodeFromTheRequest) {
  const std::string longest(KELCHK_FEATURE_CODE_MAX, 'x'), too_long = longest + "x", absent(2048, 'x');
  struct {
    std::string name, request, code;
  } const rows[] = {{.name = "mac first", .request = "mac=AB12&featureCode=X9", .code = "AB12"},
                    {.name = "no whole key", .request = "phonemac=AB12&featureCode=&x=", .code = ""},
                    {.name = "empty mac", .request = "mac=&featureCode=" + longest, .code = longest},
                    {.name = "mac above every limit", .request = "mac=" + absent + "&featureCode=X9", .code = "X9"},
                    {.name = "mac too long", .request = "mac=" + too_long + "&featureCode=X9", .code = ""},
                    {.name = "code too long", .request = "featureCode=" + too_long, .code = ""}};
  std::string logs;
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    const std::string expected = row.code.empty() ? "" : with_value(kMediaTek.record, "featureCode", row.code);
    EXPECT_EQ(get_record(row.request), expected);
    EXPECT_EQ(content_of(g_para_buf), expected);
    const Lines log = take_log();
    logs += "== " + row.name + "\n" + transcript(row.code.empty() ? log : errors(log));
  }
  expect_golden("feature_codes.log", logs);
}

TEST_F(ParaRecord, RefusesAnInvalidImei) {
  const std::string valid = "490154203237518", longest(64, '1');
  Lines imeis = {valid, "490154203237517", "49015420323751", longest, longest + "1"};
  // All zeros would be valid, and a character that is no digit counts as zero.
  for (size_t at = 0; at < KELCHK_IMEI_LEN; at++) {
    for (const char character : {' ', '/', ':', '\x80', '\xFF'}) {
      imeis.push_back(std::string(KELCHK_IMEI_LEN, '0').replace(at, 1, 1, character));
    }
  }
  start(kUnisoc);
  set_property("ro.bootmode", "recovery");  // then the request's IMEI goes into the record
  std::string logs;
  for (const std::string& imei : imeis) {
    SCOPED_TRACE(testing::PrintToString(imei));
    std::memset(g_sprd_imei, 'x', sizeof g_sprd_imei);
    EXPECT_EQ(get_record("mac=FC01&IMEI=" + imei), imei == valid ? with_value(kUnisoc.record, "imei", imei) : "");
    EXPECT_EQ(content_of(g_sprd_imei), imei.size() < sizeof g_sprd_imei ? imei : "");
    logs += "== " + testing::PrintToString(imei) + "\n" + transcript(errors(take_log()));
  }
  expect_golden("request_imeis.log", logs);
}

TEST_F(ParaRecord, EndsAtTheFirstValueThatThePhoneLacks) {
  std::string logs;
  for (const auto& [family, key, remove] : kMissingValues) {
    SCOPED_TRACE(family->name + " " + key);
    start(*family);
    remove();
    EXPECT_EQ(get_record(family->request), "");
    EXPECT_EQ(content_of(g_para_buf), family->record.substr(0, family->record.find(key + "=")));
    logs += "== " + family->name + " without " + key + "\n" + transcript(take_log());
  }
  expect_golden("record_failures.log", logs);
}

}  // namespace
