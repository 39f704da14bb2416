// What the library's messages about one copy of a stored file mean, in words.
#pragma once

#include <string>
#include <vector>

#include "kelphone/messages.h"
#include "kelphone/store.h"

namespace kelphone {

struct Reason {
  std::string words = {};
  bool is_decided = true;  // false: the file was not judged, because something could not be read
  std::string field = {};  // of a record that does not describe this phone: where they differ
  std::string stored = {};
  std::string present = {};
};

// Why the library rejected a copy, by the first of its messages about it that decides. |look| is the copy.
Reason explain(const std::vector<Message>& messages, File file, const Look& look);

}  // namespace kelphone
