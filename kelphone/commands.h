// What the commands do. Each returns the exit code.
#pragma once

#include "kelphone/options.h"

namespace kelphone {

int check(const Options& options);
int security(const Options& options);
int efuse(const Options& options);
int authorize(const Options& options);
int show_version(const Options& options);
int show_help(const Options& options);

// Answers the requests of a factory host until they end.
int serve_session(const Options& options);

// "check --service", where nobody reads what a program prints: waits until it can decide, logs one line and sets the
// verdict property.
int check_at_boot(const Options& options);

}  // namespace kelphone
