#pragma once

#include <cstdint>

#include "host/lumnoderequest.h"

/// One vendor tag known to the node. The id that is used is resolved per node instance; the slot here
/// stays 0.
struct DewarpVendorTag {
    const char* pTagName;
    uint32_t tagId;
    uint64_t payloadSize;  ///< bytes
};

constexpr const char* g_transformSection = "org.tamo.camera2.ipeicaconfigs";
constexpr const char* g_streamTypeSection = "org.tamo.camera.streamTypePresent";

// The look-ahead names differ in the case of one letter; both are the host's.
constexpr DewarpVendorTag g_perspectiveLookAheadTag = {"ICAInPerspectiveTransformLookAhead", 0, 360};
constexpr DewarpVendorTag g_perspectiveTag = {"ICAInPerspectiveTransform", 0, 360};
constexpr DewarpVendorTag g_extraFrameworkBuffersTag = {"ExtraFrameworkBuffers", 0, 4};
constexpr DewarpVendorTag g_gridLookAheadTag = {"ICAInGridTransformLookahead", 0, 27392};
constexpr DewarpVendorTag g_gridTag = {"ICAInGridTransform", 0, 27392};
constexpr DewarpVendorTag g_previewTag = {"preview", 0, 1};

static_assert(sizeof(IPEICAGridTransform) == g_gridTag.payloadSize, "the payload that the grid tags carry");
