#include "node/dewarp/dewarpdump.h"

#include <cstdlib>
#include <cstring>

#include "platform/properties.h"
#include "utils/checked.h"

bool IsDewarpDumpEnabled() {
    char value[PropertyValueSize] = {};
    property_get("persist.vendor.camera.enabledewarpdump", value, "0");
    return std::strtol(value, nullptr, 10) == 1;
}

// The format is one of three literals at the callers.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
FILE* OpenDewarpDump(const char* pathFormat, DewarpStabilizationType type, const LUMDateTime& time,
                     char (&path)[DewarpPathSize]) {
    constexpr int32_t FirstYear = 1900;
    const int32_t variant = (type == DewarpStabilizationRealTime) ? 2 : 3;
    std::memset(path, 0, sizeof(path));
    LumNodeUtils::SNPrintF(path, sizeof(path), pathFormat, "/data/vendor/camera", "/", variant,
                           Orba::CheckedAdd(time.year, FirstYear), Orba::CheckedAdd(time.month, 1),
                           time.dayOfMonth, time.hours, time.minutes, time.seconds);
    return LumNodeUtils::FOpen(path, "a");
}
#pragma GCC diagnostic pop

bool CloseDewarpDump(FILE*& file) {
    const bool isClosed = file == nullptr || LumNodeUtils::FClose(file) == 0;
    file = nullptr;
    return isClosed;
}

// What lies behind is not read before it is written.
// NOLINTNEXTLINE(cppcoreguidelines-pro-type-member-init)
DewarpDumpLine::DewarpDumpLine() {
    std::memset(m_text, 0, TextSize);
}

void DewarpDumpLine::Append(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int32_t length = LumNodeUtils::VSNPrintF(m_text + m_length, TextSize, format, arguments);
    va_end(arguments);
    if (length > 0) {
        m_length =
            Orba::CheckedIndex(static_cast<uint32_t>(m_length) + static_cast<uint32_t>(length), Capacity);
    }
}

bool DewarpDumpLine::Write(FILE* file) const {
    return LumNodeUtils::FWrite(m_text, m_length, 1, file) == 1;
}
