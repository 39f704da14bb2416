// The exported codecs and the library's state.
#include <gmock/gmock.h>

#include <climits>

#include "kelchk.h"
#include "support/phone_test.h"

namespace {

using namespace test;
using testing::ElementsAre;

// No fixture: it would set what is looked at here.
TEST(LibraryState, IsZeroWhenLoaded) {
  EXPECT_EQ(g_is_authed, 0);
  const std::string_view buffers[] = {{g_rand_buf, 256},  {g_factory_pem, 4096},  {g_para_buf, 4096},
                                      {g_log_buf, 2048},  {PARA_FILE_PATH, 256},  {g_sprd_imei, 65},
                                      {reinterpret_cast<char*>(g_factor_der), 4096}};
  for (const std::string_view buffer : buffers) EXPECT_EQ(buffer.find_first_not_of('\0'), buffer.npos);
  EXPECT_THAT(take_log(), testing::IsEmpty()) << "nothing runs when the library is loaded";
}

TEST(Hex, PacksAndUnpacks) {
  struct Row { std::string in; int len; std::string out; };
  for (const Row& row : {Row{"?0", 2, "\xf0"}, {"7", 1, "\x70"}, {"ABC", 3, "\xab\xc0"}, {"G1", 2, "\xf1"},
                         {":;<=>?", 6, "\xab\xcd\xef"}, {"@/`g\xff\x01", 6, "\xff\xff\xff"}, {"", INT_MIN, ""},
                         {"0123456789abcdefABCDEF", 22, "\x01\x23\x45\x67\x89\xab\xcd\xef\xab\xcd\xef"}}) {
    const Guarded in(row.in), out(std::string(row.out.size(), '#'));
    AscToBcd(out.bytes(), in.bytes(), row.len);
    EXPECT_EQ(out.view(), row.out) << row.in << " " << row.len;
  }
  for (const Row& row : {Row{"\x0a\xff", 3, "0AF"}, {"\x0a", 1, "0"}, {"", 0, ""},
                         {"\x12\x34\x56\x78\x9a\xbc\xde\xf0", 16, "123456789ABCDEF0"}}) {
    const Guarded in(row.in), out(std::string(row.out.size(), '#'));
    BcdToAsc(out.bytes(), in.bytes(), static_cast<unsigned>(row.len));
    EXPECT_EQ(out.view(), row.out) << row.len;
  }
}

// What LogHex shows of a prefix of so many characters and so many bytes; the line has at most 2047 characters.
TEST(LogHexLine, IsCutAtWholeBytesInsideTheScratch) {
  struct Row { size_t prefix_len; unsigned len; size_t available; size_t shown; };
  const Row rows[] = {{3, 2, 2, 2},          {0, 0, 0, 0},
                      {24, 1000, 1000, 1000}, {24, 1001, 1001, 1000}, {24, UINT_MAX, 1000, 1000},  // 1000 above 1024
                      {4, 1020, 1020, 1020},  {3, 1021, 1021, 1020},  {0, 1024, 1022, 1022},       // no cut but the end
                      {4, 1021, 1000, 1000},  {44, 1000, 1000, 1000}, {45, 1000, 999, 999},
                      {1025, 509, 509, 509},  {1025, 510, 509, 509},  {2044, 5, 0, 0}};
  for (const Row& row : rows) {
    const std::string prefix(row.prefix_len, 'p');
    const Guarded name(prefix + '\0'), data(std::string(row.available, '\x1f'));
    LogHex(name.data(), data.bytes(), row.len);
    std::string digits;
    for (size_t i = 0; i < row.shown; i++) digits += "1F";
    EXPECT_THAT(take_log(), ElementsAre("3 " + prefix + "==>" + digits + "\n")) << row.prefix_len << " " << row.len;
    EXPECT_EQ(g_log_buf, prefix + "==>" + digits);
  }
}

TEST(LogHexLine, TakesNullAndTooLongPrefixes) {
  unsigned char data[] = {0x01, 0xab};
  LogHex(nullptr, data, 2);
  LogHex(std::string(2048, 'p').data(), nullptr, UINT_MAX);
  EXPECT_THAT(take_log(), ElementsAre("3 ==>01AB\n", "3 " + std::string(2047, 'p') + "\n"));
}

}  // namespace
