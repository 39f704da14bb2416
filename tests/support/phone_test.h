// The simulated phone that a test runs in, the library's logs, and the test's own process. A test program runs inside
// the phone, whose root is "/".
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

// Turns this phone into |identity|, or into the default phone of a family, with an empty backup store directory, which
// also holds the log file. Discards what was logged.
void make_phone(const phone::Identity& identity);
void make_phone(Chip chip);

// An empty value removes the property.
void set_property(const std::string& name, const std::string& value);

// Returns the content of a file. The test fails when there is none.
std::string read_file(const std::string& path);

void write_file(const std::string& path, std::string_view content);

// Replaces what is at |path| by a folder, which can be opened but not read.
void put_folder(const std::string& path);

// Replaces what is at |path| by a symbolic link to |target|.
void put_link(const std::string& target, const std::string& path);

void remove(const std::string& path);

// Installs a vendor library at |path|: the phone's own or a broken one (broken_vendor.c).
void install_vendor(const std::string& name, const std::string& path);

// Unloads the library |path| if it is still loaded. Returns whether it was.
bool unload(const std::string& path);

// ---- The logs ----

// Concatenates.
inline Lines operator+(Lines lines, const Lines& more) {
  lines.insert(lines.end(), more.begin(), more.end());
  return lines;
}

// Returns the messages of the Android log since the last call, such as "6 read_rid err": priority, space, text, with
// its line breaks. A message with another tag than the library's begins with that tag in brackets.
Lines take_log();

// Called with each message of the Android log when the library writes it.
extern std::function<void(const std::string& message)> on_message;

// Returns the lines of the library's log file and removes it. Without a file there are none.
Lines take_log_file();

// ---- The process ----

// Stops the clock of the library and the crypto library at |now|. 0 restores the real clock.
void set_clock(time_t now);

size_t open_descriptors();

// Runs |body| in a child process, which must exit without a failure.
void in_child(const std::function<void()>& body);

// Resets the library's data to that of a process that has just loaded it.
void reset_library_state();

// A copy of some bytes, directly before a page that cannot be read or written.
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

// A test in a simulated phone. It starts with the default MediaTek phone, a fresh library state and the real clock, and
// fails when it leaves a descriptor open.
class PhoneTest : public testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;

 private:
  size_t descriptors_ = 0;
};

}  // namespace test
