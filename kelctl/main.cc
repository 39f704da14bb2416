// kelctl: the library's operations on the command line.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>

#include "kelchk.h"
#include "session.h"

namespace {

// Exit codes: 0 yes or done, 1 no or refused, and CLI11's own from 100 on for a wrong command line.
int report(int result) {
  std::puts(result == 0 ? "ok" : "failed");
  return result == 0 ? 0 : 1;
}

int check() {
  const bool valid = kelo_is_para_correct() == 0;
  std::puts(valid ? "valid" : "not valid");
  return valid ? 0 : 1;
}

int authorize(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  const std::string bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  return report(kelo_import_aufile(bytes.data(), static_cast<unsigned>(bytes.size())));
}

int security() {
  char text[2863];
  unsigned len = 0;
  if (kelo_bsp_sec_ctrl_get(text, sizeof text, &len) != 0) return report(-1);
  for (const char& c : text) {
    if (c == '\0') break;
    std::putchar(c == '&' ? '\n' : c);
  }
  return 0;
}

int efuse() {
  const bool blown = is_device_efused() == 1;
  std::puts(blown ? "efused" : "not efused");
  return blown ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app("Drives libkelchk, which decides whether this phone's provisioning records are authentic.");
  app.require_subcommand(1);
  int status = 0;
  std::string path;
  app.add_subcommand("check", "Check the stored files and repair a damaged copy")->callback([&] { status = check(); });
  app.add_subcommand("security", "Show the security state report")->callback([&] { status = security(); });
  app.add_subcommand("efuse", "Tell whether the secure-boot efuse is blown")->callback([&] { status = efuse(); });
  CLI::App* const authorizing = app.add_subcommand("authorize", "Import an authorization file");
  authorizing->add_option("FILE", path, "The signed authorization file")->required()->check(CLI::ExistingFile);
  authorizing->callback([&] { status = authorize(path); });
  app.add_subcommand("line", "Serve challenge, respond, record and import, one a line")->callback([] {
    kelctl::serve(std::cin, std::cout);
  });
  CLI11_PARSE(app, argc, argv);
  return status;
}
