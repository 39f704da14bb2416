#include "support/process.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <stdexcept>

#include "kelchk.h"

namespace {

time_t stopped_at = 0;

}  // namespace

// Comes before the C library's: the program's own symbols are looked up first.
extern "C" time_t time(time_t* out) noexcept {
  timespec real;
  ::clock_gettime(CLOCK_REALTIME, &real);
  const time_t now = stopped_at != 0 ? stopped_at : real.tv_sec;
  if (out) *out = now;
  return now;
}

namespace test {

void set_clock(time_t now) { stopped_at = now; }

size_t open_descriptors() {
  const std::filesystem::directory_iterator own("/proc/self/fd");
  return static_cast<size_t>(std::distance(begin(own), end(own)));
}

void reset_library_state() {
  g_is_authed = 0;
  for (char* text : {g_rand_buf, PARA_FILE_PATH}) std::memset(text, 0, 256);
  for (char* text : {g_factory_pem, g_para_buf}) std::memset(text, 0, 4096);
  std::memset(g_factor_der, 0, sizeof g_factor_der);
  std::memset(g_log_buf, 0, sizeof g_log_buf);
  std::memset(g_sprd_imei, 0, sizeof g_sprd_imei);
}

void in_child(const std::function<void()>& body) {
  std::fflush(nullptr);
  const pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    const auto* const result = testing::UnitTest::GetInstance()->current_test_info()->result();
    const int before = result->total_part_count();
    body();
    std::fflush(nullptr);
    ::_exit(result->total_part_count() == before ? 0 : 1);
  }
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0) << "a child failed or died, as told above";
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

Guarded::~Guarded() { ::munmap(end_ - (mapped_ - static_cast<size_t>(::sysconf(_SC_PAGESIZE))), mapped_); }

}  // namespace test
