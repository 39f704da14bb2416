// What the library exports besides its operations on records: codecs, facts about the phone, the security report.
#include <gmock/gmock.h>

#include <climits>

#include "kelchk.h"
#include "tests/support/pki.h"

namespace {

using namespace test;
using testing::ElementsAre;

// No fixture: it would set what is looked at here.
TEST(LibraryState, IsZeroWhenLoaded) {
  EXPECT_EQ(g_is_authed, 0);
  EXPECT_THAT(take_log(), testing::IsEmpty()) << "nothing runs when the library is loaded";
}

TEST(Hex, PacksAndUnpacks) {
  struct Row {
    std::string in;
    int len;
    std::string out;
  };
  for (const Row& row : {Row{"?0", 2, "\xf0"},
                         {"7", 1, "\x70"},
                         {"ABC", 3, "\xab\xc0"},
                         {"G1", 2, "\xf1"},
                         {":;<=>?", 6, "\xab\xcd\xef"},
                         {"@/`g\xff\x01", 6, "\xff\xff\xff"},
                         {"", INT_MIN, ""},
                         {"0123456789abcdefABCDEF", 22, "\x01\x23\x45\x67\x89\xab\xcd\xef\xab\xcd\xef"}}) {
    const Guarded in(row.in), out(std::string(row.out.size(), '#'));
    AscToBcd(out.bytes(), in.bytes(), row.len);
    EXPECT_EQ(out.view(), row.out) << row.in << " " << row.len;
  }
  for (const Row& row : {Row{"\x0a\xff", 3, "0AF"},
                         {"\x0a", 1, "0"},
                         {"", 0, ""},
                         {"\x12\x34\x56\x78\x9a\xbc\xde\xf0", 16, "123456789ABCDEF0"}}) {
    const Guarded in(row.in), out(std::string(row.out.size(), '#'));
    BcdToAsc(out.bytes(), in.bytes(), static_cast<unsigned>(row.len));
    EXPECT_EQ(out.view(), row.out) << row.len;
  }
}

// What LogHex shows of a prefix of so many characters and so many bytes; the line has at most 2047 characters.
TEST(LogHexLine, IsCutAtWholeBytesInsideTheScratch) {
  struct Row {
    size_t prefix_len;
    unsigned len;
    size_t shown;
  };
  for (const Row& row : {Row{0, 0, 0},
                         {24, 1000, 1000},
                         {24, 1001, 1000},
                         {24, UINT_MAX, 1000},  // 1000 above 1024
                         {4, 1020, 1020},
                         {0, 1024, 1022},
                         {4, 1021, 1000},
                         {45, 1000, 999},
                         {1025, 1001, 509},
                         {2044, 5, 0},
                         {2045, 0, 0},
                         {2048, 5, 0}}) {
    const std::string prefix(row.prefix_len, 'p');
    const Guarded name(prefix + '\0'), data(std::string(row.shown, '\x1f'));
    LogHex(name.data(), data.bytes(), row.len);
    std::string line = prefix + "==>";
    for (size_t i = 0; i < row.shown; i++) line += "1F";
    EXPECT_THAT(take_log(), ElementsAre("3 " + line.substr(0, 2047) + "\n")) << row.prefix_len << " " << row.len;
  }
  LogHex(nullptr, nullptr, UINT_MAX);
  EXPECT_THAT(take_log(), ElementsAre("3 ==>\n"));
}

class ExportsTest : public PhoneTest {};

TEST_F(ExportsTest, TellTheChipFamily) {
  struct Row {
    const char* hardware;
    int is_mediatek;
    const char* line;
  };
  for (const Row& row : {Row{"mt1234", 1, "4 chip=mt1234"},
                         {"MT1234", 1, "4 chip=MT1234"},
                         {"mt", 1, "4 chip=mt"},
                         {"Mt1234", 0, "4 chip=Mt1234"},
                         {"mT1234", 0, "4 chip=mT1234"},
                         {"", 0, "4 chip=false"}}) {
    set_property("ro.hardware", row.hardware);
    EXPECT_EQ(is_mt_chip(), row.is_mediatek) << row.hardware;
    EXPECT_THAT(take_log(), ElementsAre(row.line));
  }
}

TEST_F(ExportsTest, TellTheBuildTypeSilently) {
  struct Row {
    const char *type, *user_root, *debuggable;
    int result;
    const char* text;
  };
  for (const Row& row : {Row{"userdebug", "", "0", 0, "userdebug"},
                         {"eng", "", "1", 0, "eng"},
                         {"user", "", "0", 0, "user"},
                         {"user", "false", "", 0, "user"},
                         {"user", "", "1", 0, "user_root"},
                         {"user", "", "00", 0, "user_root"},
                         {"user", "0", "0", 0, "user_root"},
                         {"user", "falsee", "", 0, "user_root"},
                         {"", "", "", -1, "#########"},
                         {"user2", "", "0", -1, "#########"},
                         {"User", "", "0", -1, "#########"},
                         {"userdebug2", "", "", -1, "#########"}}) {
    set_property("ro.build.type", row.type);
    set_property("ro.vendor.kelo.userroot", row.user_root);
    set_property("ro.debuggable", row.debuggable);
    const Guarded out(std::string("#########\0", 10));
    EXPECT_EQ(get_build_type(out.data()), row.result) << row.type;
    EXPECT_STREQ(out.data(), row.text) << row.type << " " << row.user_root << " " << row.debuggable;
  }
  EXPECT_THAT(take_log(), testing::IsEmpty());
}

TEST_F(ExportsTest, CalculateTheImeiCheckDigit) {
  const std::pair<std::string, int> rows[] = {{"49015420323751", 8},
                                              {"35209900176148", 1},
                                              {"00000000000000", 0},
                                              {"99999999999999", 4},
                                              {"09090909090909", 7},
                                              {"3520990017614", 8},
                                              {"", 0},
                                              {"/:a \xff\x80\xb0-.,;G@z", 0},
                                              {"352099001761x8", 5}};
  for (const auto& [digits, expected] : rows) {
    const Guarded imei(digits.size() < 14 ? digits + '\0' : digits);
    char check = 'x';
    calc_imei_checksum(imei.data(), &check);
    EXPECT_EQ(check, expected) << digits;
  }
}

TEST_F(ExportsTest, ReportTheSecurityStateWithinEveryCapacity) {
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
    for (const size_t capacity : {size_t{1}, size_t{22}, size_t{23}, report.size(), report.size() + 1, size_t{2863}}) {
      const std::string cut = report.substr(0, capacity - 1);
      const Guarded out(std::string(capacity, '#'));
      unsigned len = 9;
      EXPECT_EQ(kelo_bsp_sec_ctrl_get(out.data(), static_cast<unsigned>(capacity), &len), 0);
      EXPECT_EQ(out.view().substr(0, cut.size() + 1), cut + '\0') << capacity;
      EXPECT_EQ(len, cut.size());
      EXPECT_EQ(take_log(), log) << "the rest is still read";
    }
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
