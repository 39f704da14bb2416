// The programs, and what else would do their work, each in a process of its own.
#pragma once

#include <string>
#include <vector>

#include "bench/comparison.h"
#include "bench/provisioning.h"

namespace bench {

// A login verified by the library, beside one verified by hand with OpenSSL 3.
Comparison compare_with_openssl(const Provisioning& provisioning);

// A signature through a session of |kelsign| beside a bare loop over the same pipes; with a journal beside one without;
// and with the key that BENCH_MODULE_KEY names in a module, if it is set, beside the same key in a file.
std::vector<Comparison> compare_sessions(const std::string& kelsign);

// "kelphone check" of a valid parameter file beside an empty program that makes the library's call.
Comparison compare_check(const Provisioning& provisioning, const std::string& kelphone);

}  // namespace bench
