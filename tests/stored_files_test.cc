// The check of the stored files: verdicts, repairs, and store directories that hold something else than files.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <openssl/err.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <map>
#include <optional>

#include "kelchk.h"
#include "tests/support/golden.h"
#include "tests/support/stored_file.h"

namespace {

using namespace test;
using StoredFiles = RecordTest;
using StoreDirectory = RecordTest;
using LogFile = RecordTest;
namespace fs = std::filesystem;

// ---- Verdicts ----

enum Verdict { kRefused = -1, kValid = 0 };
using Fields = std::vector<std::pair<std::string, std::string>>;

std::string with_values(std::string record, const Fields& fields) {
  for (const auto& [key, value] : fields) record = with_value(record, key, value);
  return record;
}

// A file made from the phone's own by a forger or under a signer's mistake.
struct Case {
  std::string name;
  Verdict verdict = kRefused;
  bool is_authorization = false;
  const Family* family = &kMediaTek;
  Fields fields = {};                           // of the record, with other values than the phone's
  std::string before = "", after = "";          // the record, in the file
  std::optional<std::string> signed_text = {};  // instead of the chip id or the record's values
  std::function<void()> change = [] {};         // of the phone
  const Signer* signer = &default_signer();
};

// Imports the file, then checks it in the store. Returns what both log at error priority.
std::string judge(const Case& row) {
  SCOPED_TRACE(row.name);
  SignedFile file = signed_files(*row.family)[row.is_authorization ? 0 : 1];
  if (!row.is_authorization) {
    const std::string record = with_values(row.family->record, row.fields);
    file.record = row.before + record + row.after;
    file.message = signed_content(record);
  }
  file.input = signed_record(*row.signer, row.signed_text.value_or(file.message));
  const bool is_valid = row.verdict == kValid;

  make_phone(row.family->chip);
  row.change();
  for (const std::string& path : {file.primary, file.backup}) write_file(path, "old");
  g_is_authed = 1;
  set_record(file.record);
  EXPECT_EQ(import(file), row.verdict);
  EXPECT_EQ(state_of(file.temporary, file.content()), is_valid ? "none" : "new");
  for (const std::string& path : {file.primary, file.backup}) {
    EXPECT_EQ(state_of(path, file.content()), is_valid ? "new" : "old");
  }
  EXPECT_EQ(g_is_authed, 1);
  EXPECT_EQ(content_of(g_para_buf), file.record);
  const std::string import_log = transcript(errors(take_log()));
  const Lines log_file = take_log_file();

  write_file(file.primary, file.content());
  test::remove(file.backup);
  ERR_put_error(ERR_LIB_X509, 0, X509_R_CERT_ALREADY_IN_HASH_TABLE, "elsewhere", 1);
  EXPECT_EQ(kelo_is_para_correct(), row.verdict);
  EXPECT_EQ(state_of(file.primary, file.content()), "new");
  EXPECT_EQ(state_of(file.backup, file.content()), is_valid ? "new" : "none");
  EXPECT_EQ(take_log_file(), log_file);
  Lines reasons = errors(take_log());  // without the lines that name a file
  std::erase_if(reasons, [](const std::string& line) { return line.find("/startPara/") != line.npos; });
  const std::string check_log = transcript(reasons);

  std::string logs = "== " + row.name + (is_valid ? ": valid\n" : ": refused\n") + import_log;
  if (check_log != import_log) logs += "in the check\n" + check_log;
  for (const std::string& line : log_file) logs += "log file " + testing::PrintToString(line) + "\n";
  return logs;
}

TEST_F(StoredFiles, AreValidOnlyWhenSignedForThisPhone) {
  const Signer other_root = make_signer({.self_signed = true, .extensions = kCaExtensions});
  const Signer foreign = make_signer({.issuer = &other_root});
  phone::Identity chip = phone::default_identity(Chip::kMediaTek), same = phone::default_identity(Chip::kMediaTek, 1);
  std::swap(chip.rid, same.rid);
  same.properties["ro.product.device"] = "Other";
  const auto on_another_chip = [&] { make_phone(chip); };  // a phone that differs in nothing else
  const auto on_same_chip = [&] { make_phone(same); };     // with another model, IMEI, MAC and serial number
  const auto has_build = [](const std::string& build_time) {
    return [=] { set_property("ro.system.build.version.incremental", build_time); };
  };
  const std::string id = kMediaTek.chip_id, own = kMediaTek.record, of_own = signed_content(own);
  const std::string of_other = signed_content(with_value(own, "cpuID", chip.rid));
  const std::string room(KELCHK_CANONICAL_CONTENT_MAX - of_own.size() + value_of(own, "featureCode").size(), 'x');
  const std::string x1024(1024, 'x'), x2048(2048, 'x');
  // clang-format off
  const Case cases[] = {
      {.name = "authorization of another chip", .is_authorization = true, .change = on_another_chip},
      {.name = "authorization by a foreign signer", .is_authorization = true, .signer = &foreign},
      // A challenge has capital digits, a chip id lowercase letters: the answer to one is nothing else.
      {.name = "challenge as authorization", .is_authorization = true, .signed_text = "0AFF3C"},
      {.name = "record as authorization", .is_authorization = true, .signed_text = of_own},
      {.name = "authorization without chip id", .is_authorization = true, .change = [] { test::remove("/proc/rid"); }},
      {.name = "authorization of mt", .is_authorization = true, .signed_text = "mt"},
      // By design: a failing read ends the id, which begins with mt.
      {.name = "authorization of mt, chip id unreadable", .verdict = kValid, .is_authorization = true,
       .signed_text = "mt", .change = [] { put_folder("/proc/rid"); }},

      {.name = "record of another chip", .change = on_another_chip},
      {.name = "record of a phone with the same chip", .change = on_same_chip},
      {.name = "record by a foreign signer", .signer = &foreign},
      {.name = "record signed for another chip", .signed_text = of_other},
      {.name = "authorization as record", .signed_text = id},

      // How fields are found.
      {.name = "field out of order", .verdict = kValid, .before = "ver=01&"},
      {.name = "unknown field", .verdict = kValid, .after = "&x=1"},  // it is not signed
      {.name = "second psn", .verdict = kValid, .after = "&psn=1"},   // the first value that fits counts
      {.name = "other psn first", .before = "psn=1&"},
      {.name = "other psn first, too long", .verdict = kValid, .before = "psn=" + x2048 + "&"},
      {.name = "key inside a value", .verdict = kValid, .fields = {{"featureCode", "psn=1"}}},
      {.name = "longer key", .before = "x"},
      {.name = "longest signed text", .verdict = kValid, .fields = {{"featureCode", room}}},
      {.name = "signed text too long by 1", .fields = {{"featureCode", room + "x"}}},
      {.name = "value above every limit", .fields = {{"ver", x2048}}},
      {.name = "longest compared value", .fields = {{"cpuID", "mt" + std::string(1021, '0')}}},
      // By design: what is too long to be compared is signed, and the second value is the first that fits.
      {.name = "signed value hidden by a second", .verdict = kValid, .fields = {{"cpuID", x1024}},
       .after = "&cpuID=" + id},

      // How fields are compared: the first disagreement ends it.
      {.name = "buildType before buildTime", .fields = {{"buildType", "x"}, {"buildTime", "x"}}},
      {.name = "buildTime before countrySha", .verdict = kRefused,
       .fields = {{"countrySha", "x"}, {"buildTime", "99999999V1"}}},
      {.name = "earlier build", .verdict = kValid, .fields = {{"buildTime", "20240101V1"}}},  // the phone was updated
      {.name = "other build of the day", .verdict = kValid, .fields = {{"buildTime", "20240429V9"}}},
      {.name = "later build", .fields = {{"buildTime", "20240430V1"}}},
      {.name = "phone with an older build", .change = has_build("20231201V1")},
      {.name = "phone with a short date", .change = has_build("240429V3")},
      {.name = "short dates that differ later", .verdict = kValid, .fields = {{"buildTime", "24042999"}},
       .change = has_build("24042912")},
      {.name = "later short date", .fields = {{"buildTime", "240501"}}, .change = has_build("24042912")},
      {.name = "phone with a build time too short by 1", .change = has_build("2024042")},
      {.name = "model without MDF1, phone with none", .verdict = kValid, .fields = {{"deviceModel", "KX67"}},
       .change = [] { set_property("ro.product.device", ""); }},
      {.name = "model with MDF1 inside", .fields = {{"deviceModel", "xMDF1KX67"}}},
      {.name = "other IMEI on MediaTek", .verdict = kValid, .fields = {{"imei", "none"}}},
      {.name = "other IMEI in recovery mode", .verdict = kValid, .family = &kUnisoc,
       .fields = {{"imei", "none"}}, .change = [] { set_property("ro.bootmode", "recovery"); }},
      {.name = "other IMEI without boot mode", .verdict = kValid, .family = &kUnisoc,
       .fields = {{"imei", "none"}}, .change = [] { set_property("ro.bootmode", ""); }},

      // By design: the values are signed run together, so they can be divided differently.
      {.name = "values divided differently", .verdict = kValid,
       .fields = {{"deviceModel", "M"}, {"featureCode", "DF1KX67FC01"}, {"imei", "352099001761481000AF500000"},
                  {"phoneMac", "0"}, {"psn", "K"}, {"time", "X67000000000000240429-153012"}},
       .signed_text = of_own, .change = on_same_chip},
      // By design: likewise, when a feature code was signed that holds values.
      {.name = "feature code that holds values", .verdict = kValid,
       .fields = {{"buildTime", "20240429V3user" + value_of(own, "countrySha") + id + "AldanMDF1KX67"},
                  {"countrySha", "F"}, {"cpuID", "mt"}, {"deviceModel", "M"}, {"featureCode", "x"}, {"imei", "i"},
                  {"phoneMac", "0"}, {"psn", "K"},
                  {"time", "t352099001761481000AF5000000KX67000000000000240429-153012"}},
       .signed_text = signed_content(with_value(own, "featureCode", "userFmtAldanMxi0Kt")), .change = on_another_chip},
      // By design: the id of a phone whose chip could not be read fits every MediaTek phone.
      {.name = "record with chip id mt", .verdict = kValid, .fields = {{"cpuID", "mt"}}, .change = on_another_chip},
  };
  // clang-format on
  std::string logs;
  for (const Case& row : cases) logs += judge(row);
  for (const auto& [family, key, remove] : kMissingValues) {
    logs += judge({.name = "phone without " + key, .family = family, .change = remove});
  }
  expect_golden("stored_files.log", logs);
}

TEST_F(StoredFiles, AreComparedWithThePhoneFieldByField) {
  enum Rule { kNever, kDate, kBeginning, kWhole };
  const std::pair<std::string, Rule> rules[] = {
      {"buildTime", kDate},     {"buildType", kWhole},   {"countrySha", kBeginning}, {"cpuID", kBeginning},
      {"deviceBrand", kWhole},  {"deviceModel", kWhole}, {"featureCode", kNever},    {"imei", kBeginning},
      {"phoneMac", kBeginning}, {"psn", kBeginning},     {"time", kNever},           {"ver", kNever}};
  std::string logs;
  for (const auto& [key, rule] : rules) {
    const std::string value = value_of(kUnisoc.record, key), shorter = value.substr(0, value.size() - 1);
    const auto judge_value = [&, &name = key](const std::string& what, const std::string& other, bool is_valid) {
      const Verdict verdict = is_valid ? kValid : kRefused;
      logs += judge({.name = name + " " + what, .verdict = verdict, .family = &kUnisoc, .fields = {{name, other}}});
    };
    judge_value("missing", "", false);
    judge_value("shorter", shorter, rule != kWhole);
    judge_value("longer", value + "0", rule == kNever || rule == kDate);
    judge_value("too long to be compared", std::string(1024, 'x'), rule == kNever);
  }
  expect_golden("compared_fields.log", logs);
}

// Stored as handed over, and read as text up to the first NUL, the end or 4096 bytes.
TEST_F(StoredFiles, AreReadNoFurtherThanTheirText) {
  for (const SignedFile& good : signed_files(kMediaTek)) {
    const std::string nul(1, '\0'), file = good.content(), head = file.substr(0, file.find("&sign="));
    const auto padded_to = [&](size_t size) {  // the signature stays at the end
      return good.stored("x=" + std::string(size - file.size() - strlen("x=&"), 'x') + "&" + good.input);
    };
    struct {
      std::string name, text;
      Verdict verdict;
    } const rows[] = {
        {.name = "longest but 1", .text = padded_to(KELCHK_SIGNED_FILE_MAX - 1), .verdict = kValid},
        {.name = "longest", .text = padded_to(KELCHK_SIGNED_FILE_MAX), .verdict = kValid},
        {.name = "too long by 1", .text = padded_to(KELCHK_SIGNED_FILE_MAX + 1), .verdict = kRefused},
        {.name = "NUL, then another signature", .text = file + nul + "&sign=", .verdict = kValid},
        {.name = "9000 more bytes", .text = file + "&x=" + std::string(9000, 'x'), .verdict = kValid},
        {.name = "NUL before the signature", .text = head + nul + file.substr(head.size()), .verdict = kRefused},
        {.name = "NUL first", .text = nul + file, .verdict = kRefused},
        {.name = "without the last byte", .text = file.substr(0, file.size() - 1), .verdict = kRefused},
        {.name = "one byte", .text = file.substr(0, 1), .verdict = kRefused},
        {.name = "empty", .text = "", .verdict = kRefused},
    };
    for (const auto& row : rows) {
      SCOPED_TRACE(good.name + ", " + row.name);
      start(kMediaTek);
      write_file(good.primary, row.text);
      EXPECT_EQ(kelo_is_para_correct(), row.verdict);
      EXPECT_EQ(state_of(good.backup, row.text), row.verdict == kValid ? "new" : "none");
      const std::string read = row.text.substr(0, KELCHK_SIGNED_FILE_MAX);
      EXPECT_EQ(content_of(g_para_buf), good.is_authorization() ? kMediaTek.record : read);

      if (!good.is_authorization() || row.text.empty() || row.text.size() > KELCHK_SIGNED_FILE_MAX) continue;
      test::remove(kMediaTek.store);
      EXPECT_EQ(import(good, row.text, row.text.size()), row.verdict);
      EXPECT_EQ(state_of(row.verdict == kValid ? good.primary : good.temporary, row.text), "new");
    }
  }
}

// ---- Repairs ----

// A file is not locked between its verification and its move or copy, and links are followed; the next check notices.
TEST_F(StoredFiles, AreNotLockedAgainstReplacement) {
  for (const SignedFile& good : signed_files(kMediaTek)) {
    const std::string planted = KELCHK_STORE_BACKUP "planted";
    for (const bool is_import : {true, false}) {
      start(kMediaTek);
      write_file(good.backup, good.content());
      put_folder(kMediaTek.store);
      on_message = [replaced = is_import ? good.temporary : good.backup](const std::string& message) {
        if (message != "3 Signature is success.\n") return;
        put_link("/dev/null", replaced);
      };
      EXPECT_EQ(is_import ? import(good) : kelo_is_para_correct(), 0);
      on_message = nullptr;
      EXPECT_EQ(read_file(good.primary) + read_file(good.backup), "") << "as far as it could be read";
      EXPECT_EQ(kelo_is_para_correct(), -1);
    }
    start(kMediaTek);
    put_folder(kMediaTek.store);
    put_link(planted, good.temporary);
    EXPECT_EQ(import(good), 0);
    EXPECT_EQ(state_of(planted, good.content()), "new");
    EXPECT_EQ(state_of(good.primary, ""), "link");
  }
}

TEST_F(StoredFiles, AreRepairedFromTheGoodCopy) {
  const Lines states = {"new", "long", "bad", "none", "folder", "link", "no directory"};  // "new" and "long" are valid
  std::string logs;
  for (const SignedFile& file : signed_files(kMediaTek)) {
    const std::map<std::string, std::string> contents = {
        {"new", file.content()}, {"long", file.content() + "&x=" + std::string(9000, 'x')}, {"bad", "bad"}};
    const auto set_up = [&](const fs::path& path, const std::string& state) {
      put_folder(path.parent_path());
      if (contents.contains(state)) write_file(path, contents.at(state));
      if (state == "folder") put_folder(path);
      if (state == "link") put_link("/dev/full", path);
      if (state == "no directory") test::remove(path.parent_path());
    };
    const auto state_after = [&](const std::string& path) {
      const std::string state = state_of(path, file.content());
      return state == contents.at("long") ? "long" : state;
    };
    for (size_t i = 0; i < states.size() * states.size(); i++) {
      const std::string &primary = states[i / states.size()], &backup = states[i % states.size()];
      const std::string name = file.name + ": primary " + primary + ", backup " + backup;
      SCOPED_TRACE(name);
      start(kMediaTek);
      set_up(file.primary, primary);
      set_up(file.backup, backup);
      g_is_authed = 0;
      const bool is_valid = i / states.size() < 2 || i % states.size() < 2;
      EXPECT_EQ(kelo_is_para_correct(), is_valid ? 0 : -1);
      logs += "== " + name + "; then " + state_after(file.primary) + ", " + state_after(file.backup) + "\n";
      const Lines log = take_log();
      if (is_valid) logs += transcript(errors(log));
    }
  }
  expect_golden("repair.log", logs);
}

TEST_F(StoredFiles, AreJudgedAuthorizationFirst) {
  for (const Family& family : {kMediaTek, kUnisoc}) {
    start(family);
    const SignedFile au = signed_files(family)[0], para = signed_files(family)[1];
    std::memset(PARA_FILE_PATH, 'x', sizeof PARA_FILE_PATH);
    EXPECT_EQ(kelo_is_para_correct(), -1);
    EXPECT_EQ(content_of(g_para_buf), family.record) << "no file could be opened";
    EXPECT_EQ(content_of(PARA_FILE_PATH), family.store);
    std::string logs = take_transcript("no file");

    write_file(para.primary, para.content());
    EXPECT_EQ(kelo_is_para_correct(), 0);
    logs += take_transcript("signed parameter file");

    write_file(au.primary, au.content());
    write_file(para.primary, "damaged");
    EXPECT_EQ(kelo_is_para_correct(), 0);
    EXPECT_EQ(read_file(para.primary), "damaged") << "the authorization file settles the answer";
    expect_golden("check_" + family.name + ".log", logs + take_transcript("authorization file"));
  }
}

// ---- The store directories ----

TEST_F(StoreDirectory, NeverMakesACallWaitForAFifo) {
  const std::string forged = signed_record(default_signer(), "forged"), reader = "reader", full = "reader, full pipe";
  const std::string nobody = "nobody at its other end", writer = "silent writer", link = "link to a FIFO";
  const std::string log_file = KELCHK_LOG_FILE;  // only a file that does not verify gets a line there
  const auto check = [&](const SignedFile& file, const std::string& path, const std::string& kind, bool is_import) {
    start(kMediaTek);
    const std::string input = path == log_file ? forged : file.input, fifo = kind == link ? "/kelofs/fifo" : path;
    write_file(file.primary, file.stored(input));
    write_file(file.backup, file.content());
    test::remove(path);
    EXPECT_EQ(::mkfifo(fifo.c_str(), 0666), 0);
    if (kind == link) put_link(fifo, path);
    const int both_ends = ::open(fifo.c_str(), O_RDWR | O_NONBLOCK);
    if (kind == reader) ::open(fifo.c_str(), O_RDONLY | O_NONBLOCK);
    if (kind == writer) ::open(fifo.c_str(), O_WRONLY | O_NONBLOCK);
    while (kind == full && ::write(both_ends, path.data(), 1) > 0) continue;
    if (kind != full) ::close(both_ends);
    ::alarm(10);  // ends a call that waits
    if (!is_import) {
      EXPECT_EQ(kelo_is_para_correct(), 0) << "the other copy is good";
      return;
    }
    const bool is_stored = path == file.primary || (path == file.backup && kind == reader);
    EXPECT_EQ(import(file, input, input.size()), is_stored ? 0 : -1);
    EXPECT_EQ(read_file(file.primary), file.stored(input)) << "neither lost nor replaced by a FIFO";
  };
  for (const SignedFile& file : signed_files(kMediaTek)) {
    for (const std::string& path : {file.primary, file.backup, file.temporary, log_file}) {
      for (const std::string& kind : {nobody, writer, reader, full, link}) {
        for (const bool is_import : {false, true}) {
          SCOPED_TRACE((is_import ? "import, " : "check, ") + path + ", " + kind);
          in_child([&] { check(file, path, kind, is_import); });
          if (HasFailure()) return;  // the others would wait as long
        }
      }
    }
  }
}

// ---- The log file ----

TEST_F(LogFile, GetsTheLineOfAMismatchAsItIs) {
  start(kUnisoc);
  write_file("/vendor/modem/imei", "1\nforged");
  const SignedFile file = signed_files(kUnisoc)[1];
  write_file(file.primary, file.content());
  std::memset(g_log_buf, 'x', sizeof g_log_buf);
  const mode_t old_mask = ::umask(0);
  EXPECT_EQ(kelo_is_para_correct(), -1);
  ::umask(old_mask);
  struct stat status = {};
  EXPECT_EQ(::stat(KELCHK_LOG_FILE, &status), 0);
  EXPECT_EQ(status.st_mode, S_IFREG | 0666);
  EXPECT_EQ(content_of(g_log_buf), "imei err val_buf=1\nforged , t_buf=352099001761481") << "zeros after the line";
  EXPECT_THAT(take_log_file(), testing::ElementsAre("imei err val_buf=1", "forged , t_buf=352099001761481"));
}

}  // namespace
