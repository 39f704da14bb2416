// What the programs share: text, lines, files, journals and processes.
#include <gmock/gmock.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <thread>

#include "common/escape.h"
#include "common/file.h"
#include "common/journal.h"
#include "common/line_protocol.h"
#include "common/outcome.h"
#include "common/process.h"
#include "common/signing_policy.h"

namespace {

using namespace common;
using namespace std::chrono_literals;
using testing::HasSubstr;
using testing::MatchesRegex;

constexpr std::string_view kAwkward{"a\\\x1b]0;\"\0\r\n\x9b\xe2\x80\xae~", 15};

class CommonTest : public testing::Test {
 protected:
  CommonTest() { folder_ = ::mkdtemp(folder_.data()); }
  ~CommonTest() override { std::filesystem::remove_all(folder_); }
  [[nodiscard]] std::string path(const std::string& name) const { return folder_ + "/" + name; }

  std::string folder_ = std::filesystem::temp_directory_path() / "common_test.XXXXXX";
};

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
  int in[2];
  int out[2];
  EXPECT_EQ(::pipe(in) | ::pipe(out), 0);
  std::thread writer([&] {
    EXPECT_EQ(::write(in[1], input.data(), input.size()), static_cast<ssize_t>(input.size()));
    ::close(in[1]);
  });
  std::thread server([&] {
    serve_lines(in[0], out[1], [&](const Request& request) {
      return ok_line(request.verb + "," + request.text + std::string(answer_len, 'x'));
    });
    ::close(out[1]);
  });
  std::string answers;
  char bytes[4096];
  for (ssize_t count = 0; (count = ::read(out[0], bytes, sizeof bytes)) > 0;) {
    answers.append(bytes, static_cast<size_t>(count));
  }
  writer.join();
  server.join();
  ::close(in[0]);
  ::close(out[0]);
  return answers;
}

TEST(LineProtocolTest, AnswersEveryLineOnce) {
  const std::string longest = "v " + std::string(kMaxLineLen - 2 - 5, 'y');  // its answer is three bytes longer
  const std::string too_long = R"(failed: the line is longer than the 16384 bytes that are accepted)"
                               "\n";
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

TEST_F(CommonTest, ReadsWithinALimit) {
  EXPECT_THAT(message_of<Error>([] { read_file("/dev/zero", 100000); }),
              HasSubstr("/dev/zero: holds more than the 100000"));
  EXPECT_THAT(message_of<Error>([&] { read_file(path("none"), 1); }), HasSubstr("No such file"));
  EXPECT_THAT(message_of<Error>([&] { read_file(folder_, 1); }), HasSubstr("Is a directory"));
}

TEST_F(CommonTest, WaitsForAFifoWithinALimit) {
  ASSERT_EQ(::mkfifo(path("fifo").c_str(), 0600), 0);
  EXPECT_THAT(message_of<Error>([&] { read_file(path("fifo"), 1, 1s); }), HasSubstr("does not end within 1 seconds"));
  std::thread writer([&] {
    std::this_thread::sleep_for(50ms);  // after the reader
    std::ofstream(path("fifo")) << "content";
  });
  EXPECT_EQ(read_file(path("fifo"), 1000), "content");
  writer.join();
}

TEST_F(CommonTest, WritesOnlyNewFilesWithTheirMode) {
  for (const mode_t mask : {0U, 0777U}) {
    const mode_t before = ::umask(mask);
    write_new_file(path(std::to_string(mask)), "x", 0640);
    ::umask(before);
    struct stat status = {};
    ::stat(path(std::to_string(mask)).c_str(), &status);
    EXPECT_EQ(status.st_mode & 07777, 0640U);
  }
  std::filesystem::create_symlink(path("target"), path("link"));
  EXPECT_THAT(message_of<Error>([&] { write_new_file(path("link"), "x", 0600); }), HasSubstr("File exists"));
  EXPECT_FALSE(std::filesystem::exists(path("target")));
}

TEST_F(CommonTest, JournalEndsAnUnfinishedLine) {
  const Journal journal(path("journal"));
  journal.add({{"a", json_string("b\"")}, {"n", "1"}});
  std::filesystem::rename(path("journal"), path("rotated"));
  write_new_file(path("journal"), "{\"a", 0600);
  journal.add({{"time", json_string(journal_time())}});
  EXPECT_EQ(read_file(path("rotated"), 1000), "{\"a\": \"b\\\"\", \"n\": 1}\n");
  EXPECT_THAT(read_file(path("journal"), 1000), MatchesRegex("\\{\"a\n\\{\"time\": \"20[0-9T:.-]+Z\"\\}\n"));
  for (const std::string& place : {path("none/journal"), folder_, std::string("/dev/full")}) {
    EXPECT_THROW(Journal(place).add({}), Error) << place;
  }
}

// The process ends soon; whoever inherits it may take longer to notice.
bool is_gone(const std::string& process_id) {
  for (int waited = 0; waited < 300; ++waited) {
    if (::kill(std::stoi(process_id), 0) != 0) return true;
    std::string status;
    std::getline(std::ifstream("/proc/" + process_id + "/stat"), status);
    if (status.find(") Z") != std::string::npos) return true;
    std::this_thread::sleep_for(10ms);
  }
  return false;
}

TEST(ProcessTest, AsksLineByLine) {
  Process shell("the shell", {"sh", "-c", "read a; echo $a 1; read a; printf '%s 2\\r\\nrest' $a"});
  EXPECT_EQ(shell.ask("x", 5s), "x 1");
  EXPECT_EQ(shell.ask("y", 5s), "y 2");
  EXPECT_THAT(message_of<SessionError>([&] { shell.ask("z", 5s); }), HasSubstr("the shell: it ended"));
}

TEST(ProcessTest, WaitsAndReadsWithinLimits) {
  const struct {
    std::vector<std::string> command;
    const char* message;
  } rows[] = {
      {{"sleep", "60"}, "no answer within 1 seconds"},
      {{"sh", "-c", "head -c 16386 /dev/zero; sleep 60"}, "longer than the 16384 bytes"},
      {{"head", "-c", "16385", "/dev/zero"}, "ended"},
      {{"true"}, "ended"},
  };
  for (const auto& row : rows) {
    EXPECT_THAT(message_of<SessionError>([&] { Process("it", row.command).ask("x", 1s); }), HasSubstr(row.message));
  }
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

// Answers with the id of a child of the shell; neither ends by itself or by a signal that can be ignored.
const std::vector<std::string> kStubborn = {"sh", "-c", "trap '' HUP INT TERM; sleep 60 & read a; echo $!; wait; wait"};

TEST(ProcessTest, EndsWhatItStarted) {
  std::string child;
  {
    Process shell("it", kStubborn);
    child = shell.ask("", 5s);
  }
  EXPECT_TRUE(is_gone(child));
}

TEST(ProcessTest, EndsWhatItStartedWhenItIsKilled) {
  for (const int signal : {SIGKILL, SIGTERM}) {
    int report[2];
    ASSERT_EQ(::pipe(report), 0);
    const pid_t outer = ::fork();
    if (outer == 0) {
      Process shell("it", kStubborn);
      const std::string child = shell.ask("", 5s);
      static_cast<void>(::write(report[1], child.c_str(), child.size() + 1) < 0);
      ::pause();
    }
    char child[32] = {};
    ASSERT_GT(::read(report[0], child, sizeof child - 1), 0);
    ::kill(outer, signal);
    EXPECT_TRUE(is_gone(child)) << signal;
  }
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
