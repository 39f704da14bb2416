// Importing the two signed files: arguments, results and logs.
#include <sys/stat.h>

#include <cstring>
#include <filesystem>
#include <functional>

#include "kelchk.h"
#include "tests/support/golden.h"
#include "tests/support/stored_file.h"

namespace {

using namespace test;
using Arguments = RecordTest;
using Import = RecordTest;
namespace fs = std::filesystem;

TEST_F(Arguments, AreCheckedBeforeAnythingIsTouched) {
  const SignedFile file = signed_files(kMediaTek)[1];
  const std::string too_much(4097, 'x'), own = kMediaTek.record;
  const std::string longest =
      file.input + "&x=" + std::string(KELCHK_RECORD_MAX - file.content().size() - strlen("&x="), 'x');
  char out[8] = "left";
  unsigned len = 7;
  const auto build = [](auto... arguments) { return [=] { return kelo_get_para(arguments...); }; };
  const auto au = [](const char* in, unsigned in_len) { return [=] { return kelo_import_aufile(in, in_len); }; };
  const auto para = [](const char* in, unsigned in_len) { return [=] { return kelo_import_para_sign(in, in_len); }; };
  // clang-format off
  struct {
    std::string name;
    std::function<int()> call;
    int is_authed = 1;
    std::string record = kMediaTek.record;
  } const rows[] = {
      {.name = "record for no request", .call = build(nullptr, 8u, out, &len)},
      {.name = "record for an empty request", .call = build("mac=FC01", 0u, out, &len)},
      {.name = "record to nowhere", .call = build("mac=FC01", 8u, nullptr, &len)},
      {.name = "record of no length", .call = build("mac=FC01", 8u, out, nullptr)},
      {.name = "record without login", .call = build("mac=FC01", 8u, out, &len), .is_authed = 0},
      {.name = "no authorization", .call = au(nullptr, 8)},
      {.name = "empty authorization", .call = au(too_much.data(), 0)},
      {.name = "authorization too long by 1", .call = au(too_much.data(), KELCHK_SIGNED_FILE_MAX + 1)},
      {.name = "no parameters", .call = para(nullptr, 8)},
      {.name = "empty parameters", .call = para(file.input.c_str(), 0)},
      {.name = "parameters without login", .call = para(file.input.c_str(), 8), .is_authed = 0},
      {.name = "parameters too long by 1", .call = para(longest.c_str(), 8), .record = own + "&"},
      {.name = "full record buffer", .call = para("x", 8), .record = too_much.substr(1)},
  };
  // clang-format on
  std::string logs;
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    std::strcpy(PARA_FILE_PATH, "left");
    g_is_authed = row.is_authed;
    set_record(row.record);
    EXPECT_EQ(row.call(), -1);
    EXPECT_EQ(content_of(g_para_buf), row.record);
    EXPECT_EQ(out + std::to_string(len) + PARA_FILE_PATH, "left7left");
    EXPECT_FALSE(fs::exists(kMediaTek.store));
    logs += take_transcript(row.name);
  }
  expect_golden("bad_arguments.log", logs);
  set_record(own);
  EXPECT_EQ(import(file, longest, 99999), 0);
  EXPECT_EQ(state_of(file.primary, file.stored(longest)), "new");
}

TEST_F(Import, StoresTheFileInBothDirectories) {
  for (const Family& family : {kMediaTek, kUnisoc}) {
    std::string logs;
    for (const SignedFile& file : signed_files(family)) {
      for (const mode_t mask : {0u, 022u, 077u}) {
        SCOPED_TRACE(file.primary + " " + std::to_string(mask));
        start(family);
        g_is_authed = !file.is_authorization();
        test::remove(KELCHK_STORE_BACKUP);
        std::memset(PARA_FILE_PATH, 'x', sizeof PARA_FILE_PATH);
        const mode_t old_mask = ::umask(mask);
        EXPECT_EQ(import(file), 0);
        ::umask(old_mask);
        EXPECT_EQ(content_of(PARA_FILE_PATH), family.store);
        for (const fs::path path : {file.primary, file.backup}) {
          struct stat status = {}, directory = {};
          EXPECT_EQ(state_of(path, file.content()), "new");
          EXPECT_EQ(::stat(path.c_str(), &status) + ::stat(path.parent_path().c_str(), &directory), 0);
          EXPECT_EQ(status.st_mode, S_IFREG | (0666 & ~mask));
          EXPECT_EQ(directory.st_mode, S_IFDIR | (0666 & ~mask));
          EXPECT_EQ(std::distance(fs::directory_iterator(path.parent_path()), {}), 1) << "something else was left";
        }
        if (mask == 0) logs += take_transcript(file.name);
      }
    }
    expect_golden("import_" + family.name + ".log", logs);
  }
}

}  // namespace
