// Where the commands that drive a phone run. On a phone that is this process; on any other machine it is a simulated
// phone, because the library would else make its folders in the machine's own root.
#pragma once

#include <CLI/App.hpp>
#include <string>
#include <vector>

namespace kelctl {

// Adds the option --phone, where there are simulated phones.
void add_phone_option(CLI::App& app, std::string& phone);

// Throws Error unless this process stands on a phone.
void require_phone();

// Runs this program with |arguments| on the simulated phone |phone| and returns its exit code. Throws Error when it
// cannot be started.
int run_on_phone(const std::string& phone, const std::vector<std::string>& arguments);

}  // namespace kelctl
