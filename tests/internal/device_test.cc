// What the library reads from the phone, tested from its sources.
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <functional>
#include <optional>

#include "device/attributes.h"
#include "device/identifiers.h"
#include "device/nvram.h"
#include "kelchk.h"
#include "tests/support/pki.h"
#include "tests/support/trouble.h"

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

// The loader's texts.
std::string no_library(const std::string& path) {
  return "fail reson =" + path + ": cannot open shared object file: No such file or directory";
}
std::string no_symbol(const std::string& path, const std::string& symbol) {
  return "fail reson =" + path + ": undefined symbol: " + symbol + "\n";
}

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
  unsigned failing_call = 0;  // into the system, from 1; 0 for none
  int result = 0;
  std::optional<std::string> text = std::nullopt;  // none when the getter fails: its result is then -1
  Lines log = {};
  bool may_leave_text = false;  // where it fails
};

// Calls |get| for each row, in a phone of its own. Every log begins with |first_line|.
void expect_rows(Chip chip, const Lines& first_line, int (*get)(ValueBuffer&) noexcept, const std::vector<Row>& rows) {
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    make_phone(chip);
    row.phone();
    const size_t descriptors = open_descriptors();
    ValueBuffer out = {};
    errno = 0;  // a short read does not set it, but is reported with its text
    const auto kind = row.failing_call != 0 ? Trouble::kFails : Trouble::kNone;
    const int result = run_with({.kind = kind, .first = row.failing_call}, [&] { return get(out); });
    EXPECT_EQ(result, row.text ? row.result : -1);
    EXPECT_EQ(row.may_leave_text ? "" : std::string(out), row.text.value_or(""));
    const Lines log = take_log();
    EXPECT_EQ(log, first_line + row.log);
    EXPECT_EQ(open_descriptors(), descriptors);
    EXPECT_FALSE(unload(kNvram));
    const bool was_called = testing::PrintToString(log).find(" end ") != std::string::npos;
    const bool is_loaded = unload(kAtci) + unload(kAtci64) + unload(kEfuse) + unload(kEfuse64) == 1;
    EXPECT_EQ(is_loaded, was_called) << "modem and efuse libraries stay loaded once called";
  }
}

void expect_on_mediatek(int (*get)(ValueBuffer&) noexcept, const std::vector<Row>& rows) {
  expect_rows(Chip::kMediaTek, {"4 chip=mt6768"}, get, rows);
}

void expect_on_unisoc(int (*get)(ValueBuffer&) noexcept, const std::vector<Row>& rows) {
  expect_rows(Chip::kUnisoc, {"4 chip=ums512"}, get, rows);
}

// clang-format off
TEST(ChipId, IsReadInFullOrReportsWhy) {
  expect_on_mediatek(read_rid, {
    {.name = "few bytes", .phone = file(kRid, "\x01\xff"), .text = "mt01ff"},
    {.name = "16 bytes count", .phone = file(kRid, std::string(40, 'Z')), .text = "mt5a5a5a5a5a5a5a5a5a5a5a5a5a5a5a5a"},
    {.name = "unreadable", .phone = folder(kRid), .text = "mt"},
    {.name = "missing", .phone = no(kRid), .log = {"6 Failed to open chip rid file /proc/rid, errno=2"}}});

  const std::string uid(254, 'A');
  const Lines unread = {"6 Failed to read chip rid file "s + kChipUid + " \n"};
  const Lines unopened = {"6 Failed to open chip rid file "s + kChipUid + ", errno=2"};
  const auto too_long = [](const std::string& id, const char* len) {
    const Lines log = {"6 rid is too long, len="s + len};
    return Row{.name = len, .phone = file(kChipUid, id), .log = log, .may_leave_text = true};
  };
  expect_on_unisoc(read_rid, {
    {.name = "letters in lower case", .phone = file(kChipUid, "@AZ[`\xc4 \0B"s), .text = "sp@az[`\xc4 "},
    {.name = "one character", .phone = file(kChipUid, "0"), .text = "sp0"},
    {.name = "longest", .phone = file(kChipUid, uid), .text = "sp" + std::string(254, 'a')},
    too_long(uid + "A", "257"), too_long(uid + uid, "259"),
    {.name = "empty", .phone = file(kChipUid, ""), .log = unread},
    {.name = "unreadable", .phone = folder(kChipUid), .log = unread},
    {.name = "missing", .phone = no(kChipUid), .log = unopened}});
}

Prepare proinfo(size_t offset, const std::string& bytes) {
  return file(kProinfo, std::string(4096, '\xab').replace(offset, bytes.size(), bytes));
}
Lines unread_proinfo(const char* why) {
  return {"6 queryProductFlag open ="s + why, "6 get_product_info error:=-1"};
}

TEST(Imei, IsReadFromProinfoOnMediaTek) {
  const Prepare swapped = proinfo(64, "\x1a\xb2\xc3\xd4\xe5\xf6\x07\x98");
  const Lines read = {"4 queryProductFlag read /proinfo success"};
  expect_on_mediatek(get_IMEI, {
    {.name = "swapped digits", .phone = swapped, .text = "A12B3C4D5E6F708", .log = read},
    {.name = "one byte short", .phone = file(kProinfo, std::string(71, '\x11')), .log = unread_proinfo("Success")},
    {.name = "not seekable", .failing_call = 3, .log = {"6 get_product_info error:=-1"}},
    {.name = "unreadable", .phone = folder(kProinfo), .log = unread_proinfo("Is a directory")},
    {.name = "missing", .phone = no(kProinfo), .log = unread_proinfo("No such file or directory")}});
}

TEST(Imei, ComesFromTheModemOrTheRequestOnUnisoc) {
  const std::string imei = "352099001761481", lines = imei + "\r\nOK\r\n", longest(255, '7');
  const std::string failed = "6 spd_send_at_cmd error:=-1";
  const std::string no_32 = "6 dlopen vendor/lib/libatci.so " + no_library(kAtci) + ", try lib64\n";
  const std::string no_64 = "6 dlopen vendor/lib64/libatci.so " + no_library(kAtci64) + "\n";
  const std::string no_entry = "6 dlsym sendATCmd " + no_symbol(kAtci, "sendATCmd");
  const Lines start = {"4 boot_mode = normal", "4 ==spd_send_at_cmd start ==\n"};
  const auto end = [](const char* result) { return "4 ==spd_send_at_cmd end "s + result + "== \n"; };
  const auto got = [](const std::string& text) {
    return "4 get_IMEI: get imei[" + std::to_string(text.size()) + "]: " + text;
  };
  const auto answered = [&](const std::string& text) { return start + Lines{end("0"), got(text)}; };
  const Lines positive = start + Lines{end("3"), got("AT+CGSN")}, by_64 = start + Lines{no_32, end("0"), got(imei)};
  const auto asked = [](const char* boot_mode, const std::string& text) {
    return [=] { set_property("ro.bootmode", boot_mode), std::strcpy(g_sprd_imei, text.c_str()); };
  };
  expect_on_unisoc(get_IMEI, {
    {.name = "line breaks", .phone = file(kModem, lines + "\0more"s), .text = lines, .log = answered(lines)},
    {.name = "empty answer", .phone = file(kModem, ""), .log = answered("")},
    {.name = "unterminated answer", .phone = file(kModem, longest + "7"), .text = longest, .log = answered(longest)},
    {.name = "positive result", .phone = vendor("positive", kAtci), .result = 3, .text = "AT+CGSN", .log = positive},
    {.name = "lib64 alone", .phone = vendor("atci", kAtci64, kAtci), .text = imei, .log = by_64},
    {.name = "no answer", .phone = no(kModem), .log = start + Lines{end("-1"), failed}},
    {.name = "no entry point", .phone = vendor("empty", kAtci), .log = start + Lines{no_entry, failed}},
    {.name = "no library", .phone = no(kAtci), .log = start + Lines{no_32, no_64, failed}},
    {.name = "meta mode", .phone = asked("meta", imei), .text = imei, .log = {"4 boot_mode = meta", got(imei)}},
    {.name = "other", .phone = asked("normal1", imei + "9"), .text = imei, .log = {"4 boot_mode = normal1", got(imei)}},
    {.name = "none requested", .phone = asked("", ""), .text = "", .log = {"4 boot_mode = false", got("")}}});
}

TEST(SerialNumber, HasSixteenCharactersOrReportsWhy) {
  const Lines read = {"4 queryProductFlag read /proinfo success"};
  expect_on_mediatek(get_PSN, {
    {.name = "first 16 bytes", .phone = proinfo(0, "0123456789abcdefXY"), .text = "0123456789abcdef", .log = read},
    {.name = "zero byte", .phone = proinfo(0, "0123456789abcde\0"s), .log = read + Lines{"6 psn len  error:=15"}},
    {.name = "one byte short", .phone = file(kProinfo, "0123456789abcde"), .log = unread_proinfo("Success")}});

  const std::string longest(91, '/');
  const auto unopened = [](const std::string& path) {
    return Lines{"6 get_PSN open =" + path + " faild =No such file or directory"};
  };
  expect_on_unisoc(get_PSN, {
    {.name = "after 4 bytes", .phone = file(kMiscdata, "\0\xff#3ABCDEF0123456789more"s), .text = "ABCDEF0123456789"},
    {.name = "zero byte", .phone = file(kMiscdata, "....ABC\0EF0123456789"s), .log = {"6 psn len  error:=3"}},
    {.name = "one byte", .phone = file(kMiscdata, "."), .log = {"6 psn len  error:=0"}},
    {.name = "empty", .phone = file(kMiscdata, ""), .log = {"6 get_PSN read fail miscdata_path = "s + kMiscdata + " "}},
    {.name = "missing", .phone = no(kMiscdata), .log = unopened(kMiscdata)},
    {.name = "longest path", .phone = property(kPartitionPath, longest), .log = unopened(longest + "miscdata")},
    {.name = "no path", .phone = property(kPartitionPath, ""), .log = unopened("miscdata")},
    {.name = "unreadable path", .failing_call = 2, .log = {"6 get_PSN: get partitionpath fail\n"}}});
}

Lines nvram_read(const std::string& size, const std::string& count, const std::string& wanted) {
  const std::string line = " ret=" + count + " , out_size=" + wanted + "\n";
  const Lines log = {"3 nvram_read_by_name pRecSize=" + size + " , pRecNum=1 , out_size=" + wanted, "3" + line};
  return count == wanted ? log : log + Lines{"6" + line};
}

TEST(MacAddress, IsReadOrReportsWhy) {
  const auto failed = [](const Lines& log) { return log + Lines{"6 get_mac_addr nvram_read_by_name fail\n"}; };
  const Lines no_file = failed({"6 dlsym nvm_get_file_desc " + no_symbol(kNvram, "NVM_GetFileDesc")});
  const Lines no_id = failed({"6 dlsym nvm_get_lid_by_name " + no_symbol(kNvram, "NVM_GetLIDByName")});
  const auto socket = [] { test::remove(kWifi), ::mknod(kWifi, S_IFSOCK | 0666, 0); };
  const Lines read = nvram_read("10", "10", "10");
  const Lines no_nvram = failed({"6 dlopen "s + kNvram + " " + no_library(kNvram) + "\n"});
  expect_on_mediatek(get_mac_addr, {
    {.name = "whole", .phone = file(kWifi, "....\xfe\xdc\xba\x98\x76\x54"), .text = "FEDCBA987654", .log = read},
    {.name = "one byte short", .phone = file(kWifi, "123456789"), .log = failed(nvram_read("9", "9", "10"))},
    {.name = "empty", .phone = file(kWifi, ""), .log = failed(nvram_read("0", "0", "10"))},
    {.name = "missing", .phone = no(kWifi), .log = failed({"6 nvm_get_lid_by_name fail reson =(null)\n"})},
    {.name = "not to be opened", .phone = socket, .log = failed({"6 nvm_get_file_desc fail reson =(null)\n"})},
    {.name = "no library", .phone = no(kNvram), .log = no_nvram},
    {.name = "no entry point", .phone = vendor("empty", kNvram), .log = no_file},
    {.name = "no ids", .phone = vendor("no_id", kNvram), .log = no_id}});

  const std::string full(126, 'm');
  expect_on_unisoc(get_mac_addr, {
    {.name = "colons left out", .phone = file(kWifiMac, "::aA:\n\0:b"s), .text = "aA\n"},
    {.name = "127 characters count", .phone = file(kWifiMac, full + "12"), .text = full + "1"},
    {.name = "unreadable", .phone = folder(kWifiMac), .log = {"6 get_mac_addr read fail\n"}},
    {.name = "missing", .phone = no(kWifiMac), .log = {"6 get_mac_addr open fail\n"}}});
}

TEST(CountryHash, CoversTheRecordButForEightBytesOnMediaTek) {
  make_phone(Chip::kMediaTek);
  const std::string record = read_file(kAntiCs);
  const auto changed = [&](size_t offset) { return std::string(record).replace(offset, 1, "#"); };
  const auto hash_of = [](const std::string& bytes) { return sha256(bytes.substr(0, 1509)); };
  const Lines read = nvram_read("2048", "1509", "1509");
  const Lines failed = {"6 get_black_country_sha nvram_read_by_name fail\n"};
  const Lines too_short = nvram_read("1508", "1508", "1509") + failed;
  expect_on_mediatek(get_country, {
    {.name = "byte 0", .phone = file(kAntiCs, changed(0)), .text = hash_of(changed(0)), .log = read},
    {.name = "byte 1", .phone = file(kAntiCs, changed(1)), .text = hash_of(record), .log = read},
    {.name = "byte 8", .phone = file(kAntiCs, changed(8)), .text = hash_of(record), .log = read},
    {.name = "byte 9", .phone = file(kAntiCs, changed(9)), .text = hash_of(changed(9)), .log = read},
    {.name = "byte 1508", .phone = file(kAntiCs, changed(1508)), .text = hash_of(changed(1508)), .log = read},
    {.name = "byte 1509", .phone = file(kAntiCs, changed(1509)), .text = hash_of(record), .log = read},
    {.name = "one byte short", .phone = file(kAntiCs, std::string(1508, '\0')), .log = too_short}});
}

TEST(CountryHash, CoversTheLastThreeTokensOnUnisoc) {
  const std::string tail(1505, 'x'), all = "ab" + tail;
  std::string tokens;
  for (int i = 0; i < 150; i++) tokens += "0|";
  const auto hashed = [](const std::string& text) {
    return Lines{"4 country_code=" + text, "4 t_len=" + std::to_string(text.size())};
  };
  const Lines too_few = {"6 get_black_country_sha token err\n"}, unread = {"6 read "s + kFinstatus + " fail\n"};
  const Lines by_default = Lines{"6 open "s + kFinstatus + " fail\n"} + hashed("IN2QVk=_XkY=_SVI=");
  expect_on_unisoc(get_country, {
    {.name = "missing", .phone = no(kFinstatus), .text = sha256("IN2QVk=_XkY=_SVI="), .log = by_default},
    {.name = "gaps", .phone = file(kFinstatus, "|x|a||b|c||\0|d|e"s), .text = sha256("abc"), .log = hashed("abc")},
    {.name = "153 tokens", .phone = file(kFinstatus, tokens + "a|b|c"), .text = sha256("abc"), .log = hashed("abc")},
    {.name = "line break", .phone = file(kFinstatus, "4|5|6\n"), .text = sha256("456\n"), .log = hashed("456\n")},
    {.name = "1509 bytes", .phone = file(kFinstatus, "a|b|" + tail + "+"), .text = sha256(all), .log = hashed(all)},
    {.name = "2 tokens", .phone = file(kFinstatus, "|a||b|"), .log = too_few},
    {.name = "empty", .phone = file(kFinstatus, ""), .log = too_few},
    {.name = "unreadable", .phone = folder(kFinstatus), .log = unread}});
}
// clang-format on

TEST(CountryHash, IsRejectedWhenItsTextHasAnotherLength) {
  make_phone(Chip::kMediaTek);
  ValueBuffer out = {};
  std::memset(out, '#', 65);
  EXPECT_EQ(get_country(out), -1);
  const Lines expected = {"6 get_black_country_sha fail strlen(out_put) =65\n",
                          "6 get_black_country_sha fail out_put ="s + out + "\n"};
  EXPECT_EQ(take_log(), Lines{"4 chip=mt6768"} + nvram_read("2048", "1509", "1509") + expected);
}

TEST(Nvram, RejectsBadArgumentsAndKeepsTheOutputOnFailure) {
  make_phone(Chip::kMediaTek);
  put_folder("/unreadable");
  write_file("/full", std::string(5000, 'r'));
  const std::string longest(255, 'n'), too_long(256, 'n');
  const char* const rejected = "6 nvram_read_by_name param err \n";
  struct Call {
    const char* name;
    unsigned size;
    const char* last_line;
    int result = -1;
  };
  // clang-format off
  for (const Call& call : {
           Call{.name = "/full", .size = 4096, .last_line = "3 ret=4096 , out_size=4096\n", .result = 0},
           Call{.name = "/full", .size = 4097, .last_line = rejected},
           Call{.name = nullptr, .size = 1, .last_line = rejected},
           Call{.name = too_long.c_str(), .size = 1, .last_line = rejected},
           Call{.name = longest.c_str(), .size = 1, .last_line = "6 nvm_get_lid_by_name fail reson =(null)\n"},
           Call{.name = "/unreadable", .size = 10, .last_line = "6 read fail reson =(null)\n"},
           Call{.name = kWifi, .size = 513, .last_line = "6 ret=512 , out_size=513\n"}}) {
    // clang-format on
    SCOPED_TRACE(call.last_line);
    const Guarded out(std::string(call.size, '#'));
    EXPECT_EQ(nvram_read_by_name(call.name, call.size, out.bytes()), call.result);
    EXPECT_EQ(take_log().back(), call.last_line);
    EXPECT_EQ(out.view(), std::string(call.size, call.result == 0 ? 'r' : '#'));
  }
  EXPECT_EQ(nvram_read_by_name("/full", 1, nullptr), -1);
  EXPECT_EQ(take_log(), Lines{rejected});
}

int get_efuse_state(ValueBuffer& out) noexcept {
  out[0] = static_cast<char>('0' + is_device_efused());
  return 0;
}

// clang-format off
TEST(Efuse, CountsAsBlownUnlessThePhoneSaysOtherwise) {
  constexpr char kMode[] = "ro.boot.efusemode";
  expect_on_mediatek(get_efuse_state, {
    {.name = "absent", .phone = property(kMode, ""), .text = "1"},
    {.name = "hw", .phone = property(kMode, "hw"), .text = "1"},
    {.name = "unreadable", .failing_call = 2, .text = "1"},
    {.name = "sw", .phone = property(kMode, "sw"), .text = "0"},
    {.name = "hw2", .phone = property(kMode, "hw2"), .text = "0"},
    {.name = "HW", .phone = property(kMode, "HW"), .text = "0"},
    {.name = "h", .phone = property(kMode, "h"), .text = "0"}});

  const std::string no_entry = "6 dlsym efuse_secure_is_enabled " + no_symbol(kEfuse, "efuse_secure_is_enabled");
  const std::string no_32 = "6 dlopen "s + kEfuse + " " + no_library(kEfuse) + "\n, try lib64";
  const std::string no_64 = "6 dlopen "s + kEfuse64 + " " + no_library(kEfuse64) + "\n";
  const Lines start = {"4 ==spd_efuse_secure_is_enabled start ==\n", "4 dlopen1 "s + kEfuse};
  const auto end = [](const char* result) { return Lines{"4 ==spd_efuse_secure_is_enabled end "s + result + "== \n"}; };
  const Lines end_64 = Lines{no_32} + end("1");
  expect_on_unisoc(get_efuse_state, {
    {.name = "0", .phone = file(kFuse, "0"), .text = "0", .log = start + end("0")},
    {.name = "2", .phone = file(kFuse, "2"), .text = "0", .log = start + end("2")},
    {.name = "-1", .phone = no(kFuse), .text = "0", .log = start + end("-1")},
    {.name = "1 by lib64", .phone = vendor("efuse", kEfuse64, kEfuse), .text = "1", .log = start + end_64},
    {.name = "no entry point", .phone = vendor("empty", kEfuse), .text = "1", .log = start + Lines{no_entry}},
    {.name = "no library", .phone = no(kEfuse), .text = "1", .log = start + Lines{no_32, no_64}}});
}

TEST(Product, IsNamedByItsProperties) {
  const std::string longest(91, 'v');
  const auto named = [](const char* key, const std::string& label) {
    return [=](const std::string& value, const std::string& text) {
      return Row{.name = value, .phone = property(key, value), .text = text, .log = {label + text}};
    };
  };
  const auto brand = named("ro.product.brand", "4 get_device_brand = ");
  const auto model = named("ro.product.device", "4 get_device_name = ");
  const Lines no_brand = {"6 get ro.product.brand err"}, no_model = {"6 get ro.product.name err=false\n"};
  expect_rows(Chip::kMediaTek, {}, get_device_brand, {
    brand("A-B_C", "A-B"), brand("Foo Bar", "Foo"), brand("_x", ""), brand("a b-c", "a b"), brand(longest, longest),
    {.name = "absent", .phone = property("ro.product.brand", ""), .log = no_brand},
    {.name = "unreadable", .failing_call = 1, .log = no_brand}});
  expect_rows(Chip::kMediaTek, {}, get_device_name, {
    model("abc-def_ghi", "MDF1ghi"), model("a-b-c", "MDF1c"), model("abc", "MDF1abc"), model("abc_", "MDF1"),
    model("a b", "MDF1b"), model(longest, "MDF1" + longest),
    {.name = "absent", .phone = property("ro.product.device", ""), .log = no_model},
    {.name = "unreadable", .failing_call = 1, .log = no_model}});
  expect_rows(Chip::kMediaTek, {}, get_build_time, {
    {.name = "set", .text = "20240429V3"},
    {.name = "absent", .phone = property("ro.system.build.version.incremental", "")}});
}
// clang-format on

}  // namespace
