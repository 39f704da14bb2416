// The library's messages, the only reasons that it gives. kelphone defines __android_log_print itself, which comes
// before the system's and passes everything on to it. Texts are as they came: escape them.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace kelphone {

using Lines = std::vector<std::string>;

struct Messages {
  Lines all;
  Lines reasons;  // those that explain a failure: errors, and what names the certificate's fault and the chip id
};

// The library's messages since begin_operation().
const Messages& messages();
void begin_operation();

// Also shows each message on standard error as it comes, such as "E kelchk: read_rid err".
void show_messages();

// What follows |beginning| in the last message that has it.
std::string rest_of(const Lines& messages, std::string_view beginning);

// |lines| in one line, separated by "; ".
std::string joined(const Lines& lines);

// |lines| indented and escaped. Empty after show_messages(): they have been shown.
std::string listed(const Lines& lines);

}  // namespace kelphone
