// The two signed files that a phone stores and the phones that they describe.
#pragma once

#include <ctime>
#include <functional>
#include <string>
#include <vector>

#include "kelchk.h"
#include "tests/support/phone_test.h"
#include "tests/support/pki.h"

namespace test {

// A chip family's default phone, whose primary store directory is |store|. Its tool sends |request| and gets |record|.
struct Family {
  Chip chip;
  std::string name, chip_id, store, request, record;
};
extern const Family kMediaTek, kUnisoc;

// An authorization file or, with a |record|, a signed parameter file: where a phone stores it and what is signed.
struct SignedFile {
  std::string name, primary, backup, temporary, record, message;
  std::string input = signed_record(default_signer(), message);  // the signed record that the tool hands over

  bool is_authorization() const { return record.empty(); }
  std::string stored(const std::string& text) const { return is_authorization() ? text : record + "&" + text; }
  std::string content() const { return stored(input); }
};
std::vector<SignedFile> signed_files(const Family& family);  // the authorization file first

// Imports |text| as such a file. Not one byte after it can be read.
inline int import(const SignedFile& file, const std::string& text, size_t in_len) {
  const Guarded guarded(file.is_authorization() ? text : std::string(text.c_str(), text.size() + 1));
  const unsigned len = static_cast<unsigned>(in_len);
  return file.is_authorization() ? kelo_import_aufile(guarded.data(), len) : kelo_import_para_sign(guarded.data(), len);
}
inline int import(const SignedFile& file) {
  return import(file, file.input, file.input.size());
}

// Puts a record into g_para_buf, as building or reading one does.
void set_record(const std::string& record);

// The bytes of a buffer up to the zeros at its end.
template <size_t size>
std::string content_of(const char (&buffer)[size]) {
  const std::string bytes(buffer, size);
  return bytes.substr(0, bytes.find_last_not_of('\0') + 1);
}

// The messages at error priority, without the decoded length, which one import logs at that priority on success too.
Lines errors(const Lines& log);

// What is at |path|: "new" for a file with |content|, the content of another file, "none", "folder", "link" or "fifo".
std::string state_of(const std::string& path, const std::string& content);

// The values of a record that the phone can fail to provide.
struct MissingValue {
  const Family* family;
  std::string key;
  std::function<void()> remove;
};
extern const std::vector<MissingValue> kMissingValues;

// The time in the families' records, on a phone five hours east of Greenwich.
constexpr time_t kRecordTime = 1714386612;

// A test on a phone whose clock is stopped at that time.
class RecordTest : public PhoneTest {
 protected:
  void SetUp() override;

  // Starts again on the phone of |family|, whose record is built and whose tool has logged in.
  static void start(const Family& family);
};

}  // namespace test
