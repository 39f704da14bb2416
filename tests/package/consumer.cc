// What a C++ program uses of an installed library: an operation, and utilities, which look at the phone and log.
#include <kelchk.h>

#include <cstring>

int main() {
  char type[10];
  const bool explains = std::strcmp(X509_verify_cert_error_string(10), "certificate has expired") == 0;
  return !(explains && get_build_type(type) == -1 && kelo_is_para_correct() == -1);
}
