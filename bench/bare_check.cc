// A program that makes one call of the library and has nothing else but the libraries that kelphone needs.
#include "kelchk.h"

int main() {
  return kelo_is_para_correct() == 0 ? 0 : 1;
}
