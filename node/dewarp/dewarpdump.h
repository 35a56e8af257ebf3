#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>

#include "host/lumnodeutils.h"
#include "node/dewarp/dewarpstabilizationtype.h"

/// What the three dump files have in common: the switch, the name, and the one line per frame.

constexpr size_t DewarpPathSize = 4096;  ///< bytes of every path buffer

/// True when the property "persist.vendor.camera.enabledewarpdump" reads as the integer 1: its leading part,
/// in decimal, after white space and a sign. A number beyond `long` reads as the nearest one.
bool IsDewarpDumpEnabled();

/// Formats the dump's path, stamped with the given local time, into `path` (zeroed first) and opens it to
/// append. `pathFormat` takes directory, separator, variant number, then year to second. Null when the
/// file cannot be opened; `path` then names it.
FILE* OpenDewarpDump(const char* pathFormat, DewarpStabilizationType type, const LUMDateTime& time,
                     char (&path)[DewarpPathSize]);

/// Closes an open dump and forgets it. True when that went well, or when nothing was open.
bool CloseDewarpDump(FILE*& file);

/// One line of a dump, built in memory and written at once. Lives on the stack; never allocates.
class DewarpDumpLine {
public:
    DewarpDumpLine();

    /// Appends formatted text. Every call is given the whole text size as its limit.
    __attribute__((format(printf, 2, 3))) void Append(const char* format, ...);

    /// Hands the line to the stream in a single write; false when the stream refused it.
    bool Write(FILE* file) const;

    size_t Length() const {
        return m_length;
    }

private:
    static constexpr size_t TextSize = 65536;
    // The text size bounds one call, not the line. The longest line there can be, 945 points of the largest
    // float on both axes, takes under 96 KiB; that much is here, so that no grid overruns the buffer.
    static constexpr size_t LongestFloat = 45;  ///< "-", 39 digits, ".", 4 digits
    static constexpr size_t LongestLine = 64 + 945 * 2 * (LongestFloat + 2) + 2;
    static constexpr size_t Capacity = 98304;
    static_assert(LongestLine < Capacity, "a line of extreme values fits");

    size_t m_length = 0;
    char m_text[Capacity];
};
