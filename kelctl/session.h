// The line mode: one request and one answer a line, for a factory host that drives the phone over a pipe.
#pragma once

#include <iosfwd>

namespace kelctl {

// Serves requests from |in| until it ends. A request is one of
//   challenge [N]     issue a challenge of N characters (250): "ok CHALLENGE"
//   respond RECORD    log in with a signed record over the challenge: "ok"
//   record REQUEST    read the device parameter record: "ok RECORD"
//   import RECORD     store the record with a signed record over its values: "ok"
// and is answered by "ok" or "failed" and a reason. In both directions a line break in a text is written "\n", a
// carriage return "\r" and a backslash "\\". What one request leaves behind lives until the session ends.
void serve(std::istream& in, std::ostream& out);

}  // namespace kelctl
