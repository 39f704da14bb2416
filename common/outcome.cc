#include "common/outcome.h"

#include <iostream>
#include <string>

#include "common/escape.h"
#include "common/output.h"

namespace common {
namespace {

int report(const char* program, const std::string& message, ExitCode code) {
  std::cerr << program << ": " << escape(message) << std::endl;
  return code;
}

}  // namespace

int run_program(const char* program, const std::function<int()>& body) {
  try {
    const int code = body();
    close_output();
    return code;
  } catch (const Refusal& refusal) {
    return report(program, std::string("refused: ") + refusal.what(), kNo);
  } catch (const SessionError& error) {
    return report(program, error.what(), kSessionFailed);
  } catch (const std::exception& error) {
    return report(program, error.what(), kUnusable);
  }
}

}  // namespace common
