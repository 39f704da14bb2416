/*
 * libkelchk: decides whether this phone's factory-provisioning records are authentic and still describe this very
 * phone.
 *
 * This is the whole interface, for C and C++. What holds for every function:
 *
 * Threads. Nothing is locked. One process uses the library at a time, from one thread at a time. The provisioning
 * sequence kelo_get_rand, kelo_verify_rand, kelo_get_para, kelo_import_para_sign runs in that order in one process,
 * because it passes state through g_rand_buf, g_is_authed and g_para_buf. Do not read the data symbols while a call
 * runs. Processes share the store directories and the log file, which have no lock either.
 *
 * Results. The kelo_ operations return 0 for success and -1 for failure. The reason is never returned: it is in the
 * Android log under the tag "kelchk" and, for certificates, signatures and most record mismatches, also in the log file
 * "/kelofs/startPara/log.txt", which is emptied once it has reached 102400 bytes. is_mt_chip and is_device_efused
 * return 1 for yes and 0 for no.
 *
 * Buffers. "Text" ends in a NUL unless said otherwise. Lengths written through a pointer never count the NUL;
 * capacities always do. On failure an output is left untouched unless its function says otherwise.
 *
 * Records. Text that crosses the interface is key=value pairs joined by "&", without escaping. A signed record
 * carries "factoryCert", the signer's certificate in DER as base64 on one line (1024 to 4095 characters), and "sign",
 * a 256-byte RSA PKCS #1 v1.5 signature with SHA-256 as base64 on one line (344 characters). The certificate must be
 * issued directly by the root certificate that was compiled into the library; validity periods are ignored.
 */
#ifndef KELCHK_H_
#define KELCHK_H_

#if defined(__GNUC__)
#define KELCHK_EXPORT __attribute__((visibility("default")))
#else
#define KELCHK_EXPORT
#endif

#ifdef __cplusplus
#define KELCHK_NOEXCEPT noexcept
/* The utilities are exported under symbols that encode their parameter lists; C names such a symbol itself. */
#define KELCHK_SYMBOL(mangled)
extern "C" {
#else
#define KELCHK_NOEXCEPT
#define KELCHK_SYMBOL(mangled) __asm__(mangled)
#endif

/* ---- Limits ------------------------------------------------------------------------------------------------------ */

#define KELCHK_CHALLENGE_MAX 250          /* characters of the longest challenge */
#define KELCHK_CHALLENGE_ANSWER_CAP 264   /* bytes that hold every answer of kelo_get_rand with its NUL */
#define KELCHK_CERTIFICATE_TEXT_MIN 1024  /* characters of the shortest "factoryCert" */
#define KELCHK_CERTIFICATE_TEXT_MAX 4095  /* characters of the longest "factoryCert" */
#define KELCHK_SIGNATURE_LEN 256          /* bytes of a decoded "sign" */
#define KELCHK_FEATURE_CODE_MAX 127       /* characters of the longest feature code */
#define KELCHK_IMEI_LEN 15                /* digits of an IMEI */
#define KELCHK_RECORD_MAX 4095            /* characters of the longest device parameter record */
#define KELCHK_CANONICAL_CONTENT_MAX 2047 /* characters of the longest text that a record's signature covers */
#define KELCHK_SIGNED_FILE_MAX 4096       /* bytes of the longest stored file */
#define KELCHK_SECURITY_REPORT_CAP 2863   /* bytes that hold every security state report with its NUL */
#define KELCHK_BUILD_TYPE_CAP 10          /* bytes that hold every build type with its NUL */

/* ---- Files on the phone ------------------------------------------------------------------------------------------ */

#define KELCHK_STORE_MEDIATEK "/mnt/vendor/persist/startPara/"   /* the primary store directory on MediaTek */
#define KELCHK_STORE_UNISOC "/mnt/vendor/productinfo/startPara/" /* the primary store directory on Unisoc */
#define KELCHK_STORE_BACKUP "/kelofs/startPara/"                 /* the backup store directory */
#define KELCHK_AUTHORIZATION_FILE "auFile.dat"                   /* in both store directories */
#define KELCHK_AUTHORIZATION_TEMPORARY "auFile_tmp.dat"          /* in the primary one, while an import runs */
#define KELCHK_PARAMETER_FILE "startPara.dat"
#define KELCHK_PARAMETER_TEMPORARY "startPara_tmp.dat"
#define KELCHK_LOG_FILE KELCHK_STORE_BACKUP "log.txt"

/* ---- Provisioning ------------------------------------------------------------------------------------------------ */

/*
 * kelo_get_rand issues a challenge of |*len| characters, 0 to 250, drawn from /dev/urandom, and keeps it in g_rand_buf
 * until a next call reads the device. On success |out| holds the text "randomNumber=" and the challenge in uppercase
 * hexadecimal, and |*len| its length, 13 more than asked. |out| must hold 14 bytes more than |*len|; 264 are always
 * enough.
 *
 * Fails when an argument is null, |*len| is above 250 (nothing is touched) or the random device cannot be opened or
 * read: |out| then holds "randomNumber=" alone, and after a failed read the challenge is the empty text.
 */
KELCHK_EXPORT int kelo_get_rand(char* out, unsigned int* len) KELCHK_NOEXCEPT;

/*
 * kelo_verify_rand logs the provisioning tool in: |in|, a signed record of |in_len| characters, must carry a signature
 * over the challenge in g_rand_buf, the bare characters. Success sets g_is_authed for the rest of the process. The
 * challenge is not used up: the same answer verifies until the next kelo_get_rand.
 *
 * Fails when |in| is null or its length is not |in_len|, and at the first step of the verification that does not hold.
 * A failure takes no earlier login back.
 */
KELCHK_EXPORT int kelo_verify_rand(const char* in, unsigned int in_len) KELCHK_NOEXCEPT;

/*
 * kelo_get_para builds the device parameter record of this phone in g_para_buf and copies it to |out|, without a
 * terminator; |*out_len| receives its length, at most 4095. |out| must hold 4095 bytes. Needs a login.
 *
 * |in| is the tool's request, a NUL-terminated record: the feature code under "mac" or else "featureCode" (1 to 127
 * characters) and, on Unisoc phones, the phone's 15-digit IMEI under "IMEI". |in_len| must not be 0 and is otherwise
 * not used. The whole request goes to the Android log.
 *
 * Fails when a pointer is null, |in_len| is 0 or no tool has logged in (g_para_buf is then untouched), when the request
 * lacks a usable feature code or IMEI, and when the phone cannot tell one of the record's values.
 */
KELCHK_EXPORT int kelo_get_para(const char* in, unsigned int in_len, void* out, unsigned int* out_len) KELCHK_NOEXCEPT;

/*
 * kelo_import_para_sign stores the record in g_para_buf, "&" and |in| as "startPara.dat" in the primary store directory
 * and copies it to the backup store directory. |in| is a NUL-terminated signed record whose signature covers the twelve
 * values of the record in g_para_buf, run together. |in_len| must not be 0 and is otherwise only logged. Needs a login.
 *
 * The three texts together have at most 4095 characters. Fails at the first step that does not hold; until the
 * signature has verified and the record still describes this phone, stored files stay as they were. When only the
 * backup copy fails, the result is -1 although the new file is already in force.
 */
KELCHK_EXPORT int kelo_import_para_sign(const char* in, unsigned int in_len) KELCHK_NOEXCEPT;

/*
 * kelo_import_aufile stores the |in_len| bytes of |in|, 1 to 4096, as "auFile.dat", in the same way. They are read as a
 * signed record up to the first NUL or to |in_len|, whichever comes first; the signature covers the chip's unique id.
 * Needs no login.
 */
KELCHK_EXPORT int kelo_import_aufile(const void* in, unsigned int in_len) KELCHK_NOEXCEPT;

/* ---- Checks ------------------------------------------------------------------------------------------------------ */

/*
 * kelo_is_para_correct tells whether this phone holds a valid authorization file or else a valid signed parameter file
 * that still describes it: 0 when it does, -1 when not. The primary copy is judged first, then the backup. A failing
 * primary is repaired from a valid backup, a missing backup is made anew from a valid primary; a repair that fails does
 * not change the result. Overwrites g_para_buf when it reads a signed parameter file. Needs no login.
 */
KELCHK_EXPORT int kelo_is_para_correct(void) KELCHK_NOEXCEPT;

/*
 * kelo_bsp_sec_ctrl_get writes the security state report to |out|, a buffer of |capacity| bytes: for each name in
 * properties, in order, the name, "=", the property's value ("false" when it is absent) and "&". |*out_len| receives
 * the length of the text. 2863 bytes hold every report; with fewer it is cut, terminated, and the result is still 0.
 *
 * Fails when a pointer is null or |capacity| is 0.
 */
KELCHK_EXPORT int kelo_bsp_sec_ctrl_get(char* out, unsigned int capacity, unsigned int* out_len) KELCHK_NOEXCEPT;

/*
 * is_device_efused returns 1 when the chip's secure-boot efuse is blown and 0 when not. A phone that cannot tell counts
 * as blown.
 */
KELCHK_EXPORT int is_device_efused(void) KELCHK_NOEXCEPT;

/* ---- Data, for reading between calls ----------------------------------------------------------------------------- */

KELCHK_EXPORT extern char g_rand_buf[256];             /* the current challenge, text of at most 250 characters */
KELCHK_EXPORT extern int g_is_authed;                  /* 1 once a challenge response has verified; never cleared */
KELCHK_EXPORT extern char g_factory_pem[4096];         /* "factoryCert" of the record last verified, text */
KELCHK_EXPORT extern unsigned char g_factor_der[4096]; /* the same, decoded */
KELCHK_EXPORT extern char g_para_buf[4096];            /* the record under work; a full buffer has no terminator */
KELCHK_EXPORT extern char g_log_buf[2048];             /* the last line formatted for the log file or by LogHex */
KELCHK_EXPORT extern char PARA_FILE_PATH[256];         /* the primary store directory, with its trailing "/" */
KELCHK_EXPORT extern char g_sprd_imei[65];             /* Unisoc: the IMEI of the last request for a record */
KELCHK_EXPORT extern const char* const properties[24]; /* the property names of the security state report */

#ifdef __cplusplus
} /* extern "C" */
#endif

/* ---- Utilities --------------------------------------------------------------------------------------------------- */

/*
 * AscToBcd packs |len| hexadecimal characters of |in|, upper or lower case, into (|len| + 1) / 2 bytes of |out|, high
 * nibble first; an odd count leaves the last low nibble 0. ":" to "?" count as 10 to 15, any other character as 15.
 * |len| of 0 or less writes nothing.
 */
KELCHK_EXPORT void AscToBcd(unsigned char* out, unsigned char* in, int len) KELCHK_NOEXCEPT
    KELCHK_SYMBOL("_Z8AscToBcdPhS_i");

/*
 * BcdToAsc writes |len| uppercase hexadecimal characters, without a terminator, to |out| from the (|len| + 1) / 2 bytes
 * of |in|, high nibble first.
 */
KELCHK_EXPORT void BcdToAsc(unsigned char* out, unsigned char* in, unsigned int len) KELCHK_NOEXCEPT
    KELCHK_SYMBOL("_Z8BcdToAscPhS_j");

/*
 * LogHex writes one debug line to the Android log: |prefix|, "==>" and the |len| bytes of |data| in uppercase
 * hexadecimal. When the prefix and the bytes together exceed 1024, at most 1000 bytes are shown; a line that exceeds
 * 2047 characters even so is cut at a whole byte. A null |prefix| or |data| counts as empty. Overwrites g_log_buf.
 */
KELCHK_EXPORT void LogHex(char* prefix, unsigned char* data, unsigned int len) KELCHK_NOEXCEPT
    KELCHK_SYMBOL("_Z6LogHexPcPhj");

/*
 * X509_verify_cert_error_string returns the library's constant text for a certificate verification error code, 0 to 67,
 * and "unknown certificate verification error" for any other. C calls it kelchk_cert_error_string, because the crypto
 * library's own header declares another function under the plain name.
 */
#ifdef __cplusplus
KELCHK_EXPORT const char* X509_verify_cert_error_string(int code) KELCHK_NOEXCEPT;
#else
KELCHK_EXPORT const char* kelchk_cert_error_string(int code) KELCHK_SYMBOL("_Z29X509_verify_cert_error_stringi");
#endif

/* is_mt_chip returns 1 on a MediaTek phone and 0 on a Unisoc one, and logs the property that says so. */
KELCHK_EXPORT int is_mt_chip(void) KELCHK_NOEXCEPT KELCHK_SYMBOL("_Z10is_mt_chipv");

/*
 * calc_imei_checksum stores the Luhn check digit, a number 0 to 9, of the first 14 digits of |imei| in |*check|.
 * A character that is no decimal digit counts as 0; nothing past a NUL is read.
 */
KELCHK_EXPORT void calc_imei_checksum(const char* imei, char* check) KELCHK_NOEXCEPT
    KELCHK_SYMBOL("_Z18calc_imei_checksumPKcPc");

/*
 * get_build_type writes "user", "userdebug", "eng" or "user_root" to |out|, which must hold 10 bytes, and returns 0; -1
 * when the phone's build type is absent or none of these. Logs nothing.
 */
KELCHK_EXPORT int get_build_type(char* out) KELCHK_NOEXCEPT KELCHK_SYMBOL("_Z14get_build_typePc");

#endif /* KELCHK_H_ */
