// What the library exports besides its operations on records: codecs, facts about the phone, the security report.
#include <gmock/gmock.h>

#include <climits>

#include "kelchk.h"
#include "tests/support/pki.h"

namespace {

using namespace test;
using testing::ElementsAre;

// No fixture: it would reset what is checked here.
TEST(LibraryState, IsZeroAndNothingHasRunAfterLoading) {
  EXPECT_EQ(g_is_authed, 0);
  EXPECT_THAT(take_log(), testing::IsEmpty());
}

TEST(Hex, PacksAndUnpacksOddLengthsAndForeignCharacters) {
  struct Row {
    std::string in;
    int len;
    std::string out;
  };
  for (const Row& row :
       {Row{.in = "?0", .len = 2, .out = "\xf0"}, Row{.in = "7", .len = 1, .out = "\x70"},
        Row{.in = "ABC", .len = 3, .out = "\xab\xc0"}, Row{.in = "G1", .len = 2, .out = "\xf1"},
        Row{.in = ":;<=>?", .len = 6, .out = "\xab\xcd\xef"},
        Row{.in = "@/`g\xff\x01", .len = 6, .out = "\xff\xff\xff"}, Row{.in = "", .len = INT_MIN, .out = ""},
        Row{.in = "0189afAF", .len = 8, .out = "\x01\x89\xaf\xaf"}}) {
    const Guarded in(row.in), out(std::string(row.out.size(), '#'));
    AscToBcd(out.bytes(), in.bytes(), row.len);
    EXPECT_EQ(out.view(), row.out) << row.in;
  }
  for (const Row& row : {Row{.in = "\x0a\xff", .len = 3, .out = "0AF"}, Row{.in = "\x0a", .len = 1, .out = "0"},
                         Row{.in = "", .len = 0, .out = ""},
                         Row{.in = "\x12\x34\x56\x78\x9a\xbc\xde\xf0", .len = 16, .out = "123456789ABCDEF0"}}) {
    const Guarded in(row.in), out(std::string(row.out.size(), '#'));
    BcdToAsc(out.bytes(), in.bytes(), static_cast<unsigned>(row.len));
    EXPECT_EQ(out.view(), row.out) << row.len;
  }
}

TEST(LogHexLine, IsCutAtWholeBytesInsideTheScratch) {
  struct Row {
    size_t prefix_len;
    unsigned len;
    size_t shown;
  };
  for (const Row& row :
       {Row{.prefix_len = 0, .len = 0, .shown = 0}, Row{.prefix_len = 24, .len = 1000, .shown = 1000},
        Row{.prefix_len = 24, .len = 1001, .shown = 1000}, Row{.prefix_len = 24, .len = UINT_MAX, .shown = 1000},
        Row{.prefix_len = 4, .len = 1020, .shown = 1020}, Row{.prefix_len = 0, .len = 1024, .shown = 1022},
        Row{.prefix_len = 4, .len = 1021, .shown = 1000}, Row{.prefix_len = 45, .len = 1000, .shown = 999},
        Row{.prefix_len = 1025, .len = 1001, .shown = 509}, Row{.prefix_len = 1025, .len = 5, .shown = 5},
        Row{.prefix_len = 2044, .len = 5, .shown = 0}, Row{.prefix_len = 2045, .len = 0, .shown = 0},
        Row{.prefix_len = 2048, .len = 5, .shown = 0}}) {
    const std::string prefix(row.prefix_len, 'p');
    const Guarded name(prefix + '\0'), data(std::string(row.shown, '\x1f'));
    LogHex(name.data(), data.bytes(), row.len);
    std::string line = prefix + "==>";
    for (size_t i = 0; i < row.shown; i++) line += "1F";
    line.resize(std::min(line.size(), sizeof g_log_buf - 1));
    EXPECT_THAT(take_log(), ElementsAre("3 " + line + "\n")) << row.len << " bytes after " << row.prefix_len;
  }
  LogHex(nullptr, nullptr, UINT_MAX);
  EXPECT_THAT(take_log(), ElementsAre("3 ==>\n"));
}

using ChipFamily = PhoneTest;
using BuildType = PhoneTest;
using SecurityReport = PhoneTest;

TEST_F(ChipFamily, IsMediaTekWhenTheHardwareStartsWithMtInOneCase) {
  for (const std::string hardware : {"mt1234", "MT1234", "mt", "Mt1234", "mT1234", ""}) {
    set_property("ro.hardware", hardware);
    EXPECT_EQ(is_mt_chip(), hardware.starts_with("mt") || hardware.starts_with("MT") ? 1 : 0) << hardware;
    EXPECT_THAT(take_log(), ElementsAre("4 chip=" + (hardware.empty() ? "false" : hardware)));
  }
}

TEST_F(BuildType, DistinguishesRootedUserBuildsAndLogsNothing) {
  const std::string untouched(KELCHK_BUILD_TYPE_CAP - 1, '#');
  struct Row {
    const char *type, *user_root, *debuggable, *text = nullptr;  // no text when the type is unknown
  };
  // clang-format off
  for (const Row& row : {
      Row{.type = "userdebug", .user_root = "", .debuggable = "0", .text = "userdebug"},
      Row{.type = "eng", .user_root = "", .debuggable = "1", .text = "eng"},
      Row{.type = "user", .user_root = "", .debuggable = "0", .text = "user"},
      Row{.type = "user", .user_root = "false", .debuggable = "", .text = "user"},
      Row{.type = "user", .user_root = "", .debuggable = "1", .text = "user_root"},
      Row{.type = "user", .user_root = "", .debuggable = "00", .text = "user_root"},
      Row{.type = "user", .user_root = "0", .debuggable = "0", .text = "user_root"},
      Row{.type = "user", .user_root = "falsee", .debuggable = "", .text = "user_root"},
      Row{.type = "", .user_root = "", .debuggable = ""},
      Row{.type = "user2", .user_root = "", .debuggable = "0"},
      Row{.type = "User", .user_root = "", .debuggable = "0"},
      Row{.type = "userdebug2", .user_root = "", .debuggable = ""}}) {
    // clang-format on
    set_property("ro.build.type", row.type);
    set_property("ro.vendor.kelo.userroot", row.user_root);
    set_property("ro.debuggable", row.debuggable);
    const Guarded out(untouched + '\0');
    EXPECT_EQ(get_build_type(out.data()), row.text != nullptr ? 0 : -1) << row.type;
    EXPECT_EQ(out.data(), row.text != nullptr ? row.text : untouched) << row.type << row.user_root << row.debuggable;
  }
  EXPECT_THAT(take_log(), testing::IsEmpty());
}

TEST(ImeiCheckDigit, CountsOtherCharactersAsZeroAndStopsAtTheEnd) {
  struct Row {
    std::string digits;
    int check;
  };
  for (const Row& row : {Row{.digits = "49015420323751", .check = 8}, Row{.digits = "35209900176148", .check = 1},
                         Row{.digits = "00000000000000", .check = 0}, Row{.digits = "99999999999999", .check = 4},
                         Row{.digits = "09090909090909", .check = 7}, Row{.digits = "3520990017614", .check = 8},
                         Row{.digits = "", .check = 0}, Row{.digits = "/:a \xff\x80\xb0-.,;G@z", .check = 0},
                         Row{.digits = "352099001761x8", .check = 5}}) {
    const Guarded imei(row.digits.size() < KELCHK_IMEI_LEN - 1 ? row.digits + '\0' : row.digits);
    char check = 'x';
    calc_imei_checksum(imei.data(), &check);
    EXPECT_EQ(check, row.check) << row.digits;
  }
}

TEST_F(SecurityReport, IsCutToItsCapacityAndReadsEveryProperty) {
  std::string names;
  for (const char* const name : properties) names.append(name).append("\n");
  EXPECT_EQ(sha256(names), "6038E33EBC2835FAE7908E254D1C022242D82AE8D42E6B4F1A9DEF705321B78F") << names;
  for (const std::string& value : {std::string("false"), std::string(91, 'v')}) {
    std::string report;
    Lines log;
    for (const std::string name : properties) {
      set_property(name, value == "false" ? "" : value);
      report += name + "=" + value + "&";
      if (value == "false") log.push_back("6 get " + name + " err");
    }
    for (const size_t capacity : {size_t{1}, size_t{22}, report.size(), report.size() + 1}) {
      const std::string cut = report.substr(0, capacity - 1);
      const Guarded out(std::string(capacity, '#'));
      unsigned len = 9;
      EXPECT_EQ(kelo_bsp_sec_ctrl_get(out.data(), static_cast<unsigned>(capacity), &len), 0);
      EXPECT_EQ(out.view(), cut + '\0') << capacity;
      EXPECT_EQ(len, cut.size());
      EXPECT_EQ(take_log(), log) << "the remaining properties are still read";
    }
    EXPECT_LE(report.size(), KELCHK_SECURITY_REPORT_CAP - 1U);
  }
  char out[] = "#";
  unsigned len = 9;
  EXPECT_EQ(kelo_bsp_sec_ctrl_get(nullptr, 4096, &len), -1);
  EXPECT_EQ(kelo_bsp_sec_ctrl_get(out, 0, &len), -1);
  EXPECT_EQ(kelo_bsp_sec_ctrl_get(out, 2, nullptr), -1);
  EXPECT_EQ(take_log(), Lines(3, "6 kelo_bsp_sec_ctrl_get input err \n"));
  EXPECT_EQ(out + std::to_string(len), "#9");
}

}  // namespace
