/* A C program that uses an installed library: an operation, and utilities under their encoded names. */
#include <kelchk.h>
#include <string.h>

int main(void) {
  unsigned char bytes[] = {0x35, 0x20, 0x99, 0x00, 0x17, 0x61, 0x48};
  char imei[15] = "", check = 0, answer[KELCHK_CHALLENGE_ANSWER_CAP];
  unsigned len = 10;
  BcdToAsc((unsigned char*)imei, bytes, 14);
  calc_imei_checksum(imei, &check);
  return !(check == 1 && strcmp(kelchk_cert_error_string(10), "certificate has expired") == 0 && !is_mt_chip() &&
           kelo_get_rand(answer, &len) == 0 && strncmp(answer + 13, g_rand_buf, len - 13) == 0);
}
