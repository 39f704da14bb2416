// The simulated phone that a test runs in, what the library logs there, and this process as a test needs it. The test
// programs are started inside a phone: its root is "/".
#pragma once

#include <gtest/gtest.h>

#include <ctime>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "simulator/phone.h"

namespace test {

using phone::Chip;
using Lines = std::vector<std::string>;

// ---- The phone ----

// Makes this phone exactly |identity|, or the default one of its family, with the backup store directory, where the log
// file goes, and forgets what was logged.
void make_phone(const phone::Identity& identity);
void make_phone(Chip chip);

// An empty value removes the property.
void set_property(const std::string& name, const std::string& value);

// The whole content of a file; the test fails when there is none.
std::string read_file(const std::string& path);

void write_file(const std::string& path, std::string_view content);

// Puts a folder in place of what was there: it can be opened but not read.
void put_folder(const std::string& path);

void remove(const std::string& path);

// Puts a vendor library to |path|, the phone's own or a broken one (broken_vendor.c).
void install_vendor(const std::string& name, const std::string& path);

// Unloads the library |path| when it has been left loaded; tells whether it was.
bool unload(const std::string& path);

// ---- The logs ----

// One after the other.
inline Lines operator+(Lines lines, const Lines& more) {
  lines.insert(lines.end(), more.begin(), more.end());
  return lines;
}

// Returns the messages of the Android log since the last call, such as "6 read_rid err": priority, space, text, with
// line breaks as they are. A message under another tag than the library's begins with that tag, in brackets.
Lines take_log();

// Told of each message of the Android log when it is written, while the library waits.
extern std::function<void(const std::string& message)> on_message;

// Returns the lines of the library's log file and removes it. No file gives no lines.
Lines take_log_file();

// ---- The process ----

// Stops the clock that the library and the crypto library see at |now|; 0 lets them see the real one again.
void set_clock(time_t now);

size_t open_descriptors();

// Runs |body| in a process of its own, which must end well.
void in_child(const std::function<void()>& body);

// As in a process that has just loaded the library.
void reset_library_state();

// Bytes without an end: the last one stands before a page that nobody may read or write.
class Guarded {
 public:
  explicit Guarded(std::string_view bytes);
  Guarded(const Guarded&) = delete;
  ~Guarded();

  char* data() const { return end_ - size_; }
  unsigned char* bytes() const { return reinterpret_cast<unsigned char*>(data()); }
  std::string_view view() const { return {data(), size_}; }

 private:
  size_t size_;
  size_t mapped_;
  char* end_;
};

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
