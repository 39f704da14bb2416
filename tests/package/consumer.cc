// A C++ program that uses an installed library: an operation, and utilities, which read properties and log.
#include <kelchk.h>

#include <cstring>

int main() {
  char type[KELCHK_BUILD_TYPE_CAP];
  const bool explains = std::strcmp(X509_verify_cert_error_string(10), "certificate has expired") == 0;
  return !(explains && get_build_type(type) == -1 && kelo_is_para_correct() == -1);
}
