// The services that deal in vendor tags and requests, and the table that carries them to the library.

#include <algorithm>
#include <atomic>
#include <cstring>

#include "desk/host/services/host_services.h"

namespace desk {
namespace {

std::atomic<HostServices*> currentServices = nullptr;

constexpr uint32_t VendorTagBase = 0x80000000;
constexpr const char* NodeName = "com.oxa.node.dewarp";

uint32_t UnknownSlot() {
    HostServices::Current()->contract.Require(false,
                                              "calls a slot of the services table that it does not know");
    return LumResultFailure;
}

uint32_t GetMetadataSlot(LumMetadataInfo*) {
    HostServices::Current()->contract.Require(
        false, "calls GetMetadata through the table; expected LumNodeUtils::GetMetaData");
    return LumResultFailure;
}

/// The record of the pass that runs; elsewhere, where a call has no place, one that nobody reads.
PassRecord& PassOf(const NodeCall& caller) {
    static thread_local PassRecord unplaced;
    return caller.pass != nullptr ? *caller.pass : unplaced;
}

template <typename Bytes>
bool IsZero(const Bytes& bytes) {
    const auto* begin = reinterpret_cast<const unsigned char*>(&bytes);
    return std::all_of(begin, begin + sizeof(bytes), [](unsigned char byte) { return byte == 0; });
}

}  // namespace

HostServices::HostServices(std::ostream* logStream, const std::filesystem::path& systemLibraryDir,
                           const std::filesystem::path& dumpDir)
    : log(logStream), contract(log), files(dumpDir), libraries(systemLibraryDir, contract) {
    interface_.size = sizeof(interface_);
    auto* unknown = reinterpret_cast<void*>(&UnknownSlot);
    interface_.reservedSlot3 = unknown;
    std::fill(std::begin(interface_.reservedSlots5), std::end(interface_.reservedSlots5), unknown);
    std::fill(std::begin(interface_.reservedSlots17), std::end(interface_.reservedSlots17), unknown);
    interface_.GetMetadata = GetMetadataSlot;
    interface_.SetMetadata = [](LumMetadataInfo* info) { return Current()->SetMetadata(info); };
    interface_.GetVendorTagBase = [](LumVendorTagBaseInfo* info) {
        return Current()->GetVendorTagBase(info);
    };
    interface_.NotifyRequestDone = [](LumRequestDoneInfo* info) {
        return Current()->NotifyRequestDone(info);
    };
    interface_.QueryRequestWindow = [](void* session, LumRequestWindowInfo* window) {
        return Current()->QueryRequestWindow(session, window);
    };
    currentServices = this;
}

HostServices::~HostServices() {
    currentServices = nullptr;
}

HostServices* HostServices::Current() {
    return currentServices;
}

LumNodeInterface& HostServices::Interface() {
    return interface_;
}

void HostServices::RequireUse(const Service& service, const Tag& tag, unsigned tagPhases, const char* does) {
    const NodeCall& caller = CurrentCall();
    // Where the service itself has no place, that has been reported.
    const bool isPlaced = (tagPhases & caller.phase) != 0 || (service.phases & caller.phase) == 0;
    contract.Require(isPlaced, "{} {}, which has no place there", does, tag.FullName());
    const bool isOwn = !tag.variant || caller.node == nullptr || tag.variant == caller.node->variant;
    contract.Require(isOwn, "{} {}, which belongs to the other variant", does, tag.FullName());
}

bool HostServices::RequireSession(const char* service, const void* session) {
    const NodeState* node = CurrentCall().node;
    return contract.Require(node != nullptr && session == node->session,
                            "calls {} with a session that is not its own", service);
}

uint32_t HostServices::SetNodeInterface(LumNodeInterface* host, const char* nodeName, LumNodeInterface* copy,
                                        uint32_t* vendorTagBase) {
    uint32_t result = 0;
    const std::string_view name = nodeName != nullptr ? nodeName : "";
    const bool fails = Fails(service::SetNodeInterface, name, result);
    if (!RequireArguments(service::SetNodeInterface, {host, nodeName, copy, vendorTagBase})) {
        return LumResultInvalidArgument;
    }
    if (fails) {
        return result;
    }
    contract.Require(name == NodeName, "gives its name as \"{}\"; expected \"{}\"", name, NodeName);
    // A host's table may be longer than what the node has room for.
    std::memcpy(copy, host, std::min<size_t>(host->size, sizeof(*copy)));
    *vendorTagBase = VendorTagBase;
    return LumResultSuccess;
}

uint32_t HostServices::GetVendorTagBase(LumVendorTagBaseInfo* info) {
    const bool named = info != nullptr && info->pComponentName != nullptr && info->pTagName != nullptr;
    const std::string subject = named ? std::string(info->pComponentName) + "/" + info->pTagName : "";
    uint32_t result = 0;
    const bool fails = Fails(service::GetVendorTagBase, subject, result);
    if (!contract.Require(named, "looks up a vendor tag without saying which")) {
        return LumResultInvalidArgument;
    }
    contract.Require(info->size == sizeof(*info), "looks up {} with a record of size {}; expected {}",
                     subject, info->size, sizeof(*info));
    contract.Require(info->vendorTagBase == 0, "looks up {} with a record that is not zeroed", subject);
    if (fails) {
        return result;
    }
    const Tag* tag = tags.Find(info->pComponentName, info->pTagName);
    if (!contract.Require(tag != nullptr, "looks up the tag {}, which the host does not have", subject)) {
        return LumResultFailure;
    }
    RequireUse(service::GetVendorTagBase, *tag, tag->lookup, "looks up");
    info->vendorTagBase = tags.Id(*tag);
    return LumResultSuccess;
}

void* HostServices::GetMetaData(uint64_t requestId, uint32_t tagId, LumMetadataType type,
                                const LumNodeInterface* nodeInterface, void* session, uint32_t reserved) {
    const Tag* tag = tags.Resolve(tagId);
    const std::string subject = tag != nullptr ? tag->FullName() : fmt::format("tag {:#x}", tagId);
    uint32_t result = 0;
    const bool fails = Fails(service::GetMetaData, subject, result);
    contract.Require(
        nodeInterface != nullptr && std::memcmp(nodeInterface, &interface_, sizeof(interface_)) == 0,
        "reads {} through a services table that is not the host's", subject);
    contract.Require(reserved == 0, "reads {} with the reserved argument {}; expected 0", subject, reserved);
    if (!contract.Require(tag != nullptr, "reads the {}, which the host does not have", subject) ||
        !RequireSession("GetMetaData", session)) {
        return nullptr;
    }
    const NodeCall& caller = CurrentCall();
    RequireUse(service::GetMetaData, *tag, tag->read, "reads");
    contract.Require(tagId == tags.FlaggedId(*tag), "reads {} under the id {:#x}; expected {:#x}", subject,
                     tagId, tags.FlaggedId(*tag));
    contract.Require(type == tag->pool, "reads {} from the pool {}; expected {}", subject, unsigned{type},
                     unsigned{tag->pool});
    contract.Require(requestId == caller.requestId, "reads {} of request {}; expected {}", subject, requestId,
                     caller.requestId);
    return fails ? nullptr : metadata.Find(session, requestId, *tag);
}

bool HostServices::CheckPublication(const LumMetadataInfo& info, const Tag* tag) {
    if (!contract.Require(info.size == sizeof(info),
                          "publishes with a LumMetadataInfo of size {}; expected {}", info.size,
                          sizeof(info)) ||
        !contract.Require(info.tagCount == 1 && info.pTagIds != nullptr && info.pTagData != nullptr,
                          "publishes {} tags; expected one, with its payload", info.tagCount) ||
        !RequireSession("SetMetadata", info.hSession) ||
        !contract.Require(tag != nullptr, "publishes the tag {:#x}, which the host does not have",
                          info.pTagIds[0])) {
        return false;
    }
    const uint32_t tagId = info.pTagIds[0];
    const LumTagData& data = info.pTagData[0];
    const std::string subject = tag->FullName();
    RequireUse(service::SetMetadata, *tag, tag->write, "publishes");
    contract.Require(tagId == tags.FlaggedId(*tag), "publishes {} under the id {:#x}; expected {:#x}",
                     subject, tagId, tags.FlaggedId(*tag));
    contract.Require(info.metadataType == tag->pool, "publishes {} to the pool {}; expected {}", subject,
                     unsigned{info.metadataType}, unsigned{tag->pool});
    contract.Require(data.requestId == 0, "publishes {} for request {}; expected 0", subject, data.requestId);
    contract.Require(info.reserved4 == 0 && info.reserved20 == 0 && IsZero(info.reserved44) &&
                         data.reserved4 == 0 && IsZero(data.reserved32),
                     "publishes {} with reserved bytes that are not zero", subject);
    return contract.Require(data.size == sizeof(data),
                            "publishes {} with a LumTagData of size {}; expected {}", subject, data.size,
                            sizeof(data)) &&
           contract.Require(data.pData != nullptr && data.dataSize == tag->payloadSize,
                            "publishes {} with {} bytes; expected {}", subject, data.dataSize,
                            tag->payloadSize);
}

uint32_t HostServices::SetMetadata(const LumMetadataInfo* info) {
    const bool one = info != nullptr && info->tagCount == 1 && info->pTagIds != nullptr;
    const Tag* tag = one ? tags.Resolve(info->pTagIds[0]) : nullptr;
    uint32_t result = 0;
    const bool fails = Fails(service::SetMetadata, tag != nullptr ? tag->FullName() : "", result);
    if (!contract.Require(info != nullptr, "publishes with a null record") || !CheckPublication(*info, tag)) {
        return LumResultInvalidArgument;
    }
    if (fails) {
        return result;
    }
    metadata.Set(info->hSession, info->pTagData[0].requestId, *tag, info->pTagData[0].pData,
                 tag->payloadSize);
    return LumResultSuccess;
}

uint32_t HostServices::NotifyRequestDone(const LumRequestDoneInfo* info) {
    uint32_t result = 0;
    const bool fails = Fails(service::NotifyRequestDone, {}, result);
    const NodeCall& caller = CurrentCall();
    if (!contract.Require(info != nullptr, "calls NotifyRequestDone with a null record") ||
        !RequireSession("NotifyRequestDone", info->hNodeSession)) {
        return LumResultInvalidArgument;
    }
    contract.Require(info->size == sizeof(*info) && info->reserved4 == 0 && info->reserved24 == 0,
                     "calls NotifyRequestDone with a record of size {} or reserved bytes that are not zero",
                     info->size);
    contract.Require(info->requestId == caller.requestId, "says that request {} is done", info->requestId);
    ++PassOf(caller).doneNotices;
    return fails ? result : LumResultSuccess;
}

uint32_t HostServices::QueryRequestWindow(void* session, LumRequestWindowInfo* window) {
    uint32_t result = 0;
    const bool fails = Fails(service::QueryRequestWindow, {}, result);
    if (!contract.Require(window != nullptr, "calls QueryRequestWindow with a null record") ||
        !RequireSession("QueryRequestWindow", session)) {
        return LumResultInvalidArgument;
    }
    contract.Require(IsZero(*window), "calls QueryRequestWindow with a record that is not zeroed");
    const NodeCall& caller = CurrentCall();
    PassRecord& pass = PassOf(caller);
    ++pass.windowQueries;
    if (fails) {
        return result;
    }
    // The node has use for one field only; the rest is none of its business.
    std::memset(window, HostPattern, sizeof(*window));
    const NodeState& node = *caller.node;
    window->referenceRequestId = node.reference ? node.reference(caller.requestId) : node.lastRequest.load();
    pass.answeredReference = window->referenceRequestId;
    return LumResultSuccess;
}

}  // namespace desk
