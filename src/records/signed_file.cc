#include "records/signed_file.h"

#include "core/log.h"
#include "records/para_check.h"
#include "records/para_record.h"

namespace kelchk {
namespace {

int write_rid(ValueBuffer& message) noexcept {
  return get_logged_rid(message) == 0 ? 0 : log_failure("read_rid err");
}

int write_para_value(ValueBuffer& message) noexcept {
  const int result = get_para_value(message);
  if (result != 0) log_error("get_para_value error =%d ", result);
  return result;
}

}  // namespace

int verify_authorization(std::string_view record, Purpose purpose) noexcept {
  return verify_signed_message(record, purpose, write_rid);
}

int verify_parameters(std::string_view record, Purpose purpose) noexcept {
  if (verify_signed_message(record, purpose, write_para_value) != 0) return -1;
  return check_para() == 0 ? 0 : log_failure("check_para err \n");
}

}  // namespace kelchk
