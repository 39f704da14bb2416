// What the library exports about the phone: chip family, build type, IMEI check digit, security state.
#include <gmock/gmock.h>

#include "kelchk.h"
#include "support/pki.h"

namespace {

using namespace test;
using testing::ElementsAre;

class DeviceTest : public PhoneTest {};

TEST_F(DeviceTest, TellsTheChipFamily) {
  struct Row { const char* hardware; int is_mediatek; const char* line; };
  const Row rows[] = {{"mt1234", 1, "4 chip=mt1234"}, {"MT1234", 1, "4 chip=MT1234"}, {"mt", 1, "4 chip=mt"},
                      {"Mt1234", 0, "4 chip=Mt1234"}, {"mT1234", 0, "4 chip=mT1234"}, {"ab1234", 0, "4 chip=ab1234"},
                      {"m", 0, "4 chip=m"},           {"", 0, "4 chip=false"}};
  for (const Row& row : rows) {
    set_property("ro.hardware", row.hardware);
    EXPECT_EQ(is_mt_chip(), row.is_mediatek) << row.hardware;
    EXPECT_THAT(take_log(), ElementsAre(row.line));
  }
}

TEST_F(DeviceTest, TellsTheBuildTypeSilently) {
  struct Row { const char* type; const char* user_root; const char* debuggable; int result; const char* text; };
  const Row rows[] = {{"userdebug", "", "0", 0, "userdebug"}, {"eng", "", "1", 0, "eng"},
                      {"user", "", "0", 0, "user"},           {"user", "false", "", 0, "user"},
                      {"user", "", "1", 0, "user_root"},      {"user", "", "00", 0, "user_root"},
                      {"user", "0", "0", 0, "user_root"},     {"user", "falsee", "", 0, "user_root"},
                      {"", "", "", -1, "#########"},          {"user2", "", "0", -1, "#########"},
                      {"User", "", "0", -1, "#########"},     {"userdebug2", "", "", -1, "#########"}};
  for (const Row& row : rows) {
    set_property("ro.build.type", row.type);
    set_property("ro.vendor.kelo.userroot", row.user_root);
    set_property("ro.debuggable", row.debuggable);
    const Guarded out(std::string("#########\0", 10));
    EXPECT_EQ(get_build_type(out.data()), row.result) << row.type;
    EXPECT_STREQ(out.data(), row.text) << row.type << " " << row.user_root << " " << row.debuggable;
  }
  EXPECT_THAT(take_log(), testing::IsEmpty());
}

TEST_F(DeviceTest, CalculatesTheImeiCheckDigit) {
  struct Row { std::string imei; int check; };
  const Row rows[] = {{"49015420323751", 8}, {"35209900176148", 1}, {"00000000000000", 0}, {"352099001761489", 1},
                      {"99999999999999", 4}, {"09090909090909", 7}, {"3520990017614", 8},  {"", 0},
                      {"/:a \xff\x80\xb0-.,;G@z", 0},               {"352099001761x8", 5}};
  for (const Row& row : rows) {
    const Guarded imei(row.imei.size() < 14 ? row.imei + '\0' : row.imei);
    char check = 'x';
    calc_imei_checksum(imei.data(), &check);
    EXPECT_EQ(check, row.check) << row.imei;
  }
}

// Sets every reported property to |value| and returns the report and the log that follow from it.
std::pair<std::string, Lines> set_reported(const std::string& value) {
  std::pair<std::string, Lines> expected;
  for (const std::string name : properties) {
    set_property(name, value);
    const std::string shown = value.empty() ? "false" : value;
    expected.first += name + "=" + shown + "&";
    if (shown == "false") expected.second.push_back("6 get " + name + " err");
  }
  return expected;
}

TEST_F(DeviceTest, ReportsTheseProperties) {
  std::string names;
  for (const char* const name : properties) names.append(name).append("\n");
  EXPECT_EQ(sha256(names), "6038E33EBC2835FAE7908E254D1C022242D82AE8D42E6B4F1A9DEF705321B78F") << names;
}

TEST_F(DeviceTest, ReportsTheSecurityStateWithinEveryCapacity) {
  struct Row { std::string value; size_t len; };
  for (const Row& row : {Row{"", 798}, Row{"false", 798}, Row{std::string(91, 'v'), 2862}, Row{"1", 702}}) {
    const auto [report, log] = set_reported(row.value);
    ASSERT_EQ(report.size(), row.len);
    for (const size_t capacity : {size_t{1}, size_t{2}, size_t{21}, size_t{22}, size_t{23}, size_t{24}, size_t{500},
                                  row.len - 1, row.len, row.len + 1, row.len + 2}) {
      const std::string cut = report.substr(0, capacity - 1);
      const Guarded out(std::string(capacity, '#'));
      unsigned len = 9;
      EXPECT_EQ(kelo_bsp_sec_ctrl_get(out.data(), static_cast<unsigned>(capacity), &len), 0);
      EXPECT_EQ(out.view().substr(0, cut.size() + 1), cut + '\0') << capacity;
      EXPECT_EQ(len, cut.size());
      EXPECT_EQ(take_log(), log) << "the rest is still read";
    }
  }
}

TEST_F(DeviceTest, RefusesBadReportArguments) {
  char out[] = "#";
  unsigned len = 9;
  EXPECT_EQ(kelo_bsp_sec_ctrl_get(nullptr, 4096, &len), -1);
  EXPECT_EQ(kelo_bsp_sec_ctrl_get(out, 0, &len), -1);
  EXPECT_EQ(kelo_bsp_sec_ctrl_get(out, 2, nullptr), -1);
  EXPECT_THAT(take_log(), testing::Each("6 kelo_bsp_sec_ctrl_get input err \n"));
  EXPECT_EQ(out + std::to_string(len), "#9");
}

TEST_F(DeviceTest, TellsTheEfuseOfMediaTek) {
  const std::pair<const char*, int> rows[] = {{"", 1}, {"hw", 1}, {"sw", 0}, {"hw2", 0}, {"HW", 0}, {"h", 0}};
  for (const auto& [mode, result] : rows) {
    set_property("ro.boot.efusemode", mode);
    EXPECT_EQ(is_device_efused(), result) << mode;
    EXPECT_THAT(take_log(), ElementsAre("4 chip=mt6768"));
  }
}

}  // namespace
