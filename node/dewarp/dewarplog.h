#pragma once

#include <android/log.h>

#include "host/lumlog.h"

/// Log statements of the library. While a level's switch is off a statement costs one load and one test
/// and leaves its arguments alone; while it is on, the arguments are evaluated once per sink. The
/// system's log comes first, then the host's log library.
///
/// DEWARP_ERROR, DEWARP_WARN, DEWARP_INFO and DEWARP_VERBOSE name the enclosing function. The _IN forms
/// name the operation given: a helper reports under the operation that the host's engineers know.
/// The _CHOSEN forms take a DewarpLogText, which the _TEXT forms make, for texts that stand in a table.

/// Level bits of g_enableLuxLogs.
enum DewarpLogLevel : uint32_t {
    DewarpLogError = 1,
    DewarpLogWarn = 2,
    DewarpLogInfo = 8,
    DewarpLogVerbose = 32
};

/// One message as its two sinks take it.
struct DewarpLogText {
    const char* message;     ///< for the host's log library
    const char* systemLine;  ///< for the system log: level word, place, message, line feed
};

#define DEWARP_LOG_PLACE " %s:%d %s() "
#define DEWARP_WORD_ERROR "[ERROR  ]"
#define DEWARP_WORD_WARN "[WARN   ]"
#define DEWARP_WORD_INFO "[INFO   ]"
#define DEWARP_WORD_VERBOSE "[VERBOSE]"

#define DEWARP_LOG(level, word, letter, priority, function, message, systemLine, ...)                   \
    do {                                                                                                \
        if ((g_enableLuxLogs & (level)) != 0U) {                                                        \
            static constexpr const char* dewarpLogFile = LumLog::GetFileName(__FILE__);                 \
            if (g_enableSystemLog == 1U) {                                                              \
                __android_log_print(priority, "DEWARP", systemLine, dewarpLogFile, __LINE__, function,  \
                                    ##__VA_ARGS__);                                                     \
            }                                                                                           \
            LumLog::LogSystem(word, letter, dewarpLogFile, function, __LINE__, message, ##__VA_ARGS__); \
        }                                                                                               \
    } while (false)

#define DEWARP_SYSTEM_LINE(word, message) word DEWARP_LOG_PLACE message "\n"

#define DEWARP_ERROR_IN(function, message, ...)                                              \
    DEWARP_LOG(DewarpLogError, DEWARP_WORD_ERROR, "E", ANDROID_LOG_ERROR, function, message, \
               DEWARP_SYSTEM_LINE(DEWARP_WORD_ERROR, message), ##__VA_ARGS__)
#define DEWARP_WARN_IN(function, message, ...)                                            \
    DEWARP_LOG(DewarpLogWarn, DEWARP_WORD_WARN, "W", ANDROID_LOG_WARN, function, message, \
               DEWARP_SYSTEM_LINE(DEWARP_WORD_WARN, message), ##__VA_ARGS__)
#define DEWARP_INFO_IN(function, message, ...)                                            \
    DEWARP_LOG(DewarpLogInfo, DEWARP_WORD_INFO, "I", ANDROID_LOG_INFO, function, message, \
               DEWARP_SYSTEM_LINE(DEWARP_WORD_INFO, message), ##__VA_ARGS__)
// Verbose lines go out at the info priority: the system log of a device drops verbose ones.
#define DEWARP_VERBOSE_IN(function, message, ...)                                               \
    DEWARP_LOG(DewarpLogVerbose, DEWARP_WORD_VERBOSE, "V", ANDROID_LOG_INFO, function, message, \
               DEWARP_SYSTEM_LINE(DEWARP_WORD_VERBOSE, message), ##__VA_ARGS__)

#define DEWARP_ERROR(message, ...) DEWARP_ERROR_IN(__func__, message, ##__VA_ARGS__)
#define DEWARP_WARN(message, ...) DEWARP_WARN_IN(__func__, message, ##__VA_ARGS__)
#define DEWARP_INFO(message, ...) DEWARP_INFO_IN(__func__, message, ##__VA_ARGS__)
#define DEWARP_VERBOSE(message, ...) DEWARP_VERBOSE_IN(__func__, message, ##__VA_ARGS__)

#define DEWARP_ERROR_TEXT(message)                              \
    DewarpLogText {                                             \
        message, DEWARP_SYSTEM_LINE(DEWARP_WORD_ERROR, message) \
    }
#define DEWARP_INFO_TEXT(message)                              \
    DewarpLogText {                                            \
        message, DEWARP_SYSTEM_LINE(DEWARP_WORD_INFO, message) \
    }

// A text that is chosen at run time escapes the compiler's format check; the tests compare every one.
#define DEWARP_LOG_CHOSEN(level, word, letter, priority, function, text, ...)                               \
    do {                                                                                                    \
        _Pragma("GCC diagnostic push") _Pragma("GCC diagnostic ignored \"-Wformat-nonliteral\"")            \
            _Pragma("GCC diagnostic ignored \"-Wformat-security\"") DEWARP_LOG(                             \
                level, word, letter, priority, function, (text).message, (text).systemLine, ##__VA_ARGS__); \
        _Pragma("GCC diagnostic pop")                                                                       \
    } while (false)

#define DEWARP_ERROR_CHOSEN(function, text, ...)                                                 \
    DEWARP_LOG_CHOSEN(DewarpLogError, DEWARP_WORD_ERROR, "E", ANDROID_LOG_ERROR, function, text, \
                      ##__VA_ARGS__)
#define DEWARP_INFO_CHOSEN(function, text, ...) \
    DEWARP_LOG_CHOSEN(DewarpLogInfo, DEWARP_WORD_INFO, "I", ANDROID_LOG_INFO, function, text, ##__VA_ARGS__)
