// A journal: one JSON object a line, appended and flushed to storage before the call returns.
#pragma once

#include <string>

#include "common/escape.h"

namespace common {

// Appends |members| in one write; an empty |path| keeps no journal. The file is opened again for each, so that it can
// be rotated by renaming. A line that an earlier full disk left unfinished is ended first. Throws Error, naming the
// file, when any of it fails.
void add_to_journal(const std::string& path, const Members& members);

// Now, in UTC, as "2026-11-23T08:15:00.123Z".
std::string journal_time();

}  // namespace common
