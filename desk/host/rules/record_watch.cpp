#include "desk/host/rules/record_watch.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <string_view>
#include <vector>

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

struct WatchedList {
    const LumImageList* list;
    LumImageList expected;
    std::vector<int> handle;
};

void WatchLists(std::vector<WatchedList>& watched, LumImageList** lists, uint32_t count) {
    for (uint32_t i = 0; lists != nullptr && i < count; ++i) {
        if (lists[i] != nullptr) {
            watched.push_back({lists[i], *lists[i], WordsOf(lists[i]->firstImage.pNativeHandle)});
        }
    }
}

/// What the first pass of the running callback leaves in the dependency record.
void ExpectDependencies(LumDependencyInfo& expected, const LumNodeProcessRequestInfo& request,
                        const TagRegistry& tags) {
    const NodeCall& caller = CurrentCall();
    expected.hNodeSession = caller.node->session;
    expected.propertyCount = 1;
    expected.propertyIds[0] = tags.Id(TagOf(TagKind::Grid, *caller.node->variant));
    expected.propertyOffsets[0] = 0;
    expected.processSequenceId = 1;
    expected.inputBufferDependency = 1;
    expected.fenceCount = 0;
    for (uint32_t i = 0; request.inputImageLists != nullptr && i < request.inputCount; ++i) {
        const LumImageList* list = request.inputImageLists[i];
        if (list != nullptr && list->pFenceHandle != nullptr && list->pFenceSignaled != nullptr &&
            expected.fenceCount < LumMaxFences) {
            expected.pFenceHandles[expected.fenceCount] = list->pFenceHandle;
            expected.pFenceSignaled[expected.fenceCount] = list->pFenceSignaled;
            ++expected.fenceCount;
        }
    }
    // A request that follows its reference directly may run beside it.
    const uint64_t reference = caller.answeredReference;
    const bool follows = request.requestId > reference;
    const uint64_t distance = follows ? request.requestId - reference : request.requestId;
    if (distance > 1) {
        expected.sequentialExecution = 1;
    }
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

std::function<void(Contract&)> WatchQuery(const LumNodeQueryBufferInfo& info) {
    struct Port {
        LumOutputPortQueryInfo output;
        LumInputPortQueryInfo input;
        LumNodeBufferRequirement downstream;
    };
    std::vector<Port> ports;
    for (uint32_t i = 0; i < info.numOutputPorts; ++i) {
        const LumOutputPortQueryInfo& output = info.pOutputPortQueryInfo[i];
        ports.push_back({output, info.pInputOptions[i], *output.pDownstreamRequirement});
    }
    const auto ownPlanes = [](LumNodeBufferRequirement& expected, const LumNodeBufferRequirement& actual) {
        const LumNodeBufferRequirement before = expected;
        expected = actual;
        expected.format = before.format;
        // Only planes 0 and 1 are the node's to fill.
        std::copy(before.planeAlignment + 2, before.planeAlignment + LumMaxPlanes,
                  expected.planeAlignment + 2);
    };
    return [&info, before = info, ports, ownPlanes](Contract& contract) mutable {
        RequireRecord(contract, "LumNodeQueryBufferInfo", before, info);
        for (size_t i = 0; i < ports.size(); ++i) {
            auto& [output, input, downstream] = ports[i];
            ownPlanes(output.outputBufferOption, before.pOutputPortQueryInfo[i].outputBufferOption);
            ownPlanes(input.inputBufferOption, before.pInputOptions[i].inputBufferOption);
            RequireRecord(contract, "LumOutputPortQueryInfo", output, before.pOutputPortQueryInfo[i]);
            RequireRecord(contract, "LumInputPortQueryInfo", input, before.pInputOptions[i]);
            RequireRecord(contract, "the downstream requirement", downstream, *output.pDownstreamRequirement);
        }
    };
}

std::function<void(Contract&, const TagRegistry&, uint32_t result)> WatchRequest(
    const LumNodeProcessRequestInfo& request) {
    std::vector<WatchedList> lists;
    WatchLists(lists, request.inputImageLists, request.inputCount);
    WatchLists(lists, request.outputImageLists, request.outputCount);
    return [&request, expected = request, dependency = *request.pDependency, lists](
               Contract& contract, const TagRegistry& tags, uint32_t result) mutable {
        const NodeCall& caller = CurrentCall();
        const bool isLookAhead = caller.node->variant == Variant::LookAhead;
        if (caller.phase == PhaseSecondPass) {
            dependency.processingDone = 1;
            expected.lookAheadComplete = isLookAhead ? 1 : expected.lookAheadComplete;
        } else if (result == 0 && caller.node->variant) {
            ExpectDependencies(dependency, expected, tags);
            contract.Require(caller.windowQueries == 1, "calls QueryRequestWindow {} times; expected once",
                             caller.windowQueries);
            const unsigned notices = isLookAhead ? 1 : 0;
            contract.Require(caller.doneNotices == notices, "calls NotifyRequestDone {} times; expected {}",
                             caller.doneNotices, notices);
        }
        RequireRecord(contract, "LumNodeProcessRequestInfo", expected, request);
        RequireRecord(contract, "LumDependencyInfo", dependency, *expected.pDependency);
        for (const WatchedList& watched : lists) {
            RequireRecord(contract, "LumImageList", watched.expected, *watched.list);
            const native_handle_t* handle = watched.expected.firstImage.pNativeHandle;
            contract.Require(WordsOf(handle) == watched.handle, "changed the native handle of a buffer");
        }
    };
}

}  // namespace desk
