// The line protocol, both ends: requests of any bytes are served, each by one answer that the other end can read.
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>

#include "common/line_protocol.h"
#include "common/outcome.h"

namespace {

const int input = ::memfd_create("input", MFD_CLOEXEC);
const int output = ::memfd_create("output", MFD_CLOEXEC);

void require(bool holds) {
  if (!holds) std::abort();
}

void fill(int fd, std::string_view content) {
  require(::ftruncate(fd, 0) == 0 && ::pwrite(fd, content.data(), content.size(), 0) >= 0 &&
          ::lseek(fd, 0, SEEK_SET) == 0);
}

std::string answers_to(std::string_view requests) {
  fill(input, requests);
  fill(output, "");
  common::serve_lines(input, output,
                      [](const common::Request& request) { return common::ok_line(request.verb + request.text); });
  std::string answers(static_cast<size_t>(::lseek(output, 0, SEEK_END)), '\0');
  require(::pread(output, answers.data(), answers.size(), 0) == static_cast<ssize_t>(answers.size()));
  return answers;
}

void read_answers(const std::string& answers) {
  common::LineBuffer lines;
  lines.add(answers);
  std::string line;
  while (lines.take(line)) {
    const common::Answer answer = common::parse_answer(line);
    if (answer.ok) require(common::ok_line(answer.text) == line);
  }
  require(lines.unfinished().empty());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  const std::string answers = answers_to(bytes);
  const auto is_unfinished = static_cast<long>(!bytes.empty() && bytes.back() != '\n');
  require(std::count(answers.begin(), answers.end(), '\n') ==
          std::count(bytes.begin(), bytes.end(), '\n') + is_unfinished);
  read_answers(answers);
  try {
    common::parse_answer(bytes);
  } catch (const common::Refusal&) {
  }
  const std::string request = "x " + common::encode_text(bytes);
  const bool fits = request.size() <= common::kMaxLineLen && bytes.find('\0') == std::string_view::npos;
  require(!fits || common::parse_request(request).text == bytes);
  return 0;
}
