/* The part of the system property interface that the library uses, for builds that have no Android tree. C and C++. */
#ifndef KELCHK_HOST_CUTILS_PROPERTIES_H_
#define KELCHK_HOST_CUTILS_PROPERTIES_H_

#define PROPERTY_VALUE_MAX 92 /* of a value with its NUL */

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Writes the property |key|, or |default_value| when it is absent or empty, as text to |value|, which must hold
 * PROPERTY_VALUE_MAX bytes, and returns its length. A null |default_value| counts as the empty text.
 */
int property_get(const char* key, char* value, const char* default_value);

#ifdef __cplusplus
}
#endif

#endif /* KELCHK_HOST_CUTILS_PROPERTIES_H_ */
