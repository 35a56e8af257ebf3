#pragma once

#include <cstdint>

/// The host's log switches: one bit per level, and whether lines also go to the system log.
extern uint32_t g_enableLuxLogs;
extern uint32_t g_enableSystemLog;

namespace LumLog {

/// The host's log library. `format` is the bare message; everything else is the line's head.
__attribute__((format(printf, 6, 7))) void LogSystem(const char* levelWord, const char* levelLetter,
                                                     const char* fileName, const char* functionName,
                                                     int32_t line, const char* format, ...);

/// The text after the last "/" of a source path.
constexpr const char* GetFileName(const char* path) {
    const char* name = path;
    for (const char* at = path; *at != '\0'; ++at) {
        if (*at == '/') {
            name = at + 1;
        }
    }
    return name;
}

}  // namespace LumLog
