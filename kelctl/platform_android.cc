// On a phone.
#include "kelctl/outcome.h"
#include "kelctl/platform.h"

namespace kelctl {

void add_phone_option(CLI::App&, std::string&) {}

void require_phone() {}

int run_on_phone(const std::string& phone, const std::vector<std::string>&) {
  throw Error(phone + ": there are no simulated phones on a phone");
}

}  // namespace kelctl
