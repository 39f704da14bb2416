// What the programs share: cases that the tests of the programs cannot set up.
#include <gmock/gmock.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <thread>

#include "common/escape.h"
#include "common/fd.h"
#include "common/file.h"
#include "common/line_protocol.h"
#include "common/outcome.h"
#include "common/process.h"
#include "common/signing_policy.h"

namespace {

using namespace common;
using namespace std::chrono_literals;
using testing::HasSubstr;

constexpr std::string_view kAwkward{"a\\\x1b]0;\"\0\r\n\x9b\xe2\x80\xae~", 15};

template <typename Exception, typename Action>
std::string message_of(Action action) {
  try {
    action();
  } catch (const Exception& exception) {
    return exception.what();
  }
  return "nothing was thrown";
}

TEST(EscapeTest, KeepsEveryByteApartInAscii) {
  EXPECT_EQ(escape(kAwkward), R"(a\\\x1B]0;"\x00\x0D\x0A\x9B\xE2\x80\xAE~)");
  EXPECT_EQ(json_string(kAwkward), R"("a\\\\\\x1B]0;\"\\x00\\x0D\\x0A\\x9B\\xE2\\x80\\xAE~")");
}

// Serves |input| by an answer that repeats its request, and returns all answers.
std::string served(const std::string& input, size_t answer_len = 0) {
  const Fd in(::memfd_create("in", MFD_CLOEXEC));
  const Fd out(::memfd_create("out", MFD_CLOEXEC));
  EXPECT_TRUE(write_all(in.get(), input) && ::lseek(in.get(), 0, SEEK_SET) == 0);
  serve_lines(in.get(), out.get(), [&](const Request& request) {
    return ok_line(request.verb + "," + request.text + std::string(answer_len, 'x'));
  });
  return read_file("/proc/self/fd/" + std::to_string(out.get()), 2 * kMaxLineLen);
}

TEST(LineProtocolTest, AnswersEveryLineOnce) {
  const std::string longest = "v " + std::string(kMaxLineLen - 2 - 5, 'y');  // its answer is three bytes longer
  const std::string too_long = "failed: the line is longer than the 16384 bytes that are accepted\n";
  const struct {
    std::string input, answers;
  } rows[] = {
      {"", ""},
      {"a\n\nb c\\n\\\\ \r\n", "ok a,\nfailed: a request begins with its verb\nok b,c\\n\\\\ \n"},
      {" a\nb \\x\n",
       "failed: a request begins with its verb\nfailed: a backslash may only be part of \\\\n, \\\\r and \\\\\\\\\n"},
      {std::string("a\0b\n", 4), "failed: the line has a NUL inside\n"},
      {longest + "\r\n", "ok v," + longest.substr(2) + "\n"},
      {std::string(kMaxLineLen + 1, 'z') + "\na\n", too_long + "ok a,\n"},
      {std::string(5 * kMaxLineLen, 'z') + "\na\n", too_long + "ok a,\n"},
      {std::string(5 * kMaxLineLen, 'z'), "failed: the last line has no line break; it may have been cut\n"},
      {"a\nsign this", "ok a,\nfailed: the last line has no line break; it may have been cut\n"},
  };
  for (const auto& row : rows) EXPECT_EQ(served(row.input), row.answers) << row.input.substr(0, 40);
  EXPECT_EQ(served("a\n", kMaxLineLen), "failed: the answer is longer than a line may be\n");
}

TEST(LineProtocolTest, ReadsWhatItWrites) {
  EXPECT_EQ(parse_answer(ok_line("a\\\r\nb")).text, "a\\\r\nb");
  EXPECT_TRUE(parse_answer("ok").ok);
  EXPECT_EQ(parse_answer(failed_line({"a\x1b", "b"})).text, "a\\x1B; b");
  EXPECT_EQ(failed_line({std::string(kMaxLineLen, 'x')}).size(), kMaxLineLen);
  for (const char* line : {"", "okay", "no", "failed:", "ok \\x"}) EXPECT_THROW(parse_answer(line), Refusal) << line;
}

TEST(FileTest, WaitsForAFifoWithinALimit) {
  std::string folder = std::filesystem::temp_directory_path() / "common_test.XXXXXX";
  const std::string fifo = std::string(::mkdtemp(folder.data())) + "/fifo";
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  EXPECT_THAT(message_of<Error>([&] { read_file(fifo, 1, 1s); }), HasSubstr("does not end within 1 seconds"));
  std::thread writer([&] {
    std::this_thread::sleep_for(50ms);  // after the reader
    std::ofstream(fifo) << "content";
  });
  EXPECT_EQ(read_file(fifo, 1000), "content");
  writer.join();
  std::filesystem::remove_all(folder);
}

TEST(ProcessTest, WritesWithinItsLimit) {
  const std::string much(1 << 20, 'x');  // more than a pipe holds
  EXPECT_THAT(message_of<SessionError>([&] { Process("it", {"sleep", "60"}).ask(much, 1s); }), HasSubstr("within 1"));
}

TEST(ProcessTest, ShowsStandardErrorEscapedAndWithinALimit) {
  const struct {
    const char *command, *first, *last;
  } rows[] = {
      {"read a; echo $a; read a; printf 'late\\033\\n cut' >&2", "it: late\\x1B\n", "\nit:  cut\n"},
      {"head -c 9000000 /dev/zero >&2; read a; echo $a", R"(it: \x00\x00)", "\nit: further messages are dropped\n"},
      {"setsid yes >&2 & sleep 0.3; read a; echo $a", "it: y\nit: y\n", "\n"},  // leaves the group
  };
  for (const auto& row : rows) {
    testing::internal::CaptureStderr();
    EXPECT_EQ(Process("it", {"sh", "-c", row.command}).ask("x", 5s), "x");
    const std::string shown = testing::internal::GetCapturedStderr();
    EXPECT_TRUE(shown.starts_with(row.first) && shown.ends_with(row.last)) << row.command << shown.substr(0, 99);
    EXPECT_LT(shown.size(), size_t{8} << 20);
  }
  testing::internal::CaptureStderr();
  EXPECT_THROW(Process("it", {"/none"}).ask("x", 5s), SessionError);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "it: /none cannot be started: No such file or directory\n");
}

TEST(SigningPolicyTest, ObjectsToEveryByteThatNoPhoneReports) {
  for (int byte = 0; byte < 256; ++byte) {
    const bool is_break = byte == '\n' || byte == '\r';
    const bool is_capital = byte >= 'A' && byte <= 'Z';
    const std::string id = std::string("mt0") + static_cast<char>(byte);
    const bool is_signed = is_break || (byte >= 0x20 && byte < 0x7F && !is_capital);
    const std::string objection = message_of<Refusal>([&] { message_to_sign(TextKind::kChipId, id); });
    EXPECT_EQ(objection.starts_with("character 4"), !is_signed) << byte;
  }
}

}  // namespace
