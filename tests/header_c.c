/* Includes the header alone, in C. That this links shows that C finds the utilities under their encoded names. */
#include "kelchk.h"

typedef void (*any_function)(void);
extern const any_function utilities_for_c[7];
/* clang-format off */
const any_function utilities_for_c[7] = {
    (any_function)AscToBcd, (any_function)BcdToAsc, (any_function)LogHex, (any_function)is_mt_chip,
    (any_function)calc_imei_checksum, (any_function)get_build_type, (any_function)kelchk_cert_error_string};
