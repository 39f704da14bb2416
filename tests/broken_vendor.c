/* Vendor libraries that no phone should have. Which one this is, a macro of the build says; VENDOR_EMPTY has nothing.
 */
#include <string.h>

#if defined(VENDOR_NO_ID)
/* An NVRAM library without its first step. */
int NVM_GetFileDesc(void);
int NVM_GetFileDesc(void) {
  return -1;
}
#elif defined(VENDOR_POSITIVE)
/* A modem library that answers, and yet not with 0. */
int sendATCmd(int channel, const char* command, char* response, int capacity);
int sendATCmd(int channel, const char* command, char* response, int capacity) {
  strncpy(response, command, (size_t)capacity);
  return channel == 0 && capacity == 256 ? 3 : -1;
}
#else
extern int vendor_empty;
#endif
