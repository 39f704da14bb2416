/* The part of the system property interface that the library uses, for builds without an Android tree. C and C++. */
#ifndef KELCHK_SIMULATOR_CUTILS_PROPERTIES_H_
#define KELCHK_SIMULATOR_CUTILS_PROPERTIES_H_

#define PROPERTY_VALUE_MAX 92 /* bytes that hold every value with its NUL */

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

/*
 * Writes the property |key|, or |default_value| when it is absent or empty, as text to |value|, which must hold
 * PROPERTY_VALUE_MAX bytes, and returns the text's length. A null |default_value| counts as the empty text.
 */
int property_get(const char* key, char* value, const char* default_value);

/*
 * Sets the property |key|; a null or empty |value| removes it. Returns 0, or a negative number when |value| has
 * PROPERTY_VALUE_MAX bytes or more (a name that begins with "ro." has no such limit), when a property
 * whose name begins with "ro." exists already, or when this process may not write the phone's properties.
 */
int property_set(const char* key, const char* value);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif /* KELCHK_SIMULATOR_CUTILS_PROPERTIES_H_ */
