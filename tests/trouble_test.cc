// Every call into the system fails in its turn, or is the process's or the phone's last, and every allocation of the
// crypto library fails: nothing breaks, nothing is accepted that would not be otherwise, and no stored file is lost.
#include "tests/support/trouble.h"

#include <gtest/gtest.h>
#include <openssl/err.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <map>
#include <optional>
#include <set>
#include <sstream>

#include "kelchk.h"
#include "tests/support/phone_test.h"
#include "tests/support/pki.h"

namespace phone {
inline void PrintTo(Chip chip, std::ostream* out) {
  *out << (chip == Chip::kMediaTek ? "MediaTek" : "Unisoc");
}
}  // namespace phone

namespace {

using namespace test;
namespace fs = std::filesystem;
using Operation = std::function<int()>;
using Files = std::map<std::string, std::string>;  // contents by path

constexpr char kChallenge[] = "0AFF3C";
constexpr time_t kNow = 1714386612, kBeforeRoot = 86400;
const std::string kStores[] = {"/kelofs/startPara/", "/mnt/vendor/persist/startPara/",
                               "/mnt/vendor/productinfo/startPara/"};

// The signed files in all store directories.
Files stored_files() {
  Files files;
  for (const std::string& store : kStores) {
    if (!fs::is_directory(store)) continue;
    for (const auto& entry : fs::directory_iterator(store)) {
      if (entry.path().extension() == ".dat") files[entry.path()] = read_file(entry.path());
    }
  }
  return files;
}

// Without any, the store directories are missing as well.
void store_files(const Files& files) {
  std::error_code foreign;  // the other family's has no parent
  for (const std::string& store : kStores) {
    test::remove(store);
    if (!files.empty()) fs::create_directory(store, foreign);
  }
  for (const auto& [path, content] : files) write_file(path, content);
}

// What |files| hold under |path|.
std::string at(const Files& files, const std::string& path) {
  const auto file = files.find(path);
  return file == files.end() ? "none" : file->second;
}

int ask_for_record(std::string& record) {
  char out[4096];
  unsigned len = 0;
  g_is_authed = 1;
  const int result = kelo_get_para("mac=FC01&IMEI=352099001761481", 1, out, &len);
  record.assign(out, len);
  return result;
}

Operation login_with(const std::string& text) {
  return [text] {
    reset_library_state();
    std::strcpy(g_rand_buf, kChallenge);
    const int result = kelo_verify_rand(text.c_str(), static_cast<unsigned>(text.size()));
    EXPECT_EQ(g_is_authed, result == 0);
    return result;
  };
}

// One of the two signed files of this phone: where it is stored, what stands in it before the server's text, what that
// signs, and two such texts.
struct SignedFile {
  std::string primary, backup, before, message, fresh, old;

  Files both(const std::string& text) const { return {{primary, before + text}, {backup, before + text}}; }
  Operation import(const std::string& text) const {
    return [text, record = before.substr(0, before.size() - !before.empty())] {
      reset_library_state();
      if (record.empty()) return kelo_import_aufile(text.data(), static_cast<unsigned>(text.size()));
      record.copy(g_para_buf, sizeof g_para_buf);
      g_is_authed = 1;
      return kelo_import_para_sign(text.c_str(), 1);
    };
  }
};

class TroubleTest : public PhoneTest, public testing::WithParamInterface<Chip> {
 protected:
  void SetUp() override {
    PhoneTest::SetUp();
    set_clock(kNow);
    make_phone(GetParam());
    EXPECT_EQ(ask_for_record(record_), 0);
    const std::string store = kStores[GetParam() == Chip::kMediaTek ? 1 : 2], au = "auFile.dat", para = "startPara.dat";
    files_ = {{store + au, kStores[0] + au, "", value_of(record_, "cpuID"), "", ""},
              {store + para, kStores[0] + para, record_ + "&", signed_content(record_), "", ""}};
    for (SignedFile& file : files_) {
      file.fresh = signed_record(default_signer(), file.message);
      file.old = file.fresh + "&x=old";
    }
  }

  std::string record_;
  std::vector<SignedFile> files_;
};

INSTANTIATE_TEST_SUITE_P(, TroubleTest, testing::Values(Chip::kMediaTek, Chip::kUnisoc));

// ---- The end in the midst of it ----

// Gathers what the end of an operation at any moment may leave in the stores. When the process dies, that is what is
// there. When the phone does, a file that no fsync or sync followed may hold what it held before, nothing, or garbage,
// and a rename that no sync followed may be undone.
struct Moments {
  Files durable;
  std::map<Files, std::string> states = {};  // each with how it comes about
  std::optional<std::pair<std::string, std::string>> renamed = std::nullopt;

  void before(const std::string& call, const std::string& path, const std::string& to) {
    gather("before " + call + " " + path);
    if (call == "fsync") durable[path] = read_file(path);
    if (call == "rename") renamed = {path, to};
    if (call != "sync") return;
    durable = stored_files();
    renamed.reset();
  }

  void gather(const std::string& moment) {
    const Files now = stored_files();
    states.try_emplace(now, moment);
    for (const bool keeps_rename : {true, false}) {
      Files current = now, kept = durable;
      if (renamed) {
        const auto& [from, to] = *renamed;
        Files& changed = keeps_rename ? kept : current;
        auto moved = changed.extract(keeps_rename ? from : to);
        if (keeps_rename)
          changed.erase(to);
        else if (durable.contains(to))
          changed[to] = durable[to];
        if (moved) changed[keeps_rename ? to : from] = moved.mapped();
      }
      for (const std::string fate : {"old", "empty", "garbled"}) {
        Files left = kept;
        for (const auto& [path, content] : current) {
          if (fate == "old" || (kept.contains(path) && kept[path] == content)) continue;
          left[path] = fate == "garbled" ? content : "";
          for (char& c : left[path]) c ^= 1;
        }
        states.try_emplace(left, moment + ", power lost, " + fate + (keeps_rename ? "" : ", rename undone"));
      }
    }
  }
};

// Cuts |operation|, which makes |end| of |begin|, at every moment and has each state that may be left looked at in a
// new process. Returns their number.
size_t cut(const Files& begin, const Operation& operation, const Files& end,
           const std::function<void(const Files& state)>& look) {
  Moments moments{begin};
  std::vector<std::pair<Trouble, Files>> deaths;
  unsigned calls = 0;
  Trouble watched;
  watched.watch = [&](const std::string& call, const std::string& path, const std::string& to) {
    calls += call != "half";
    // To end before a call that only looks is to end before the one that follows it.
    if (call == "read" || call == "stat" || call == "access" || call == "property_get") return;
    moments.before(call, path, to);
    deaths.push_back({{call == "half" ? Trouble::kDiesHalfway : Trouble::kDies, calls}, stored_files()});
  };
  store_files(begin);
  EXPECT_EQ(run_with(watched, operation), 0);
  EXPECT_EQ(stored_files(), end);
  moments.states.try_emplace(end, "at the end");
  Moments after{moments.durable, {}, moments.renamed};
  after.gather("after the end");
  EXPECT_EQ(after.states.size(), 1U) << "the end is not durable";

  for (const auto& [death, state] : deaths) {
    store_files(begin);
    in_child([&operation, trouble = death] {
      run_with(trouble, operation);
      ADD_FAILURE() << "it lives";
    });
    EXPECT_EQ(stored_files(), state) << "when it dies at call " << death.first;
  }
  for (const auto& [state, moment] : moments.states) {
    SCOPED_TRACE(moment);
    store_files(state);
    in_child([&look, &files = state] {
      reset_library_state();
      look(files);
    });
  }
  std::cout << calls << " calls, " << deaths.size() << " deaths, " << moments.states.size() << " states\n";
  EXPECT_GT(deaths.size(), 5U);
  return moments.states.size();
}

TEST_P(TroubleTest, ACutImportLeavesTheOldFileOrTheNewOne) {
  for (const SignedFile& file : files_) {
    const Files end = file.both(file.fresh), both = file.both(file.old), primary_alone = {*both.find(file.primary)};
    const Files backup_alone = {*both.find(file.backup)}, damaged = {{file.primary, "x"}, *both.find(file.backup)};
    for (const Files& begin : {Files{}, both, primary_alone, backup_alone, damaged}) {
      SCOPED_TRACE(testing::PrintToString(begin));
      cut(begin, file.import(file.fresh), end, [&](const Files& state) {
        const bool is_new = at(state, file.primary) == end.at(file.primary);
        EXPECT_TRUE(is_new || at(state, file.primary) == at(begin, file.primary));
        EXPECT_EQ(kelo_is_para_correct(), is_new || begin.contains(file.backup) || begin == primary_alone ? 0 : -1);
        EXPECT_EQ(file.import(file.fresh)(), 0);
        EXPECT_EQ(stored_files(), end);
      });
    }
  }
}

// Of a backup only its existence is looked at, so a torn one stays; but its primary is good and is not touched.
TEST_P(TroubleTest, ACutRepairIsDoneAgainButABackupStaysTorn) {
  for (const SignedFile& file : files_) {
    const Files end = file.both(file.old), primary_alone = {*end.find(file.primary)};
    const Files backup_alone = {*end.find(file.backup)}, damaged = {{file.primary, "x"}, *end.find(file.backup)};
    for (const Files& begin : {backup_alone, damaged}) {
      cut(begin, kelo_is_para_correct, end, [&](const Files& state) {
        EXPECT_EQ(at(state, file.backup), end.at(file.backup));
        EXPECT_EQ(kelo_is_para_correct(), 0);
        EXPECT_EQ(stored_files(), end);
      });
    }
    const size_t states = cut(primary_alone, kelo_is_para_correct, end, [&](const Files& state) {
      EXPECT_EQ(at(state, file.primary), end.at(file.primary));
      EXPECT_EQ(kelo_is_para_correct(), 0);
      EXPECT_EQ(stored_files(), state.contains(file.backup) ? state : end);
    });
    EXPECT_GE(states, 5U) << "no backup, a whole, a half, an empty and a garbled one";
  }
}

// ---- Failures ----

struct Case {
  std::string name;
  int result;  // without trouble
  Operation operation;
  Files begin = {};           // what is stored before
  std::string imported = "";  // what is stored with a result of 0
  int in_trouble = -1;        // the other result
  Lines properties = {};      // of the phone, beside its own
};

class FaultsTest : public TroubleTest {
 protected:
  void SetUp() override {
    TroubleTest::SetUp();
    Signer forged = make_signer();
    forged.der.back() ^= 1;
    const std::string other = signed_record(default_signer(), "other"), log = kStores[0] + "log.txt";
    cases_ = {{"login", 0, login_with(signed_record(default_signer(), kChallenge))},
              {"login, forged", -1, login_with(signed_record(forged, kChallenge))},
              {"login, other", -1, login_with(other)},
              {"login, full log", -1, login_with(other), {{log, std::string(102400, 'x')}}}};
    for (const SignedFile& file : files_) {
      const std::string forgery = signed_record(forged, file.message), fresh = file.before + file.fresh;
      const Files stored = file.both(file.old), primary_alone = {*stored.find(file.primary)};
      const Files damaged = {{file.primary, file.before + forgery}, *stored.find(file.backup)};
      const Case rows[] = {{"import", 0, file.import(file.fresh), stored, fresh},
                           {"first import", 0, file.import(file.fresh), {}, fresh},
                           {"import over a forged one", 0, file.import(file.fresh), damaged, fresh},
                           {"import, forged", -1, file.import(forgery), stored},
                           {"import, other", -1, file.import(other), damaged},
                           {"check", 0, kelo_is_para_correct, stored},
                           {"repair", 0, kelo_is_para_correct, damaged},
                           {"backup", 0, kelo_is_para_correct, primary_alone},
                           {"check, forged", -1, kelo_is_para_correct, file.both(forgery)},
                           {"check, other", -1, kelo_is_para_correct, file.both(other)}};
      cases_.insert(cases_.end(), std::begin(rows), std::end(rows));
    }
    add_disagreeing_files();
  }

  // Authentic files that do not describe this phone. Whatever cannot be read of it, some pass.
  void add_disagreeing_files() {
    const SignedFile &au = files_[0], &para = files_[1];
    const auto add = [this](const std::string& what, const Files& files, const Lines& properties = {}) {
      cases_.push_back({"check, " + what, -1, kelo_is_para_correct, files, "", 0, properties});
    };
    const auto add_with = [&](const std::string& key, const std::string& value) {
      SignedFile other = para;
      const std::string record = with_value(record_, key, value);
      other.before = record + "&";
      add("other " + key, other.both(signed_record(default_signer(), signed_content(record))));
    };
    add("rooted", para.both(para.fresh), {"ro.vendor.kelo.userroot"});
    add("debuggable", para.both(para.fresh), {"ro.debuggable"});
    for (const std::string key : {"buildType", "cpuID", "deviceBrand", "deviceModel", "phoneMac", "psn"}) {
      add_with(key, key == "deviceModel" ? "MDF1other" : "other");
    }
    add("bare id", au.both(signed_record(default_signer(), value_of(record_, "cpuID").substr(0, 2))));
    add_with("countrySha", sha256("IN2QVk=_XkY=_SVI="));  // of a Unisoc phone that has no configuration
    if (GetParam() == Chip::kUnisoc) add_with("imei", "other");
  }

  void TearDown() override {
    std::cout << points_ << " points, " << troubles_ << " troubles, " << judged_.size() << " states\n";
    TroubleTest::TearDown();
  }

  // Runs it, stored files and all. Its properties are the phone's meanwhile.
  int run(const Case& row, const Trouble& trouble, Counts& counts) {
    store_files(row.begin);
    for (const std::string& name : row.properties) set_property(name, "1");
    const int result = run_with(trouble, row.operation, &counts);
    auto own = phone::default_identity(GetParam()).properties;
    for (const std::string& name : row.properties) set_property(name, own[name]);
    return result;
  }

  // Counts the calls or allocations without trouble, after what happens only once in a process.
  unsigned count(const Case& row, unsigned Counts::*what) {
    Counts counts;
    for (int i = 0; i < 2; i++) EXPECT_EQ(run(row, {}, counts), row.result) << row.name;
    points_ += counts.*what;
    return counts.*what;
  }

  // Trouble may turn an answer into a refusal, never the other way, and leaves nothing open or unfreed.
  void meet(const Case& row, const Trouble& trouble) {
    SCOPED_TRACE(row.name + ": trouble " + std::to_string(trouble.kind) + " at " + std::to_string(trouble.first) +
                 (trouble.lasts ? " and after, " : ", ") + std::strerror(trouble.error));
    const size_t descriptors = open_descriptors();
    Counts counts;
    const int result = run(row, trouble, counts);
    EXPECT_FALSE(counts.met.empty());
    EXPECT_TRUE(result == row.result || result == row.in_trouble) << result;
    EXPECT_EQ(open_descriptors(), descriptors);
    EXPECT_FALSE(unload("/vendor/lib64/libnvram.so"));
    EXPECT_EQ(counts.blocks_left, 0) << "memory was left behind, or freed twice";
    EXPECT_EQ(ERR_peek_error(), 0U);
    take_log();
    troubles_++;
    if (result == 0 && trouble.kind == Trouble::kFails && !trouble.lasts) note_success(row, counts.met);

    // Afterwards, without trouble: what was valid before still is, and nothing became so that was refused.
    const Files left = stored_files();
    const bool is_imported = !row.imported.empty() && std::any_of(left.begin(), left.end(), [&](const auto& file) {
      return file.second == row.imported && file.first.find("_tmp") == std::string::npos;
    });
    EXPECT_TRUE(result != 0 || row.imported.empty() || is_imported);
    if (!judged_.insert({row.begin, left}).second) return;
    EXPECT_EQ(is_valid(left), is_imported || is_valid(row.begin));
  }

  void note_success(const Case& row, const std::string& failed) {
    if (row.result == -1) accepted_.insert(row.name + ": " + failed);
    const bool is_unheeded = failed.starts_with("close ") || failed.starts_with("stat ");
    if (!row.imported.empty() && failed.find("/startPara/") != failed.npos && !is_unheeded) unnoticed_.insert(failed);
  }

  static bool is_valid(const Files& files) {
    store_files(files);
    reset_library_state();
    return kelo_is_para_correct() == 0;
  }

  std::vector<Case> cases_;
  std::set<std::pair<Files, Files>> judged_;
  std::set<std::string> accepted_;   // with the one failure that made it pass
  std::set<std::string> unnoticed_;  // failures that left an import with a 0, though not its files as they should be
  size_t points_ = 0, troubles_ = 0;
};

INSTANTIATE_TEST_SUITE_P(, FaultsTest, testing::Values(Chip::kMediaTek, Chip::kUnisoc));

TEST_P(FaultsTest, NoFailingCallBreaksAPromise) {
  char out[4096];
  unsigned len = 0;
  std::set<std::string> changed;  // fields of a record that is built all the same
  const auto build = [&] {
    std::string record;
    if (ask_for_record(record) != 0) return -1;
    std::istringstream fields(record), own_fields(record_);
    for (std::string field, own; std::getline(fields, field, '&') && std::getline(own_fields, own, '&');) {
      if (field != own) changed.insert(field.substr(0, field.find('=')));
    }
    return 0;
  };
  const bool is_mediatek = GetParam() == Chip::kMediaTek;
  const std::vector<Case> more = {{"challenge", 0, [&] { return kelo_get_rand(out, &(len = 250)); }},
                                  {"record", 0, build},
                                  {"report", 0, [&] { return kelo_bsp_sec_ctrl_get(out, sizeof out, &len); }},
                                  {"fuse", 1, is_device_efused, {}, "", is_mediatek ? 1 : 0},
                                  {"family", is_mediatek, is_mt_chip, {}, "", 0},
                                  {"build type", 0, [&] { return get_build_type(out); }}};
  cases_.insert(cases_.end(), more.begin(), more.end());
  for (const Case& row : cases_) {
    const unsigned calls = count(row, &Counts::calls);
    EXPECT_EQ(calls > 0, row.name != "login") << row.name;
    for (unsigned n = 1; n <= calls; n++) {
      for (const bool lasts : {false, true}) {
        meet(row, {Trouble::kFallsShort, n, lasts});
        for (const int error : {EIO, ENOSPC, EROFS, EACCES}) {
          if (error == EIO || TEST_SWEEP_STRIDE == 1) meet(row, {Trouble::kFails, n, lasts, error});
        }
      }
    }
  }
  // What cannot be read, or not whole, is not always told from what is short, absent or another family's.
  using Keys = std::set<std::string>;
  Keys accepted = {"check, rooted: property_get ro.vendor.kelo.userroot",
                   "check, debuggable: property_get ro.debuggable"};
  if (is_mediatek) {
    accepted.insert({"check, bare id: read /proc/rid", "check, other countrySha: property_get ro.hardware"});
  } else {
    accepted.insert({"check, other countrySha: open /mnt/vendor/productinfo/finstatus/finstatus.prop",
                     "check, other imei: property_get ro.bootmode"});
  }
  EXPECT_EQ(accepted_, accepted);
  Keys torn;  // a flush is not waited for in vain, and a backup may be left empty
  for (const SignedFile& file : files_) {
    const std::string temporary = file.primary.substr(0, file.primary.size() - 4) + "_tmp.dat";
    torn.insert({"fsync " + temporary, "read " + file.primary});
  }
  EXPECT_EQ(unnoticed_, torn);
  EXPECT_EQ(changed, is_mediatek ? (Keys{"countrySha", "cpuID"}) : (Keys{"countrySha", "cpuID", "imei", "phoneMac"}));
}

// The crypto library verifies alike on both families.
TEST_P(FaultsTest, NoFailingAllocationBreaksAPromise) {
  const bool is_mediatek = GetParam() == Chip::kMediaTek;
  const std::set<std::string> logins = {"login", "login, forged", "login, other"};
  const std::set<std::string> rest = {"import", "import, forged", "check", "check, forged"};
  for (const time_t clock : {kNow, kBeforeRoot}) {
    set_clock(clock);
    for (const Case& row : cases_) {
      if (!(is_mediatek ? logins : rest).contains(row.name)) continue;
      const unsigned allocations = count(row, &Counts::allocations);
      EXPECT_GT(allocations, 100U) << row.name;
      for (unsigned n = 1; n <= allocations; n += TEST_SWEEP_STRIDE) {
        for (const bool lasts : {false, true}) meet(row, {Trouble::kNoMemory, n, lasts, ENOMEM});
      }
    }
  }
}

}  // namespace
