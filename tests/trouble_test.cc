// Every call into the system fails in its turn, or is the process's or the phone's last, and every allocation of the
// crypto library fails: nothing breaks, nothing is accepted that would not be otherwise, and no stored file is lost.
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
#include "support/phone_test.h"
#include "support/pki.h"
#include "support/trouble.h"

namespace phone {
inline void PrintTo(Chip chip, std::ostream* out) { *out << (chip == Chip::kMediaTek ? "MediaTek" : "Unisoc"); }
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

void store_files(const Files& files) {
  for (const std::string& store : kStores) test::remove(store);
  fs::create_directories(kStores[0]);
  for (const auto& [path, content] : files) write_file(path, content);
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
    std::string content, id;
    EXPECT_EQ(ask_for_record(record_), 0);
    std::istringstream fields(record_);
    for (std::string field; std::getline(fields, field, '&');) {
      content += field.substr(field.find('=') + 1);
      if (field.starts_with("cpuID=")) id = field.substr(6);
    }
    const std::string store = kStores[GetParam() == Chip::kMediaTek ? 1 : 2], au = "auFile.dat", para = "startPara.dat";
    files_ = {{store + au, kStores[0] + au, "", id, "", ""},
              {store + para, kStores[0] + para, record_ + "&", content, "", ""}};
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
        if (keeps_rename) changed.erase(to);
        else if (durable.contains(to)) changed[to] = durable[to];
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
  std::vector<Trouble> deaths;
  unsigned calls = 0;
  Trouble watched;
  watched.watch = [&](const std::string& call, const std::string& path, const std::string& to) {
    calls += call != "half";
    // To end before a call that only looks is to end before the one that follows it.
    if (call == "read" || call == "stat" || call == "access" || call == "property_get") return;
    moments.before(call, path, to);
    deaths.push_back({call == "half" ? Trouble::kDiesHalfway : Trouble::kDies, calls});
  };
  store_files(begin);
  EXPECT_EQ(run_with(watched, operation), 0);
  EXPECT_EQ(stored_files(), end);
  moments.states.try_emplace(end, "at the end");
  Moments after{moments.durable, {}, moments.renamed};
  after.gather("after the end");
  EXPECT_EQ(after.states.size(), 1U) << "the end is not durable";

  for (const Trouble& death : deaths) {
    store_files(begin);
    in_child([&] { run_with(death, operation); });
    EXPECT_TRUE(moments.states.contains(stored_files())) << "unforeseen when it dies at call " << death.first;
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
    for (Files begin : {Files{}, both, primary_alone, backup_alone, damaged}) {
      SCOPED_TRACE(testing::PrintToString(begin));
      cut(begin, file.import(file.fresh), end, [&](Files state) {
        const bool is_new = state[file.primary] == end.at(file.primary);
        EXPECT_TRUE(is_new || state[file.primary] == begin[file.primary]);
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
    cut({{file.primary, "x"}, *end.find(file.backup)}, kelo_is_para_correct, end, [&](Files state) {
      EXPECT_EQ(state[file.backup], end.at(file.backup));
      EXPECT_EQ(kelo_is_para_correct(), 0);
      EXPECT_EQ(stored_files(), end);
    });
    const size_t states = cut(primary_alone, kelo_is_para_correct, end, [&](Files state) {
      EXPECT_EQ(state[file.primary], end.at(file.primary));
      EXPECT_EQ(kelo_is_para_correct(), 0);
      EXPECT_EQ(stored_files(), state.contains(file.backup) ? state : end);
    });
    EXPECT_GE(states, 5U) << "no backup, a whole, a half, an empty and a garbled one";
  }
}

// ---- Failures ----

struct Case {
  std::string name;
  int result;                 // without trouble
  Operation operation;
  Files begin = {};           // what is stored before
  std::string imported = "";  // what is stored with a result of 0
  int in_trouble = -1;        // the other result
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
  }

  void TearDown() override {
    std::cout << points_ << " points, " << troubles_ << " troubles, " << judged_.size() << " states\n";
    TroubleTest::TearDown();
  }

  // Counts the calls or allocations without trouble, after what happens only once in a process.
  unsigned count(const Case& row, unsigned Counts::* what) {
    Counts counts;
    for (int i = 0; i < 2; i++) {
      store_files(row.begin);
      EXPECT_EQ(run_with({}, row.operation, &counts), row.result) << row.name;
    }
    points_ += counts.*what;
    return counts.*what;
  }

  // Trouble may turn an answer into a refusal, never the other way, and leaves nothing open or unfreed.
  void meet(const Case& row, const Trouble& trouble) {
    SCOPED_TRACE(row.name + ": trouble " + std::to_string(trouble.kind) + " at " + std::to_string(trouble.first) +
                 (trouble.lasts ? " and after, " : ", ") + std::strerror(trouble.error));
    store_files(row.begin);
    const size_t descriptors = open_descriptors();
    Counts counts;
    const int result = run_with(trouble, row.operation, &counts);
    EXPECT_TRUE(counts.met);
    EXPECT_TRUE(result == row.result || result == row.in_trouble) << result;
    EXPECT_EQ(open_descriptors(), descriptors);
    EXPECT_FALSE(unload("/vendor/lib64/libnvram.so"));
    EXPECT_EQ(counts.blocks_left, 0) << "memory was left behind, or freed twice";
    EXPECT_EQ(ERR_peek_error(), 0U);
    take_log();
    troubles_++;

    // Afterwards, without trouble: what was valid before still is, and nothing became so that was refused.
    const Files left = stored_files();
    const auto is_imported = [&](const auto& file) { return file.second == row.imported; };
    EXPECT_TRUE(result != 0 || row.imported.empty() || std::any_of(left.begin(), left.end(), is_imported));
    if (!judged_.insert({row.begin, left}).second) return;
    EXPECT_EQ(is_valid(left), is_valid(row.begin));
  }

  static bool is_valid(const Files& files) {
    store_files(files);
    reset_library_state();
    return kelo_is_para_correct() == 0;
  }

  std::vector<Case> cases_;
  std::set<std::pair<Files, Files>> judged_;
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
                                  {"fuse", 1, is_device_efused}, {"family", is_mediatek, is_mt_chip, {}, "", 0},
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
