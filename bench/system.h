// The system as both sides of a benchmark find it. This program's own symbols come before the system's: the log is
// silent, a property is read from memory as on a phone, and nothing is flushed to storage.
#pragma once

#include "phone.h"

namespace bench {

// Makes the phone that this program runs in and its properties.
void make_phone(phone::Chip chip);

// From here on flushes are real, so that they can be counted.
void flush_to_storage();

}  // namespace bench
