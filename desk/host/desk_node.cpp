#include "desk/host/desk_node.h"

#include <fmt/core.h>

#include <atomic>
#include <map>
#include <utility>

#include "desk/host/desk_host.h"
#include "host/lumresult.h"

namespace desk {
namespace {

/// What the node has to fill, with only the format given.
LumNodeBufferRequirement OpenRequirement() {
    auto requirement = Patterned<LumNodeBufferRequirement>();
    requirement.format = LumFormatNv12;
    return requirement;
}

void ThrowIfFailed(uint32_t result, const std::string& what) {
    if (result != LumResultSuccess) {
        throw NodeError(what, result);
    }
}

}  // namespace

NodeError::NodeError(const std::string& what, uint32_t code)
    : std::runtime_error(what + ": " + ResultText(code)), result(code) {}

std::string ResultText(uint32_t result) {
    static const std::map<uint32_t, const char*> words = {
        {LumResultSuccess, "success"},
        {LumResultFailure, "failure"},
        {LumResultUnsupported, "unsupported capabilities"},
        {LumResultInvalidArgument, "invalid argument"},
        {LumResultLibraryFailure, "a GL or EGL library failed to load"},
        {LumResultNoMemory, "out of memory"},
        {LumResultEntryPointFailure, "the GL and EGL entry points failed to initialise"}};
    const auto known = words.find(result);
    return fmt::format("result {}", result) +
           (known != words.end() ? fmt::format(", {}", known->second) : "");
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
    const uint32_t result = host_.gate->Create(&info);
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
            host_.contract.Report(error.what());
        }
    }
}

Negotiated DeskNode::Negotiate(Size output, Margin margin) {
    host_.metadata.Set(Session(), 0, TagOf(TagKind::RequestedMargin, variant_), margin);
    LumNodeBufferRequirement downstream = OpenRequirement();
    downstream.minWidth = downstream.maxWidth = downstream.optimalWidth = output.width;
    downstream.minHeight = downstream.maxHeight = downstream.optimalHeight = output.height;
    auto outputPort = Patterned<LumOutputPortQueryInfo>();
    outputPort.outputPortId = 0;
    outputPort.pDownstreamRequirement = &downstream;
    outputPort.outputBufferOption = OpenRequirement();
    LumInputPortQueryInfo inputPort = {0, OpenRequirement()};
    auto query = PatternedRecord<LumNodeQueryBufferInfo>();
    query.hNodeSession = handle_;
    query.numOutputPorts = query.numInputPorts = 1;
    query.pOutputPortQueryInfo = &outputPort;
    query.pInputOptions = &inputPort;
    ThrowIfFailed(host_.gate->QueryBufferInfo(&query), "the node does not say which buffers it wants");

    const LumNodeBufferRequirement& in = inputPort.inputBufferOption;
    const LumNodeBufferRequirement& out = outputPort.outputBufferOption;
    const LumBufferFormat format = {out.optimalWidth, out.optimalHeight};
    auto properties = PatternedRecord<LumNodeSetBufferPropertiesInfo>();
    properties.hNodeSession = handle_;
    properties.pFormat = &format;
    ThrowIfFailed(host_.gate->SetBufferInfo(&properties), "the node does not take its buffer properties");

    const auto dims =
        host_.metadata.Get<LumStabilizedOutputDims>(Session(), 0, TagOf(TagKind::OutputDims, variant_));
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
    NodeRequest request(*this, {requestId, grid, &input, &output});
    const uint32_t result = request.FirstPass();
    return result == LumResultSuccess ? request.SecondPass() : result;
}

void DeskNode::SetReferenceRequest(ReferenceRequest reference) {
    if (handle_ == nullptr) {
        throw std::logic_error("a destroyed node has no reference request");
    }
    host_.gate->Find(handle_)->reference = std::move(reference);
}

void DeskNode::Destroy() {
    auto info = PatternedRecord<LumNodedestroyInfo>();
    info.hNodeSession = handle_;
    ThrowIfFailed(host_.gate->Destroy(&info), "the node cannot be destroyed");
    handle_ = nullptr;
    host_.metadata.RemoveSession(Session());
    buffers_.clear();
}

NodeRequest::NodeRequest(const DeskNode& node, const NodeFrame& frame)
    : node_(node),
      frame_(frame),
      inputList_(frame.input->ImageList()),
      outputList_(frame.output->ImageList()),
      // A host reuses its dependency records: whatever the last request left is still in this one.
      dependency_(Patterned<LumDependencyInfo>()),
      info_(PatternedRecord<LumNodeProcessRequestInfo>()) {
    dependency_.processSequenceId = 0;
    dependency_.sequentialExecution = 0;
    dependency_.processingDone = 0;
    dependency_.inputBufferDependency = 0;
    info_.hNodeSession = node.Handle();
    info_.requestId = frame.requestId;
    info_.pDependency = &dependency_;
    info_.inputCount = info_.outputCount = 1;
    info_.inputImageLists = inputs_;
    info_.outputImageLists = outputs_;
    info_.lookAheadComplete = 0;
}

uint32_t NodeRequest::FirstPass() {
    const uint32_t result = node_.Host().gate->ProcRequest(&info_);
    if (result == LumResultSuccess && frame_.grid != nullptr) {
        node_.Host().metadata.Set(node_.Session(), frame_.requestId, TagOf(TagKind::Grid, node_.Kind()),
                                  *frame_.grid);
    }
    return result;
}

bool NodeRequest::IsSequential() const {
    return dependency_.sequentialExecution != 0;
}

uint32_t NodeRequest::SecondPass() {
    const uint32_t result = node_.Host().gate->ProcRequest(&info_);
    node_.Host().metadata.Remove(node_.Session(), frame_.requestId, TagOf(TagKind::Grid, node_.Kind()));
    return result;
}

}  // namespace desk
