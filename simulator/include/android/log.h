/* The part of the Android log interface that the library uses, for builds without an Android SDK. C and C++. */
#ifndef KELCHK_SIMULATOR_ANDROID_LOG_H_
#define KELCHK_SIMULATOR_ANDROID_LOG_H_

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

typedef enum android_LogPriority {
  ANDROID_LOG_UNKNOWN = 0,
  ANDROID_LOG_DEFAULT,
  ANDROID_LOG_VERBOSE,
  ANDROID_LOG_DEBUG,
  ANDROID_LOG_INFO,
  ANDROID_LOG_WARN,
  ANDROID_LOG_ERROR,
  ANDROID_LOG_FATAL,
  ANDROID_LOG_SILENT
} android_LogPriority;

/* Writes one message under |tag|. Returns 1 when the message was written and a negative number otherwise. */
int __android_log_print(int prio, const char* tag, const char* fmt, ...) __attribute__((format(printf, 3, 4)));

/* The same for a text that is no format. */
int __android_log_write(int prio, const char* tag, const char* text);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif /* KELCHK_SIMULATOR_ANDROID_LOG_H_ */
