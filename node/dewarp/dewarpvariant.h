#pragma once

#include "host/lumnode.h"
#include "node/dewarp/dewarplog.h"
#include "node/dewarp/dewarpstabilizationtype.h"
#include "node/dewarp/dewarpvendortags.h"

/// Everything in which the real-time and the look-ahead stabiliser differ by name or by text. The texts
/// are the system's own: where a row looks inconsistent with the other, log readers rely on it.
struct DewarpVariant {
    uint32_t nodeCaps;
    DewarpStabilizationType type;
    const char* lockName;
    const char* stabilizerSection;  ///< of "RequestedMargin" and "StabilizedOutputDims"
    const DewarpVendorTag& perspectiveTag;
    const DewarpVendorTag& gridTag;

    DewarpLogText perspectiveFound;
    DewarpLogText perspectiveMissing;
    DewarpLogText gridFound;
    DewarpLogText gridMissing;
    DewarpLogText dimsTagMissing;
    DewarpLogText dimsWriteFailed;
    DewarpLogText dimsWritten;
    DewarpLogText marginTagMissing;
    DewarpLogText marginMissing;
    DewarpLogText marginRead;
};

constexpr DewarpVariant g_realTimeVariant = {
    LumNodeCapsDewarpRealTime,
    DewarpStabilizationRealTime,
    "LUMDEWARPNODE_2",
    "org.tamo.camera.eisrealtime",
    g_perspectiveTag,
    g_gridTag,
    DEWARP_INFO_TEXT("[DEWARP_%d] ICA In Perspective Transform Vendor Tag Id EISV2"),
    DEWARP_ERROR_TEXT("[DEWARP_%d] Unable to get ICA In Perspective Transform Vendor Tag Id EISV2"),
    DEWARP_INFO_TEXT("[DEWARP_%d] ICA In Grid Transform Vendor Tag Id EISV2"),
    DEWARP_ERROR_TEXT("[DEWARP_%d] Unable to get ICA In Grid Transform Vendor Tag Id EISV2"),
    DEWARP_ERROR_TEXT("[DEWARP_%d] Failure to get tag"),
    DEWARP_ERROR_TEXT("[DEWARP_%d] Failure WriteEIsV2 Dims"),
    DEWARP_INFO_TEXT("[DEWARP_%d] WriteEIsV2 Dims [%d, %d]"),
    DEWARP_ERROR_TEXT("[DEWARP_%d] Failure in get EISV2 margin tag"),
    DEWARP_ERROR_TEXT("[DEWARP_%d] Failure in Retreiving EISV2 margin"),
    DEWARP_INFO_TEXT("[DEWARP_%d] EisV2 Margin = %f"),
};

constexpr DewarpVariant g_lookAheadVariant = {
    LumNodeCapsDewarpLookAhead,
    DewarpStabilizationLookAhead,
    "LUMDEWARPNODE_3",
    "org.tamo.camera.eislookahead",
    g_perspectiveLookAheadTag,
    g_gridLookAheadTag,
    DEWARP_INFO_TEXT("[DEWARP_%d] ICA In Perspective Transform Vendor Tag Id EISV3"),
    DEWARP_ERROR_TEXT("[DEWARP_%d] Unable to get ICA In Perspective Transform Vendor Tag Id EISV3"),
    DEWARP_INFO_TEXT("[DEWARP_%d] ICA In Grid Transform Vendor Tag Id EISV2"),
    DEWARP_ERROR_TEXT("[DEWARP_%d] Unable to get ICA In Grid Transform Vendor Tag Id EISV3"),
    DEWARP_ERROR_TEXT("[DEWARP_%d] Failure get to tag"),
    DEWARP_ERROR_TEXT("[DEWARP_%d] Failure WriteEIsV3 Dims"),
    DEWARP_INFO_TEXT("[DEWARP_%d] WriteEIsV3 Dims [%d, %d]"),
    DEWARP_ERROR_TEXT("[DEWARP_%d] Failure in EISV3 margin tag"),
    DEWARP_ERROR_TEXT("[DEWARP_%d] Failure in Retreiving EISV3 margin"),
    DEWARP_INFO_TEXT("[DEWARP_%d] EisV3 Margin = %f"),
};

/// The variant that a capability selects, by exact equality: both bits together select none.
constexpr const DewarpVariant* FindDewarpVariant(uint32_t nodeCaps) {
    return (nodeCaps == LumNodeCapsDewarpLookAhead)  ? &g_lookAheadVariant
           : (nodeCaps == LumNodeCapsDewarpRealTime) ? &g_realTimeVariant
                                                     : nullptr;
}
