// The device parameter record, its validation against the phone, the two signed files and their repairs.
#include <gmock/gmock.h>
#include <openssl/err.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <sstream>

#include "kelchk.h"
#include "tests/support/forgeries.h"
#include "tests/support/phone_test.h"
#include "tests/support/pki.h"

namespace {

using namespace test;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
namespace fs = std::filesystem;

// The default phone of a family, at half past three in the afternoon.
struct Family {
  Chip chip;
  std::string line, id, store, request, record;
  Lines build;  // what building the record logs
  Lines check;  // what holding it against the phone logs
};

const Family kMediaTek = {
    Chip::kMediaTek,
    "4 chip=mt6768",
    "mt0123456789abcdef0123456789000000",
    "/mnt/vendor/persist/startPara/",
    "mac=FC01",
    "buildTime=20240429V3&buildType=user&countrySha=F1E4AB3CD21FD5A315F12E599114F41261CBD03DEE4C1FE41088B44D7FAEF0E4&"
    "cpuID=mt0123456789abcdef0123456789000000&deviceBrand=Aldan&deviceModel=MDF1KX67&featureCode=FC01&"
    "imei=352099001761481&phoneMac=000AF5000000&psn=KX67000000000000&time=240429-153012&ver=01",
    {"4 kelo_get_para in:mac=FC01", "4 chip=mt6768", "4 chip=mt6768",
     "3 nvram_read_by_name pRecSize=2048 , pRecNum=1 , out_size=1509", "3 ret=1509 , out_size=1509\n", "4 chip=mt6768",
     "4 rid=mt0123456789abcdef0123456789000000\n", "4 get_device_brand = Aldan", "4 get_device_name = MDF1KX67",
     "4 chip=mt6768", "4 queryProductFlag read /proinfo success", "4 IMEI=352099001761481\n", "4 chip=mt6768",
     "3 nvram_read_by_name pRecSize=512 , pRecNum=1 , out_size=10", "3 ret=10 , out_size=10\n", "4 chip=mt6768",
     "4 queryProductFlag read /proinfo success"},
    {"4 chip=mt6768", "3 nvram_read_by_name pRecSize=2048 , pRecNum=1 , out_size=1509", "3 ret=1509 , out_size=1509\n",
     "4 chip=mt6768", "4 val_buf=mt0123456789abcdef0123456789000000\n", "4 get_device_brand = Aldan",
     "4 get_device_name = MDF1KX67", "4 chip=mt6768", "3 nvram_read_by_name pRecSize=512 , pRecNum=1 , out_size=10",
     "3 ret=10 , out_size=10\n", "4 chip=mt6768", "4 queryProductFlag read /proinfo success", "4 chip=mt6768"}};

const Family kUnisoc = {
    Chip::kUnisoc,
    "4 chip=ums512",
    "spab12cd3400000000",
    "/mnt/vendor/productinfo/startPara/",
    "mac=FC01&IMEI=352099001761481",
    "buildTime=20240429V3&buildType=user&countrySha=87B61D3B6C0D2E4F83254667B67CCA839BAC071D830C5D72570FF73F9C54653F&"
    "cpuID=spab12cd3400000000&deviceBrand=Aldan&deviceModel=MDF1KU51&featureCode=FC01&"
    "imei=352099001761481&phoneMac=02c0de000000&psn=KU51000000000000&time=240429-153012&ver=01",
    {"4 kelo_get_para in:mac=FC01&IMEI=352099001761481", "4 chip=ums512", "4 chip=ums512",
     "4 country_code=KZ3QVk=_XkY=", "4 t_len=12", "4 chip=ums512", "4 rid=spab12cd3400000000\n",
     "4 get_device_brand = Aldan", "4 get_device_name = MDF1KU51", "4 chip=ums512", "4 boot_mode = normal",
     "4 ==spd_send_at_cmd start ==\n", "4 ==spd_send_at_cmd end 0== \n", "4 get_IMEI: get imei[15]: 352099001761481",
     "4 IMEI=352099001761481\n", "4 chip=ums512", "4 chip=ums512"},
    {"4 chip=ums512", "4 country_code=KZ3QVk=_XkY=", "4 t_len=12", "4 chip=ums512", "4 val_buf=spab12cd3400000000\n",
     "4 get_device_brand = Aldan", "4 get_device_name = MDF1KU51", "4 chip=ums512", "4 chip=ums512", "4 chip=ums512",
     "4 boot_mode = normal", "4 chip=ums512", "4 boot_mode = normal", "4 ==spd_send_at_cmd start ==\n",
     "4 ==spd_send_at_cmd end 0== \n", "4 get_IMEI: get imei[15]: 352099001761481"}};

enum Kind { kAuthorization, kParameters };
constexpr Kind kKinds[] = {kAuthorization, kParameters};

struct Names {
  std::string operation, check, file, temporary;
};
const Names kNames[] = {{"kelo_import_aufile", "check_au_file", "auFile.dat", "auFile_tmp.dat"},
                        {"kelo_import_para_sign", "check_para_file", "startPara.dat", "startPara_tmp.dat"}};

const std::string kBackup = "/kelofs/startPara/";
const std::string kVerified = "6 EVP_DigestVerifyFinal  ret=1", kNotVerified = "6 EVP_DigestVerifyFinal  ret=0";

std::string answer(const std::string& record) {
  return signed_record(default_signer(), signed_content(record));
}

// What the tool hands over for the phone of |family|, and what stands before it in the file.
struct Signed {
  std::string before, input;
  std::string file() const { return before + input; }
};

Signed sign_for(Kind kind, const Family& family) {
  if (kind == kAuthorization) return {"", signed_record(default_signer(), family.id)};
  return {family.record + "&", answer(family.record)};
}

// What a buffer holds up to the zeros at its end.
template <size_t size>
std::string content_of(const char (&buffer)[size]) {
  const std::string bytes(buffer, size);
  return bytes.substr(0, bytes.find_last_not_of('\0') + 1);
}

void set_para_buf(const std::string& record) {
  std::memset(g_para_buf, 0, sizeof g_para_buf);
  record.copy(g_para_buf, sizeof g_para_buf);
}

// The lines that tell of a failure; one import tells the decoded length at that priority when all is well.
Lines errors(const Lines& log) {
  Lines found;
  for (const std::string& line : log) {
    if (line[0] == '6' && !line.starts_with("6 EVP_DecodeBase64 t_len=")) found.push_back(line);
  }
  return found;
}

// Changes this phone: "-path" removes a file, "+path" puts a folder there, ".path" a file, "!path" a link to a device
// that takes no byte, and "name=value" sets a property.
void alter(const std::string& change) {
  if (change.empty()) return;
  const std::string path = change.substr(1);
  const size_t equals = change.find('=');
  if (equals != change.npos) return set_property(change.substr(0, equals), change.substr(equals + 1));
  test::remove(path);
  if (change[0] == '+') put_folder(path);
  if (change[0] == '.') write_file(path, "in the way");
  if (change[0] == '!') fs::create_symlink("/dev/full", path);
}

// What stands at |path|: "new" for |content|, else a short text itself.
std::string look(const std::string& path, const std::string& content) {
  if (fs::is_symlink(path)) return "link";
  if (fs::is_directory(path)) return "folder";
  if (!fs::exists(path)) return "none";
  const std::string found = read_file(path);
  return found == content ? "new" : found;
}

// An authorization file ends with its bytes, an answer with its NUL: nobody may look further.
int import(Kind kind, const std::string& input, size_t in_len) {
  const Guarded guarded(kind == kAuthorization ? input : std::string(input.c_str(), input.size() + 1));
  const unsigned len = static_cast<unsigned>(in_len);
  return kind == kAuthorization ? kelo_import_aufile(guarded.data(), len) : kelo_import_para_sign(guarded.data(), len);
}

class RecordsTest : public PhoneTest {
 protected:
  void SetUp() override {
    PhoneTest::SetUp();
    ::setenv("TZ", "PHONE-05", 1);
    ::tzset();
    set_clock(1714386612);
    start(kMediaTek);
  }

  // Begins anew in the phone of |family|, whose record is built and whose tool has logged in.
  static void start(const Family& family) {
    make_phone(family.chip);
    set_para_buf(family.record);
    g_is_authed = 1;
  }
};

// Asks for the record. What is not the record's in the caller's memory must still be there afterwards.
int get_para(const std::string& request, std::string& record) {
  std::string out(4200, '~');
  unsigned len = 7777;
  const int result = kelo_get_para(request.c_str(), 1, out.data(), &len);
  record = out.substr(0, result == 0 ? len : 0);
  EXPECT_EQ(out.substr(record.size()), std::string(4200 - record.size(), '~'));
  EXPECT_EQ(len, result == 0 ? record.size() : 7777);
  return result;
}

TEST_F(RecordsTest, BuildsTheRecord) {
  for (const Family& family : {kMediaTek, kUnisoc}) {
    make_phone(family.chip);
    std::memset(g_para_buf, 'x', sizeof g_para_buf);
    std::string record;
    EXPECT_EQ(get_para(family.request, record), 0);
    EXPECT_EQ(record, family.record);
    EXPECT_EQ(content_of(g_para_buf), family.record);
    EXPECT_EQ(take_log(), family.build);
  }
}

TEST_F(RecordsTest, RefusesBadArgumentsBeforeTouchingAnything) {
  char out[8] = "left";
  unsigned len = 7;
  const std::string own = kMediaTek.record, input = answer(own), au(4097, 'x');
  const std::string fits = input + "&x=" + std::string(4095 - own.size() - 1 - input.size() - 3, 'x');
  const auto get_para = [&](const char* in, unsigned in_len, void* to, unsigned* to_len) {
    return [=] { return kelo_get_para(in, in_len, to, to_len); };
  };
  const auto import_as = [](Kind kind, const std::string& text, size_t in_len) {
    return [=, &text] { return import(kind, text, in_len); };
  };
  const std::string get = "6 kelo_get_para err", in_au = "6 in is null or in_len is 0";
  const std::string in_para = "6 in == NULL || in_len == 0", too_long = "6 kelo_import_para_sign content too long";
  struct {
    std::function<int()> call;
    int is_authed;
    std::string record, error;
  } const rows[] = {{get_para(nullptr, 8, out, &len), 1, own, get},
                    {get_para("mac=FC01", 0, out, &len), 1, own, get},
                    {get_para("mac=FC01", 8, nullptr, &len), 1, own, get},
                    {get_para("mac=FC01", 8, out, nullptr), 1, own, get},
                    {get_para("mac=FC01", 8, out, &len), 0, own, get},
                    {[] { return kelo_import_aufile(nullptr, 8); }, 1, own, in_au},
                    {import_as(kAuthorization, au, 0), 1, own, in_au},
                    {import_as(kAuthorization, au, 4097), 1, own, in_au},
                    {import_as(kParameters, input, 0), 1, own, in_para},
                    {import_as(kParameters, input, 8), 0, own, in_para},
                    {[] { return kelo_import_para_sign(nullptr, 8); }, 1, own, in_para},
                    {import_as(kParameters, fits, 99999), 1, own + "&", too_long},
                    {import_as(kParameters, input, 8), 1, std::string(4096, 'x'), too_long}};
  for (const auto& row : rows) {
    SCOPED_TRACE(&row - rows);
    std::strcpy(PARA_FILE_PATH, "left");
    g_is_authed = row.is_authed;
    set_para_buf(row.record);
    EXPECT_EQ(row.call(), -1);
    EXPECT_THAT(take_log(), ElementsAre(row.error));
    EXPECT_EQ(content_of(g_para_buf), row.record);
    EXPECT_STREQ(PARA_FILE_PATH, "left");
    EXPECT_EQ(look(kMediaTek.store, ""), "none");
    EXPECT_EQ(out + std::to_string(len), "left7");
  }
  set_para_buf(own);
  EXPECT_EQ(import(kParameters, fits, 99999), 0);
  EXPECT_EQ(read_file(kMediaTek.store + "startPara.dat"), own + "&" + fits);
}

TEST_F(RecordsTest, TakesTheFeatureCodeFromTheRequest) {
  const std::string x127(127, 'x'), x128(128, 'x'), x2048(2048, 'x');
  const Lines no_mac = {"6 mac err"}, no_code = {"6 featureCode err"};
  struct {
    std::string request, code;
    Lines errors;
  } const rows[] = {
      {"mac=AB12&featureCode=X9", "AB12", {}},          {"phonemac=AB12&featureCode=&x=", "", no_mac + no_code},
      {"mac=&featureCode=" + x127, x127, no_mac},       {"mac=" + x2048 + "&featureCode=X9", "X9", no_mac},
      {"mac=" + x128 + "&featureCode=X9", "", no_code}, {"featureCode=" + x128, "", no_mac + no_code}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.request.substr(0, 40));
    std::string record;
    EXPECT_EQ(get_para(row.request, record), row.code.empty() ? -1 : 0);
    EXPECT_EQ(record, row.code.empty() ? "" : with_value(kMediaTek.record, "featureCode", row.code));
    EXPECT_EQ(content_of(g_para_buf), record);
    const Lines log = take_log();
    EXPECT_EQ(errors(log), row.errors);
    if (row.code.empty()) {
      EXPECT_EQ(log, Lines{"4 kelo_get_para in:" + row.request} + row.errors);
    }
  }
}

TEST_F(RecordsTest, TakesOnlyAValidImeiFromTheRequest) {
  struct Row {
    std::string imei, kept;
    Lines errors;
  };
  const auto wrong = [](const std::string& imei, int check, int supplied) {
    return Row{imei,
               imei,
               {"6 IMEI checksum err=" + imei, "6 IMEI checksum err=" + std::to_string(check),
                "6 IMEI tmp err=" + std::to_string(supplied)}};
  };
  const std::string d64(64, '1');
  std::vector<Row> rows = {{"490154203237518", "490154203237518", {}},
                           wrong("490154203237517", 8, 7),
                           {"49015420323751", "49015420323751", {"6 IMEI err=49015420323751"}},
                           {d64, d64, {"6 IMEI err=" + d64}},
                           {d64 + "1", "", {"6 IMEI err="}}};
  // All zeros would be right, and a character that is no digit counts as zero.
  for (size_t at = 0; at < 15; at++) {
    for (const char character : {' ', '/', ':', '\x80', '\xFF'}) {
      const std::string imei = std::string(15, '0').replace(at, 1, 1, character);
      rows.push_back(wrong(imei, 0, at == 14 ? static_cast<unsigned char>(character) - 48 : 0));
    }
  }
  make_phone(Chip::kUnisoc);
  set_property("ro.bootmode", "recovery");  // then the record's IMEI is the request's
  for (const auto& [imei, kept, expected] : rows) {
    SCOPED_TRACE(testing::PrintToString(imei));
    std::memset(g_sprd_imei, 'x', sizeof g_sprd_imei);
    std::string record;
    EXPECT_EQ(get_para("mac=FC01&IMEI=" + imei, record), expected.empty() ? 0 : -1);
    EXPECT_EQ(record, expected.empty() ? with_value(kUnisoc.record, "imei", imei) : "");
    EXPECT_EQ(content_of(g_sprd_imei), kept);
    EXPECT_EQ(errors(take_log()), expected);
  }
}

TEST_F(RecordsTest, EndsAtTheFirstGetterThatFails) {
  struct {
    const Family& family;
    std::string key, change, error;
  } const rows[] = {
      {kMediaTek, "buildTime", "ro.system.build.version.incremental=", "get ro.system.build.version.incremental err"},
      {kMediaTek, "countrySha", "-/vendor/nvdata/APCFG/APRDEB/ANTI_CS", "get_black_country_sha err"},
      {kMediaTek, "buildType", "ro.build.type=", "get_build_type err"},
      {kMediaTek, "cpuID", "-/proc/rid", "read_rid err"},
      {kMediaTek, "deviceBrand", "ro.product.brand=", "get ro.product.brand err"},
      {kMediaTek, "deviceModel", "ro.product.device=", "get odm.model err"},
      {kMediaTek, "imei", "-/dev/block/by-name/proinfo", "get_imei err"},
      {kUnisoc, "imei", "-/vendor/modem/imei", "get_imei err"},
      {kUnisoc, "phoneMac", "-/mnt/vendor/wifimac.txt", "get_mac_address err"},
      {kUnisoc, "psn", "-/dev/block/by-name/miscdata", "get serialno err"}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.change);
    start(row.family);
    alter(row.change);
    std::string none;
    EXPECT_EQ(get_para(row.family.request, none), -1);
    EXPECT_EQ(content_of(g_para_buf), row.family.record.substr(0, ("&" + row.family.record).find("&" + row.key + "=")));
    const Lines log = take_log();
    EXPECT_EQ(log.back(), "6 " + row.error);
    if (row.key == "imei") {
      EXPECT_THAT(log, Contains("4 IMEI=\n"));
    }
  }
}

Lines decoded(const char* priority) {
  const std::string len = std::to_string(default_signer().der.size());
  return {priority + (" EVP_DecodeBase64 t_len=" + len), "3 EVP_DecodeBase64 f_cert_len=" + len};
}

TEST_F(RecordsTest, ImportsIntoBothStores) {
  for (const Family& family : {kMediaTek, kUnisoc}) {
    const Lines chip = {family.line}, id = {family.line, "4 rid=" + family.id + "\n"};
    const Lines id_len = {"3 Sub certificate rid_len_t=" + std::to_string(family.id.size()) + "\n"};
    const Lines logs[] = {chip + decoded("6") + id + kChainHolds + id_len + kSignatureHolds + chip,
                          chip + decoded("3") + kChainHolds + kSignatureHolds + family.check + chip};
    for (const Kind kind : kKinds) {
      for (const mode_t mask : {0u, 022u, 077u}) {
        SCOPED_TRACE(family.store + kNames[kind].file + " " + std::to_string(mask));
        start(family);
        g_is_authed = kind;
        alter("-/kelofs/startPara");
        std::memset(PARA_FILE_PATH, 'x', sizeof PARA_FILE_PATH);
        const Signed text = sign_for(kind, family);
        const mode_t old_mask = ::umask(mask);
        EXPECT_EQ(import(kind, text.input, kind == kAuthorization ? text.input.size() : 1), 0);
        ::umask(old_mask);
        EXPECT_EQ(take_log(), logs[kind]);
        EXPECT_EQ(content_of(PARA_FILE_PATH), family.store);
        for (const std::string& store : {family.store, kBackup}) {
          struct stat file = {}, folder = {};
          EXPECT_EQ(look(store + kNames[kind].file, text.file()), "new");
          EXPECT_EQ(::stat((store + kNames[kind].file).c_str(), &file) + ::stat(store.c_str(), &folder), 0);
          EXPECT_EQ(file.st_mode, S_IFREG | (0666 & ~mask));
          EXPECT_EQ(folder.st_mode, S_IFDIR | (0666 & ~mask));
          EXPECT_EQ(std::distance(fs::directory_iterator(store), {}), 1) << "something else was left in " << store;
        }
      }
    }
  }
}

TEST_F(RecordsTest, LeavesOnDiskWhatTheFailedStepLeft) {
  for (const Kind kind : kKinds) {
    const Signed text = sign_for(kind, kMediaTek);
    const auto& [operation, check, name, temporary_name] = kNames[kind];
    const std::string file = kMediaTek.store + name, backup = kBackup + name;
    const std::string temporary = kMediaTek.store + temporary_name;
    const size_t in_len = kind == kAuthorization ? text.input.size() : 7;
    const std::string write_failed = "6 " + operation + " write error in_len =" + std::to_string(in_len) + " , w_len =";
    const std::string open_failed = "6 " + operation + " open path error =" + temporary + " ";
    const std::string no_store = "6 mkdir PARA_FILE_PATH error =" + kMediaTek.store + " ";
    const std::string no_backup = "6 mkdir PARA_FILE_PATH_BK error =" + kBackup + " ";
    const std::string no_copy = "6 copy_file_sync err =-1 \n", cannot_open = "6 cannot open destination file=";
    struct {
      std::string change;
      Lines errors;
      std::string temporary, file, backup;
    } const rows[] = {
        {"+" + temporary, {open_failed}, "folder", "old", "old"},
        {"!" + temporary, {write_failed + std::to_string(size_t(-1))}, "link", "old", "old"},
        {"", {write_failed + "100"}, text.file().substr(0, 100), "old", "old"},
        {"+" + file,
         {kVerified, "6 rename ERR  file_path_t=" + temporary + " , file_path=" + file + "\n"},
         "new",
         "folder",
         "old"},
        {"+" + backup, {kVerified, cannot_open + "21 ,dest= " + backup, no_copy}, "none", "new", "folder"},
        {"!" + backup, {kVerified, "6 write error", no_copy}, "none", "new", "link"},
        {"./kelofs/startPara",
         {no_backup, kVerified, cannot_open + "20 ,dest= " + backup, no_copy},
         "none",
         "new",
         "none"},
        {"-/mnt/vendor/persist", {no_store, open_failed}, "none", "none", "old"},
    };
    for (const auto& row : rows) {
      SCOPED_TRACE(name + " " + row.change);
      start(kMediaTek);
      for (const std::string& path : {file, backup}) write_file(path, "old");
      write_file(temporary, std::string(5000, 't'));
      alter(row.change);
      std::signal(SIGXFSZ, SIG_IGN);
      const rlimit full = {100, RLIM_INFINITY}, ample = {RLIM_INFINITY, RLIM_INFINITY};  // how far a file may grow
      if (row.change.empty()) ::setrlimit(RLIMIT_FSIZE, &full);
      EXPECT_EQ(import(kind, text.input, in_len), -1);
      ::setrlimit(RLIMIT_FSIZE, &ample);
      EXPECT_EQ(errors(take_log()), row.errors);
      EXPECT_EQ(look(temporary, text.file()), row.temporary);
      EXPECT_EQ(look(file, text.file()), row.file);
      EXPECT_EQ(look(backup, text.file()), row.backup);
    }
  }
}

// One after the other, without priorities and the blanks at their ends.
std::string joined(const Lines& lines) {
  std::string all;
  for (const std::string& line : lines) {
    all += (all.empty() ? "" : "; ") + line.substr(2, line.find_last_not_of(" \n") - 1);
  }
  return all;
}

// What |cell| says of the phone of |family|: {id} is its chip id, {record} its record, {record key=value} another one.
std::string expand_for(const Family& family, const std::string& cell) {
  return expand(cell, [&family](const std::string& name) {
    std::istringstream words(name);
    std::string word, record = family.record;
    for (words >> word; words >> word;) {
      record = with_value(record, word.substr(0, word.find('=')), word.substr(word.find('=') + 1));
    }
    return name == "id" ? family.id : record;
  });
}

TEST_F(RecordsTest, JudgesForgedFiles) {
  const Signer other_root = make_signer({.self_signed = true, .extensions = kCaExtensions});
  const Signer foreign = make_signer({.issuer = &other_root});
  std::map<std::string, phone::Identity> phones = {{"another chip", phone::default_identity(Chip::kMediaTek)},
                                                   {"the same chip", phone::default_identity(Chip::kMediaTek, 1)}};
  std::swap(phones["another chip"].rid, phones["the same chip"].rid);
  phones["the same chip"].properties["ro.product.device"] = "Other";
  const std::string untrusted = "sub certificate err", no_error = ERR_error_string(0, nullptr);
  const std::string detailed = untrusted + " =0; " + untrusted + " =" + no_error + "; ";
  for (const Lines& row : forgeries("Stored files")) {
    SCOPED_TRACE(testing::PrintToString(row));
    const bool is_unisoc = row[2].starts_with("Unisoc"), holds = row[3] == "accepted";
    const std::string change = is_unisoc ? row[2].substr(std::min<size_t>(row[2].size(), 8)) : row[2];
    const Family& family = is_unisoc ? kUnisoc : kMediaTek;
    const Kind kind = row[0] == "-" ? kAuthorization : kParameters;
    const auto& [operation, check, name, temporary] = kNames[kind];
    const std::string file = family.store + name, backup = kBackup + name;
    const std::string record = kind == kParameters ? expand_for(family, row[0]) : "";
    const std::string content = signed_content(row[1] == "itself" ? record : expand_for(family, row[1]));
    std::string input = signed_record(row[2] == "a stranger's" ? foreign : default_signer(), content);
    if (row[1] == "-") input.resize(input.size() - 200);
    const std::string text = (kind == kParameters ? record + "&" : "") + input;
    const bool is_verified = holds || row[4].ends_with("check_para err");
    const std::string told =
        (is_verified ? joined({kVerified}) : "") + (is_verified && !holds ? "; " : "") + expand_for(family, row[4]);

    start(family);
    set_para_buf(record);
    if (phones.contains(change))
      make_phone(phones[change]);
    else if (change != "a stranger's")
      alter(change);
    for (const std::string& path : {file, backup}) write_file(path, "old");
    EXPECT_EQ(import(kind, input, input.size()), holds - 1);
    EXPECT_EQ(look(family.store + temporary, text), holds ? "none" : "new");
    EXPECT_EQ(look(file, text) + look(backup, text), holds ? "newnew" : "oldold");
    EXPECT_TRUE(g_is_authed == 1 && content_of(g_para_buf) == record) << "nothing of it changes";
    const Lines log = errors(take_log());
    EXPECT_EQ(joined(log), told);
    Lines in_log_file;
    for (const std::string& line : log) {
      const bool is_left_out = line.starts_with("6 deviceBrand") || line.starts_with("6 phoneMac");
      if (line == kNotVerified || (line.find("val_buf=") != line.npos && !is_left_out)) in_log_file = {line.substr(2)};
    }
    if (row[4] == untrusted) in_log_file = {"kelo_X509_verify_cert  ret=0", "unable to get local issuer certificate"};
    EXPECT_EQ(take_log_file(), in_log_file);

    write_file(file, text);
    ERR_put_error(ERR_LIB_X509, 0, X509_R_CERT_ALREADY_IN_HASH_TABLE, "elsewhere", 1);
    EXPECT_EQ(kelo_is_para_correct(), holds - 1);
    EXPECT_EQ(look(file, text) + look(backup, text), holds ? "newnew" : "newold");
    EXPECT_EQ(take_log_file(), in_log_file);
    const Lines found = errors(take_log());
    const auto judged = std::find(found.begin(), found.end(), "6 " + check + "_path err  path =" + file + " \n");
    EXPECT_EQ(judged == found.end(), holds);
    const std::string expected = (kind == kParameters && row[4] == untrusted ? detailed : "") + told;
    EXPECT_TRUE(holds || joined({found.begin(), judged}).ends_with(expected)) << joined(found);
  }
}

// A file is not held between its verification and its move or copy, and links are followed; the next check tells.
TEST_F(RecordsTest, TakesWhatIsPutInPlaceOfAVerifiedFile) {
  for (const Kind kind : kKinds) {
    const auto& [operation, check, name, temporary] = kNames[kind];
    const Signed good = sign_for(kind, kMediaTek);
    const std::string file = kMediaTek.store + name, backup = kBackup + name, planted = kBackup + "planted";
    for (const bool is_import : {true, false}) {
      start(kMediaTek);
      write_file(backup, good.file());
      put_folder(kMediaTek.store);
      const std::string swapped = is_import ? kMediaTek.store + temporary : backup;
      on_message = [swapped](const std::string& message) {
        if (message != "3 Signature is success.\n") return;
        test::remove(swapped);
        fs::create_symlink("/dev/null", swapped);
      };
      EXPECT_EQ(is_import ? import(kind, good.input, good.input.size()) : kelo_is_para_correct(), 0);
      on_message = nullptr;
      EXPECT_EQ(read_file(file) + read_file(backup), "") << "as far as it could be read";
      EXPECT_EQ(kelo_is_para_correct(), -1);
    }
    start(kMediaTek);
    put_folder(kMediaTek.store);
    fs::create_symlink(planted, kMediaTek.store + temporary);
    EXPECT_EQ(import(kind, good.input, good.input.size()), 0);
    EXPECT_EQ(look(planted, good.file()) + look(file, ""), "newlink");
  }
}

TEST_F(RecordsTest, LogsValuesWithTheirLineBreaks) {
  start(kUnisoc);
  write_file("/vendor/modem/imei", "1\nforged");
  write_file(kUnisoc.store + "startPara.dat", sign_for(kParameters, kUnisoc).file());
  EXPECT_EQ(kelo_is_para_correct(), -1);
  EXPECT_THAT(take_log_file(), ElementsAre("imei err val_buf=1", "forged , t_buf=352099001761481"));
}

// Stored as handed over, and read as text up to the first NUL, the end or 4096 bytes.
TEST_F(RecordsTest, ReadsNoFurtherThanTheText) {
  for (const Kind kind : kKinds) {
    const Signed good = sign_for(kind, kMediaTek);
    const auto filled_to = [&good](size_t size) {  // ends with the signature
      return good.before + "x=" + std::string(size - good.file().size() - 3, 'x') + "&" + good.input;
    };
    const std::string nul(1, '\0'), file = good.file(), head = file.substr(0, file.find("&sign="));
    struct {
      std::string text;
      bool is_valid;
    } const rows[] = {
        {filled_to(4095), true},
        {filled_to(4096), true},
        {filled_to(4097), false},
        {file + nul + "&sign=", true},
        {file + "&x=" + std::string(9000, 'x'), true},
        {head + nul + file.substr(head.size()), false},
        {nul + file, false},
        {file.substr(0, file.size() - 1), false},
        {file.substr(0, 1), false},
        {"", false},
    };
    for (const auto& row : rows) {
      SCOPED_TRACE(kNames[kind].file + " row " + std::to_string(&row - rows));
      start(kMediaTek);
      write_file(kMediaTek.store + kNames[kind].file, row.text);
      EXPECT_EQ(kelo_is_para_correct(), row.is_valid - 1);
      EXPECT_EQ(look(kBackup + kNames[kind].file, row.text), row.is_valid ? "new" : "none");
      const std::string read = kind == kParameters ? row.text.substr(0, 4096) : kMediaTek.record;
      EXPECT_TRUE(content_of(g_para_buf) == read);

      if (kind == kParameters || row.text.empty() || row.text.size() > 4096) continue;
      test::remove(kMediaTek.store);
      EXPECT_EQ(import(kind, row.text, row.text.size()), row.is_valid - 1);
      EXPECT_EQ(look(kMediaTek.store + (row.is_valid ? "auFile.dat" : "auFile_tmp.dat"), row.text), "new");
    }
  }
}

TEST_F(RecordsTest, RepairsOneCopyFromTheOther) {
  const std::string good = "new", long_one = "long", bad = "bad", folder = "folder", none = "none", full = "link";
  const std::string gone = "gone";
  struct Row {
    std::string primary, backup, primary_after, backup_after;
    bool is_valid = true;
  };
  const Row rows[] = {{good, long_one, good, long_one},
                      {good, bad, good, bad},
                      {good, folder, good, folder},
                      {good, none, good, good},
                      {bad, long_one, long_one, long_one},
                      {none, good, good, good},
                      {good, gone, good, none},
                      {gone, good, none, good},
                      {folder, good, folder, good},
                      {full, good, full, good},
                      {bad, bad, bad, bad, false},
                      {bad, none, bad, none, false},
                      {none, bad, none, bad, false},
                      {gone, gone, none, none, false},
                      {folder, folder, folder, folder, false}};
  for (const Kind kind : kKinds) {
    const std::string text = sign_for(kind, kMediaTek).file(), long_text = text + "&x=" + std::string(9000, 'x');
    const auto set_up = [&](const std::string& store, const std::string& state) {
      const std::string path = store + kNames[kind].file;
      put_folder(store);
      if (state == gone)
        test::remove(store);
      else if (state == folder || state == full)
        alter((state == folder ? "+" : "!") + path);
      else if (state != none)
        write_file(path, state == good ? text : state == long_one ? long_text : state);
    };
    const auto look_at = [&](const std::string& store) {
      const std::string found = look(store + kNames[kind].file, text);
      return found == long_text ? long_one : found;
    };
    for (const auto& row : rows) {
      SCOPED_TRACE(kNames[kind].file + ": " + row.primary + ", " + row.backup);
      start(kMediaTek);
      set_up(kMediaTek.store, row.primary);
      set_up(kBackup, row.backup);
      g_is_authed = 0;
      EXPECT_EQ(kelo_is_para_correct(), row.is_valid - 1);
      EXPECT_EQ(look_at(kMediaTek.store), row.primary_after);
      EXPECT_EQ(look_at(kBackup), row.backup_after);
    }
  }
}

// What the check logs before it reads a parameter file: |store| holds no authorization file and the backup neither.
Lines no_au_file(const Family& family) {
  const std::string path = family.store + "auFile.dat";
  return {"4 libkelchk_ver_20240429_01",
          family.line,
          "6 check_au_file open path error =" + path + " ",
          "6 check_au_file_path err  path =" + path + " \n",
          "6 check_au_file open path error =/kelofs/startPara/auFile.dat ",
          "6 check_au_file_path ret=-1  path =" + path + " \n",
          "4 check_au_file ret =-1 \n",
          family.line};
}

TEST_F(RecordsTest, TellsWhichFileItJudged) {
  for (const Family& family : {kMediaTek, kUnisoc}) {
    start(family);
    const std::string au_path = family.store + "auFile.dat", para_path = family.store + "startPara.dat";
    std::memset(PARA_FILE_PATH, 'x', sizeof PARA_FILE_PATH);
    EXPECT_EQ(kelo_is_para_correct(), -1);
    const Lines no_para_file = {"6 check_para_file open path error =" + para_path + " ",
                                "6 check_para_file_path err  path =" + para_path + " \n",
                                "6 check_para_file open path error =/kelofs/startPara/startPara.dat ",
                                "6 check_para_file_path err  path =/kelofs/startPara/startPara.dat \n",
                                "4 check_para_file ret =-1 \n"};
    EXPECT_EQ(take_log(), no_au_file(family) + no_para_file);
    EXPECT_EQ(content_of(g_para_buf), family.record) << "no file could be opened, and yet it was touched";
    EXPECT_EQ(content_of(PARA_FILE_PATH), family.store);

    write_file(para_path, sign_for(kParameters, family).file());
    EXPECT_EQ(kelo_is_para_correct(), 0);
    EXPECT_EQ(take_log(), no_au_file(family) + decoded("3") + kChainHolds + kSignatureHolds + family.check +
                              Lines{"4 check_para_file ret =0 \n"});

    write_file(au_path, sign_for(kAuthorization, family).file());
    write_file(para_path, "damaged");
    EXPECT_EQ(kelo_is_para_correct(), 0);
    EXPECT_EQ(take_log(), (Lines{"4 libkelchk_ver_20240429_01", family.line} + decoded("3") +
                           Lines{family.line, "4 rid=" + family.id + "\n"} + kChainHolds + kSignatureHolds +
                           Lines{"6 check_au_file_path ret=0  path =" + au_path + " \n", "4 check_au_file ret =0 \n"}));
    EXPECT_EQ(read_file(para_path), "damaged");
  }
}

}  // namespace
