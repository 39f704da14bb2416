// Golden files: what the library logs in a whole scenario, compared byte by byte with a file in tests/golden/.
#pragma once

#include <string>

#include "tests/support/phone_test.h"

namespace test {

// Writes |lines|, as take_log() returns them, one per line: the priority's letter (D, I or E) and the text as a C
// string.
std::string transcript(const Lines& lines);

// The same of everything logged since the last call, the Android log first, then the log file, under a heading.
std::string take_transcript(const std::string& heading);

// Compares |text| with the golden file |name|. With KELCHK_RENEW_GOLDEN in the environment it writes the file instead:
// review what changed with git diff. Numbers that differ between builds stand in braces: "{certificate length}".
void expect_golden(const std::string& name, std::string text);

}  // namespace test
