#include "desk/host/desk_node.h"

#include <fmt/core.h>

#include <atomic>
#include <cstring>
#include <utility>

#include "desk/host/desk_host.h"
#include "desk/host/node_request.h"
#include "host/lumresult.h"

namespace desk {
namespace {

LumNodeBufferRequirement RequirementOf(Size size) {
    LumNodeBufferRequirement requirement = {};
    std::memset(&requirement, HostPattern, sizeof(requirement));
    requirement.minWidth = requirement.maxWidth = requirement.optimalWidth = size.width;
    requirement.minHeight = requirement.maxHeight = requirement.optimalHeight = size.height;
    requirement.format = LumFormatNv12;
    return requirement;
}

/// What the node has to fill, with only the format given.
LumNodeBufferRequirement OpenRequirement() {
    LumNodeBufferRequirement requirement = {};
    std::memset(&requirement, HostPattern, sizeof(requirement));
    requirement.format = LumFormatNv12;
    return requirement;
}

void ThrowIfFailed(uint32_t result, const std::string& what) {
    if (result != LumResultSuccess) {
        throw NodeError(what, result);
    }
}

}  // namespace

NodeError::NodeError(const std::string& what, uint32_t result)
    : std::runtime_error(what + ": " + ResultText(result)), result_(result) {}

uint32_t NodeError::Result() const {
    return result_;
}

std::string ResultText(uint32_t result) {
    switch (result) {
        case LumResultSuccess:
            return "result 0, success";
        case LumResultFailure:
            return "result 1, failure";
        case LumResultUnsupported:
            return "result 2, unsupported capabilities";
        case LumResultInvalidArgument:
            return "result 5, invalid argument";
        case LumResultLibraryFailure:
            return "result 6, a GL or EGL library failed to load";
        case LumResultNoMemory:
            return "result 8, out of memory";
        case LumResultEntryPointFailure:
            return "result 15, the GL and EGL entry points failed to initialise";
        default:
            return fmt::format("result {}", result);
    }
}

DeskNode::DeskNode(DeskHost& host, Variant variant) : host_(host), variant_(variant) {
    static std::atomic<uint32_t> instances = 0;
    auto info = PatternedRecord<LumNodeCreateInfo>();
    info.hSession = Session();
    info.phNodeSession = nullptr;
    info.nodeId = ++instances;
    info.nodeCaps = CapsOf(variant);
    info.nodeFlags = 0;
    info.instanceId = info.nodeId;
    const uint32_t result = host_.Callbacks().Create(&info);
    handle_ = info.phNodeSession;
    if (result != LumResultSuccess && handle_ != nullptr) {
        Destroy();
    }
    ThrowIfFailed(result, fmt::format("the library does not create a {} node", NameOf(variant)));
}

DeskNode::~DeskNode() {
    if (handle_ != nullptr) {
        try {
            Destroy();
        } catch (const NodeError& error) {
            host_.Findings().Report(error.what());
        }
    }
}

Negotiated DeskNode::Negotiate(Size output, Margin margin) {
    host_.Metadata().Set(Session(), 0, MarginTag(variant_), margin);
    const LumNodeBufferRequirement downstream = RequirementOf(output);
    LumOutputPortQueryInfo outputPort = {};
    std::memset(&outputPort, HostPattern, sizeof(outputPort));
    outputPort.outputPortId = 0;
    outputPort.pDownstreamRequirement = &downstream;
    outputPort.outputBufferOption = OpenRequirement();
    LumInputPortQueryInfo inputPort = {0, OpenRequirement()};
    auto query = PatternedRecord<LumNodeQueryBufferInfo>();
    query.hNodeSession = handle_;
    query.numOutputPorts = query.numInputPorts = 1;
    query.pOutputPortQueryInfo = &outputPort;
    query.pInputOptions = &inputPort;
    ThrowIfFailed(host_.Callbacks().QueryBufferInfo(&query), "the node does not say which buffers it wants");

    const LumNodeBufferRequirement& in = inputPort.inputBufferOption;
    const LumNodeBufferRequirement& out = outputPort.outputBufferOption;
    const LumBufferFormat format = {out.optimalWidth, out.optimalHeight};
    auto properties = PatternedRecord<LumNodeSetBufferPropertiesInfo>();
    properties.hNodeSession = handle_;
    properties.pFormat = &format;
    ThrowIfFailed(host_.Callbacks().SetBufferInfo(&properties),
                  "the node does not take its buffer properties");

    const auto dims = host_.Metadata().Get<LumStabilizedOutputDims>(Session(), 0, OutputDimsTag(variant_));
    negotiated_ = {{in.optimalWidth, in.optimalHeight},
                   {out.optimalWidth, out.optimalHeight},
                   {in.planeAlignment[0], in.planeAlignment[1]},
                   {out.planeAlignment[0], out.planeAlignment[1]},
                   dims ? Size{dims->width, dims->height} : Size{}};
    return negotiated_;
}

std::shared_ptr<GrallocBuffer> DeskNode::AllocateInput() {
    return Allocate(negotiated_.input, negotiated_.inputAlignment[0]);
}

std::shared_ptr<GrallocBuffer> DeskNode::AllocateOutput() {
    return Allocate(negotiated_.output, negotiated_.outputAlignment[0]);
}

std::shared_ptr<GrallocBuffer> DeskNode::Allocate(Size size, const Alignment& alignment) {
    if (size.width == 0) {
        throw std::logic_error("buffers cannot be allocated before their sizes are negotiated");
    }
    buffers_.push_back(GrallocBuffer::Create(size, alignment));
    return buffers_.back();
}

uint32_t DeskNode::Process(uint64_t requestId, const IPEICAGridTransform* grid, GrallocBuffer& input,
                           GrallocBuffer& output) {
    NodeRequest request(host_, *this, {requestId, grid, &input, &output});
    const uint32_t result = request.FirstPass();
    return result == LumResultSuccess ? request.SecondPass() : result;
}

void DeskNode::SetReferenceRequest(ReferenceRequest reference) {
    if (handle_ == nullptr) {
        throw std::logic_error("a destroyed node has no reference request");
    }
    host_.Nodes().Find(handle_)->reference = std::move(reference);
}

void DeskNode::Destroy() {
    auto info = PatternedRecord<LumNodedestroyInfo>();
    info.hNodeSession = handle_;
    ThrowIfFailed(host_.Callbacks().Destroy(&info), "the node cannot be destroyed");
    handle_ = nullptr;
    host_.Metadata().RemoveSession(Session());
    buffers_.clear();
}

Variant DeskNode::Kind() const {
    return variant_;
}

void* DeskNode::Handle() const {
    return handle_;
}

void* DeskNode::Session() const {
    // Opaque to the node: any address that no other node has will do.
    return const_cast<DeskNode*>(this);
}

}  // namespace desk
