/* load_time LIBRARY: prints the nanoseconds that loading it takes. Nothing but libc is there before. */
#include <dlfcn.h>
#include <stdio.h>
#include <time.h>

int main(int argc, char** argv) {
  struct timespec start, end;
  if (argc != 2) return 2;
  clock_gettime(CLOCK_MONOTONIC, &start);
  const void* const library = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
  clock_gettime(CLOCK_MONOTONIC, &end);
  if (library == NULL) {
    fprintf(stderr, "load_time: %s\n", dlerror());
    return 1;
  }
  printf("%lld\n", (end.tv_sec - start.tv_sec) * 1000000000LL + end.tv_nsec - start.tv_nsec);
  return 0;
}
