#include "support/phone_test.h"

#include <cutils/properties.h>
#include <dlfcn.h>

#include <fstream>
#include <iterator>

#include "support/log.h"
#include "support/process.h"

namespace fs = std::filesystem;

namespace {

std::string failing_property;

}  // namespace

// Comes before the system's: the program's own symbols are looked up first.
int property_get(const char* key, char* value, const char* default_value) {
  if (!failing_property.empty() && failing_property == key) return -1;
  static const auto next = reinterpret_cast<decltype(&property_get)>(::dlsym(RTLD_NEXT, "property_get"));
  return next(key, value, default_value);
}

namespace test {

void make_phone(const phone::Identity& identity) {
  phone::make("/", identity, PHONE_VENDOR_LIBRARIES);
  fs::create_directories("/kelofs/startPara");
  take_log();
}

void make_phone(Chip chip) { make_phone(phone::default_identity(chip)); }

void set_property(const std::string& name, const std::string& value) { phone::set_property("/", name, value); }

void fail_property(std::string_view name) { failing_property = name; }

std::string read_file(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  EXPECT_TRUE(file) << path;
  return {std::istreambuf_iterator<char>(file), {}};
}

void write_file(const std::string& path, std::string_view content) {
  fs::remove_all(path);  // a link would lead to the real device
  fs::create_directories(fs::path(path).parent_path());
  std::ofstream file(path, std::ios::binary);
  ASSERT_TRUE(file << content << std::flush) << path;
}

void put_folder(const std::string& path) {
  fs::remove_all(path);
  fs::create_directories(path);
}

void remove(const std::string& path) { fs::remove_all(path); }

void install_vendor(const std::string& name, const std::string& path) {
  fs::remove_all(path);
  fs::create_directories(fs::path(path).parent_path());
  const fs::path broken = TEST_VENDOR_LIBRARIES "/lib" + name + ".so";
  fs::copy_file(fs::exists(broken) ? broken : fs::path(PHONE_VENDOR_LIBRARIES "/lib" + name + ".so"), path);
}

bool is_loaded(const std::string& path) {
  void* const handle = ::dlopen(path.c_str(), RTLD_LAZY | RTLD_NOLOAD);
  return handle != nullptr && ::dlclose(handle) == 0;
}

void PhoneTest::SetUp() {
  make_phone(Chip::kMediaTek);
  reset_library_state();
  descriptors_ = open_descriptors();
}

void PhoneTest::TearDown() {
  EXPECT_EQ(open_descriptors(), descriptors_) << "a descriptor was left open";
  set_clock(0);
  fail_property("");
}

}  // namespace test
