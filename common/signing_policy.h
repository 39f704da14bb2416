// What a signing server signs: a challenge, a device parameter record or a chip id, and only what a phone can have. All
// three share one key and carry no marking, so whoever signs any text signs everything.
#pragma once

#include <string>
#include <string_view>

namespace common {

enum class TextKind { kChallenge, kRecord, kChipId };

// Why |text| must not be signed; empty when it may. Of a record, |text| is the whole: twelve keys with their values.
std::string objection(TextKind kind, std::string_view text);

// The value that a phone's library takes of |key|, shorter than |capacity|; empty when there is none.
std::string value_of(std::string_view record, const char* key, size_t capacity = 2048);

// The signed content of a record: its twelve values, run together as the phone's library does it. Throws Refusal when a
// value is missing or the content too long.
std::string canonical_content(std::string_view record);

// What is signed of |text|: a record's canonical content, anything else as it is. Throws Refusal with the objection
// when there is one.
std::string message_to_sign(TextKind kind, std::string_view text);

}  // namespace common
