#include "tests/support/phone_test.h"

#include <android/log.h>
#include <dlfcn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <utility>

#include "kelchk.h"

namespace fs = std::filesystem;

namespace {

test::Lines messages;
time_t stopped_at = 0;

}  // namespace

// These replace the system's functions: the program's own symbols are looked up first.

int __android_log_print(int prio, const char* tag, const char* fmt, ...) {
  const int saved_errno = errno;  // callers report errno after they have logged something else
  char text[8192];
  va_list args;
  va_start(args, fmt);
  std::vsnprintf(text, sizeof text, fmt, args);
  va_end(args);
  const std::string foreign_tag = std::strcmp(tag, "kelchk") == 0 ? "" : std::string("[") + tag + "] ";
  messages.push_back(foreign_tag + std::to_string(prio) + " " + text);
  if (test::on_message) test::on_message(messages.back());
  errno = saved_errno;
  return 1;
}

extern "C" time_t time(time_t* out) noexcept {
  timespec real;
  ::clock_gettime(CLOCK_REALTIME, &real);
  const time_t now = stopped_at != 0 ? stopped_at : real.tv_sec;
  if (out) *out = now;
  return now;
}

namespace test {

std::function<void(const std::string& message)> on_message;

void make_phone(const phone::Identity& identity) {
  phone::make("/", identity, PHONE_VENDOR_LIBRARIES);
  fs::create_directories("/kelofs/startPara");
  take_log();
}

void make_phone(Chip chip) {
  make_phone(phone::default_identity(chip));
}

void set_property(const std::string& name, const std::string& value) {
  phone::set_property("/", name, value);
}

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

void put_link(const std::string& target, const std::string& path) {
  fs::remove_all(path);
  fs::create_symlink(target, path);
}

void remove(const std::string& path) {
  fs::remove_all(path);
}

void install_vendor(const std::string& name, const std::string& path) {
  fs::remove_all(path);
  fs::create_directories(fs::path(path).parent_path());
  fs::copy_file(PHONE_VENDOR_LIBRARIES "/lib" + name + ".so", path);
}

bool unload(const std::string& path) {
  void* const handle = ::dlopen(path.c_str(), RTLD_LAZY | RTLD_NOLOAD);
  return handle != nullptr && ::dlclose(handle) == 0 && ::dlclose(handle) == 0;
}

Lines take_log() {
  return std::exchange(messages, {});
}

Lines take_log_file() {
  const char* path = "/kelofs/startPara/log.txt";
  Lines lines;
  std::ifstream file(path);
  for (std::string line; std::getline(file, line);) lines.push_back(line);
  fs::remove(path);
  return lines;
}

void set_clock(time_t now) {
  stopped_at = now;
}

size_t open_descriptors() {
  return static_cast<size_t>(std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator()));
}

void in_child(const std::function<void()>& body) {
  std::fflush(nullptr);
  const pid_t child = ::fork();
  if (child == 0) {
    body();
    std::fflush(nullptr);
    ::_exit(testing::Test::HasFailure());
  }
  int status = -1;
  ::waitpid(child, &status, 0);
  EXPECT_EQ(status, 0) << "of the child process";
}

void reset_library_state() {
  g_is_authed = 0;
  for (char* text : {g_rand_buf, PARA_FILE_PATH}) std::memset(text, 0, 256);
  for (char* text : {g_factory_pem, g_para_buf}) std::memset(text, 0, 4096);
  std::memset(g_factor_der, 0, sizeof g_factor_der);
  std::memset(g_log_buf, 0, sizeof g_log_buf);
  std::memset(g_sprd_imei, 0, sizeof g_sprd_imei);
}

Guarded::Guarded(std::string_view bytes) : size_(bytes.size()) {
  const size_t page = static_cast<size_t>(::sysconf(_SC_PAGESIZE));
  mapped_ = (bytes.size() / page + 2) * page;
  void* memory = ::mmap(nullptr, mapped_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) throw std::runtime_error("no memory");
  end_ = static_cast<char*>(memory) + mapped_ - page;
  if (::mprotect(end_, page, PROT_NONE) != 0) throw std::runtime_error("no guard page");
  bytes.copy(data(), size_);
}

Guarded::~Guarded() {
  ::munmap(end_ - (mapped_ - static_cast<size_t>(::sysconf(_SC_PAGESIZE))), mapped_);
}

void PhoneTest::SetUp() {
  make_phone(Chip::kMediaTek);
  set_clock(0);
  reset_library_state();
  descriptors_ = open_descriptors();
}

void PhoneTest::TearDown() {
  EXPECT_EQ(open_descriptors(), descriptors_) << "a descriptor was left open";
}

}  // namespace test
