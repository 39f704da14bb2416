// What stands in the stores, and why the library rejects it. Texts hold what the phone and its files say: escape them.
#pragma once

#include <string>

#include "kelphone/messages.h"

namespace kelphone {

enum File { kAuthorization, kParameters };
enum Copy { kPrimary, kBackup };

inline constexpr File kFiles[] = {kAuthorization, kParameters};
inline constexpr Copy kCopies[] = {kPrimary, kBackup};

// kelphone's own look at a stored file, because the library says only that it could not open one.
struct Look {
  bool is_missing = false;
  std::string error = {};  // why it could not be read; empty when it was read or is missing
  std::string content = {};
};

Look look_at(File file, Copy copy);

// A simulated phone keeps the kernel's /proc in /run and has links to it in its own. No other machine does that.
bool is_simulated_phone();

// Why the store of |copy| cannot be used, with the system's words; empty when it can. A folder that is only missing
// does not count: the first import makes it.
std::string store_trouble(Copy copy);

// Makes the store folders that are missing, for an import. The library would make them without the right to search,
// which only root does without.
void make_store_folders();

struct Reason {
  std::string words;
  bool is_decided = true;  // false: nothing was judged, because something could not be read
};

// Why the library rejected the copy |look|, by the first of its messages about it that decides.
Reason explain(const Lines& messages, File file, const Look& look);

}  // namespace kelphone
