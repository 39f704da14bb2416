// The library's messages. kelctl defines __android_log_print itself, which comes before the system's.
#pragma once

#include <string>
#include <vector>

namespace kelctl {

struct Message {
  int priority;
  std::string text;
};

// Shows each message on standard error as it comes, such as "E kelchk: read_rid err".
void show_messages();

// Forgets the messages so far: what comes now belongs to a new operation.
void begin_operation();

// The library's messages since begin_operation().
const std::vector<Message>& messages();

// Those of them that lead to a failure, each on one line: its errors, and what tells which certificate and which chip
// id they are about.
std::vector<std::string> reasons();

// Shows the reasons on standard error, unless all messages have been shown.
void report_failure();

}  // namespace kelctl
