/*
 * libkelchk: decides whether a phone's factory-provisioning records are authentic and still describe that phone.
 *
 * This header is the whole interface, for C and C++. The following holds for every function.
 *
 * Threads. The library has no locks: within a process, only one thread at a time may use it. Provisioning calls
 * kelo_get_rand, kelo_verify_rand, kelo_get_para and kelo_import_para_sign in this order and in one process, because
 * they pass state through g_rand_buf, g_is_authed and g_para_buf. Do not read the data symbols while a call runs.
 * Processes share the store directories and the log file, which have no lock either, so only one process at a time may
 * use the library.
 *
 * Results. The kelo_ operations return 0 for success and -1 for failure. They never return the reason; they log it to
 * the Android log under the tag "kelchk". Certificate and signature failures and most record mismatches also go to
 * KELCHK_LOG_FILE, which is emptied once it has reached 102400 bytes. is_mt_chip and is_device_efused return 1 for yes
 * and 0 for no.
 *
 * Buffers. Text ends in a NUL unless stated otherwise. Lengths that are written through a pointer never count the NUL;
 * capacities always do. On failure an output is left untouched unless stated otherwise.
 *
 * Files. No file in a store directory makes a call wait, not even a FIFO.
 *
 * Records. All text that crosses the interface consists of key=value pairs joined by "&", without escaping. A signed
 * record carries "factoryCert", the signer's certificate in DER, and "sign", an RSA PKCS #1 v1.5 signature with SHA-256
 * of KELCHK_SIGNATURE_LEN bytes. Both are base64 on one line; "factoryCert" has KELCHK_CERTIFICATE_TEXT_MIN to
 * KELCHK_CERTIFICATE_TEXT_MAX characters. The root certificate that was compiled into the library must itself have
 * issued the signer's certificate; validity periods are ignored.
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
/* The utilities are exported under symbols that encode their parameter lists. C has to name such a symbol itself. */
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
 * kelo_get_rand issues a challenge of |*len| characters, 0 to KELCHK_CHALLENGE_MAX, drawn from /dev/urandom, and keeps
 * it in g_rand_buf until a later call has opened the device. On success |out| holds the text "randomNumber=" followed
 * by the challenge in uppercase hexadecimal, and |*len| the length of that text, 13 more than requested. The text and
 * its NUL must fit into |out|; KELCHK_CHALLENGE_ANSWER_CAP bytes always suffice.
 *
 * Fails when an argument is null or |*len| exceeds KELCHK_CHALLENGE_MAX, and then touches nothing. Fails when the
 * random device cannot be opened or read; |out| then holds "randomNumber=" alone, and after a failed read the challenge
 * is the empty text.
 */
KELCHK_EXPORT int kelo_get_rand(char* out, unsigned int* len) KELCHK_NOEXCEPT;

/*
 * kelo_verify_rand logs the provisioning tool in: |in|, a signed record of |in_len| characters, must carry a signature
 * over the challenge in g_rand_buf, without "randomNumber=". Success sets g_is_authed for the rest of the process. The
 * challenge stays valid, so the same answer verifies until the next kelo_get_rand.
 *
 * Fails when |in| is null or its length is not |in_len|, and at the first step of the verification that fails. A
 * failure does not undo an earlier login.
 */
KELCHK_EXPORT int kelo_verify_rand(const char* in, unsigned int in_len) KELCHK_NOEXCEPT;

/*
 * kelo_get_para builds the device parameter record of this phone in g_para_buf and copies it to |out|, without a
 * terminator; |*out_len| receives its length, at most KELCHK_RECORD_MAX. |out| must hold KELCHK_RECORD_MAX bytes. Needs
 * a login.
 *
 * |in| is the tool's request, a NUL-terminated record. It carries the feature code under "mac", or else under
 * "featureCode" (1 to KELCHK_FEATURE_CODE_MAX characters), and for Unisoc phones the phone's IMEI of KELCHK_IMEI_LEN
 * digits under "IMEI". |in_len| must not be 0 and is not used otherwise. The whole request is written to the Android
 * log.
 *
 * Fails, with g_para_buf untouched, when a pointer is null, |in_len| is 0 or no tool has logged in. Fails when the
 * request lacks a usable feature code or IMEI, or the phone cannot provide one of the record's values.
 */
KELCHK_EXPORT int kelo_get_para(const char* in, unsigned int in_len, void* out, unsigned int* out_len) KELCHK_NOEXCEPT;

/*
 * kelo_import_para_sign stores the record in g_para_buf, "&" and |in| as KELCHK_PARAMETER_FILE in the primary store
 * directory and copies the file to the backup store directory. |in| is a NUL-terminated signed record whose signature
 * covers the values of the record in g_para_buf, concatenated, at most KELCHK_CANONICAL_CONTENT_MAX characters.
 * |in_len| must not be 0 and is otherwise only logged. Needs a login.
 *
 * Fails when the file would reach KELCHK_SIGNED_FILE_MAX bytes, and at the first step that fails. Stored files stay as
 * they were until the signature has been verified and the record still describes this phone. When only the copy to the
 * backup store directory fails, the result is -1 although the new file is in force.
 */
KELCHK_EXPORT int kelo_import_para_sign(const char* in, unsigned int in_len) KELCHK_NOEXCEPT;

/*
 * kelo_import_aufile stores the |in_len| bytes of |in|, 1 to KELCHK_SIGNED_FILE_MAX, as KELCHK_AUTHORIZATION_FILE in
 * the same way. The bytes are read as a signed record up to the first NUL or to |in_len|, whichever comes first; the
 * signature covers the chip's unique id. Needs no login.
 */
KELCHK_EXPORT int kelo_import_aufile(const void* in, unsigned int in_len) KELCHK_NOEXCEPT;

/* ---- Checks ------------------------------------------------------------------------------------------------------ */

/*
 * kelo_is_para_correct returns 0 when this phone holds a valid authorization file, or else a valid signed parameter
 * file that still describes it, and -1 when it holds neither. The primary copy of a file is checked first, then the
 * backup. A primary copy that fails is repaired from a valid backup, and a missing backup is made from a valid primary
 * copy; a repair that fails does not change the result. Checking a signed parameter file overwrites g_para_buf. Needs
 * no login.
 */
KELCHK_EXPORT int kelo_is_para_correct(void) KELCHK_NOEXCEPT;

/*
 * kelo_bsp_sec_ctrl_get writes the security state report to |out|, a buffer of |capacity| bytes: for each name in
 * properties, in order, the name, "=", the property's value ("false" when it is absent) and "&". |*out_len| receives
 * the length of the text. KELCHK_SECURITY_REPORT_CAP bytes hold every report; with a smaller buffer the report is cut
 * and terminated, and the result is still 0. Absent properties are logged.
 *
 * Fails when a pointer is null or |capacity| is 0.
 */
KELCHK_EXPORT int kelo_bsp_sec_ctrl_get(char* out, unsigned int capacity, unsigned int* out_len) KELCHK_NOEXCEPT;

/*
 * is_device_efused returns 1 when the chip's secure-boot efuse is blown and 0 when it is not. When the efuse cannot be
 * read, it counts as blown.
 */
KELCHK_EXPORT int is_device_efused(void) KELCHK_NOEXCEPT;

/* ---- Data, for reading between calls ----------------------------------------------------------------------------- */

KELCHK_EXPORT extern char g_rand_buf[256];     /* the current challenge, text */
KELCHK_EXPORT extern int g_is_authed;          /* 1 once a challenge response has been verified; never cleared */
KELCHK_EXPORT extern char g_factory_pem[4096]; /* "factoryCert" of the last record that was checked, text */
KELCHK_EXPORT extern unsigned char g_factor_der[4096]; /* that certificate in DER */
KELCHK_EXPORT extern char g_para_buf[4096];            /* the current record; a full buffer has no terminator */
KELCHK_EXPORT extern char g_log_buf[2048];             /* scratch: the last line for the log file or of LogHex */
KELCHK_EXPORT extern char PARA_FILE_PATH[256];         /* the primary store directory, with its trailing "/" */
KELCHK_EXPORT extern char g_sprd_imei[65];             /* Unisoc: the IMEI in the last request for a record */
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
 * hexadecimal. When the prefix and the bytes together exceed 1024, at most 1000 bytes are shown; a line that is still
 * longer than 2047 characters is cut at a whole byte. A null |prefix| or |data| counts as empty. Overwrites g_log_buf.
 */
KELCHK_EXPORT void LogHex(char* prefix, unsigned char* data, unsigned int len) KELCHK_NOEXCEPT
    KELCHK_SYMBOL("_Z6LogHexPcPhj");

/*
 * X509_verify_cert_error_string returns the library's constant text for the certificate verification error |code|, 0 to
 * 67, and "unknown certificate verification error" for any other code. In C it is called kelchk_cert_error_string,
 * because the crypto library's header declares a function of its own under the plain name.
 */
#ifdef __cplusplus
KELCHK_EXPORT const char* X509_verify_cert_error_string(int code) KELCHK_NOEXCEPT;
#else
KELCHK_EXPORT const char* kelchk_cert_error_string(int code) KELCHK_SYMBOL("_Z29X509_verify_cert_error_stringi");
#endif

/* is_mt_chip returns 1 on a MediaTek phone and 0 on a Unisoc phone, and logs the property that decides. */
KELCHK_EXPORT int is_mt_chip(void) KELCHK_NOEXCEPT KELCHK_SYMBOL("_Z10is_mt_chipv");

/*
 * calc_imei_checksum stores the Luhn check digit of the first 14 characters of |imei| in |*check|, as a number between
 * 0 and 9. A character that is not a decimal digit counts as 0; nothing after a NUL is read.
 */
KELCHK_EXPORT void calc_imei_checksum(const char* imei, char* check) KELCHK_NOEXCEPT
    KELCHK_SYMBOL("_Z18calc_imei_checksumPKcPc");

/*
 * get_build_type writes "user", "userdebug", "eng" or "user_root" to |out|, which must hold KELCHK_BUILD_TYPE_CAP
 * bytes, and returns 0. Returns -1 when the phone's build type is absent or none of these. Logs nothing.
 */
KELCHK_EXPORT int get_build_type(char* out) KELCHK_NOEXCEPT KELCHK_SYMBOL("_Z14get_build_typePc");

#endif /* KELCHK_H_ */
