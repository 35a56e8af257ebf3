#include "desk/host/node_request.h"

#include "desk/host/desk_host.h"
#include "desk/host/desk_node.h"
#include "host/lumresult.h"

namespace desk {

NodeRequest::NodeRequest(DeskHost& host, const DeskNode& node, const NodeFrame& frame)
    : host_(host),
      node_(node),
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
    const uint32_t result = host_.Callbacks().ProcRequest(&info_);
    if (result == LumResultSuccess && frame_.grid != nullptr) {
        host_.State().metadata.Set(node_.Session(), frame_.requestId, GridTag(node_.Kind()), *frame_.grid);
    }
    return result;
}

bool NodeRequest::IsSequential() const {
    return dependency_.sequentialExecution != 0;
}

uint32_t NodeRequest::SecondPass() {
    const uint32_t result = host_.Callbacks().ProcRequest(&info_);
    host_.State().metadata.Remove(node_.Session(), frame_.requestId, GridTag(node_.Kind()));
    return result;
}

}  // namespace desk
