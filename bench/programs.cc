#include "bench/programs.h"

#include <fcntl.h>
#include <openssl/pem.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <stdexcept>

#include "common/process.h"
#include "kelchk.h"
#include "tests/support/pki.h"

namespace bench {
namespace {

using common::Process;
using Command = std::vector<std::string>;

constexpr double kSessionGoal = 1.10;
constexpr double kCheckGoal = 1.15;
constexpr std::chrono::seconds kTimeout(60);
constexpr char kKey[] = TEST_KEYS "/signer.key";
constexpr char kCertificate[] = "/tmp/signer.pem";
constexpr char kJournal[] = JOURNAL_FOLDER "/journal";  // on storage, where flushing takes time
constexpr char kChallenge[] = "0123456789ABCDEF0123456789ABCDEF0123456789ABCDEF0123456789ABCDEF";

// The seconds that |action| takes, which returns whether it succeeded.
template <typename Action>
double time_action(const std::string& name, Action action) {
  const auto start = std::chrono::steady_clock::now();
  const bool ok = action();
  const auto end = std::chrono::steady_clock::now();
  if (!ok) throw std::runtime_error(name + " failed");
  return std::chrono::duration<double>(end - start).count();
}

double time_login(const Provisioning& p) {
  return time_action("kelo_verify_rand", [&p] {
    return kelo_verify_rand(p.response.c_str(), static_cast<unsigned>(p.response.size())) == 0;
  });
}

double time_signature(Process& session) {
  return time_action("a signature", [&session] {
    return session.ask(std::string("challenge ") + kChallenge, kTimeout).starts_with("ok factoryCert=");
  });
}

void write_certificate() {
  const std::unique_ptr<FILE, int (*)(FILE*)> file(std::fopen(kCertificate, "we"), &std::fclose);
  if (!file || PEM_write_X509(file.get(), test::default_signer().certificate.get()) != 1) {
    throw std::runtime_error("cannot write the signer's certificate");
  }
}

std::shared_ptr<Process> start_session(const std::string& kelsign, const char* key, const Command& options = {}) {
  Command command = {kelsign, "line", "--key", key, "--cert", kCertificate, "--feature-code", "F01A"};
  command.insert(command.end(), options.begin(), options.end());
  return std::make_shared<Process>("kelsign", command);
}

Comparison compare(const std::string& name, double goal, const std::shared_ptr<Process>& subject,
                   const std::shared_ptr<Process>& baseline) {
  return {.name = name,
          .goal = goal,
          .subject = [subject] { return time_signature(*subject); },
          .baseline = [baseline] { return time_signature(*baseline); }};
}

// Its output is discarded; it must exit with 0.
bool run(Command command) {
  std::vector<char*> arguments;
  arguments.reserve(command.size() + 1);
  for (std::string& word : command) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  pid_t child = -1;
  const int error = ::posix_spawn(&child, arguments[0], &actions, nullptr, arguments.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  int status = 0;
  return error == 0 && ::waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

}  // namespace

Comparison compare_with_openssl(const Provisioning& provisioning) {
  const auto by_hand = std::make_shared<Process>("openssl_login", Command{OPENSSL_LOGIN, TEST_ROOT "/root.pem"});
  const std::string first_request = provisioning.challenge + "\n" + provisioning.response + "\n";
  const auto verify = [by_hand](const std::string& request) {
    return std::strtod(by_hand->ask(request, kTimeout).c_str(), nullptr) / 1e9;
  };
  if (verify(first_request) <= 0) throw std::runtime_error("OpenSSL does not verify the login");
  return {.name = "login, library beside OpenSSL 3",
          .arrange =
              [provisioning] {
                std::memcpy(g_rand_buf, provisioning.challenge.c_str(), provisioning.challenge.size() + 1);
              },
          .subject = [provisioning] { return time_login(provisioning); },
          .baseline = [verify] { return verify(""); }};
}

std::vector<Comparison> compare_sessions(const std::string& kelsign) {
  write_certificate();
  std::filesystem::remove(kJournal);
  const auto bare = std::make_shared<Process>("bare_signer", Command{OPENSSL_BARE_SIGNER, kKey, kCertificate});
  const auto session = start_session(kelsign, kKey);
  const auto recorded = start_session(kelsign, kKey, {"--journal", kJournal});
  std::vector<Comparison> comparisons = {compare("kelsign line", kSessionGoal, session, bare),
                                         compare("kelsign line --journal", 0, recorded, session)};
  const char* const module_key = std::getenv("BENCH_MODULE_KEY");
  if (module_key != nullptr) {
    comparisons.push_back(compare("kelsign line, module", 0, start_session(kelsign, module_key), session));
  }
  return comparisons;
}

Comparison compare_check(const Provisioning& provisioning, const std::string& kelphone) {
  ::setenv("KELCHK_LOG", "none", 1);
  return {.name = "kelphone check",
          .goal = kCheckGoal,
          .arrange =
              [provisioning] {
                remove(provisioning.authorization);
                store(provisioning.parameters);
              },
          .subject = [kelphone] { return time_action("kelphone", [&] {
                                    return run({kelphone, "check"});
                                  }); },
          .baseline = [] { return time_action("bare_check", [] { return run({BARE_CHECK}); }); }};
}

}  // namespace bench
