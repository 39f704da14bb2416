/* libatci.so of the simulated Unisoc phone: a modem that knows one command. */
#include <fcntl.h>
#include <string.h>
#include <unistd.h>

/*
 * Answers the IMEI command with the bytes of a file, exactly as they are stored: an answer that fills |cap| bytes has
 * no terminator. Returns 0, or -1 for any other command or a modem that does not answer.
 */
int sendATCmd(int phone_id, const char* command, char* answer, int cap) {
  (void)phone_id;
  if (cap < 0 || strcmp(command, "AT+CGSN") != 0) return -1;

  const int fd = open("/vendor/modem/imei", O_RDONLY | O_CLOEXEC);
  if (fd < 0) return -1;
  const ssize_t len = read(fd, answer, (size_t)cap);
  close(fd);
  return len < 0 ? -1 : 0;
}
