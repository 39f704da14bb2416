// This process as a test needs it: its clock, its descriptors, its memory, and children with a state of their own.
#pragma once

#include <cstddef>
#include <ctime>
#include <functional>
#include <string_view>

namespace test {

// Stops the clock that the library and the crypto library see at |now|; 0 lets them see the real one again.
void set_clock(time_t now);

// The number of descriptors that this process has open.
size_t open_descriptors();

// Sets every writable data symbol of the library to zeros, its state when it is loaded.
void reset_library_state();

// Runs |body| in a child process, whose failed expectations count as this test's; what it changes in memory is gone.
void in_child(const std::function<void()>& body);

// Bytes without an end: the last one stands before a page that nobody may read or write.
class Guarded {
 public:
  explicit Guarded(std::string_view bytes);
  Guarded(const Guarded&) = delete;
  ~Guarded();

  char* data() const { return end_ - size_; }
  unsigned char* bytes() const { return reinterpret_cast<unsigned char*>(data()); }
  unsigned size() const { return static_cast<unsigned>(size_); }
  std::string_view view() const { return {data(), size_}; }

 private:
  size_t size_;
  size_t mapped_;
  char* end_;
};

}  // namespace test
