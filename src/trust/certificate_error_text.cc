// The texts for the crypto library's certificate verification error codes.
#include <string.h>

#include "kelchk.h"

namespace {

constexpr int kCodes = 68;

// All texts in one string, in the order of their codes, because a table of pointers would be relocated at every load.
// An empty text stands for a code without a text.
constexpr char kTexts[] =
    "ok\0"  // 0
    "\0"    // 1
    "unable to get issuer certificate\0"
    "unable to get certificate CRL\0"
    "unable to decrypt certificate's signature\0"
    "unable to decrypt CRL's signature\0"
    "unable to decode issuer public key\0"
    "certificate signature failure\0"
    "CRL signature failure\0"
    "certificate is not yet valid\0"
    "certificate has expired\0"  // 10
    "CRL is not yet valid\0"
    "CRL has expired\0"
    "format error in certificate's notBefore field\0"
    "format error in certificate's notAfter field\0"
    "format error in CRL's lastUpdate field\0"
    "format error in CRL's nextUpdate field\0"
    "out of memory\0"
    "self signed certificate\0"
    "self signed certificate in certificate chain\0"
    "unable to get local issuer certificate\0"  // 20
    "unable to verify the first certificate\0"
    "certificate chain too long\0"
    "certificate revoked\0"
    "invalid CA certificate\0"
    "path length constraint exceeded\0"
    "unsupported certificate purpose\0"
    "certificate not trusted\0"
    "certificate rejected\0"
    "subject issuer mismatch\0"
    "authority and subject key identifier mismatch\0"  // 30
    "authority and issuer serial number mismatch\0"
    "key usage does not include certificate signing\0"
    "unable to get CRL issuer certificate\0"
    "unhandled critical extension\0"
    "key usage does not include CRL signing\0"
    "unhandled critical CRL extension\0"
    "invalid non-CA certificate (has CA markings)\0"
    "proxy path length constraint exceeded\0"
    "key usage does not include digital signature\0"
    "proxy certificates not allowed, please set the appropriate flag\0"  // 40
    "invalid or inconsistent certificate extension\0"
    "invalid or inconsistent certificate policy extension\0"
    "no explicit policy\0"
    "Different CRL scope\0"
    "Unsupported extension feature\0"
    "RFC 3779 resource not subset of parent's resources\0"
    "permitted subtree violation\0"
    "excluded subtree violation\0"
    "name constraints minimum and maximum not supported\0"
    "application verification failure\0"  // 50
    "unsupported name constraint type\0"
    "unsupported or invalid name constraint syntax\0"
    "unsupported or invalid name syntax\0"
    "CRL path validation error\0"
    "\0"  // 55
    "\0"  // 56
    "\0"  // 57
    "\0"  // 58
    "\0"  // 59
    "\0"  // 60
    "\0"  // 61
    "Hostname mismatch\0"
    "Email address mismatch\0"
    "IP address mismatch\0"
    "Invalid certificate verification context\0"
    "Issuer certificate lookup error\0"
    "Issuer has name constraints but leaf has no SANs";

}  // namespace

const char* X509_verify_cert_error_string(int code) noexcept {
  const char* text = kTexts;
  if (code < 0 || code >= kCodes) code = 1;
  for (; code > 0; --code) text += strlen(text) + 1;
  return *text != '\0' ? text : "unknown certificate verification error";
}
