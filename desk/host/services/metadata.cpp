#include "desk/host/services/metadata.h"

#include <fmt/core.h>

#include <algorithm>
#include <iterator>
#include <string>

#include "desk/host/services/host_state.h"

namespace desk {
namespace {

constexpr uint32_t VendorTagBase = 0x80000000;
constexpr const char* NodeName = "com.oxa.node.dewarp";

template <typename Bytes>
bool IsZero(const Bytes& bytes) {
    const auto* begin = reinterpret_cast<const unsigned char*>(&bytes);
    return std::all_of(begin, begin + sizeof(bytes), [](unsigned char byte) { return byte == 0; });
}

/// Reports a tag used in a phase or by a variant that it is not for; `does` is the verb.
void RequireUse(const ServiceCall& call, const Tag& tag, unsigned tagPhases, const char* does) {
    const NodeCall& caller = CurrentCall();
    // Where the service itself has no place, that has been reported.
    const bool isPlaced = (tagPhases & caller.phase) != 0 || (call.service.phases & caller.phase) == 0;
    call->contract.Require(isPlaced, "{} {}, which has no place there", does, tag.FullName());
    const bool isOwn = !tag.variant || caller.node == nullptr || tag.variant == caller.node->variant;
    call->contract.Require(isOwn, "{} {}, which belongs to the other variant", does, tag.FullName());
}

/// Reports a wrong id or pool of a metadata access.
void RequireAccess(const ServiceCall& call, const Tag& tag, uint32_t tagId, LumMetadataType pool,
                   const char* does, const char* to) {
    const uint32_t expected = call->tags.Id(tag) | tag.flag;
    call->contract.Require(tagId == expected, "{} {} under the id {:#x}; expected {:#x}", does,
                           tag.FullName(), tagId, expected);
    call->contract.Require(pool == tag.pool, "{} {} {} the pool {}; expected {}", does, tag.FullName(), to,
                           unsigned{pool}, unsigned{tag.pool});
}

/// Whether the record can be served; `tag` is the published one, null when it cannot be told.
bool CheckPublication(const ServiceCall& call, const LumMetadataInfo& info, const Tag* tag) {
    Contract& contract = call->contract;
    if (!contract.Require(info.size == sizeof(info),
                          "publishes with a LumMetadataInfo of size {}; expected {}", info.size,
                          sizeof(info)) ||
        !contract.Require(info.tagCount == 1 && info.pTagIds != nullptr && info.pTagData != nullptr,
                          "publishes {} tags; expected one, with its payload", info.tagCount) ||
        !call.NeedsOwn(info.hSession) ||
        !contract.Require(tag != nullptr, "publishes the tag {:#x}, which the host does not have",
                          info.pTagIds[0])) {
        return false;
    }
    const LumTagData& data = info.pTagData[0];
    const std::string subject = tag->FullName();
    RequireUse(call, *tag, tag->write, "publishes");
    RequireAccess(call, *tag, info.pTagIds[0], info.metadataType, "publishes", "to");
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

uint32_t GetVendorTagBase(LumVendorTagBaseInfo* info) {
    const bool named = info != nullptr && info->pComponentName != nullptr && info->pTagName != nullptr;
    const std::string subject = named ? std::string(info->pComponentName) + "/" + info->pTagName : "";
    const ServiceCall call(service::GetVendorTagBase, subject);
    if (!call.Needs({info}) || !call->contract.Require(named, "looks up a vendor tag without saying which")) {
        return LumResultInvalidArgument;
    }
    Contract& contract = call->contract;
    contract.Require(info->size == sizeof(*info), "looks up {} with a record of size {}; expected {}",
                     subject, info->size, sizeof(*info));
    contract.Require(info->vendorTagBase == 0, "looks up {} with a record that is not zeroed", subject);
    if (call.fails) {
        return call.result;
    }
    const Tag* tag = call->tags.Find(info->pComponentName, info->pTagName);
    if (!contract.Require(tag != nullptr, "looks up the tag {}, which the host does not have", subject)) {
        return LumResultFailure;
    }
    RequireUse(call, *tag, tag->lookup, "looks up");
    info->vendorTagBase = call->tags.Id(*tag);
    return LumResultSuccess;
}

uint32_t SetMetadata(LumMetadataInfo* info) {
    const HostState* host = HostState::Current();
    const bool one = host != nullptr && info != nullptr && info->tagCount == 1 && info->pTagIds != nullptr;
    const Tag* tag = one ? host->tags.Resolve(info->pTagIds[0]) : nullptr;
    const ServiceCall call(service::SetMetadata, tag != nullptr ? tag->FullName() : "");
    if (!call.Needs({info}) || info == nullptr || !CheckPublication(call, *info, tag) || tag == nullptr) {
        return LumResultInvalidArgument;
    }
    if (call.fails) {
        return call.result;
    }
    const LumTagData& data = info->pTagData[0];
    call->metadata.Set(info->hSession, data.requestId, *tag, data.pData, tag->payloadSize);
    return LumResultSuccess;
}

uint32_t NotifyRequestDone(LumRequestDoneInfo* info) {
    const ServiceCall call(service::NotifyRequestDone);
    if (!call.Needs({info}) || !call.NeedsOwn(info->hNodeSession)) {
        return LumResultInvalidArgument;
    }
    call->contract.Require(
        info->size == sizeof(*info) && info->reserved4 == 0 && info->reserved24 == 0,
        "calls NotifyRequestDone with a record of size {} or reserved bytes that are not zero", info->size);
    call->contract.Require(info->requestId == CurrentCall().requestId, "says that request {} is done",
                           info->requestId);
    ++CurrentCall().doneNotices;
    return call.fails ? call.result : LumResultSuccess;
}

uint32_t QueryRequestWindow(void* session, LumRequestWindowInfo* window) {
    const ServiceCall call(service::QueryRequestWindow);
    if (!call.Needs({window}) || !call.NeedsOwn(session)) {
        return LumResultInvalidArgument;
    }
    call->contract.Require(IsZero(*window), "calls QueryRequestWindow with a record that is not zeroed");
    NodeCall& caller = CurrentCall();
    ++caller.windowQueries;
    if (call.fails) {
        return call.result;
    }
    // The node has use for one field only; the rest is none of its business.
    *window = Patterned<LumRequestWindowInfo>();
    const NodeState& node = *caller.node;
    window->referenceRequestId = node.reference ? node.reference(caller.requestId) : node.lastRequest.load();
    caller.answeredReference = window->referenceRequestId;
    return LumResultSuccess;
}

}  // namespace

void Metadata::Set(const void* session, uint64_t requestId, const Tag& tag, const void* data, size_t size) {
    const auto* bytes = static_cast<const std::byte*>(data);
    sessions_.With([&](auto& sessions) { sessions[session][{requestId, &tag}].assign(bytes, bytes + size); });
}

void* Metadata::Find(const void* session, uint64_t requestId, const Tag& tag) {
    return sessions_.With([&](auto& sessions) -> void* {
        const auto found = sessions[session].find({requestId, &tag});
        return found == sessions[session].end() ? nullptr : found->second.data();
    });
}

void Metadata::Remove(const void* session, uint64_t requestId, const Tag& tag) {
    sessions_.With([&](auto& sessions) { sessions[session].erase({requestId, &tag}); });
}

void Metadata::RemoveSession(const void* session) {
    sessions_.With([&](auto& sessions) { sessions.erase(session); });
}

LumNodeInterface ServicesTable() {
    LumNodeInterface table = {};
    table.size = sizeof(table);
    const auto unknownSlot = []() -> uint32_t {
        HostState::Current()->contract.Require(false,
                                               "calls a slot of the services table that it does not know");
        return LumResultFailure;
    };
    auto* unknown = reinterpret_cast<void*>(static_cast<uint32_t (*)()>(unknownSlot));
    table.reservedSlot3 = unknown;
    std::fill(std::begin(table.reservedSlots5), std::end(table.reservedSlots5), unknown);
    std::fill(std::begin(table.reservedSlots17), std::end(table.reservedSlots17), unknown);
    table.GetMetadata = [](LumMetadataInfo*) -> uint32_t {
        HostState::Current()->contract.Require(
            false, "calls GetMetadata through the table; expected LumNodeUtils::GetMetaData");
        return LumResultFailure;
    };
    table.SetMetadata = SetMetadata;
    table.GetVendorTagBase = GetVendorTagBase;
    table.NotifyRequestDone = NotifyRequestDone;
    table.QueryRequestWindow = QueryRequestWindow;
    return table;
}

}  // namespace desk

void* LumNodeUtils::GetMetaData(uint64_t requestId, uint32_t tagId, LumMetadataType type,
                                LumNodeInterface* nodeInterface, void* session, uint32_t reserved) {
    using namespace desk;
    const HostState* host = HostState::Current();
    const Tag* tag = host != nullptr ? host->tags.Resolve(tagId) : nullptr;
    const std::string subject = tag != nullptr ? tag->FullName() : fmt::format("tag {:#x}", tagId);
    const ServiceCall call(service::GetMetaData, subject);
    if (!call.Needs({nodeInterface})) {
        return nullptr;
    }
    Contract& contract = call->contract;
    contract.Require(std::memcmp(nodeInterface, &call->table, sizeof(call->table)) == 0,
                     "reads {} through a services table that is not the host's", subject);
    contract.Require(reserved == 0, "reads {} with the reserved argument {}; expected 0", subject, reserved);
    if (!contract.Require(tag != nullptr, "reads the {}, which the host does not have", subject) ||
        !call.NeedsOwn(session)) {
        return nullptr;
    }
    RequireUse(call, *tag, tag->read, "reads");
    RequireAccess(call, *tag, tagId, type, "reads", "from");
    const uint64_t expected = CurrentCall().requestId;
    contract.Require(requestId == expected, "reads {} of request {}; expected {}", subject, requestId,
                     expected);
    return call.fails ? nullptr : call->metadata.Find(session, requestId, *tag);
}

uint32_t LumNodeUtils::SetNodeInterface(LumNodeInterface* host, const char* nodeName, LumNodeInterface* copy,
                                        uint32_t* vendorTagBase) {
    using namespace desk;
    const std::string_view name = TextOf(nodeName);
    const ServiceCall call(service::SetNodeInterface, name);
    if (!call.Needs({host, nodeName, copy, vendorTagBase})) {
        return LumResultInvalidArgument;
    }
    if (call.fails) {
        return call.result;
    }
    call->contract.Require(name == NodeName, "gives its name as \"{}\"; expected \"{}\"", name, NodeName);
    // A host's table may be longer than what the node has room for.
    std::memcpy(copy, host, std::min<size_t>(host->size, sizeof(*copy)));
    *vendorTagBase = VendorTagBase;
    return LumResultSuccess;
}
