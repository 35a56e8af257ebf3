#pragma once

#include <cstring>

#include "host/lummetadata.h"
#include "host/lumnode.h"

namespace desk {

/// The two kinds of node the library makes.
enum class Variant { RealTime, LookAhead };

constexpr LumNodeCaps CapsOf(Variant variant) {
    return variant == Variant::LookAhead ? LumNodeCapsDewarpLookAhead : LumNodeCapsDewarpRealTime;
}

constexpr const char* NameOf(Variant variant) {
    return variant == Variant::LookAhead ? "look-ahead" : "real-time";
}

/// What fills the bytes of the host's records that a node has no business with.
constexpr unsigned char HostPattern = 0xa5;

/// A host record filled with the host's pattern.
template <typename Record>
Record Patterned() {
    Record record = {};
    std::memset(&record, HostPattern, sizeof(record));
    return record;
}

/// The same with its size set.
template <typename Record>
Record PatternedRecord() {
    auto record = Patterned<Record>();
    record.size = sizeof(record);
    return record;
}

/// The host's number for the one format the desk renders, NV12.
constexpr LumFormat LumFormatNv12 = static_cast<LumFormat>(3);

/// Pixels.
struct Size {
    uint32_t width = 0;
    uint32_t height = 0;
};

/// Fractions of the output's width and height by which the input is larger.
using Margin = LumStabilizationMargin;

/// What a plane's stride (bytes) and scanline count (lines) are multiples of; 0 where anything will do.
using Alignment = LumAlignmentInfo;

}  // namespace desk
