// What a provisioning tool and its server exchange with one phone, and the files that come of it.
#pragma once

#include <string>

#include "bench/floor.h"
#include "simulator/phone.h"

namespace bench {

struct Provisioning {
  phone::Chip chip = phone::Chip::kMediaTek;
  std::string challenge, response, request, record, signer_fields;
  floors::SignedRecordLayout response_layout = {};
  floors::StoredFile authorization, parameters;
};

// Provisions the phone that this program runs in, without storing the files, and gives the floors the root certificate.
// Throws when a step fails.
Provisioning provision(phone::Chip chip);

void write(const std::string& path, const std::string& content);

// Both copies.
void store(const floors::StoredFile& file);
void remove(const floors::StoredFile& file);

}  // namespace bench
