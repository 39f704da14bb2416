/* libnvram.so of the simulated MediaTek phone: a record's name is the path of the file that holds it. */
#include <fcntl.h>
#include <stdbool.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

enum { kMaxRecords = 16, kNameCap = 256 };

/* Callers rely on two things: the descriptor comes first, and the size, which decides how the structure is returned. */
struct file_desc {
  int fd;
  int record_id;
  int reserved[2];
};
_Static_assert(sizeof(struct file_desc) == 16, "callers expect 16 bytes");

static char record_names[kMaxRecords][kNameCap];

/* Returns the id of the record |name|, or -1 when no such record exists. */
int NVM_GetLIDByName(const char* name) {
  const size_t len = strlen(name);
  if (len == 0 || len >= kNameCap || access(name, F_OK) != 0) return -1;
  for (int id = 0; id < kMaxRecords; id++) {
    if (record_names[id][0] == '\0') memcpy(record_names[id], name, len + 1);
    if (strcmp(record_names[id], name) == 0) return id;
  }
  return -1;
}

/* Opens a record. The caller closes the descriptor in the result, which is -1 when the record cannot be opened. */
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
