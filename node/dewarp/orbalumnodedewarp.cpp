#include "node/dewarp/orbalumnodedewarp.h"

#include <cstring>

#include "host/lumnodeutils.h"
#include "host/lumresult.h"
#include "node/dewarp/dewarpdump.h"
#include "node/dewarp/dewarplog.h"
#include "node/dewarp/dewarpvariant.h"
#include "node/dewarp/dewarpvendortags.h"
#include "node/dewarp/gpu/gpuopengl.h"
#include "utils/checked.h"
#include "utils/orbamemory.h"

namespace {

/// The one copy of the host services table, written before any node exists, and the host's tag base.
LumNodeInterface g_nodeInterface;
uint32_t g_nodeVendorTagBase;

constexpr uint32_t ExtraFrameworkBuffers = 4;
constexpr uint32_t GridPointsUsed = 945;  ///< 35 x 27, what the engine's mesh reads

/// Writes one request-less payload into the session's metadata. Returns the host's result.
uint32_t PublishMetadata(void* hSession, uint32_t tagId, LumMetadataType type, const void* pPayload,
                         uint64_t payloadSize) {
    LumTagData tagData = {};
    tagData.size = sizeof(tagData);
    tagData.pData = pPayload;
    tagData.dataSize = payloadSize;
    LumMetadataInfo metadata = {};
    metadata.size = sizeof(metadata);
    metadata.hSession = hSession;
    metadata.tagCount = 1;
    metadata.pTagIds = &tagId;
    metadata.pTagData = &tagData;
    metadata.metadataType = type;
    return g_nodeInterface.SetMetadata(&metadata);
}

/// Appends one grid as one line. The caller has checked that the file is open and the grid enabled.
void WriteGridToFile(FILE* pFile, const IPEICAGridTransform* pGrid, uint64_t requestId) {
    DewarpDumpLine line;
    line.Append("Frame %lu, %u, %u, ", requestId, pGrid->dumpValue0, pGrid->dumpValue1);
    constexpr uint32_t last = GridPointsUsed - 1;
    for (uint32_t i = 0; i < last; ++i) {
        const GridPoint& point = pGrid->gridTransformArray[Orba::CheckedIndex(i, GridTransformCapacity)];
        line.Append("%4.4lf, %4.4lf, ", static_cast<double>(point.x), static_cast<double>(point.y));
    }
    const GridPoint& point = pGrid->gridTransformArray[last];
    line.Append("%4.4lf, %4.4lf \n", static_cast<double>(point.x), static_cast<double>(point.y));
    if (line.Write(pFile)) {
        DEWARP_VERBOSE("%zd byte successfully written to file", line.Length());
    } else {
        DEWARP_ERROR("File write failed !");
    }
}

// ---- Callbacks: each checks its record and forwards to the node that the record names. ----

template <typename Record>
bool IsMissing(const Record* pRecord) {
    return pRecord == nullptr || pRecord->hNodeSession == nullptr;
}
bool IsMissing(const LumNodeCapsInfo* pRecord) {
    return pRecord == nullptr;
}
bool IsMissing(const LumNodeCreateInfo* pRecord) {
    return pRecord == nullptr;
}

/// Refuses a record that is missing or names no node, then one smaller than this library knows.
template <typename Record>
uint32_t CheckRecord(const char* callback, const Record* pRecord, const DewarpLogText& missing,
                     const DewarpLogText& tooSmall) {
    if (IsMissing(pRecord)) {
        DEWARP_ERROR_CHOSEN(callback, missing);
        return LumResultInvalidArgument;
    }
    if (pRecord->size < sizeof(Record)) {
        DEWARP_ERROR_CHOSEN(callback, tooSmall);
        return LumResultFailure;
    }
    return LumResultSuccess;
}

/// Checks a record and has the node that it names answer it.
template <typename Record, typename Answer>
uint32_t Forward(const char* callback, Record* pRecord, Answer answer, const DewarpLogText& tooSmall) {
    const uint32_t result = CheckRecord(callback, pRecord, DEWARP_ERROR_TEXT("Invalid argument"), tooSmall);
    return (result == LumResultSuccess)
               ? (static_cast<LumDewarpNode*>(pRecord->hNodeSession)->*answer)(pRecord)
               : result;
}

uint32_t DewarpNodeGetCaps(LumNodeCapsInfo* pCapsInfo) {
    const uint32_t result =
        CheckRecord(__func__, pCapsInfo, DEWARP_ERROR_TEXT("Invalid argument: pCapsInfo is NULL"),
                    DEWARP_ERROR_TEXT("LUMNODECAPSINFO is smaller than expected"));
    if (result == LumResultSuccess) {
        pCapsInfo->nodeCapsMask = LumNodeCapsDewarpLookAhead | LumNodeCapsDewarpRealTime;
    }
    return result;
}

/// Makes and initialises a node; nothing is left of it unless the result is 0.
uint32_t CreateNode(LumNodeCreateInfo* pCreateInfo) {
    LumDewarpNode* pNode = new (0, 0, nullptr, 0) LumDewarpNode;
    if (pNode == nullptr) {
        return LumResultNoMemory;
    }
    const uint32_t result = pNode->Initialize(pCreateInfo);
    if (result != LumResultSuccess) {
        delete pNode;
        return result;
    }
    pCreateInfo->phNodeSession = pNode;
    return LumResultSuccess;
}

uint32_t DewarpNodeCreate(LumNodeCreateInfo* pCreateInfo) {
    // The parameter's name in the first text is not ours; hosts match the line as it stands.
    uint32_t result =
        CheckRecord(__func__, pCreateInfo, DEWARP_ERROR_TEXT("Invalid argument: pTagTypeInfo is NULL"),
                    DEWARP_ERROR_TEXT("LUMNODECREATEINFO is smaller than expected"));
    if (result == LumResultSuccess) {
        result = CreateNode(pCreateInfo);
    }
    if (result != LumResultSuccess) {
        return result;
    }
    LumVendorTagBaseInfo tag = {};
    if (LumNodeUtils::GetVendorTagBase(g_transformSection, g_extraFrameworkBuffersTag.pTagName,
                                       &g_nodeInterface, &tag) != LumResultSuccess) {
        // The node stays alive and with the host: it can render, the host only lacks the buffer count.
        DEWARP_ERROR("Unable to get ExtraFrameworkBuffers Vendor Tag Id EISV3");
        return LumResultFailure;
    }
    DEWARP_INFO("Publishing ExtraFrameworkBuffers %d", ExtraFrameworkBuffers);
    PublishMetadata(pCreateInfo->hSession, tag.vendorTagBase | LumTagFlagExtraBuffers, LumMetadataTypeUnset,
                    &ExtraFrameworkBuffers, g_extraFrameworkBuffersTag.payloadSize);
    return LumResultSuccess;
}

uint32_t DewarpNodeDestroy(LumNodedestroyInfo* pDestroyInfo) {
    const uint32_t result =
        CheckRecord(__func__, pDestroyInfo, DEWARP_ERROR_TEXT("Invalid argument: pDestroyInfo is NULL"),
                    DEWARP_ERROR_TEXT("LUMNODEDESTROYINFO is smaller than expected"));
    if (result == LumResultSuccess) {
        delete static_cast<LumDewarpNode*>(pDestroyInfo->hNodeSession);
        pDestroyInfo->hNodeSession = nullptr;
    }
    return result;
}

uint32_t DewarpNodeQueryBufferInfo(LumNodeQueryBufferInfo* pQueryInfo) {
    return Forward(__func__, pQueryInfo, &LumDewarpNode::QueryBufferInfo,
                   DEWARP_ERROR_TEXT("LUMNODEQUERYBUFFERINFO is smaller than expected"));
}

uint32_t DewarpNodeSetBufferInfo(LumNodeSetBufferPropertiesInfo* pInfo) {
    return Forward(__func__, pInfo, &LumDewarpNode::SetBufferInfo,
                   DEWARP_ERROR_TEXT("LUMNODESETBUFFERPROPERTIESINFO is smaller than expected"));
}

uint32_t DewarpNodeProcRequest(LumNodeProcessRequestInfo* pInfo) {
    return Forward(__func__, pInfo, &LumDewarpNode::ProcessRequest,
                   DEWARP_ERROR_TEXT("LUMNODEPROCESSREQUESTINFO is smaller than expected"));
}

uint32_t DewarpNodeSetNodeInterface(LumNodeInterface* pNodeInterface) {
    return LumNodeUtils::SetNodeInterface(pNodeInterface, "com.oxa.node.dewarp", &g_nodeInterface,
                                          &g_nodeVendorTagBase);
}

uint32_t DewarpNodeDumpCoreNodeConfig(int32_t /*fd*/, uint32_t /*indent*/, void* /*reserved*/) {
    return LumResultSuccess;
}

}  // namespace

void LumNodeEntry(LumNodeCallbacks* pCallbacks) {
    // An error-level line although nothing is wrong: it tells a log reader which node was loaded.
    DEWARP_ERROR("Dewarp Node OpenGL LUMNODEEntry funtion");
    if (pCallbacks == nullptr) {
        DEWARP_ERROR("Invalid Argument: %p", static_cast<void*>(pCallbacks));
        return;
    }
    constexpr uint32_t majorVersion = 0;
    constexpr uint32_t minorVersion = 0;
    if (pCallbacks->majorVersion != majorVersion || pCallbacks->size < sizeof(LumNodeCallbacks)) {
        DEWARP_ERROR("Lum API major version doesn't match (%d:%d) vs (%d:%d)", pCallbacks->majorVersion,
                     pCallbacks->minorVersion, majorVersion, minorVersion);
        return;
    }
    pCallbacks->majorVersion = majorVersion;
    pCallbacks->minorVersion = minorVersion;
    pCallbacks->GetCaps = DewarpNodeGetCaps;
    pCallbacks->Create = DewarpNodeCreate;
    pCallbacks->Destroy = DewarpNodeDestroy;
    pCallbacks->QueryBufferInfo = DewarpNodeQueryBufferInfo;
    pCallbacks->SetBufferInfo = DewarpNodeSetBufferInfo;
    pCallbacks->ProcRequest = DewarpNodeProcRequest;
    pCallbacks->SetNodeInterface = DewarpNodeSetNodeInterface;
    pCallbacks->DumpCoreNodeConfig = DewarpNodeDumpCoreNodeConfig;
}

// ---- Creation, initialisation, destruction ----

LumDewarpNode::LumDewarpNode()
    : m_hSession(nullptr),
      m_nodeId(0),
      m_nodeCaps(0),
      m_outputWidth(0),
      m_outputHeight(0),
      m_pLock(nullptr),
      m_pGpuOpenGL(nullptr),
      m_gridTagResolved(0),
      m_perspectiveTransformTagId(0),
      m_gridTransformTagId(0),
      m_pGridDumpFile(nullptr) {}

LumDewarpNode::~LumDewarpNode() {
    if (m_pGpuOpenGL != nullptr) {
        m_pGpuOpenGL->Uninitialize();
        OrbaFree(m_pGpuOpenGL, 0, nullptr, 0);
        m_pGpuOpenGL = nullptr;
    }
    if (m_pLock != nullptr) {
        m_pLock->Destroy();
        m_pLock = nullptr;
    }
    if (!CloseDewarpDump(m_pGridDumpFile)) {
        DEWARP_ERROR("[DEWARP_%d] Warp dump file close failed", m_stabilizationType);
    }
    m_hSession = nullptr;
}

uint32_t LumDewarpNode::Initialize(LumNodeCreateInfo* pCreateInfo) {
    constexpr uint32_t flagBit5 = 0x20;
    constexpr uint32_t flagBit6 = 0x40;
    m_stabilizationMargin = {};
    m_hSession = pCreateInfo->hSession;
    m_nodeId = pCreateInfo->nodeId;
    m_nodeCaps = pCreateInfo->nodeCaps;
    m_instanceId = pCreateInfo->instanceId;
    m_previewTagId = 0;
    pCreateInfo->nodeFlags |= flagBit6;
    pCreateInfo->nodeFlags |= flagBit5;

    const DewarpVariant* pVariant = FindDewarpVariant(m_nodeCaps);
    m_stabilizationType = (pVariant != nullptr) ? pVariant->type : DewarpStabilizationNone;
    uint32_t result = (pVariant != nullptr) ? LumResultSuccess : LumResultUnsupported;
    if (result == LumResultSuccess) {
        result = CreateEngine();
    }
    if (result == LumResultSuccess) {
        m_pLock = Orba::Mutex::Create(pVariant->lockName);
        result = (m_pLock != nullptr) ? LumResultSuccess : LumResultNoMemory;
    }
    if (result == LumResultSuccess && m_stabilizationType == DewarpStabilizationRealTime) {
        result = ResolvePreviewTag();
    } else if (result == LumResultSuccess) {
        pCreateInfo->nodeFlags |= flagBit6;
    }
    if (result == LumResultSuccess) {
        result = ResolveTransformTags(*pVariant);
    }
    const bool isDumpEnabled = IsDewarpDumpEnabled();
    if (result == LumResultSuccess && isDumpEnabled) {
        OpenGridDump();
    }
    return result;
}

uint32_t LumDewarpNode::CreateEngine() {
    m_pGpuOpenGL = new (0, 0, nullptr, 0) GPUOpenGL(m_stabilizationType);
    if (m_pGpuOpenGL == nullptr) {
        DEWARP_ERROR_IN("Initialize", "[DEWARP_%d] OpenGL instance creation failed", m_stabilizationType);
        return LumResultNoMemory;
    }
    if (m_pGpuOpenGL->Initialize() != LumResultSuccess) {
        DEWARP_ERROR_IN("Initialize", "[DEWARP_%d] OpenGL instance Initialize failed", m_stabilizationType);
        // What a failed bring-up made stays: tearing down a half-made engine is not provided for.
        OrbaFree(m_pGpuOpenGL, 0, nullptr, 0);
        m_pGpuOpenGL = nullptr;
        return LumResultFailure;
    }
    return LumResultSuccess;
}

uint32_t LumDewarpNode::ResolveTag(const char* section, const char* tagName, uint32_t* pTagId) {
    LumVendorTagBaseInfo tag = {};
    const uint32_t result = LumNodeUtils::GetVendorTagBase(section, tagName, &g_nodeInterface, &tag);
    if (result == LumResultSuccess) {
        *pTagId = tag.vendorTagBase;
    }
    return result;
}

uint32_t LumDewarpNode::ResolvePreviewTag() {
    const uint32_t result = ResolveTag(g_streamTypeSection, g_previewTag.pTagName, &m_previewTagId);
    if (result == LumResultSuccess) {
        DEWARP_INFO_IN("Initialize", "[DEWARP_%d] StreamTypePresent", m_stabilizationType);
    } else {
        DEWARP_ERROR_IN("Initialize", "[DEWARP_%d] Unable to get StreamTypePresent Vendor Tag Id %d",
                        m_stabilizationType, result);
    }
    return result;
}

uint32_t LumDewarpNode::ResolveTransformTags(const DewarpVariant& variant) {
    const struct {
        const DewarpVendorTag& tag;
        uint32_t* pTagId;
        const DewarpLogText& found;
        const DewarpLogText& missing;
    } rows[] = {
        {variant.perspectiveTag, &m_perspectiveTransformTagId, variant.perspectiveFound,
         variant.perspectiveMissing},
        {variant.gridTag, &m_gridTransformTagId, variant.gridFound, variant.gridMissing},
    };
    for (const auto& row : rows) {
        const uint32_t result = ResolveTag(g_transformSection, row.tag.pTagName, row.pTagId);
        if (result != LumResultSuccess) {
            DEWARP_ERROR_CHOSEN("Initialize", row.missing, m_stabilizationType);
            return result;
        }
        DEWARP_INFO_CHOSEN("Initialize", row.found, m_stabilizationType);
    }
    m_gridTagResolved = 1;
    return LumResultSuccess;
}

void LumDewarpNode::OpenGridDump() {
    DEWARP_INFO_IN("Initialize", "[DEWARP_%d] Dewarp nodeCaps %d Grid dump enable", m_stabilizationType,
                   m_nodeCaps);
    LUMDateTime now = {};
    LumNodeUtils::GetDateTime(&now);
    char path[DewarpPathSize];
    m_pGridDumpFile =
        OpenDewarpDump("%s%sWarp%d_Grid_%04d%02d%02d_%02d%02d%02d.txt", m_stabilizationType, now, path);
    if (m_pGridDumpFile == nullptr) {
        DEWARP_ERROR_IN("Initialize", "[DEWARP_%d] Can't open %s for Warp output dump !", m_stabilizationType,
                        path);
    }
}

// ---- Buffer negotiation ----

uint32_t LumDewarpNode::QueryBufferInfo(LumNodeQueryBufferInfo* pQueryInfo) {
    for (uint32_t i = 0; i < pQueryInfo->numOutputPorts; ++i) {
        LumInputPortQueryInfo& input = pQueryInfo->pInputOptions[i];
        LumOutputPortQueryInfo& output = pQueryInfo->pOutputPortQueryInfo[i];
        DEWARP_INFO("[DEWARP_%d] Input port id=%d, format=%d Output port id=%d, format=%d",
                    m_stabilizationType, input.inputPortId, input.inputBufferOption.format,
                    output.outputPortId, output.outputBufferOption.format);
        QueryPort(*output.pDownstreamRequirement, input, output);
    }
    return LumResultSuccess;
}

namespace {

/// Asks the host for the alignments of the first two planes of one side. `stride` and `scanline` go from
/// plane to plane and from side to side: a plane that has none takes its predecessor's.
void AlignPlanes(LumNodeBufferRequirement& option, int32_t& stride, int32_t& scanline) {
    for (uint32_t plane = 0; plane < 2; ++plane) {
        LumNodeUtils::GetAlignment(option.optimalWidth, option.optimalHeight, plane, option.format, &stride,
                                   &scanline);
        option.planeAlignment[Orba::CheckedIndex(plane, LumMaxPlanes)] = {stride, scanline};
    }
}

/// An output size widened by a margin, both rounded down to even.
uint32_t AddMargin(uint32_t outputSize, float margin) {
    const uint32_t border = Orba::SaturatingUINT32(static_cast<float>(outputSize) * margin);
    return Orba::CheckedAdd(LumNodeUtils::EvenFloorUINT32(outputSize), LumNodeUtils::EvenFloorUINT32(border));
}

}  // namespace

void LumDewarpNode::QueryPort(const LumNodeBufferRequirement& downstream, LumInputPortQueryInfo& input,
                              LumOutputPortQueryInfo& output) {
    // A failed publication or margin read does not stop negotiation: it goes on with the margin held.
    if (m_nodeCaps == LumNodeCapsDewarpLookAhead) {
        SetStabilizedOutputDimsLookAhead(downstream.optimalHeight, downstream.optimalWidth);
        GetEisV3Margin();
    } else if (m_nodeCaps == LumNodeCapsDewarpRealTime) {
        SetStabilizedOutputDimsRealTime(downstream.optimalHeight, downstream.optimalWidth);
        GetEisV2Margin();
    }

    LumNodeBufferRequirement& in = input.inputBufferOption;
    in.optimalWidth = AddMargin(downstream.optimalWidth, m_stabilizationMargin.horizontal);
    in.optimalHeight = AddMargin(downstream.optimalHeight, m_stabilizationMargin.vertical);
    in.minWidth = downstream.minWidth;
    in.minHeight = downstream.minHeight;
    in.maxWidth = LumNodeUtils::MaxUINT32(downstream.maxWidth, in.optimalWidth);
    in.maxHeight = LumNodeUtils::MaxUINT32(downstream.maxHeight, in.optimalHeight);
    int32_t stride = 0;
    int32_t scanline = 0;
    AlignPlanes(in, stride, scanline);

    LumNodeBufferRequirement& out = output.outputBufferOption;
    out.minWidth = downstream.minWidth;
    out.minHeight = downstream.minHeight;
    out.maxWidth = downstream.maxWidth;
    out.maxHeight = downstream.maxHeight;
    out.optimalWidth = downstream.optimalWidth;
    out.optimalHeight = downstream.optimalHeight;
    AlignPlanes(out, stride, scanline);

    DEWARP_INFO_IN(
        "QueryBufferInfo", "[DEWARP_%d] Input stride and scanline Alignments: Plane0[%d][%d] Plane1[%d][%d]",
        m_stabilizationType, in.planeAlignment[0].strideAlignment, in.planeAlignment[0].scanlineAlignment,
        in.planeAlignment[1].strideAlignment, in.planeAlignment[1].scanlineAlignment);
    DEWARP_INFO_IN(
        "QueryBufferInfo", "[DEWARP_%d] Output stride and scanline Alignments: Plane0[%d][%d] Plane1[%d][%d]",
        m_stabilizationType, out.planeAlignment[0].strideAlignment, out.planeAlignment[0].scanlineAlignment,
        out.planeAlignment[1].strideAlignment, out.planeAlignment[1].scanlineAlignment);
    DEWARP_INFO_IN("QueryBufferInfo",
                   "[DEWARP_%d] Input Optimal[%d][%d] Min[%d][%d] Max[%d][%d] Output optimal[%d][%d]",
                   m_stabilizationType, in.optimalWidth, in.optimalHeight, in.minWidth, in.minHeight,
                   in.maxWidth, in.maxHeight, out.optimalWidth, out.optimalHeight);
}

uint32_t LumDewarpNode::SetStabilizedOutputDimsRealTime(uint32_t height, uint32_t width) {
    return SetStabilizedOutputDims(__func__, g_realTimeVariant, height, width);
}

uint32_t LumDewarpNode::SetStabilizedOutputDimsLookAhead(uint32_t height, uint32_t width) {
    return SetStabilizedOutputDims(__func__, g_lookAheadVariant, height, width);
}

uint32_t LumDewarpNode::SetStabilizedOutputDims(const char* operation, const DewarpVariant& variant,
                                                uint32_t height, uint32_t width) {
    uint32_t tagId = 0;
    uint32_t result = ResolveTag(variant.stabilizerSection, "StabilizedOutputDims", &tagId);
    if (result != LumResultSuccess) {
        DEWARP_ERROR_CHOSEN(operation, variant.dimsTagMissing, m_stabilizationType);
        return result;
    }
    const LumStabilizedOutputDims dims = {width, height};
    result = PublishMetadata(m_hSession, tagId | LumTagFlagStabilizer, LumMetadataTypeVendorTag, &dims,
                             sizeof(dims));
    if (result != LumResultSuccess) {
        DEWARP_ERROR_CHOSEN(operation, variant.dimsWriteFailed, m_stabilizationType);
    } else {
        DEWARP_INFO_CHOSEN(operation, variant.dimsWritten, m_stabilizationType, width, height);
    }
    return result;
}

uint32_t LumDewarpNode::GetEisV2Margin() {
    return GetEisMargin(__func__, g_realTimeVariant);
}

uint32_t LumDewarpNode::GetEisV3Margin() {
    return GetEisMargin(__func__, g_lookAheadVariant);
}

uint32_t LumDewarpNode::GetEisMargin(const char* operation, const DewarpVariant& variant) {
    uint32_t tagId = 0;
    const uint32_t result = ResolveTag(variant.stabilizerSection, "RequestedMargin", &tagId);
    if (result != LumResultSuccess) {
        DEWARP_ERROR_CHOSEN(operation, variant.marginTagMissing, m_stabilizationType);
        return result;
    }
    const void* pPayload = LumNodeUtils::GetMetaData(
        0, tagId | LumTagFlagStabilizer, LumMetadataTypeVendorTag, &g_nodeInterface, m_hSession, 0);
    if (pPayload == nullptr) {
        DEWARP_ERROR_CHOSEN(operation, variant.marginMissing, m_stabilizationType);
        return LumResultFailure;
    }
    std::memcpy(&m_stabilizationMargin, pPayload, sizeof(m_stabilizationMargin));
    DEWARP_INFO_CHOSEN(operation, variant.marginRead, m_stabilizationType,
                       static_cast<double>(m_stabilizationMargin.vertical));
    return LumResultSuccess;
}

uint32_t LumDewarpNode::SetBufferInfo(const LumNodeSetBufferPropertiesInfo* pInfo) {
    m_outputWidth = pInfo->pFormat->width;
    m_outputHeight = pInfo->pFormat->height;
    return LumResultSuccess;
}

// ---- Request processing ----

uint32_t LumDewarpNode::ProcessRequest(LumNodeProcessRequestInfo* pInfo) {
    const uint32_t sequence = pInfo->pDependency->processSequenceId & 0xFFFFU;
    DEWARP_INFO("[DEWARP_%d] Req %ld Seq %d", m_stabilizationType, pInfo->requestId, sequence);
    if (m_gridTagResolved == 0) {
        DEWARP_ERROR("[DEWARP_%d] Unable to query required vendor tag locations", m_stabilizationType);
        return LumResultFailure;
    }
    switch (sequence) {
        case 0:
            DeclareDependencies(pInfo);
            return LumResultSuccess;
        case 1:
            return RenderRequest(pInfo);
        default:
            return LumResultSuccess;
    }
}

void LumDewarpNode::DeclareDependencies(LumNodeProcessRequestInfo* pInfo) {
    LumDependencyInfo& dependency = *pInfo->pDependency;
    dependency.fenceCount = 0;
    for (uint32_t i = 0; i < pInfo->inputCount; ++i) {
        const LumImageList* pInput =
            (pInfo->inputImageLists != nullptr) ? pInfo->inputImageLists[i] : nullptr;
        if (pInput != nullptr && pInput->pFenceHandle != nullptr && pInput->pFenceSignaled != nullptr) {
            const uint32_t fence = Orba::CheckedIndex(dependency.fenceCount, LumMaxFences);
            dependency.pFenceHandles[fence] = pInput->pFenceHandle;
            dependency.pFenceSignaled[fence] = pInput->pFenceSignaled;
            dependency.fenceCount = fence + 1;
        }
    }
    dependency.propertyIds[0] = m_gridTransformTagId;
    dependency.propertyOffsets[0] = 0;
    dependency.propertyCount = 1;
    dependency.hNodeSession = m_hSession;
    dependency.processSequenceId = 1;
    dependency.inputBufferDependency = 1;
    if (m_stabilizationType == DewarpStabilizationLookAhead) {
        LumRequestDoneInfo done = {};
        done.size = sizeof(done);
        done.hNodeSession = m_hSession;
        done.requestId = pInfo->requestId;
        g_nodeInterface.NotifyRequestDone(&done);
    }
    SetSequentialExecutionDependency(pInfo);
}

uint32_t LumDewarpNode::RenderRequest(LumNodeProcessRequestInfo* pInfo) {
    uint32_t result = LumResultSuccess;
    if (IsPreviewStreamPresent(pInfo->requestId) == 1) {
        const auto* pGrid = static_cast<const IPEICAGridTransform*>(
            LumNodeUtils::GetMetaData(pInfo->requestId, m_gridTransformTagId, LumMetadataTypeVendorTag,
                                      &g_nodeInterface, m_hSession, 0));
        if (pGrid == nullptr) {
            DEWARP_ERROR_IN(
                "ProcessRequest",
                "[DEWARP_%d] Unable to read m_vendorTagId.ICAInGridTransformTagId vendor tag locations",
                m_stabilizationType);
            result = LumResultFailure;
        } else {
            if (m_pGridDumpFile != nullptr && pGrid->gridTransformEnable == 1) {
                WriteGridToFile(m_pGridDumpFile, pGrid, pInfo->requestId);
            }
            m_pLock->Lock();
            result =
                DewarpImage(pInfo->requestId, pInfo->outputImageLists[0], pInfo->inputImageLists[0], pGrid);
            m_pLock->Unlock();
        }
    }
    if (m_stabilizationType == DewarpStabilizationLookAhead) {
        pInfo->lookAheadComplete = 1;
    }
    pInfo->pDependency->processingDone = 1;
    return result;
}

void LumDewarpNode::SetSequentialExecutionDependency(LumNodeProcessRequestInfo* pInfo) {
    LumRequestWindowInfo window = {};
    g_nodeInterface.QueryRequestWindow(m_hSession, &window);
    if (LumNodeUtils::GetRequestIdOffset(pInfo->requestId, window.referenceRequestId) > 1) {
        pInfo->pDependency->sequentialExecution = 1;
    }
}

int32_t LumDewarpNode::IsPreviewStreamPresent(uint64_t requestId) {
    if (m_stabilizationType != DewarpStabilizationRealTime) {
        return 1;
    }
    // The comparison is with the id 1 itself, not a test of whether the tag was resolved: hosts count on a
    // real-time node rendering every request unless they hand out exactly that id.
    if (m_previewTagId != 1) {
        return 1;
    }
    int32_t isPresent = 1;
    const auto* pFlag = static_cast<const uint8_t*>(LumNodeUtils::GetMetaData(
        requestId, m_previewTagId, LumMetadataTypeVendorTag, &g_nodeInterface, m_hSession, 0));
    if (pFlag != nullptr) {
        isPresent = *pFlag;
        DEWARP_VERBOSE("[DEWARP_%d] Preview Stream Present[%d] for request %ld", m_stabilizationType,
                       isPresent, requestId);
    } else {
        DEWARP_VERBOSE("[DEWARP_%d] Unable to read VendorTag bPreviewStreamPresent request %ld",
                       m_stabilizationType, requestId);
    }
    if (isPresent == 0) {
        DEWARP_VERBOSE("[DEWARP_%d] This is time to return request %ld", m_stabilizationType, requestId);
    }
    return isPresent;
}

uint32_t LumDewarpNode::DewarpImage(uint64_t requestId, LumImageList* pOutput, LumImageList* pInput,
                                    const IPEICAGridTransform* pGridTransform) {
    float grid[GridPointsUsed * 2];
    static_assert(sizeof(grid) == GridPointsUsed * sizeof(GridPoint), "the points are copied as they stand");
    const bool isEnabled =
        pGridTransform->gridTransformEnable == 1 && (m_stabilizationType == DewarpStabilizationRealTime ||
                                                     m_stabilizationType == DewarpStabilizationLookAhead);
    if (isEnabled) {
        std::memcpy(grid, pGridTransform->gridTransformArray, sizeof(grid));
    } else {
        std::memset(grid, 0, sizeof(grid));
        DEWARP_WARN("[DEWARP_%d] Applying unity transform for %ld", m_stabilizationType, requestId);
    }
    return static_cast<uint32_t>(
        m_pGpuOpenGL->DewarpImage(requestId, pOutput, pInput, grid, isEnabled ? 1 : 0));
}
