// The simulated phone that a test runs in. The test programs are started inside one: its root is "/".
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <string_view>

#include "phone.h"

namespace test {

using phone::Chip;

// Makes this phone exactly |identity|, with the backup store directory, where the log file goes, and forgets what was
// logged.
void make_phone(const phone::Identity& identity);

// Makes this phone the default one of its family.
void make_phone(Chip chip);

// Sets a property of this phone; an empty value removes it.
void set_property(const std::string& name, const std::string& value);

// Makes every question for the property |name| fail, as a phone's own library may and its stand-in never does; an empty
// name ends that.
void fail_property(std::string_view name);

// The whole content of a file; the test fails when there is none.
std::string read_file(const std::string& path);

// Makes |path| a file with this content, and its folders.
void write_file(const std::string& path, std::string_view content);

// Makes |path| a folder in place of what was there, so that it can be opened but not read.
void put_folder(const std::string& path);

// Removes |path| with what is below it.
void remove(const std::string& path);

// Puts a vendor library to |path|: a broken one of the tests (broken_vendor.c), or else the phone's own.
void install_vendor(const std::string& name, const std::string& path);

// Whether this process has the library |path| loaded.
bool is_loaded(const std::string& path);

// A test in a phone, which begins as MediaTek's, with a fresh library state and the real clock. No test may leave a
// descriptor open.
class PhoneTest : public testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;

 private:
  size_t descriptors_ = 0;
};

}  // namespace test
