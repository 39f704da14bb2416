// The system as both sides of a benchmark find it. This program's own symbols precede the system's: the log is silent
// and nothing is flushed to storage.
#pragma once

#include "simulator/phone.h"

namespace bench {

// Makes the phone that this program runs in.
void make_phone(const phone::Identity& identity);

// From now on properties are read from memory, as on a real phone. The simulated phone reads a file for each.
void keep_properties_in_memory(const phone::Identity& identity);

// How many properties have been read so far.
int properties_read();

// From now on flushes are real, so that they can be counted.
void flush_to_storage();

}  // namespace bench
