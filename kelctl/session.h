// The line mode: one request and one answer a line, for a factory host that drives the phone over a pipe.
//
// A request is one of
//   challenge [N]     issue a challenge of N characters, 0 to 250 (250): "ok CHALLENGE"
//   respond RECORD    log in with a signed record over the challenge: "ok"
//   record REQUEST    read the device parameter record: "ok RECORD"
//   import RECORD     store the record with a signed record over its values: "ok"
// and is answered by "ok", or by "failed: " and the reasons, separated by "; ". In both directions a line break in a
// text is written "\n", a carriage return "\r" and a backslash "\\". A carriage return that ends a line does not count.
// What one request leaves behind lives until the session ends.
#pragma once

#include <cstdio>
#include <string>

namespace kelctl {

// The answer to one request, without its line break. Both are bare lines.
std::string answer_to(const std::string& line);

// Serves requests from |in| until it ends. A line that is no request, or longer than 16384 characters, is answered like
// any failure and ends nothing.
void serve(std::FILE* in, std::FILE* out);

}  // namespace kelctl
