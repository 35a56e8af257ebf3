#pragma once

#include <cstddef>
#include <cstdint>

/// Metadata pool selector. What each value selects is the host's convention.
enum LumMetadataType : uint32_t {
    LumMetadataTypeUnset = 0,     ///< the extra framework buffers are published with this value
    LumMetadataTypeVendorTag = 2  ///< every other metadata access of a dewarp node
};

/// Flag bits of the host, ORed into resolved tag ids.
constexpr uint32_t LumTagFlagStabilizer = 0x04000000;    ///< tags of the two stabiliser sections
constexpr uint32_t LumTagFlagExtraBuffers = 0x20000000;  ///< the published "ExtraFrameworkBuffers"

/// Resolves one vendor tag. The caller zeroes the record and sets size to 24 and both names.
struct LumVendorTagBaseInfo {
    uint32_t size;
    uint32_t vendorTagBase;      ///< out: the tag id, when the lookup succeeded
    const char* pComponentName;  ///< section name
    const char* pTagName;
};
static_assert(offsetof(LumVendorTagBaseInfo, vendorTagBase) == 4, "host layout");
static_assert(offsetof(LumVendorTagBaseInfo, pComponentName) == 8, "host layout");
static_assert(offsetof(LumVendorTagBaseInfo, pTagName) == 16, "host layout");
static_assert(sizeof(LumVendorTagBaseInfo) == 24, "host layout");

/// One tag's payload. Owned by the caller, used during the call only.
struct LumTagData {
    uint32_t size;  ///< 48
    uint32_t reserved4;
    uint64_t requestId;  ///< 0: not tied to a request
    const void* pData;
    uint64_t dataSize;  ///< bytes at pData
    uint8_t reserved32[16];
};
static_assert(offsetof(LumTagData, requestId) == 8, "host layout");
static_assert(offsetof(LumTagData, pData) == 16, "host layout");
static_assert(offsetof(LumTagData, dataSize) == 24, "host layout");
static_assert(sizeof(LumTagData) == 48, "host layout");

/// One metadata access of a session: tagCount ids and payloads.
struct LumMetadataInfo {
    uint32_t size;  ///< 56
    uint32_t reserved4;
    void* hSession;
    uint32_t tagCount;
    uint32_t reserved20;
    const uint32_t* pTagIds;
    const LumTagData* pTagData;
    LumMetadataType metadataType;
    uint8_t reserved44[12];
};
static_assert(offsetof(LumMetadataInfo, hSession) == 8, "host layout");
static_assert(offsetof(LumMetadataInfo, tagCount) == 16, "host layout");
static_assert(offsetof(LumMetadataInfo, pTagIds) == 24, "host layout");
static_assert(offsetof(LumMetadataInfo, pTagData) == 32, "host layout");
static_assert(offsetof(LumMetadataInfo, metadataType) == 40, "host layout");
static_assert(sizeof(LumMetadataInfo) == 56, "host layout");

/// Payload of "StabilizedOutputDims".
struct LumStabilizedOutputDims {
    uint32_t width;   ///< pixels
    uint32_t height;  ///< pixels
};
static_assert(offsetof(LumStabilizedOutputDims, height) == 4, "host layout");
static_assert(sizeof(LumStabilizedOutputDims) == 8, "host layout");

/// Payload of "RequestedMargin": fractions of the output's width and height.
struct LumStabilizationMargin {
    float horizontal;
    float vertical;
};
static_assert(offsetof(LumStabilizationMargin, vertical) == 4, "host layout");
static_assert(sizeof(LumStabilizationMargin) == 8, "host layout");
