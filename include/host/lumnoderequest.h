#pragma once

#include <cstddef>
#include <cstdint>

#include "host/lumimage.h"

/// Records of request processing.

constexpr uint32_t LumMaxProperties = 64;
constexpr uint32_t LumMaxFences = 8;

/// What one request waits for. Filled by the node's first pass. Bytes not named belong to the host.
struct LumDependencyInfo {
    uint8_t reserved0[8];
    void* hNodeSession;  ///< the host session of the node
    uint32_t propertyCount;
    uint32_t propertyIds[LumMaxProperties];
    uint32_t reserved276;
    uint64_t propertyOffsets[LumMaxProperties];  ///< request offsets; 0 is the request itself
    uint32_t processSequenceId;                  ///< only the low 16 bits count
    uint8_t reserved796[332];
    void* pFenceHandles[LumMaxFences];
    void* pFenceSignaled[LumMaxFences];  ///< in step with pFenceHandles
    uint32_t fenceCount;
    uint32_t sequentialExecution;    ///< 1: wait for the preceding request
    uint32_t processingDone;         ///< 1: the second pass has ended
    uint32_t inputBufferDependency;  ///< 1: the first pass has filled the dependencies
};
static_assert(offsetof(LumDependencyInfo, hNodeSession) == 8, "host layout");
static_assert(offsetof(LumDependencyInfo, propertyCount) == 16, "host layout");
static_assert(offsetof(LumDependencyInfo, propertyIds) == 20, "host layout");
static_assert(offsetof(LumDependencyInfo, propertyOffsets) == 280, "host layout");
static_assert(offsetof(LumDependencyInfo, processSequenceId) == 792, "host layout");
static_assert(offsetof(LumDependencyInfo, pFenceHandles) == 1128, "host layout");
static_assert(offsetof(LumDependencyInfo, pFenceSignaled) == 1192, "host layout");
static_assert(offsetof(LumDependencyInfo, fenceCount) == 1256, "host layout");
static_assert(offsetof(LumDependencyInfo, sequentialExecution) == 1260, "host layout");
static_assert(offsetof(LumDependencyInfo, processingDone) == 1264, "host layout");
static_assert(offsetof(LumDependencyInfo, inputBufferDependency) == 1268, "host layout");
static_assert(sizeof(LumDependencyInfo) == 1272, "host layout");

/// One pass of one request. Minimum size 104.
struct LumNodeProcessRequestInfo {
    uint32_t size;
    uint32_t reserved4;
    void* hNodeSession;
    uint64_t requestId;
    LumDependencyInfo* pDependency;
    uint32_t inputCount;
    uint32_t reserved36;
    LumImageList** inputImageLists;
    uint32_t outputCount;
    uint32_t reserved52;
    LumImageList** outputImageLists;
    uint8_t reserved64[28];
    uint32_t lookAheadComplete;  ///< set to 1 at the end of a look-ahead node's second pass
    uint8_t reserved96[8];
};
static_assert(offsetof(LumNodeProcessRequestInfo, hNodeSession) == 8, "host layout");
static_assert(offsetof(LumNodeProcessRequestInfo, requestId) == 16, "host layout");
static_assert(offsetof(LumNodeProcessRequestInfo, pDependency) == 24, "host layout");
static_assert(offsetof(LumNodeProcessRequestInfo, inputCount) == 32, "host layout");
static_assert(offsetof(LumNodeProcessRequestInfo, inputImageLists) == 40, "host layout");
static_assert(offsetof(LumNodeProcessRequestInfo, outputCount) == 48, "host layout");
static_assert(offsetof(LumNodeProcessRequestInfo, outputImageLists) == 56, "host layout");
static_assert(offsetof(LumNodeProcessRequestInfo, lookAheadComplete) == 92, "host layout");
static_assert(sizeof(LumNodeProcessRequestInfo) == 104, "host layout");

/// Argument of the host's NotifyRequestDone.
struct LumRequestDoneInfo {
    uint32_t size;  ///< 32
    uint32_t reserved4;
    void* hNodeSession;  ///< the host session of the node
    uint64_t requestId;
    uint64_t reserved24;
};
static_assert(offsetof(LumRequestDoneInfo, hNodeSession) == 8, "host layout");
static_assert(offsetof(LumRequestDoneInfo, requestId) == 16, "host layout");
static_assert(sizeof(LumRequestDoneInfo) == 32, "host layout");

/// Filled by the host's QueryRequestWindow; all zero on entry, no size field.
struct LumRequestWindowInfo {
    uint64_t reserved0[2];
    uint64_t referenceRequestId;
    uint64_t reserved24;
};
static_assert(offsetof(LumRequestWindowInfo, referenceRequestId) == 16, "host layout");
static_assert(sizeof(LumRequestWindowInfo) == 32, "host layout");

/// One point of a warp grid: input pixels about the input image's centre.
struct GridPoint {
    float x;
    float y;
};
static_assert(offsetof(GridPoint, y) == 4, "host layout");
static_assert(sizeof(GridPoint) == 8, "host layout");

constexpr uint32_t GridTransformCapacity = 3417;

/// Payload of the grid transform tags, produced by the stabiliser.
struct IPEICAGridTransform {
    uint32_t gridTransformEnable;  ///< 1: the grid is valid; anything else: unity
    uint32_t reserved4;
    GridPoint gridTransformArray[GridTransformCapacity];  ///< a node uses the first 945
    uint8_t reserved27344[36];
    uint32_t dumpValue0;  ///< printed in the grid dump's header only
    uint32_t dumpValue1;  ///< likewise
    uint32_t reserved27388;
};
static_assert(offsetof(IPEICAGridTransform, gridTransformArray) == 8, "host layout");
static_assert(offsetof(IPEICAGridTransform, dumpValue0) == 27380, "host layout");
static_assert(offsetof(IPEICAGridTransform, dumpValue1) == 27384, "host layout");
static_assert(sizeof(IPEICAGridTransform) == 27392, "host layout");
