#pragma once

#include <cstddef>
#include <cstdint>

#include "host/lummetadata.h"
#include "host/lumnodebuffer.h"
#include "host/lumnoderequest.h"

/// Records of the node boundary: the callback table, the node's lifetime and the host services table.
/// The host owns every record; a node reads or fills it during the call and keeps no pointer to it.
/// The one exception is LumNodeInterface, which the node copies.
/// Every record begins with `size`, the bytes the host built it with; a record smaller than the
/// minimum of its callback is refused with LumResultFailure before any other field is used.

/// Node capabilities: a mask in LumNodeCapsInfo, a single value in LumNodeCreateInfo.
enum LumNodeCaps : uint32_t {
    LumNodeCapsDewarpLookAhead = 128,  ///< look-ahead stabilisation (EIS V3)
    LumNodeCapsDewarpRealTime = 256    ///< real-time stabilisation (EIS V2)
};

/// What the library supports. Filled by DewarpNodeGetCaps. Minimum size 8.
struct LumNodeCapsInfo {
    uint32_t size;
    uint32_t nodeCapsMask;  ///< out
};
static_assert(offsetof(LumNodeCapsInfo, nodeCapsMask) == 4, "host layout");
static_assert(sizeof(LumNodeCapsInfo) == 8, "host layout");

/// One node instance to be made. Read and filled by DewarpNodeCreate. Minimum size 72.
struct LumNodeCreateInfo {
    uint32_t size;
    uint32_t reserved4;
    void* hSession;       ///< the host's session, passed back in every host operation that takes one
    void* phNodeSession;  ///< out: the new node's handle, on success
    uint32_t nodeId;      ///< kept by the node, not interpreted
    uint32_t reserved28;
    uint32_t nodeCaps;    ///< one LumNodeCaps value: the variant of this instance
    uint32_t nodeFlags;   ///< in and out: the node ORs bits for the host into it
    uint32_t instanceId;  ///< kept by the node, not interpreted
    uint8_t reserved44[28];
};
static_assert(offsetof(LumNodeCreateInfo, hSession) == 8, "host layout");
static_assert(offsetof(LumNodeCreateInfo, phNodeSession) == 16, "host layout");
static_assert(offsetof(LumNodeCreateInfo, nodeId) == 24, "host layout");
static_assert(offsetof(LumNodeCreateInfo, nodeCaps) == 32, "host layout");
static_assert(offsetof(LumNodeCreateInfo, nodeFlags) == 36, "host layout");
static_assert(offsetof(LumNodeCreateInfo, instanceId) == 40, "host layout");
static_assert(sizeof(LumNodeCreateInfo) == 72, "host layout");

/// One node instance to be destroyed. Read by DewarpNodeDestroy. Minimum size 16.
struct LumNodedestroyInfo {
    uint32_t size;
    uint32_t reserved4;
    void* hNodeSession;  ///< the node; null after it was destroyed
};
static_assert(offsetof(LumNodedestroyInfo, hNodeSession) == 8, "host layout");
static_assert(sizeof(LumNodedestroyInfo) == 16, "host layout");

/// The host services table: what a node may call. Slots are numbered from 0 at byte 16; a host's
/// table may be longer than the slots known here, hence the room for 32.
/// Threads: any, as long as the call is made inside one of the node's callbacks.
struct LumNodeInterface {
    uint32_t size;
    uint32_t majorVersion;
    uint32_t minorVersion;
    uint32_t reserved12;
    /// Slot 0. Metadata read; nodes reach it only through LumNodeUtils::GetMetaData.
    uint32_t (*GetMetadata)(LumMetadataInfo* info);
    /// Slot 1. Metadata write. Pointers in the record are used during the call only.
    uint32_t (*SetMetadata)(LumMetadataInfo* info);
    /// Slot 2. Resolves (section, tag name) to a tag id. Non-zero: the pair is unknown.
    uint32_t (*GetVendorTagBase)(LumVendorTagBaseInfo* info);
    void* reservedSlot3;
    /// Slot 4. A look-ahead node has taken a request over; the host may send the next one.
    uint32_t (*NotifyRequestDone)(LumRequestDoneInfo* info);
    void* reservedSlots5[11];
    /// Slot 16. Fills the window of requests in flight for the session.
    uint32_t (*QueryRequestWindow)(void* session, LumRequestWindowInfo* window);
    void* reservedSlots17[15];
};
static_assert(offsetof(LumNodeInterface, majorVersion) == 4, "host layout");
static_assert(offsetof(LumNodeInterface, minorVersion) == 8, "host layout");
static_assert(offsetof(LumNodeInterface, GetMetadata) == 16 + 0 * 8, "host layout");
static_assert(offsetof(LumNodeInterface, SetMetadata) == 16 + 1 * 8, "host layout");
static_assert(offsetof(LumNodeInterface, GetVendorTagBase) == 16 + 2 * 8, "host layout");
static_assert(offsetof(LumNodeInterface, NotifyRequestDone) == 16 + 4 * 8, "host layout");
static_assert(offsetof(LumNodeInterface, QueryRequestWindow) == 16 + 16 * 8, "host layout");
static_assert(sizeof(LumNodeInterface) == 16 + 32 * 8, "host layout");

/// The callback table that LumNodeEntry fills. The host sets `size` (at least 216) and the interface
/// version it implements; slots the node does not fill keep what the host put there.
/// Threads: the host's. Calls on different node instances may overlap. On one instance ProcRequest may
/// overlap itself, both passes in any mix: a first pass returns while another request renders, and second
/// passes render one after the other. Create, QueryBufferInfo, SetBufferInfo and Destroy stand alone.
struct LumNodeCallbacks {
    uint32_t size;
    uint32_t majorVersion;
    uint32_t minorVersion;
    uint32_t reserved12;
    /// Slot 0, any time. 0; 5 null record; 1 record too small.
    uint32_t (*GetCaps)(LumNodeCapsInfo* info);
    void* reservedSlot1;
    /// Slot 2, after SetNodeInterface. 0; 5 null record; 1 record too small or bring-up failed;
    /// 2 unknown capability; 8 out of memory; or a tag lookup's own result. On 1 from the tag lookup
    /// for the extra framework buffers the record still carries a live node.
    uint32_t (*Create)(LumNodeCreateInfo* info);
    /// Slot 3, last call on a node, when none of its requests is on its way. 0; 5 null record or handle;
    /// 1 record too small.
    uint32_t (*Destroy)(LumNodedestroyInfo* info);
    /// Slot 4, before streaming, as often as needed. 0; 5; 1 as above.
    uint32_t (*QueryBufferInfo)(LumNodeQueryBufferInfo* info);
    /// Slot 5, after QueryBufferInfo. 0; 5; 1 as above.
    uint32_t (*SetBufferInfo)(LumNodeSetBufferPropertiesInfo* info);
    /// Slot 6, twice per request: sequence 0 declares dependencies, sequence 1 renders, once the first has
    /// returned and what it declared is there. 0; 5; 1.
    uint32_t (*ProcRequest)(LumNodeProcessRequestInfo* info);
    /// Slot 7, once, before any node is created. The result of LumNodeUtils::SetNodeInterface.
    uint32_t (*SetNodeInterface)(LumNodeInterface* nodeInterface);
    void* reservedSlots8[14];
    /// Slot 22, any time. Always 0.
    uint32_t (*DumpCoreNodeConfig)(int32_t fd, uint32_t indent, void* reserved);
    void* reservedSlots23[2];
};
static_assert(offsetof(LumNodeCallbacks, majorVersion) == 4, "host layout");
static_assert(offsetof(LumNodeCallbacks, minorVersion) == 8, "host layout");
static_assert(offsetof(LumNodeCallbacks, GetCaps) == 16 + 0 * 8, "host layout");
static_assert(offsetof(LumNodeCallbacks, Create) == 16 + 2 * 8, "host layout");
static_assert(offsetof(LumNodeCallbacks, Destroy) == 16 + 3 * 8, "host layout");
static_assert(offsetof(LumNodeCallbacks, QueryBufferInfo) == 16 + 4 * 8, "host layout");
static_assert(offsetof(LumNodeCallbacks, SetBufferInfo) == 16 + 5 * 8, "host layout");
static_assert(offsetof(LumNodeCallbacks, ProcRequest) == 16 + 6 * 8, "host layout");
static_assert(offsetof(LumNodeCallbacks, SetNodeInterface) == 16 + 7 * 8, "host layout");
static_assert(offsetof(LumNodeCallbacks, DumpCoreNodeConfig) == 16 + 22 * 8, "host layout");
static_assert(sizeof(LumNodeCallbacks) == 216, "host layout");

extern "C" {
/// The library's one export: checks the host's table and fills it. A refused table is left as it was.
__attribute__((visibility("default"))) void LumNodeEntry(LumNodeCallbacks* callbacks);
}
