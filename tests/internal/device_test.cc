// What the library reads from the phone, from its sources.
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <functional>

#include "device/attributes.h"
#include "device/identifiers.h"
#include "device/nvram.h"
#include "kelchk.h"
#include "tests/support/phone_test.h"

namespace {

using namespace kelchk;
using namespace test;
using namespace std::string_literals;

constexpr auto get_country = get_black_country_sha;
using Prepare = std::function<void()>;

constexpr char kAnything[] = "#";  // what no getter writes: the text does not matter
constexpr char kProinfo[] = "/dev/block/by-name/proinfo", kMiscdata[] = "/dev/block/by-name/miscdata";
constexpr char kWifi[] = "/mnt/vendor/nvdata/APCFG/APRDEB/WIFI", kAntiCs[] = "/vendor/nvdata/APCFG/APRDEB/ANTI_CS";
constexpr char kChipUid[] = "/sys/kelonix/hwinfo/chip_uid", kWifiMac[] = "/mnt/vendor/wifimac.txt";
constexpr char kFinstatus[] = "/mnt/vendor/productinfo/finstatus/finstatus.prop", kModem[] = "/vendor/modem/imei";
constexpr char kNvram[] = "/vendor/lib64/libnvram.so";
constexpr char kAtci[] = "/vendor/lib/libatci.so", kAtci64[] = "/vendor/lib64/libatci.so";
constexpr char kEfuse[] = "/vendor/lib/libefuse.so", kEfuse64[] = "/vendor/lib64/libefuse.so";
constexpr char kFuse[] = "/vendor/efuse/secure";
constexpr char kPartitions[] = "ro.vendor.product.partitionpath";

// The loader's texts.
std::string no_library(const std::string& path) {
  return "fail reson =" + path + ": cannot open shared object file: No such file or directory";
}
std::string no_symbol(const std::string& path, const std::string& symbol) {
  return "fail reson =" + path + ": undefined symbol: " + symbol + "\n";
}

struct Row {
  Prepare prepare;
  int (*get)(ValueBuffer&) noexcept;
  int result;
  std::string text;
  Lines log;
};

// Each row in a phone of its own. Every log begins with |chip_line|.
void check(Chip chip, const Lines& chip_line, const std::vector<Row>& rows) {
  for (const Row& row : rows) {
    SCOPED_TRACE("row " + std::to_string(&row - rows.data()));
    make_phone(chip);
    row.prepare();
    const size_t descriptors = open_descriptors();
    ValueBuffer out = {};
    errno = 0;  // a short read leaves it alone, and yet its text is told
    EXPECT_EQ(row.get(out), row.result);
    EXPECT_EQ(row.text == kAnything ? kAnything : std::string(out), row.text);
    const Lines log = take_log();
    EXPECT_EQ(log, chip_line + row.log);
    EXPECT_EQ(open_descriptors(), descriptors);
    EXPECT_FALSE(unload(kNvram));
    const bool was_asked = testing::PrintToString(log).find(" end ") != std::string::npos;
    const bool is_kept = unload(kAtci) + unload(kAtci64) + unload(kEfuse) + unload(kEfuse64) == 1;
    EXPECT_EQ(is_kept, was_asked) << "modem and efuse libraries stay once they were asked";
  }
}

Prepare file(const char* path, const std::string& content) {
  return [=] { write_file(path, content); };
}
Prepare property(const char* name, const std::string& value) {
  return [=] { set_property(name, value); };
}
Prepare no(const char* path) {
  return [=] { test::remove(path); };
}
Prepare folder(const char* path) {
  return [=] { put_folder(path); };
}
Prepare vendor(const char* name, const char* path) {
  return [=] { install_vendor(name, path); };
}
void nothing() {}

TEST(MediaTek, Identifiers) {
  const Lines read = {"4 queryProductFlag read /proinfo success"};
  const auto failed = [](const char* why) {
    return Lines{"6 queryProductFlag open ="s + why, "6 get_product_info error:=-1"};
  };
  const auto proinfo = [](size_t offset, const std::string& bytes) {
    return file(kProinfo, std::string(4096, '\xab').replace(offset, bytes.size(), bytes));
  };
  check(Chip::kMediaTek, {"4 chip=mt6768"},
        {{file("/proc/rid", "\x01\xff"), read_rid, 0, "mt01ff", {}},
         {folder("/proc/rid"), read_rid, 0, "mt", {}},
         {file("/proc/rid", std::string(40, '\x5a')), read_rid, 0, "mt5a5a5a5a5a5a5a5a5a5a5a5a5a5a5a5a", {}},
         {no("/proc/rid"), read_rid, -1, "", {"6 Failed to open chip rid file /proc/rid, errno=2"}},
         {proinfo(64, "\x1a\xb2\xc3\xd4\xe5\xf6\x07\x98"), get_IMEI, 0, "A12B3C4D5E6F708", read},
         {file(kProinfo, std::string(71, '\x11')), get_IMEI, -1, "", failed("Success")},
         {folder(kProinfo), get_IMEI, -1, "", failed("Is a directory")},
         {no(kProinfo), get_IMEI, -1, "", failed("No such file or directory")},
         {proinfo(0, "0123456789abcdefXY"), get_PSN, 0, "0123456789abcdef", read},
         {proinfo(0, "0123456789abcde\0"s), get_PSN, -1, "", read + Lines{"6 psn len  error:=15"}},
         {file(kProinfo, "0123456789abcde"), get_PSN, -1, "", failed("Success")}});
}

TEST(MediaTek, NvramRecords) {
  const auto read = [](const char* size, const char* count, const char* wanted) {
    const std::string line = " ret="s + count + " , out_size=" + wanted + "\n";
    Lines log = {"3 nvram_read_by_name pRecSize="s + size + " , pRecNum=1 , out_size=" + wanted, "3" + line};
    return std::strcmp(count, wanted) == 0 ? log : log + Lines{"6" + line};
  };
  const auto failed = [](const Lines& log) { return log + Lines{"6 get_mac_addr nvram_read_by_name fail\n"}; };
  const auto without = [=](const char* step, const char* symbol) {
    return failed({"6 dlsym "s + step + " " + no_symbol(kNvram, symbol)});
  };
  const auto unopenable = [] {
    test::remove(kWifi);
    ::mknod(kWifi, S_IFSOCK | 0666, 0);
  };
  const Lines no_hash = {"6 get_black_country_sha nvram_read_by_name fail\n"}, whole = read("2048", "1509", "1509");
  const std::string hash = "F1E4AB3CD21FD5A315F12E599114F41261CBD03DEE4C1FE41088B44D7FAEF0E4";
  const auto changed = [](size_t offset) {
    return [=] { write_file(kAntiCs, read_file(kAntiCs).replace(offset, 1, "#")); };
  };
  check(Chip::kMediaTek, {"4 chip=mt6768"},
        {{file(kWifi, "....\xfe\xdc\xba\x98\x76\x54"), get_mac_addr, 0, "FEDCBA987654", read("10", "10", "10")},
         {file(kWifi, "123456789"), get_mac_addr, -1, "", failed(read("9", "9", "10"))},
         {no(kWifi), get_mac_addr, -1, "", failed({"6 nvm_get_lid_by_name fail reson =(null)\n"})},
         {unopenable, get_mac_addr, -1, "", failed({"6 nvm_get_file_desc fail reson =(null)\n"})},
         {no(kNvram), get_mac_addr, -1, "", failed({"6 dlopen "s + kNvram + " " + no_library(kNvram) + "\n"})},
         {vendor("empty", kNvram), get_mac_addr, -1, "", without("nvm_get_file_desc", "NVM_GetFileDesc")},
         {vendor("no_id", kNvram), get_mac_addr, -1, "", without("nvm_get_lid_by_name", "NVM_GetLIDByName")},
         {changed(1), get_country, 0, hash, whole},
         {changed(8), get_country, 0, hash, whole},
         {changed(1509), get_country, 0, hash, whole},
         {file(kAntiCs, std::string(1508, '\0')), get_country, -1, "", read("1508", "1508", "1509") + no_hash}});
  for (const size_t covered : {0U, 9U, 1508U}) {
    make_phone(Chip::kMediaTek);
    changed(covered)();
    ValueBuffer out = {};
    EXPECT_EQ(get_country(out), 0);
    EXPECT_NE(out, hash) << covered;
  }
}

class ReadersTest : public PhoneTest {};

TEST_F(ReadersTest, BoundTheirArgumentsAndKeepTheOutputOnFailure) {
  put_folder("/unreadable");
  write_file("/full", std::string(5000, 'r'));
  const std::string longest(255, 'n'), too_long(256, 'n');
  const char* refused = "6 nvram_read_by_name param err \n";
  struct Call {
    const char* name;
    unsigned size;
    int result;
    const char* line;
  };
  for (const Call& call : {Call{"/full", 4097, -1, refused},
                           {too_long.c_str(), 1, -1, refused},
                           {longest.c_str(), 1, -1, "6 nvm_get_lid_by_name fail reson =(null)\n"},
                           {"/unreadable", 10, -1, "6 read fail reson =(null)\n"},
                           {kWifi, 513, -1, "6 ret=512 , out_size=513\n"},
                           {"/full", 4096, 0, "3 ret=4096 , out_size=4096\n"}}) {
    const Guarded out(std::string(call.size, '#'));
    EXPECT_EQ(nvram_read_by_name(call.name, call.size, out.bytes()), call.result);
    EXPECT_EQ(take_log().back(), call.line);
    EXPECT_EQ(out.view(), std::string(call.size, call.result == 0 ? 'r' : '#'));
  }
}

TEST(Unisoc, Identifiers) {
  const std::string uid(254, 'A'), full(126, 'm');
  const auto too_long = [](const char* len) { return Lines{"6 rid is too long, len="s + len}; };
  const Lines unread_uid = {"6 Failed to read chip rid file "s + kChipUid + " \n"};
  const auto unopened = [](const std::string& path) {
    return Lines{"6 get_PSN open =" + path + " faild =No such file or directory"};
  };
  const Lines unread_psn = {"6 get_PSN read fail miscdata_path = "s + kMiscdata + " "};
  check(Chip::kUnisoc, {"4 chip=ums512"},
        {{file(kChipUid, "@AZ[`\xc4 \0B"s), read_rid, 0, "sp@az[`\xc4 ", {}},
         {file(kChipUid, uid), read_rid, 0, "sp" + std::string(254, 'a'), {}},
         {file(kChipUid, uid + "A"), read_rid, -1, kAnything, too_long("257")},
         {file(kChipUid, uid + "AAA"), read_rid, -1, kAnything, too_long("259")},
         {file(kChipUid, uid + uid), read_rid, -1, kAnything, too_long("259")},
         {file(kChipUid, ""), read_rid, -1, "", unread_uid},
         {folder(kChipUid), read_rid, -1, "", unread_uid},
         {no(kChipUid), read_rid, -1, "", {"6 Failed to open chip rid file "s + kChipUid + ", errno=2"}},
         {file(kWifiMac, "::aA:\n\0:b"s), get_mac_addr, 0, "aA\n", {}},
         {file(kWifiMac, full + "12"), get_mac_addr, 0, full + "1", {}},
         {folder(kWifiMac), get_mac_addr, -1, "", {"6 get_mac_addr read fail\n"}},
         {no(kWifiMac), get_mac_addr, -1, "", {"6 get_mac_addr open fail\n"}},
         {file(kMiscdata, "\0\xff#3ABCDEF0123456789more"s), get_PSN, 0, "ABCDEF0123456789", {}},
         {file(kMiscdata, "....ABC\0EF0123456789"s), get_PSN, -1, "", {"6 psn len  error:=3"}},
         {file(kMiscdata, "..."), get_PSN, -1, "", {"6 psn len  error:=0"}},
         {file(kMiscdata, ""), get_PSN, -1, "", unread_psn},
         {no(kMiscdata), get_PSN, -1, "", unopened(kMiscdata)},
         {property(kPartitions, std::string(91, '/')), get_PSN, -1, "", unopened(std::string(91, '/') + "miscdata")},
         {property(kPartitions, ""), get_PSN, -1, "", unopened("miscdata")}});
}

TEST(Unisoc, Imei) {
  const std::string imei = "352099001761481", end = "4 ==spd_send_at_cmd end ", failed = "6 spd_send_at_cmd error:=-1";
  const std::string filled(255, '7');
  const Lines start = {"4 boot_mode = normal", "4 ==spd_send_at_cmd start ==\n"};
  const auto got = [](const std::string& text) {
    return "4 get_IMEI: get imei[" + std::to_string(text.size()) + "]: " + text;
  };
  const auto answered = [=](const std::string& text) { return start + Lines{end + "0== \n", got(text)}; };
  const std::string try_64 = "6 dlopen vendor/lib/libatci.so " + no_library(kAtci) + ", try lib64\n";
  const std::string no_64 = "6 dlopen vendor/lib64/libatci.so " + no_library(kAtci64) + "\n";
  const auto supplied = [](const char* mode, const char* text) {
    return [=] {
      set_property("ro.bootmode", mode);
      std::strcpy(g_sprd_imei, text);
    };
  };
  const auto only_64 = [] {
    install_vendor("atci", kAtci64);
    test::remove(kAtci);
  };
  check(Chip::kUnisoc, {"4 chip=ums512"},
        {{file(kModem, imei + "\r\nOK\r\n\0more"s), get_IMEI, 0, imei + "\r\nOK\r\n", answered(imei + "\r\nOK\r\n")},
         {file(kModem, ""), get_IMEI, -1, "", answered("")},
         {file(kModem, filled + "7"), get_IMEI, 0, filled, answered(filled)},
         {vendor("positive", kAtci), get_IMEI, 3, "AT+CGSN", start + Lines{end + "3== \n", got("AT+CGSN")}},
         {only_64, get_IMEI, 0, imei, start + Lines{try_64, end + "0== \n", got(imei)}},
         {no(kModem), get_IMEI, -1, "", start + Lines{end + "-1== \n", failed}},
         {vendor("empty", kAtci), get_IMEI, -1, "",
          start + Lines{"6 dlsym sendATCmd " + no_symbol(kAtci, "sendATCmd"), failed}},
         {no(kAtci), get_IMEI, -1, "", start + Lines{try_64, no_64, failed}},
         {supplied("meta", "352099001761481"), get_IMEI, 0, imei, {"4 boot_mode = meta", got(imei)}},
         {supplied("normal1", "3520990017614819"), get_IMEI, 0, imei, {"4 boot_mode = normal1", got(imei)}},
         {supplied("", ""), get_IMEI, 0, "", {"4 boot_mode = false", got("")}}});
}

TEST(Unisoc, Country) {
  const auto hashed = [](const std::string& text, int len) {
    return Lines{"4 country_code=" + text, "4 t_len=" + std::to_string(len)};
  };
  const Lines too_few = {"6 get_black_country_sha token err\n"}, by_default = {"6 open "s + kFinstatus + " fail\n"};
  const std::string of_abc = "BA7816BF8F01CFEA414140DE5DAE2223B00361A396177A9CB410FF61F20015AD";
  const std::string of_default = "EBD70927B6BFDB4A19F7E35AE521613C245EE13BA22C34D268722CE27E6D71CE";
  const std::string of_456 = "CDFBA543EE8EF7FDB3D8B587648CC22DD792BBD6272CC5447307C7C106C2374C";
  const std::string end(1505, 'x');
  std::string tokens;
  for (int i = 0; i < 150; i++) tokens += "0|";
  check(Chip::kUnisoc, {"4 chip=ums512"},
        {{no(kFinstatus), get_country, 0, of_default, by_default + hashed("IN2QVk=_XkY=_SVI=", 17)},
         {file(kFinstatus, "||x|a||b|c||\0|d|e"s), get_country, 0, of_abc, hashed("abc", 3)},
         {file(kFinstatus, tokens + "a|b|c"), get_country, 0, of_abc, hashed("abc", 3)},
         {file(kFinstatus, "4|5|6\n"), get_country, 0, of_456, hashed("456\n", 4)},
         {file(kFinstatus, "a|b|" + end + "more"), get_country, 0, kAnything, hashed("ab" + end, 1507)},
         {file(kFinstatus, "|a||b|"), get_country, -1, "", too_few},
         {file(kFinstatus, ""), get_country, -1, "", too_few},
         {folder(kFinstatus), get_country, -1, "", {"6 read "s + kFinstatus + " fail\n"}}});
}

int ask(ValueBuffer&) noexcept {
  return is_device_efused();
}

TEST(MediaTek, Efuse) {
  std::vector<Row> rows;
  for (const auto& [mode, result] : {std::pair{"", 1}, {"hw", 1}, {"sw", 0}, {"hw2", 0}, {"HW", 0}, {"h", 0}}) {
    rows.push_back({property("ro.boot.efusemode", mode), ask, result, "", {}});
  }
  check(Chip::kMediaTek, {"4 chip=mt6768"}, rows);
}

TEST(Unisoc, Efuse) {
  const Lines start = {"4 ==spd_efuse_secure_is_enabled start ==\n", "4 dlopen1 "s + kEfuse};
  const std::string no_32 = "6 dlopen "s + kEfuse + " " + no_library(kEfuse) + "\n, try lib64";
  const std::string no_64 = "6 dlopen "s + kEfuse64 + " " + no_library(kEfuse64) + "\n";
  const std::string symbol = "efuse_secure_is_enabled", undefined = "6 dlsym " + symbol + " ";
  const auto end = [](const char* result) { return Lines{"4 ==spd_efuse_secure_is_enabled end "s + result + "== \n"}; };
  const auto only_64 = [](const char* name) {
    return [=] {
      install_vendor(name, kEfuse64);
      test::remove(kEfuse);
    };
  };
  check(Chip::kUnisoc, {"4 chip=ums512"},
        {{file(kFuse, "0"), ask, 0, "", start + end("0")},
         {file(kFuse, "2"), ask, 0, "", start + end("2")},
         {no(kFuse), ask, 0, "", start + end("-1")},
         {only_64("efuse"), ask, 1, "", start + Lines{no_32} + end("1")},
         {only_64("empty"), ask, 1, "", start + Lines{no_32, undefined + no_symbol(kEfuse64, symbol)}},
         {vendor("empty", kEfuse), ask, 1, "", start + Lines{undefined + no_symbol(kEfuse, symbol)}},
         {no(kEfuse), ask, 1, "", start + Lines{no_32, no_64}}});
}

TEST(Attributes, OfTheProduct) {
  const std::string longest(91, 'v');
  const auto brand = [](const std::string& value, const std::string& text) {
    return Row{property("ro.product.brand", value), get_device_brand, 0, text, {"4 get_device_brand = " + text}};
  };
  const auto model = [](const std::string& value, const std::string& text) {
    return Row{property("ro.product.device", value), get_device_name, 0, text, {"4 get_device_name = " + text}};
  };
  check(Chip::kMediaTek, {},
        {brand("A-B_C", "A-B"),
         brand("Foo Bar", "Foo"),
         brand("_x", ""),
         brand("a b-c", "a b"),
         brand(longest, longest),
         model("abc-def_ghi", "MDF1ghi"),
         model("a-b-c", "MDF1c"),
         model("abc", "MDF1abc"),
         model("abc_", "MDF1"),
         model("a b", "MDF1b"),
         model(longest, "MDF1" + longest),
         {property("ro.product.brand", ""), get_device_brand, -1, "", {"6 get ro.product.brand err"}},
         {property("ro.product.device", ""), get_device_name, -1, "", {"6 get ro.product.name err=false\n"}},
         {nothing, get_build_time, 0, "20240429V3", {}},
         {property("ro.system.build.version.incremental", ""), get_build_time, -1, "", {}}});
}

}  // namespace
