/* load_time LIBRARY: prints the nanoseconds that loading it takes into a process that has only libc. */
#include <dlfcn.h>
#include <stdio.h>
#include <time.h>

int main(int argc, char** argv) {
  struct timespec start;
  struct timespec end;
  if (argc != 2) return 2;
  clock_gettime(CLOCK_MONOTONIC, &start);
  const void* const library = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
  clock_gettime(CLOCK_MONOTONIC, &end);
  if (library == NULL) {
    (void)fprintf(stderr, "load_time: %s\n", dlerror());
    return 1;
  }
  const long long nanoseconds = (end.tv_sec - start.tv_sec) * 1000000000LL + end.tv_nsec - start.tv_nsec;
  return printf("%lld\n", nanoseconds) > 0 && fflush(stdout) == 0 ? 0 : 1;
}
