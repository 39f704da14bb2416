#include "records/signed_file.h"

#include "core/log.h"
#include "records/para_check.h"
#include "records/para_record.h"

namespace kelchk {
namespace {

int write_rid(Text& message) noexcept {
  if (get_logged_rid(message) != 0) return fail("read_rid err");
  return 0;
}

int write_canonical_content(Text& message) noexcept {
  const int result = get_para_value(message);
  if (result != 0) log_error("get_para_value error =%d ", result);
  return result;
}

}  // namespace

int verify_au_record(std::string_view record, SignedMessage as) noexcept {
  as.write = write_rid;
  return verify_signed_message(record, as);
}

int verify_para_record(std::string_view record, SignedMessage as) noexcept {
  as.write = write_canonical_content;
  if (verify_signed_message(record, as) != 0) return -1;
  if (check_para() != 0) return fail("check_para err \n");
  return 0;
}

}  // namespace kelchk
