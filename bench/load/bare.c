/* A liblog.so and a libcutils.so without needs of their own. */
#include <android/log.h>
#include <cutils/properties.h>

int __android_log_print(int prio, const char* tag, const char* fmt, ...) {
  (void)prio, (void)tag, (void)fmt;
  return 1;
}

int property_get(const char* key, char* value, const char* default_value) {
  (void)key, (void)default_value;
  *value = '\0';
  return 0;
}
