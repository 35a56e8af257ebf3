#pragma once

#include <cstdint>

#include "desk/host/gralloc_buffer.h"
#include "host/lumnoderequest.h"

namespace desk {

class DeskHost;
class DeskNode;

/// One frame that a node is to render. The grid and both buffers belong to the caller and live until the
/// request is done, the buffers as long as the node.
struct NodeFrame {
    uint64_t requestId = 0;
    const IPEICAGridTransform* grid = nullptr;  ///< the request's metadata; null leaves it out
    GrallocBuffer* input = nullptr;
    GrallocBuffer* output = nullptr;
};

/// The host's records of one request on its way through a node, and the two passes, each called once and in
/// this order, on any thread.
class NodeRequest {
public:
    /// Host and node must outlive the request.
    NodeRequest(DeskHost& host, const DeskNode& node, const NodeFrame& frame);
    NodeRequest(const NodeRequest&) = delete;
    NodeRequest& operator=(const NodeRequest&) = delete;

    /// The node declares what the request waits for; then its grid is there. Returns the callback's result.
    uint32_t FirstPass();
    /// Whether the node asked that the request wait for its predecessor.
    bool IsSequential() const;
    /// The node renders; then the grid is gone. Returns the callback's result.
    uint32_t SecondPass();

private:
    DeskHost& host_;
    const DeskNode& node_;
    NodeFrame frame_;
    LumImageList inputList_;
    LumImageList outputList_;
    LumImageList* inputs_[1] = {&inputList_};
    LumImageList* outputs_[1] = {&outputList_};
    LumDependencyInfo dependency_;
    LumNodeProcessRequestInfo info_;
};

}  // namespace desk
