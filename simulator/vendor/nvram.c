/* libnvram.so of the simulated MediaTek phone: a record is the file that its name is the path of. */
#include <fcntl.h>
#include <stdbool.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

enum { kMaxRecords = 16, kNameCap = 256 };

/* Callers know only that the descriptor comes first; the size decides how the structure comes back to them. */
struct file_desc {
  int fd;
  int record_id;
  int reserved[2];
};
_Static_assert(sizeof(struct file_desc) == 16, "the structure comes back in 16 bytes");

static char record_names[kMaxRecords][kNameCap];

/* Returns the id of the record |name|, and -1 when there is no such record. */
int NVM_GetLIDByName(const char* name) {
  const size_t len = strlen(name);
  if (len == 0 || len >= kNameCap || access(name, F_OK) != 0) return -1;
  for (int id = 0; id < kMaxRecords; id++) {
    if (record_names[id][0] == '\0') memcpy(record_names[id], name, len + 1);
    if (strcmp(record_names[id], name) == 0) return id;
  }
  return -1;
}

/* Opens a record. The descriptor in the result is the caller's to close; it is -1 when the record cannot be opened. */
struct file_desc NVM_GetFileDesc(int record_id, int* size, int* count, bool read_only) {
  struct file_desc desc = {.fd = -1, .record_id = record_id};
  if (record_id < 0 || record_id >= kMaxRecords || record_names[record_id][0] == '\0') return desc;

  desc.fd = open(record_names[record_id], (read_only ? O_RDONLY : O_RDWR) | O_CLOEXEC);
  struct stat status;
  if (desc.fd < 0 || fstat(desc.fd, &status) != 0) return desc;

  *size = (int)status.st_size;
  *count = 1;
  return desc;
}
