// What the library reads from the phone, tested from its sources.
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <functional>
#include <optional>

#include "device/attributes.h"
#include "device/identifiers.h"
#include "device/nvram.h"
#include "kelchk.h"
#include "tests/support/fault_injection.h"
#include "tests/support/golden.h"
#include "tests/support/pki.h"

namespace {

using namespace kelchk;
using namespace test;
using namespace std::string_literals;

constexpr auto get_country = get_black_country_sha;

constexpr char kRid[] = "/proc/rid", kChipUid[] = "/sys/kelonix/hwinfo/chip_uid";
constexpr char kProinfo[] = "/dev/block/by-name/proinfo", kMiscdata[] = "/dev/block/by-name/miscdata";
constexpr char kWifi[] = "/mnt/vendor/nvdata/APCFG/APRDEB/WIFI", kAntiCs[] = "/vendor/nvdata/APCFG/APRDEB/ANTI_CS";
constexpr char kWifiMac[] = "/mnt/vendor/wifimac.txt", kFuse[] = "/vendor/efuse/secure";
constexpr char kModem[] = "/vendor/modem/imei";
constexpr char kFinstatus[] = "/mnt/vendor/productinfo/finstatus/finstatus.prop";
constexpr char kNvram[] = "/vendor/lib64/libnvram.so";
constexpr char kAtci[] = "/vendor/lib/libatci.so", kAtci64[] = "/vendor/lib64/libatci.so";
constexpr char kEfuse[] = "/vendor/lib/libefuse.so", kEfuse64[] = "/vendor/lib64/libefuse.so";
constexpr char kPartitionPath[] = "ro.vendor.product.partitionpath";

using Prepare = std::function<void()>;

Prepare file(const char* path, const std::string& content) {
  return [=] { write_file(path, content); };
}
Prepare folder(const char* path) {
  return [=] { put_folder(path); };
}
Prepare no(const char* path) {
  return [=] { test::remove(path); };
}
Prepare property(const char* name, const std::string& value) {
  return [=] { set_property(name, value); };
}
Prepare vendor(const char* name, const char* path, const char* removed = "/vendor/lib/none") {
  return [=] { install_vendor(name, path), test::remove(removed); };
}

struct Row {
  std::string name;
  Prepare phone = [] {};
  unsigned failing_call = 0;                       // into the system, from 1; 0 for none
  Fault::Kind failure = Fault::kFails;             // what happens to it
  std::optional<std::string> text = std::nullopt;  // none when the getter fails
  int result = 0;                                  // when it does not
  bool may_leave_text = false;                     // when it fails
};

// Calls |get| for each row, in a phone of its own.
void expect_rows(std::string& logs, Chip chip, int (*get)(ValueBuffer&) noexcept, const std::vector<Row>& rows) {
  ::close(STDIN_FILENO);  // then 0 is a descriptor like any other
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    make_phone(chip);
    row.phone();
    const size_t descriptors = open_descriptors();
    ValueBuffer out = {};
    errno = 0;  // a short read does not set it, but is reported with its text
    const auto kind = row.failing_call != 0 ? row.failure : Fault::kNone;
    const int result = run_with({.kind = kind, .first = row.failing_call}, [&] { return get(out); });
    EXPECT_EQ(result, row.text ? row.result : -1);
    EXPECT_EQ(row.may_leave_text ? "" : std::string(out), row.text.value_or(""));
    const std::string log = take_transcript((chip == Chip::kMediaTek ? "MediaTek: " : "Unisoc: ") + row.name);
    logs += log;
    EXPECT_EQ(open_descriptors(), descriptors);
    EXPECT_FALSE(unload(kNvram));
    const bool was_called = log.find(" end ") != std::string::npos;
    const bool is_loaded = unload(kAtci) + unload(kAtci64) + unload(kEfuse) + unload(kEfuse64) == 1;
    EXPECT_EQ(is_loaded, was_called) << "modem and efuse libraries stay loaded once called";
  }
}

// clang-format off
TEST(ChipId, IsReadInFullOrReportsWhy) {
  std::string logs;
  expect_rows(logs, Chip::kMediaTek, read_rid, {
    {.name = "few bytes", .phone = file(kRid, "\x01\xff"), .text = "mt01ff"},
    {.name = "16 bytes count", .phone = file(kRid, std::string(40, 'Z')), .text = "mt5a5a5a5a5a5a5a5a5a5a5a5a5a5a5a5a"},
    {.name = "in two parts", .failing_call = 3, .failure = Fault::kFallsShort,
     .text = "mt0123456789abcdef0123456789000000"},
    {.name = "unreadable", .phone = folder(kRid), .text = "mt"},
    {.name = "missing", .phone = no(kRid)}});

  const std::string uid(254, 'A');
  expect_rows(logs, Chip::kUnisoc, read_rid, {
    {.name = "letters in lower case", .phone = file(kChipUid, "@AZ[`\xc4 \0B"s), .text = "sp@az[`\xc4 "},
    {.name = "one character", .phone = file(kChipUid, "0"), .text = "sp0"},
    {.name = "longest", .phone = file(kChipUid, uid), .text = "sp" + std::string(254, 'a')},
    {.name = "too long by 1", .phone = file(kChipUid, uid + "A"), .may_leave_text = true},
    {.name = "far too long", .phone = file(kChipUid, uid + uid), .may_leave_text = true},
    {.name = "empty", .phone = file(kChipUid, "")},
    {.name = "unreadable", .phone = folder(kChipUid)},
    {.name = "missing", .phone = no(kChipUid)}});
  expect_golden("chip_id.log", logs);
}

Prepare proinfo(size_t offset, const std::string& bytes) {
  return file(kProinfo, std::string(4096, '\xab').replace(offset, bytes.size(), bytes));
}

TEST(Imei, IsReadFromProinfoOnMediaTek) {
  std::string logs;
  expect_rows(logs, Chip::kMediaTek, get_IMEI, {
    {.name = "swapped digits", .phone = proinfo(64, "\x1a\xb2\xc3\xd4\xe5\xf6\x07\x98"), .text = "A12B3C4D5E6F708"},
    {.name = "nothing after it", .phone = file(kProinfo, std::string(72, '\x11')), .text = "111111111111111"},
    {.name = "one byte short", .phone = file(kProinfo, std::string(71, '\x11'))},
    {.name = "not seekable", .failing_call = 3},
    {.name = "unreadable", .phone = folder(kProinfo)},
    {.name = "missing", .phone = no(kProinfo)}});
  expect_golden("imei_mediatek.log", logs);
}

TEST(Imei, ComesFromTheModemOrTheRequestOnUnisoc) {
  std::string logs;
  const std::string imei = "352099001761481", lines = imei + "\nOK\n", longest(255, '7');
  const auto asked = [](const char* boot_mode, const std::string& text) {
    return [=] { set_property("ro.bootmode", boot_mode), std::strcpy(g_sprd_imei, text.c_str()); };
  };
  expect_rows(logs, Chip::kUnisoc, get_IMEI, {
    {.name = "line breaks", .phone = file(kModem, lines + "\0more"s), .text = lines},
    {.name = "empty answer", .phone = file(kModem, "")},
    {.name = "unterminated answer", .phone = file(kModem, longest + "7"), .text = longest},
    {.name = "positive result", .phone = vendor("positive", kAtci), .text = "AT+CGSN", .result = 3},
    {.name = "lib64 alone", .phone = vendor("atci", kAtci64, kAtci), .text = imei},
    {.name = "no answer", .phone = no(kModem)},
    {.name = "no entry point", .phone = vendor("empty", kAtci)},
    {.name = "no library", .phone = no(kAtci)},
    {.name = "meta mode", .phone = asked("meta", imei), .text = imei},
    {.name = "other", .phone = asked("normal1", imei + "9"), .text = imei},
    {.name = "none requested", .phone = asked("", ""), .text = ""}});
  expect_golden("imei_unisoc.log", logs);
}

TEST(SerialNumber, HasSixteenCharactersOrReportsWhy) {
  std::string logs;
  expect_rows(logs, Chip::kMediaTek, get_PSN, {
    {.name = "first 16 bytes", .phone = proinfo(0, "0123456789abcdefXY"), .text = "0123456789abcdef"},
    {.name = "zero byte", .phone = proinfo(0, "0123456789abcde\0"s)},
    {.name = "one byte short", .phone = file(kProinfo, "0123456789abcde")}});

  const std::string longest(91, '/');
  expect_rows(logs, Chip::kUnisoc, get_PSN, {
    {.name = "after 4 bytes", .phone = file(kMiscdata, "\0\xff#3ABCDEF0123456789more"s), .text = "ABCDEF0123456789"},
    {.name = "zero byte", .phone = file(kMiscdata, "....ABC\0EF0123456789"s)},
    {.name = "one byte", .phone = file(kMiscdata, ".")},
    {.name = "empty", .phone = file(kMiscdata, "")},
    {.name = "missing", .phone = no(kMiscdata)},
    {.name = "longest path", .phone = property(kPartitionPath, longest)},
    {.name = "no path", .phone = property(kPartitionPath, "")},
    {.name = "unreadable path", .failing_call = 2}});
  expect_golden("serial_number.log", logs);
}

TEST(MacAddress, IsReadOrReportsWhy) {
  std::string logs;
  const auto socket = [] { test::remove(kWifi), ::mknod(kWifi, S_IFSOCK | 0666, 0); };
  expect_rows(logs, Chip::kMediaTek, get_mac_addr, {
    {.name = "whole", .phone = file(kWifi, "....\xfe\xdc\xba\x98\x76\x54"), .text = "FEDCBA987654"},
    {.name = "one byte short", .phone = file(kWifi, "123456789")},
    {.name = "empty", .phone = file(kWifi, "")},
    {.name = "missing", .phone = no(kWifi)},
    {.name = "not to be opened", .phone = socket},
    {.name = "no library", .phone = no(kNvram)},
    {.name = "no entry point", .phone = vendor("empty", kNvram)},
    {.name = "no ids", .phone = vendor("no_id", kNvram)}});

  const std::string full(126, 'm');
  expect_rows(logs, Chip::kUnisoc, get_mac_addr, {
    {.name = "empty", .phone = file(kWifiMac, ""), .text = ""},
    {.name = "colons left out", .phone = file(kWifiMac, "::aA:\n\0:b"s), .text = "aA\n"},
    {.name = "127 characters count", .phone = file(kWifiMac, full + "12"), .text = full + "1"},
    {.name = "unreadable", .phone = folder(kWifiMac)},
    {.name = "missing", .phone = no(kWifiMac)}});
  expect_golden("mac_address.log", logs);
}

TEST(CountryHash, CoversTheRecordButForEightBytesOnMediaTek) {
  std::string logs;
  make_phone(Chip::kMediaTek);
  const std::string record = read_file(kAntiCs);
  const auto changed = [&](size_t offset) { return std::string(record).replace(offset, 1, "#"); };
  const auto hash_of = [](const std::string& bytes) { return sha256(bytes.substr(0, 1509)); };
  expect_rows(logs, Chip::kMediaTek, get_country, {
    {.name = "byte 0", .phone = file(kAntiCs, changed(0)), .text = hash_of(changed(0))},
    {.name = "byte 1", .phone = file(kAntiCs, changed(1)), .text = hash_of(record)},
    {.name = "byte 8", .phone = file(kAntiCs, changed(8)), .text = hash_of(record)},
    {.name = "byte 9", .phone = file(kAntiCs, changed(9)), .text = hash_of(changed(9))},
    {.name = "byte 1508", .phone = file(kAntiCs, changed(1508)), .text = hash_of(changed(1508))},
    {.name = "byte 1509", .phone = file(kAntiCs, changed(1509)), .text = hash_of(record)},
    {.name = "one byte short", .phone = file(kAntiCs, std::string(1508, '\0'))}});
  expect_golden("country_hash_mediatek.log", logs);
}

TEST(CountryHash, CoversTheLastThreeTokensOnUnisoc) {
  std::string logs;
  const std::string tail(1505, 'x'), all = "ab" + tail;
  std::string tokens;
  for (int i = 0; i < 150; i++) tokens += "0|";
  expect_rows(logs, Chip::kUnisoc, get_country, {
    {.name = "missing", .phone = no(kFinstatus), .text = sha256("IN2QVk=_XkY=_SVI=")},
    {.name = "gaps", .phone = file(kFinstatus, "|x|a||b|c||\0|d|e"s), .text = sha256("abc")},
    {.name = "153 tokens", .phone = file(kFinstatus, tokens + "a|b|c"), .text = sha256("abc")},
    {.name = "line break", .phone = file(kFinstatus, "4|5|6\n"), .text = sha256("456\n")},
    {.name = "1509 bytes", .phone = file(kFinstatus, "a|b|" + tail + "+"), .text = sha256(all)},
    {.name = "2 tokens", .phone = file(kFinstatus, "|a||b|")},
    {.name = "empty", .phone = file(kFinstatus, "")},
    {.name = "unreadable", .phone = folder(kFinstatus)}});
  expect_golden("country_hash_unisoc.log", logs);
}
// clang-format on

TEST(CountryHash, IsRejectedWhenItsTextHasAnotherLength) {
  make_phone(Chip::kMediaTek);
  ValueBuffer out = {};
  std::memset(out, '#', 65);
  EXPECT_EQ(get_country(out), -1);
  expect_golden("country_hash_length.log", take_transcript("65 characters"));
}

// clang-format off
TEST(Nvram, RejectsBadArgumentsAndKeepsTheOutputOnFailure) {
  std::string logs;
  make_phone(Chip::kMediaTek);
  put_folder("/unreadable");
  write_file("/full", std::string(5000, 'r'));
  const std::string longest(255, 'n'), too_long(256, 'n');
  struct Read {
    const char* row;
    const char* name;
    unsigned size;
    int result = -1;
  };
  for (const Read& read : {
      Read{.row = "largest size", .name = "/full", .size = 4096, .result = 0},
      Read{.row = "size too large by 1", .name = "/full", .size = 4097},
      Read{.row = "no name", .name = nullptr, .size = 1},
      Read{.row = "longest name", .name = longest.c_str(), .size = 1},
      Read{.row = "name too long by 1", .name = too_long.c_str(), .size = 1},
      Read{.row = "unreadable", .name = "/unreadable", .size = 10},
      Read{.row = "one byte short", .name = kWifi, .size = 513}}) {
    const Guarded out(std::string(read.size, '#'));
    EXPECT_EQ(nvram_read_by_name(read.name, read.size, out.bytes()), read.result) << read.row;
    EXPECT_EQ(out.view(), std::string(read.size, read.result == 0 ? 'r' : '#')) << read.row;
    logs += "== "s + read.row + "\n" + transcript({take_log().back()});
  }
  EXPECT_EQ(nvram_read_by_name("/full", 1, nullptr), -1);
  logs += take_transcript("no output");
  expect_golden("nvram.log", logs);
}
// clang-format on

int get_efuse_state(ValueBuffer& out) noexcept {
  out[0] = static_cast<char>('0' + is_device_efused());
  return 0;
}

// clang-format off
TEST(Efuse, CountsAsBlownUnlessThePhoneSaysOtherwise) {
  std::string logs;
  constexpr char kMode[] = "ro.boot.efusemode";
  expect_rows(logs, Chip::kMediaTek, get_efuse_state, {
    {.name = "absent", .phone = property(kMode, ""), .text = "1"},
    {.name = "hw", .phone = property(kMode, "hw"), .text = "1"},
    {.name = "unreadable", .failing_call = 2, .text = "1"},
    {.name = "sw", .phone = property(kMode, "sw"), .text = "0"},
    {.name = "hw2", .phone = property(kMode, "hw2"), .text = "0"},
    {.name = "HW", .phone = property(kMode, "HW"), .text = "0"},
    {.name = "h", .phone = property(kMode, "h"), .text = "0"}});

  expect_rows(logs, Chip::kUnisoc, get_efuse_state, {
    {.name = "0", .phone = file(kFuse, "0"), .text = "0"},
    {.name = "2", .phone = file(kFuse, "2"), .text = "0"},
    {.name = "-1", .phone = no(kFuse), .text = "0"},
    {.name = "1 by lib64", .phone = vendor("efuse", kEfuse64, kEfuse), .text = "1"},
    {.name = "no entry point", .phone = vendor("empty", kEfuse), .text = "1"},
    {.name = "no library", .phone = no(kEfuse), .text = "1"}});
  expect_golden("efuse.log", logs);
}

TEST(Product, IsNamedByItsProperties) {
  std::string logs;
  constexpr char kBrand[] = "ro.product.brand", kDevice[] = "ro.product.device";
  const std::string longest(91, 'v');
  expect_rows(logs, Chip::kMediaTek, get_device_brand, {
    {.name = "brand up to _", .phone = property(kBrand, "A-B_C"), .text = "A-B"},
    {.name = "brand up to -", .phone = property(kBrand, "a b-c"), .text = "a b"},
    {.name = "brand up to blank", .phone = property(kBrand, "Foo Bar"), .text = "Foo"},
    {.name = "nothing before _", .phone = property(kBrand, "_x"), .text = ""},
    {.name = "longest brand", .phone = property(kBrand, longest), .text = longest},
    {.name = "no brand", .phone = property(kBrand, "")},
    {.name = "unreadable brand", .failing_call = 1}});
  expect_rows(logs, Chip::kMediaTek, get_device_name, {
    {.name = "model from _", .phone = property(kDevice, "abc-def_ghi"), .text = "MDF1ghi"},
    {.name = "model from last -", .phone = property(kDevice, "a-b-c"), .text = "MDF1c"},
    {.name = "model from blank", .phone = property(kDevice, "a b"), .text = "MDF1b"},
    {.name = "no separator", .phone = property(kDevice, "abc"), .text = "MDF1abc"},
    {.name = "nothing after _", .phone = property(kDevice, "abc_"), .text = "MDF1"},
    {.name = "longest model", .phone = property(kDevice, longest), .text = "MDF1" + longest},
    {.name = "no model", .phone = property(kDevice, "")},
    {.name = "unreadable model", .failing_call = 1}});
  expect_rows(logs, Chip::kMediaTek, get_build_time, {
    {.name = "build time", .text = "20240429V3"},
    {.name = "no build time", .phone = property("ro.system.build.version.incremental", "")}});
  expect_golden("product.log", logs);
}
// clang-format on

}  // namespace
