#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>

#include "host/lumnode.h"
#include "node/dewarp/dewarpstabilizationtype.h"
#include "utils/orbamutex.h"

class GPUOpenGL;
struct DewarpVariant;

/// One instance of the dewarp node. The host makes it through DewarpNodeCreate, drives it through the
/// callbacks and releases it through DewarpNodeDestroy.
///
/// Owns its GPU engine, its lock and its grid dump file. Creation, negotiation and destruction take no
/// lock; request processing holds the lock around the engine call only.
class LumDewarpNode {
public:
    LumDewarpNode();
    virtual ~LumDewarpNode();

    /// Called once, right after construction. 0; 1 the engine did not come up; 2 unknown capability;
    /// 8 out of memory; or a failed tag lookup's own result. On failure the caller destroys the node.
    uint32_t Initialize(LumNodeCreateInfo* pCreateInfo);

    /// Answers the host's buffer query: input sizes are output sizes plus the stabilisation margin.
    /// Always 0; tag and metadata failures leave the margin the node holds.
    uint32_t QueryBufferInfo(LumNodeQueryBufferInfo* pQueryInfo);

    /// Records the output size the host settled on. Always 0.
    uint32_t SetBufferInfo(const LumNodeSetBufferPropertiesInfo* pInfo);

    /// One pass of one request. 0; 1 tags unresolved or grid missing; otherwise the engine's result.
    uint32_t ProcessRequest(LumNodeProcessRequestInfo* pInfo);

private:
    LumDewarpNode(const LumDewarpNode&) = delete;
    LumDewarpNode& operator=(const LumDewarpNode&) = delete;

    uint32_t CreateEngine();
    uint32_t ResolveTag(const char* section, const char* tagName, uint32_t* pTagId);
    uint32_t ResolvePreviewTag();
    uint32_t ResolveTransformTags(const DewarpVariant& variant);
    void OpenGridDump();

    /// The publication of the output size, per stabiliser. Note the order: height first, then width.
    uint32_t SetStabilizedOutputDimsRealTime(uint32_t height, uint32_t width);
    uint32_t SetStabilizedOutputDimsLookAhead(uint32_t height, uint32_t width);
    uint32_t SetStabilizedOutputDims(const char* operation, const DewarpVariant& variant, uint32_t height,
                                     uint32_t width);
    /// The margin the stabiliser asks for; kept as it was on failure.
    uint32_t GetEisV2Margin();
    uint32_t GetEisV3Margin();
    uint32_t GetEisMargin(const char* operation, const DewarpVariant& variant);
    void QueryPort(const LumNodeBufferRequirement& downstream, LumInputPortQueryInfo& input,
                   LumOutputPortQueryInfo& output);

    void DeclareDependencies(LumNodeProcessRequestInfo* pInfo);
    uint32_t RenderRequest(LumNodeProcessRequestInfo* pInfo);
    void SetSequentialExecutionDependency(LumNodeProcessRequestInfo* pInfo);
    /// 1 render, anything else do not.
    int32_t IsPreviewStreamPresent(uint64_t requestId);
    uint32_t DewarpImage(uint64_t requestId, LumImageList* pOutput, LumImageList* pInput,
                         const IPEICAGridTransform* pGridTransform);

    void* m_hSession;
    uint32_t m_nodeId;
    uint32_t m_nodeCaps;
    uint32_t m_outputWidth;
    uint32_t m_outputHeight;
    uint32_t m_instanceId = 0;
    Orba::Mutex* m_pLock;
    GPUOpenGL* m_pGpuOpenGL;
    uint32_t m_gridTagResolved;
    LumStabilizationMargin m_stabilizationMargin = {};
    DewarpStabilizationType m_stabilizationType = DewarpStabilizationNone;
    uint32_t m_perspectiveTransformTagId;
    uint32_t m_gridTransformTagId;
    uint32_t m_previewTagId = 0;
    FILE* m_pGridDumpFile;
};
