// The three texts that a signing server signs: a challenge, a record's canonical content and a chip id. They share one
// key and carry no marking, so a server that signs anything signs everything.
#pragma once

#include <string>
#include <string_view>

#include "core/text.h"
#include "records/record_keys.h"

namespace kelctl {

enum class Kind { kChallenge, kRecord, kChipId };

// The value that a phone's library takes of |key|, shorter than |capacity|; empty when there is none.
std::string value_of(std::string_view record, const char* key, size_t capacity = kelchk::kValueBufferCap);

// Why a careful server does not sign |text|; empty when it does. Of a record, |text| is the whole: twelve keys with
// their values.
std::string objection(Kind kind, std::string_view text);

// The signed content of a record, its twelve values run together, as the phone's library puts it together: other keys
// and the order do not matter. Throws Refusal when a value is missing or the content too long.
std::string canonical_content(std::string_view record);

// What is signed of |text|: a record's canonical content, anything else as it is. Throws Refusal with the objection
// when there is one.
std::string checked_message(Kind kind, const std::string& text);

}  // namespace kelctl
