// What a signing server signs: a challenge, a device parameter record or a chip id, and only what a phone can have. All
// three share one key and carry no marking, so whoever signs any text signs everything.
#pragma once

#include <string>
#include <string_view>

namespace common {

enum class TextKind { kChallenge, kRecord, kChipId };

// What is signed of |text|: the canonical content of a record, which is its twelve keys with their values and nothing
// more; anything else as it is. Throws Refusal over what must not be signed.
std::string message_to_sign(TextKind kind, std::string_view text);

// The value that a phone's library takes of |key|, shorter than |capacity|; empty when there is none.
std::string value_of(std::string_view record, const char* key, size_t capacity = 2048);

// The signed content of a record: its twelve values, run together as the phone's library does it. Throws Refusal when a
// value is missing or the content too long.
std::string canonical_content(std::string_view record);

}  // namespace common
