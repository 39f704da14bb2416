// On a machine that is no phone.
#include <link.h>

#include <filesystem>
#include <set>

#include "kelctl/outcome.h"
#include "kelctl/platform.h"
#include "simulator/phone.h"
#include "simulator/sandbox.h"

namespace kelctl {
namespace {

namespace fs = std::filesystem;

int add_folder(dl_phdr_info* object, size_t, void* folders) {
  const fs::path path = object->dlpi_name;
  if (path.is_absolute()) static_cast<std::set<fs::path>*>(folders)->insert(fs::weakly_canonical(path).parent_path());
  return 0;
}

// Where this program's libraries lie, as far as a phone does not show those folders anyway.
std::vector<fs::path> library_folders() {
  std::set<fs::path> folders;
  ::dl_iterate_phdr(add_folder, &folders);
  std::erase_if(folders, [](const fs::path& folder) { return folder.string().starts_with("/usr/"); });
  return {folders.begin(), folders.end()};
}

}  // namespace

void add_phone_option(CLI::App& app, std::string& phone) {
  app.add_option("--phone", phone, "Run the command on this simulated phone, made by \"phone make\"")->type_name("DIR");
}

void require_phone() {
  if (phone::is_sandbox()) return;
  throw Error("this machine is no phone, and its own folders are not touched: name a simulated phone with --phone DIR");
}

int run_on_phone(const std::string& phone, const std::vector<std::string>& arguments) {
  phone::Run run;
  run.root = phone;
  run.binds = library_folders();
  run.command = {fs::read_symlink("/proc/self/exe").string()};
  run.command.insert(run.command.end(), arguments.begin(), arguments.end());
  try {
    return phone::run(run);
  } catch (const std::exception& error) {
    throw Error(std::string("--phone: ") + error.what());
  }
}

}  // namespace kelctl
