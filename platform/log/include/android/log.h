#pragma once

// Substitute for the platform's log, if the system has none.

#ifdef __cplusplus
extern "C" {
#endif

typedef enum android_LogPriority {
    ANDROID_LOG_UNKNOWN = 0,
    ANDROID_LOG_DEFAULT = 1,
    ANDROID_LOG_VERBOSE = 2,
    ANDROID_LOG_DEBUG = 3,
    ANDROID_LOG_INFO = 4,
    ANDROID_LOG_WARN = 5,
    ANDROID_LOG_ERROR = 6,
    ANDROID_LOG_FATAL = 7,
    ANDROID_LOG_SILENT = 8,
} android_LogPriority;

// Writes one line to standard error: time, process, thread, priority letter, tag and text. Lines of several
// threads do not mix. A line break in the text is written as it is. A null tag is empty; `errno` is kept.
// Returns the number of bytes, or a negative number on failure. A program that defines this function itself gets
// all lines instead.
__attribute__((visibility("default"), format(printf, 3, 4))) int __android_log_print(int prio, const char* tag,
                                                                                     const char* fmt, ...);

#ifdef __cplusplus
}
#endif
