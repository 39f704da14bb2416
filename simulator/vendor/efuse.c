/* libefuse.so of the simulated Unisoc phone. */
#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

/* Returns the number in a file, or -1 without one. A real phone returns 1 or 0; tests store other numbers too. */
int efuse_secure_is_enabled(void) {
  const int fd = open("/vendor/efuse/secure", O_RDONLY | O_CLOEXEC);
  if (fd < 0) return -1;
  char text[16] = "";
  const ssize_t len = read(fd, text, sizeof text - 1);
  close(fd);
  char* end = text;
  const long state = strtol(text, &end, 10);
  return len > 0 && end != text ? (int)state : -1;
}
