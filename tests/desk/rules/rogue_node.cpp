// A node library without GL that keeps every rule of the host, and then does at each step what a test wants
// it to. One node lives at a time, and nothing overlaps.

#include <cstdlib>

#include "host/lumresult.h"
#include "tests/desk/rules/rogue.h"

namespace {

const Misdeed* misdeed = nullptr;
LumNodeInterface services = {};
LumNodeCreateInfo node = {};
uint32_t gridTag = 0;

bool IsLookAhead() {
    return node.nodeCaps == LumNodeCapsDewarpLookAhead;
}

uint32_t SetNodeInterface(LumNodeInterface* host) {
    uint32_t base = 0;
    LumNodeUtils::SetNodeInterface(host, "com.oxa.node.dewarp", &services, &base);
    return RogueStep(desk::PhaseInterface, host);
}

uint32_t GetCaps(LumNodeCapsInfo* info) {
    info->nodeCapsMask = LumNodeCapsDewarpRealTime | LumNodeCapsDewarpLookAhead;
    return RogueStep(desk::PhaseCaps, info);
}

uint32_t Create(LumNodeCreateInfo* info) {
    node = *info;
    LumVendorTagBaseInfo tag = {};
    LumNodeUtils::GetVendorTagBase("org.tamo.camera2.ipeicaconfigs",
                                   IsLookAhead() ? "ICAInGridTransformLookahead" : "ICAInGridTransform",
                                   &services, &tag);
    gridTag = tag.vendorTagBase;
    info->phNodeSession = &node;
    info->nodeFlags |= 0x60;
    return RogueStep(desk::PhaseCreate, info);
}

uint32_t Destroy(LumNodedestroyInfo* info) {
    info->hNodeSession = nullptr;
    return RogueStep(desk::PhaseDestroy, info);
}

uint32_t QueryBufferInfo(LumNodeQueryBufferInfo* info) {
    LumOutputPortQueryInfo& output = *info->pOutputPortQueryInfo;
    const LumNodeBufferRequirement& wanted = *output.pDownstreamRequirement;
    for (LumNodeBufferRequirement* own :
         {&output.outputBufferOption, &info->pInputOptions->inputBufferOption}) {
        own->minWidth = own->maxWidth = own->optimalWidth = wanted.optimalWidth;
        own->minHeight = own->maxHeight = own->optimalHeight = wanted.optimalHeight;
        for (uint32_t plane = 0; plane < 2; ++plane) {
            LumNodeUtils::GetAlignment(wanted.optimalWidth, wanted.optimalHeight, plane, own->format,
                                       &own->planeAlignment[plane].strideAlignment,
                                       &own->planeAlignment[plane].scanlineAlignment);
        }
    }
    return RogueStep(desk::PhaseQuery, info);
}

uint32_t SetBufferInfo(LumNodeSetBufferPropertiesInfo* info) {
    return RogueStep(desk::PhaseSetBuffer, info);
}

void DeclareDependencies(const LumNodeProcessRequestInfo& info) {
    LumRequestWindowInfo window = {};
    services.QueryRequestWindow(node.hSession, &window);
    if (std::getenv("ROGUE") != nullptr) {  // in a whole program, where nobody sets a misdeed
        services.QueryRequestWindow(node.hSession, &window);
    }
    LumDependencyInfo& dependency = *info.pDependency;
    dependency.hNodeSession = node.hSession;
    dependency.propertyCount = 1;
    dependency.propertyIds[0] = gridTag;
    dependency.propertyOffsets[0] = 0;
    dependency.pFenceHandles[0] = info.inputImageLists[0]->pFenceHandle;
    dependency.pFenceSignaled[0] = info.inputImageLists[0]->pFenceSignaled;
    dependency.fenceCount = 1;
    dependency.processSequenceId = 1;
    dependency.inputBufferDependency = 1;
    if (LumNodeUtils::GetRequestIdOffset(info.requestId, window.referenceRequestId) > 1) {
        dependency.sequentialExecution = 1;
    }
    if (IsLookAhead()) {
        LumRequestDoneInfo done = {sizeof(done), 0, node.hSession, info.requestId, 0};
        services.NotifyRequestDone(&done);
    }
}

uint32_t ProcRequest(LumNodeProcessRequestInfo* info) {
    if (info->pDependency->processSequenceId == 0) {
        DeclareDependencies(*info);
        return RogueStep(desk::PhaseFirstPass, info);
    }
    info->pDependency->processingDone = 1;
    if (IsLookAhead()) {
        info->lookAheadComplete = 1;
    }
    return RogueStep(desk::PhaseSecondPass, info);
}

}  // namespace

void RogueSet(const Misdeed* next) {
    misdeed = next;
}

uint32_t RogueStep(desk::Phase step, void* record) {
    RogueCall call = {step, record, services, node.hSession, LumResultSuccess, std::malloc, ::posix_memalign};
    if (misdeed != nullptr) {
        (*misdeed)(call);
    }
    return call.result;
}

void LumNodeEntry(LumNodeCallbacks* callbacks) {
    callbacks->minorVersion = 0;
    callbacks->GetCaps = GetCaps;
    callbacks->Create = Create;
    callbacks->Destroy = Destroy;
    callbacks->QueryBufferInfo = QueryBufferInfo;
    callbacks->SetBufferInfo = SetBufferInfo;
    callbacks->ProcRequest = ProcRequest;
    callbacks->SetNodeInterface = SetNodeInterface;
    callbacks->DumpCoreNodeConfig = [](int32_t, uint32_t, void*) {
        return RogueStep(desk::PhaseRefusal, nullptr);
    };
    RogueStep(desk::PhaseEntry, callbacks);
}
