// The library's messages, the only reasons that it gives. kelphone defines __android_log_print itself, which comes
// before the system's and passes everything on to it. Texts are as they came: escape them.
#pragma once

#include <string>
#include <vector>

namespace kelphone {

struct Message {
  int priority;
  std::string text;
};

// Also shows each message on standard error as it comes, such as "E kelchk: read_rid err".
void show_messages();

// Forgets the messages so far: what comes now belongs to a new operation.
void begin_operation();

// The library's messages since begin_operation().
const std::vector<Message>& messages();

// All of them, and those that explain a failure: errors, and what names the certificate's fault and the chip id.
std::vector<std::string> texts();
std::vector<std::string> reasons();

// |texts| in one line, separated by "; ".
std::string joined(const std::vector<std::string>& texts);

// |texts| as indented, escaped lines. Nothing after show_messages(): they have been shown.
std::string listed(const std::vector<std::string>& texts);

// Writes |text| to the Android log under kelphone's own tag, as one escaped line.
void log_line(int priority, const std::string& text);

}  // namespace kelphone
