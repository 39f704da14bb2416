/* libefuse.so of the simulated Unisoc phone. */
#include <stdio.h>

/* Returns the number that a file holds, whatever it is, and -1 when there is none. A phone's fuse tells 1 or 0. */
int efuse_secure_is_enabled(void) {
  FILE* file = fopen("/vendor/efuse/secure", "re");
  if (!file) return -1;
  int state = -1;
  if (fscanf(file, "%d", &state) != 1) state = -1;
  fclose(file);
  return state;
}
