/* Vendor libraries that fail as none in a phone should. A macro of the build selects one; VENDOR_EMPTY has no entry
 * points. */
#include <string.h>

#if defined(VENDOR_NO_ID)
/* An NVRAM library without its first entry point. */
int NVM_GetFileDesc(void);
int NVM_GetFileDesc(void) {
  return -1;
}
#elif defined(VENDOR_POSITIVE)
/* A modem library that answers with a result other than 0. */
int sendATCmd(int channel, const char* command, char* response, int capacity);
int sendATCmd(int channel, const char* command, char* response, int capacity) {
  strncpy(response, command, (size_t)capacity);
  return channel == 0 && capacity == 256 ? 3 : -1;
}
#else
extern int vendor_empty;
#endif
