// A node library without GL that keeps every rule of the host, and then does at each step what a test wants
// it to. One node lives at a time, and nothing overlaps.

#include <cstdlib>

#include "host/lumresult.h"
#include "tests/desk/rules/rogue.h"

namespace {

LumNodeInterface services = {};
LumNodeCreateInfo node = {};
bool isLookAhead = false;
DeskGlCounters gl = {};

uint32_t Step(desk::Phase step, void* record) {
    RogueCall call = {step, record, node.hSession, 0, services, &gl, std::malloc, ::posix_memalign};
    if (RogueMisdeed != nullptr) {
        RogueMisdeed(call);
    }
    return call.result;
}

uint32_t Create(LumNodeCreateInfo* info) {
    node = *info;
    isLookAhead = node.nodeCaps == LumNodeCapsDewarpLookAhead;
    info->phNodeSession = &node;
    info->nodeFlags |= 0x60;
    return Step(desk::PhaseCreate, info);
}

uint32_t QueryBufferInfo(LumNodeQueryBufferInfo* info) {
    LumOutputPortQueryInfo& output = *info->pOutputPortQueryInfo;
    for (LumNodeBufferRequirement* own :
         {&output.outputBufferOption, &info->pInputOptions->inputBufferOption}) {
        own->optimalWidth = output.pDownstreamRequirement->optimalWidth;
        own->optimalHeight = output.pDownstreamRequirement->optimalHeight;
        own->planeAlignment[0] = {128, 32};
    }
    return Step(desk::PhaseQuery, info);
}

uint32_t ProcRequest(LumNodeProcessRequestInfo* info) {
    LumDependencyInfo& dependency = *info->pDependency;
    if (dependency.processSequenceId == 1) {
        dependency.processingDone = 1;
        info->lookAheadComplete = isLookAhead ? 1 : info->lookAheadComplete;
        return Step(desk::PhaseSecondPass, info);
    }
    LumRequestWindowInfo window = {};
    services.QueryRequestWindow(node.hSession, &window);
    if (std::getenv("ROGUE") != nullptr) {  // in a whole program, where nobody sets a misdeed
        services.QueryRequestWindow(node.hSession, &window);
    }
    dependency.hNodeSession = node.hSession;
    dependency.propertyCount = 1;
    dependency.propertyIds[0] = isLookAhead ? 0x80010001 : 0x80010000;  // of the grid
    dependency.propertyOffsets[0] = 0;
    dependency.pFenceHandles[0] = info->inputImageLists[0]->pFenceHandle;
    dependency.pFenceSignaled[0] = info->inputImageLists[0]->pFenceSignaled;
    dependency.fenceCount = 1;
    dependency.processSequenceId = 1;
    dependency.inputBufferDependency = 1;
    if (LumNodeUtils::GetRequestIdOffset(info->requestId, window.referenceRequestId) > 1) {
        dependency.sequentialExecution = 1;
    }
    if (isLookAhead) {
        LumRequestDoneInfo done = {sizeof(done), 0, node.hSession, info->requestId, 0};
        services.NotifyRequestDone(&done);
    }
    return Step(desk::PhaseFirstPass, info);
}

}  // namespace

void desk_gl_counters(DeskGlCounters* counters) {
    *counters = gl;
}

void LumNodeEntry(LumNodeCallbacks* callbacks) {
    gl = {};
    callbacks->minorVersion = 0;
    callbacks->GetCaps = [](LumNodeCapsInfo* info) {
        info->nodeCapsMask = LumNodeCapsDewarpRealTime | LumNodeCapsDewarpLookAhead;
        return Step(desk::PhaseCaps, info);
    };
    callbacks->Create = Create;
    callbacks->Destroy = [](LumNodedestroyInfo* info) {
        info->hNodeSession = nullptr;
        return Step(desk::PhaseDestroy, info);
    };
    callbacks->QueryBufferInfo = QueryBufferInfo;
    callbacks->SetBufferInfo = [](auto* info) { return Step(desk::PhaseSetBuffer, info); };
    callbacks->ProcRequest = ProcRequest;
    callbacks->SetNodeInterface = [](LumNodeInterface* host) {
        uint32_t base = 0;
        LumNodeUtils::SetNodeInterface(host, "com.oxa.node.dewarp", &services, &base);
        return Step(desk::PhaseInterface, host);
    };
    callbacks->DumpCoreNodeConfig = [](auto...) { return Step(desk::PhaseRefusal, nullptr); };
    Step(desk::PhaseEntry, callbacks);
}
