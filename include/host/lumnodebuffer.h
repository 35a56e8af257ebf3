#pragma once

#include <cstddef>
#include <cstdint>

#include "host/lumimage.h"

/// Records of the buffer negotiation before streaming.

struct LumAlignmentInfo {
    int32_t strideAlignment;    ///< bytes
    int32_t scanlineAlignment;  ///< lines
};
static_assert(offsetof(LumAlignmentInfo, scanlineAlignment) == 4, "host layout");
static_assert(sizeof(LumAlignmentInfo) == 8, "host layout");

constexpr uint32_t LumMaxPlanes = 4;

/// What one side of a link wants of its buffers. Sizes in pixels.
struct LumNodeBufferRequirement {
    uint32_t minWidth;
    uint32_t minHeight;
    uint32_t maxWidth;
    uint32_t maxHeight;
    uint32_t optimalWidth;
    uint32_t optimalHeight;
    LumFormat format;  ///< set by the host, never written by a node
    LumAlignmentInfo planeAlignment[LumMaxPlanes];
};
static_assert(offsetof(LumNodeBufferRequirement, minHeight) == 4, "host layout");
static_assert(offsetof(LumNodeBufferRequirement, maxWidth) == 8, "host layout");
static_assert(offsetof(LumNodeBufferRequirement, maxHeight) == 12, "host layout");
static_assert(offsetof(LumNodeBufferRequirement, optimalWidth) == 16, "host layout");
static_assert(offsetof(LumNodeBufferRequirement, optimalHeight) == 20, "host layout");
static_assert(offsetof(LumNodeBufferRequirement, format) == 24, "host layout");
static_assert(offsetof(LumNodeBufferRequirement, planeAlignment) == 28, "host layout");
static_assert(sizeof(LumNodeBufferRequirement) == 60, "host layout");

struct LumOutputPortQueryInfo {
    uint32_t outputPortId;
    uint32_t reserved4;
    /// Merged by the host from the consumers of this port; read only.
    const LumNodeBufferRequirement* pDownstreamRequirement;
    LumNodeBufferRequirement outputBufferOption;  ///< filled by the node
    uint8_t reserved76[20];
};
static_assert(offsetof(LumOutputPortQueryInfo, pDownstreamRequirement) == 8, "host layout");
static_assert(offsetof(LumOutputPortQueryInfo, outputBufferOption) == 16, "host layout");
static_assert(sizeof(LumOutputPortQueryInfo) == 96, "host layout");

struct LumInputPortQueryInfo {
    uint32_t inputPortId;
    LumNodeBufferRequirement inputBufferOption;  ///< filled by the node
};
static_assert(offsetof(LumInputPortQueryInfo, inputBufferOption) == 4, "host layout");
static_assert(sizeof(LumInputPortQueryInfo) == 64, "host layout");

/// Element i of both arrays is one link through the node. Minimum size 48.
struct LumNodeQueryBufferInfo {
    uint32_t size;
    uint32_t reserved4;
    void* hNodeSession;
    uint32_t numOutputPorts;
    uint32_t reserved20;
    LumOutputPortQueryInfo* pOutputPortQueryInfo;
    uint32_t numInputPorts;
    uint32_t reserved36;
    LumInputPortQueryInfo* pInputOptions;
};
static_assert(offsetof(LumNodeQueryBufferInfo, hNodeSession) == 8, "host layout");
static_assert(offsetof(LumNodeQueryBufferInfo, numOutputPorts) == 16, "host layout");
static_assert(offsetof(LumNodeQueryBufferInfo, pOutputPortQueryInfo) == 24, "host layout");
static_assert(offsetof(LumNodeQueryBufferInfo, numInputPorts) == 32, "host layout");
static_assert(offsetof(LumNodeQueryBufferInfo, pInputOptions) == 40, "host layout");
static_assert(sizeof(LumNodeQueryBufferInfo) == 48, "host layout");

/// The head of the host's buffer format record: all a node reads of it.
struct LumBufferFormat {
    uint32_t width;   ///< pixels
    uint32_t height;  ///< pixels
};
static_assert(offsetof(LumBufferFormat, height) == 4, "host layout");
static_assert(sizeof(LumBufferFormat) == 8, "host layout");

/// The buffer properties the host settled on for one port. Minimum size 40.
struct LumNodeSetBufferPropertiesInfo {
    uint32_t size;
    uint32_t reserved4;
    void* hNodeSession;
    void* reserved16;
    const LumBufferFormat* pFormat;
    void* reserved32;
};
static_assert(offsetof(LumNodeSetBufferPropertiesInfo, hNodeSession) == 8, "host layout");
static_assert(offsetof(LumNodeSetBufferPropertiesInfo, pFormat) == 24, "host layout");
static_assert(sizeof(LumNodeSetBufferPropertiesInfo) == 40, "host layout");
