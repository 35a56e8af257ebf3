#include "desk/host/rules/record_watch.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <string_view>

namespace desk {
namespace {

/// One named field of a record.
struct RecordField {
    std::string_view record;
    const char* name;
    size_t offset;
    size_t size;
};

// Spares the table below from writing each name three times.
#define DESK_FIELD(record, field) \
    { #record, #field, offsetof(record, field), sizeof(record::field) }

/// The fields of the records that a node gets to see. Bytes without a name belong to the host.
constexpr RecordField Fields[] = {DESK_FIELD(LumNodeCreateInfo, hSession),
                                  DESK_FIELD(LumNodeCreateInfo, phNodeSession),
                                  DESK_FIELD(LumNodeCreateInfo, nodeId),
                                  DESK_FIELD(LumNodeCreateInfo, nodeCaps),
                                  DESK_FIELD(LumNodeCreateInfo, nodeFlags),
                                  DESK_FIELD(LumNodeCreateInfo, instanceId),
                                  DESK_FIELD(LumNodeProcessRequestInfo, requestId),
                                  DESK_FIELD(LumNodeProcessRequestInfo, pDependency),
                                  DESK_FIELD(LumNodeProcessRequestInfo, inputCount),
                                  DESK_FIELD(LumNodeProcessRequestInfo, inputImageLists),
                                  DESK_FIELD(LumNodeProcessRequestInfo, outputCount),
                                  DESK_FIELD(LumNodeProcessRequestInfo, outputImageLists),
                                  DESK_FIELD(LumNodeProcessRequestInfo, lookAheadComplete),
                                  DESK_FIELD(LumDependencyInfo, hNodeSession),
                                  DESK_FIELD(LumDependencyInfo, propertyCount),
                                  DESK_FIELD(LumDependencyInfo, propertyIds),
                                  DESK_FIELD(LumDependencyInfo, propertyOffsets),
                                  DESK_FIELD(LumDependencyInfo, processSequenceId),
                                  DESK_FIELD(LumDependencyInfo, pFenceHandles),
                                  DESK_FIELD(LumDependencyInfo, pFenceSignaled),
                                  DESK_FIELD(LumDependencyInfo, fenceCount),
                                  DESK_FIELD(LumDependencyInfo, sequentialExecution),
                                  DESK_FIELD(LumDependencyInfo, processingDone),
                                  DESK_FIELD(LumDependencyInfo, inputBufferDependency),
                                  DESK_FIELD(LumImageList, format),
                                  DESK_FIELD(LumImageList, width),
                                  DESK_FIELD(LumImageList, height),
                                  DESK_FIELD(LumImageList, stride),
                                  DESK_FIELD(LumImageList, scanline),
                                  DESK_FIELD(LumImageList, firstImage),
                                  DESK_FIELD(LumImageList, pFenceHandle),
                                  DESK_FIELD(LumImageList, pFenceSignaled)};
#undef DESK_FIELD

std::vector<int> WordsOf(const native_handle_t* handle) {
    if (handle == nullptr) {
        return {};
    }
    std::vector<int> words = {handle->version, handle->numFds, handle->numInts};
    words.insert(words.end(), handle->data, handle->data + handle->numFds + handle->numInts);
    return words;
}

uint64_t ValueAt(const void* record, size_t offset, size_t size) {
    uint64_t value = 0;
    std::memcpy(&value, static_cast<const char*>(record) + offset, size);
    return value;
}

}  // namespace

void RequireBytes(Contract& contract, const char* record, const void* expected, const void* actual,
                  size_t size) {
    if (std::memcmp(expected, actual, size) == 0) {
        return;
    }
    const auto* wanted = static_cast<const unsigned char*>(expected);
    const auto offset = static_cast<size_t>(
        std::mismatch(wanted, wanted + size, static_cast<const unsigned char*>(actual)).first - wanted);
    const auto* field = std::find_if(std::begin(Fields), std::end(Fields), [&](const RecordField& known) {
        return known.record == record && offset >= known.offset && offset < known.offset + known.size;
    });
    if (field == std::end(Fields)) {
        contract.Require(false, "changed byte {} of {}, which belongs to the host", offset, record);
        return;
    }
    const size_t width = field->size % sizeof(uint64_t) == 0 ? sizeof(uint64_t) : sizeof(uint32_t);
    const size_t start = field->offset + (offset - field->offset) / width * width;
    contract.Require(false, "leaves {:#x} in {}.{} (byte {}); expected {:#x}", ValueAt(actual, start, width),
                     record, field->name, start, ValueAt(expected, start, width));
}

void CheckCreation(Contract& contract, const LumNodeCreateInfo& before, const LumNodeCreateInfo& after,
                   uint32_t result) {
    constexpr uint32_t NodeFlags = 0x20 | 0x40;
    LumNodeCreateInfo expected = before;
    expected.phNodeSession = after.phNodeSession;
    // A creation may fail before or after it has set its flags.
    expected.nodeFlags = result == 0 ? before.nodeFlags | NodeFlags : after.nodeFlags;
    RequireRecord(contract, "LumNodeCreateInfo", expected, after);
}

QueryWatch::QueryWatch(const LumNodeQueryBufferInfo& info) : info_(info), expected_(info) {
    for (uint32_t i = 0; i < info.numOutputPorts; ++i) {
        outputs_.push_back(info.pOutputPortQueryInfo[i]);
        inputs_.push_back(info.pInputOptions[i]);
        downstream_.push_back(*info.pOutputPortQueryInfo[i].pDownstreamRequirement);
    }
}

void QueryWatch::Check(Contract& contract) {
    const auto ownPlanes = [](LumNodeBufferRequirement& expected, const LumNodeBufferRequirement& actual) {
        const LumFormat format = expected.format;
        const LumNodeBufferRequirement before = expected;
        expected = actual;
        expected.format = format;
        // Only planes 0 and 1 are the node's to fill.
        std::copy(before.planeAlignment + 2, before.planeAlignment + LumMaxPlanes,
                  expected.planeAlignment + 2);
    };
    RequireRecord(contract, "LumNodeQueryBufferInfo", expected_, info_);
    for (size_t i = 0; i < outputs_.size(); ++i) {
        const LumOutputPortQueryInfo& output = expected_.pOutputPortQueryInfo[i];
        const LumInputPortQueryInfo& input = expected_.pInputOptions[i];
        ownPlanes(outputs_[i].outputBufferOption, output.outputBufferOption);
        ownPlanes(inputs_[i].inputBufferOption, input.inputBufferOption);
        RequireRecord(contract, "LumOutputPortQueryInfo", outputs_[i], output);
        RequireRecord(contract, "LumInputPortQueryInfo", inputs_[i], input);
        RequireRecord(contract, "the downstream requirement", downstream_[i],
                      *outputs_[i].pDownstreamRequirement);
    }
}

RequestWatch::RequestWatch(const LumNodeProcessRequestInfo& request)
    : request_(request), expected_(request), dependency_(*request.pDependency) {
    WatchLists(request.inputImageLists, request.inputCount);
    WatchLists(request.outputImageLists, request.outputCount);
}

void RequestWatch::WatchLists(LumImageList** lists, uint32_t count) {
    for (uint32_t i = 0; lists != nullptr && i < count; ++i) {
        if (lists[i] != nullptr) {
            lists_.push_back({lists[i], *lists[i], WordsOf(lists[i]->firstImage.pNativeHandle)});
        }
    }
}

void RequestWatch::ExpectDependencies(const NodeCall& caller, const TagRegistry& tags) {
    dependency_.hNodeSession = caller.node->session;
    dependency_.propertyCount = 1;
    dependency_.propertyIds[0] = tags.Id(GridTag(*caller.node->variant));
    dependency_.propertyOffsets[0] = 0;
    dependency_.processSequenceId = 1;
    dependency_.inputBufferDependency = 1;
    dependency_.fenceCount = 0;
    for (uint32_t i = 0; expected_.inputImageLists != nullptr && i < expected_.inputCount; ++i) {
        const LumImageList* list = expected_.inputImageLists[i];
        if (list != nullptr && list->pFenceHandle != nullptr && list->pFenceSignaled != nullptr &&
            dependency_.fenceCount < LumMaxFences) {
            dependency_.pFenceHandles[dependency_.fenceCount] = list->pFenceHandle;
            dependency_.pFenceSignaled[dependency_.fenceCount] = list->pFenceSignaled;
            ++dependency_.fenceCount;
        }
    }
    // A request that follows its reference directly may run beside it.
    const uint64_t reference = caller.pass->answeredReference;
    const bool follows = expected_.requestId > reference;
    const uint64_t distance = follows ? expected_.requestId - reference : expected_.requestId;
    if (distance > 1) {
        dependency_.sequentialExecution = 1;
    }
}

void RequestWatch::CheckFirstPass(Contract& contract, const TagRegistry& tags, uint32_t result) {
    const NodeCall& caller = CurrentCall();
    if (result == 0 && caller.node->variant) {
        ExpectDependencies(caller, tags);
        const PassRecord& pass = *caller.pass;
        contract.Require(pass.windowQueries == 1, "calls QueryRequestWindow {} times; expected once",
                         pass.windowQueries);
        const unsigned notices = caller.node->variant == Variant::LookAhead ? 1 : 0;
        contract.Require(pass.doneNotices == notices, "calls NotifyRequestDone {} times; expected {}",
                         pass.doneNotices, notices);
    }
    CheckRecords(contract);
}

void RequestWatch::CheckSecondPass(Contract& contract) {
    dependency_.processingDone = 1;
    if (CurrentCall().node->variant == Variant::LookAhead) {
        expected_.lookAheadComplete = 1;
    }
    CheckRecords(contract);
}

void RequestWatch::CheckRecords(Contract& contract) const {
    RequireRecord(contract, "LumNodeProcessRequestInfo", expected_, request_);
    RequireRecord(contract, "LumDependencyInfo", dependency_, *expected_.pDependency);
    for (const WatchedList& watched : lists_) {
        RequireRecord(contract, "LumImageList", watched.expected, *watched.list);
        const native_handle_t* handle = watched.expected.firstImage.pNativeHandle;
        contract.Require(WordsOf(handle) == watched.handle, "changed the native handle of a buffer");
    }
}

}  // namespace desk
