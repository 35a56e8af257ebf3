#pragma once

#include <cerrno>
#include <cstdint>
#include <functional>
#include <string_view>

#include "desk/host/rules/node_call.h"
#include "host/lumresult.h"

namespace desk {

/// One service of the host: what it is called, in which phases a node may call it, what a failure of it
/// looks like unless the fault says otherwise, and whether the fault is asked at all.
struct Service {
    const char* name = nullptr;
    unsigned phases = 0;
    uint32_t failure = 0;
    bool canFail = true;
};

/// A node's destruction happens within its creation when that fails half-way; what is released then
/// is released in the creation's phase.
constexpr unsigned PhasesOfRelease = PhaseCreate | PhaseDestroy;

namespace service {
inline constexpr Service SetNodeInterface{"SetNodeInterface", PhaseInterface, LumResultFailure};
inline constexpr Service GetVendorTagBase{"GetVendorTagBase", PhaseCreate | PhaseQuery, LumResultFailure};
inline constexpr Service GetMetaData{"GetMetaData", PhaseQuery | PhaseSecondPass, LumResultFailure};
inline constexpr Service SetMetadata{"SetMetadata", PhaseCreate | PhaseQuery, LumResultFailure};
inline constexpr Service NotifyRequestDone{"NotifyRequestDone", PhaseFirstPass, LumResultFailure};
inline constexpr Service QueryRequestWindow{"QueryRequestWindow", PhaseFirstPass, LumResultFailure};
inline constexpr Service GetAlignment{"GetAlignment", PhaseQuery, LumResultFailure};
inline constexpr Service GetDateTime{"GetDateTime", PhaseCreate, LumResultFailure};
inline constexpr Service FOpen{"FOpen", PhaseCreate, LumResultFailure};
inline constexpr Service FClose{"FClose", PhasesOfRelease, LumResultFailure};
inline constexpr Service FWrite{"FWrite", PhaseSecondPass, 0};
inline constexpr Service VSNPrintF{"VSNPrintF", PhaseCreate | PhaseSecondPass, 0, false};
inline constexpr Service LibMapFullName{"LibMapFullName", PhaseCreate, LumResultFailure};
inline constexpr Service LibGetAddr{"LibGetAddr", PhaseCreate, LumResultFailure};
inline constexpr Service LibUnmap{"LibUnmap", PhasesOfRelease, LumResultFailure};
inline constexpr Service SetGrallocMetaData{"SetGrallocMetaData", PhaseSecondPass, LumResultFailure};
inline constexpr Service PropertyGet{"property_get", PhaseCreate, LumResultFailure};
inline constexpr Service LogSystem{"LogSystem", AnyCallback, LumResultFailure, false};
inline constexpr Service PosixMemalign{"posix_memalign", AnyPhase, ENOMEM};
inline constexpr Service Malloc{"malloc", AnyPhase, ENOMEM};
}  // namespace service

/// One call of a service, as a fault sees it.
struct HostCall {
    std::string_view service;  ///< Service::name
    /// What the call is about: "section/tag", a path, a symbol, a property, the number of a gralloc item;
    /// empty where there is nothing to tell apart.
    std::string_view subject;
    NodeCall caller;
};

/// Decides whether a call fails. `result` comes in as the service's usual failure and may be changed.
/// - Services with a result code return `result`; FWrite returns it as its count, posix_memalign as its
///   errno value. FClose and LibUnmap do their work first, so a fault leaves nothing behind.
/// - Services that return a pointer return null; property_get gives the fallback; GetAlignment and
///   GetDateTime leave what they were given.
/// - LogSystem and VSNPrintF cannot fail.
/// Called on the node's thread, from several at once when nodes run on several.
using Fault = std::function<bool(const HostCall& call, uint32_t& result)>;

}  // namespace desk
