#include "tests/support/stored_file.h"

#include <cstdlib>
#include <cstring>
#include <filesystem>

namespace test {

namespace fs = std::filesystem;

const Family kMediaTek = {
    .chip = Chip::kMediaTek,
    .name = "mediatek",
    .chip_id = "mt0123456789abcdef0123456789000000",
    .store = KELCHK_STORE_MEDIATEK,
    .request = "mac=FC01",
    .record =
        "buildTime=20240429V3&buildType=user&"
        "countrySha=F1E4AB3CD21FD5A315F12E599114F41261CBD03DEE4C1FE41088B44D7FAEF0E4&"
        "cpuID=mt0123456789abcdef0123456789000000&deviceBrand=Aldan&deviceModel=MDF1KX67&featureCode=FC01&"
        "imei=352099001761481&phoneMac=000AF5000000&psn=KX67000000000000&time=240429-153012&ver=01"};

const Family kUnisoc = {
    .chip = Chip::kUnisoc,
    .name = "unisoc",
    .chip_id = "spab12cd3400000000",
    .store = KELCHK_STORE_UNISOC,
    .request = "mac=FC01&IMEI=352099001761481",
    .record =
        "buildTime=20240429V3&buildType=user&"
        "countrySha=87B61D3B6C0D2E4F83254667B67CCA839BAC071D830C5D72570FF73F9C54653F&"
        "cpuID=spab12cd3400000000&deviceBrand=Aldan&deviceModel=MDF1KU51&featureCode=FC01&"
        "imei=352099001761481&phoneMac=02c0de000000&psn=KU51000000000000&time=240429-153012&ver=01"};

// clang-format off
const std::vector<MissingValue> kMissingValues = {
    {.family = &kMediaTek, .key = "buildTime",
     .remove = [] { set_property("ro.system.build.version.incremental", ""); }},
    {.family = &kMediaTek, .key = "buildType", .remove = [] { set_property("ro.build.type", ""); }},
    {.family = &kMediaTek, .key = "countrySha", .remove = [] { test::remove("/vendor/nvdata/APCFG/APRDEB/ANTI_CS"); }},
    {.family = &kMediaTek, .key = "cpuID", .remove = [] { test::remove("/proc/rid"); }},
    {.family = &kMediaTek, .key = "deviceBrand", .remove = [] { set_property("ro.product.brand", ""); }},
    {.family = &kMediaTek, .key = "deviceModel", .remove = [] { set_property("ro.product.device", ""); }},
    {.family = &kMediaTek, .key = "imei", .remove = [] { test::remove("/dev/block/by-name/proinfo"); }},
    {.family = &kUnisoc, .key = "imei", .remove = [] { test::remove("/vendor/modem/imei"); }},
    {.family = &kUnisoc, .key = "phoneMac", .remove = [] { test::remove("/mnt/vendor/wifimac.txt"); }},
    {.family = &kUnisoc, .key = "psn", .remove = [] { test::remove("/dev/block/by-name/miscdata"); }},
};
// clang-format on

std::vector<SignedFile> signed_files(const Family& family) {
  return {{.name = "authorization",
           .primary = family.store + KELCHK_AUTHORIZATION_FILE,
           .backup = KELCHK_STORE_BACKUP KELCHK_AUTHORIZATION_FILE,
           .temporary = family.store + KELCHK_AUTHORIZATION_TEMPORARY,
           .record = "",
           .message = family.chip_id},
          {.name = "parameters",
           .primary = family.store + KELCHK_PARAMETER_FILE,
           .backup = KELCHK_STORE_BACKUP KELCHK_PARAMETER_FILE,
           .temporary = family.store + KELCHK_PARAMETER_TEMPORARY,
           .record = family.record,
           .message = signed_content(family.record)}};
}

void set_record(const std::string& record) {
  std::memset(g_para_buf, 0, sizeof g_para_buf);
  record.copy(g_para_buf, sizeof g_para_buf);
}

Lines errors(const Lines& log) {
  Lines found;
  for (const std::string& line : log) {
    if (line[0] == '6' && !line.starts_with("6 EVP_DecodeBase64 t_len=")) found.push_back(line);
  }
  return found;
}

std::string state_of(const std::string& path, const std::string& content) {
  const fs::file_status status = fs::symlink_status(path);
  if (fs::is_symlink(status)) return "link";
  if (fs::is_fifo(status)) return "fifo";
  if (fs::is_directory(status)) return "folder";
  if (!fs::exists(status)) return "none";
  const std::string found = read_file(path);
  return found == content ? "new" : found;
}

void RecordTest::SetUp() {
  PhoneTest::SetUp();
  ::setenv("TZ", "PHONE-05", 1);
  ::tzset();
  set_clock(kRecordTime);
  start(kMediaTek);
}

void RecordTest::start(const Family& family) {
  make_phone(family.chip);
  set_record(family.record);
  g_is_authed = 1;
}

}  // namespace test
