#pragma once

#include <array>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "desk/abi/node_types.h"
#include "desk/host/gralloc_buffer.h"
#include "desk/host/rules/node_call.h"
#include "host/lumnoderequest.h"

namespace desk {

class DeskHost;

/// A callback of the library that did not succeed.
struct NodeError : std::runtime_error {
    NodeError(const std::string& what, uint32_t code);
    uint32_t result;
};

/// A result code in words, with its number.
std::string ResultText(uint32_t result);

/// What a negotiation settled on.
struct Negotiated {
    Size input;
    Size output;
    std::array<Alignment, 2> inputAlignment;   ///< planes 0 and 1
    std::array<Alignment, 2> outputAlignment;  ///< planes 0 and 1
    Size published;                            ///< "StabilizedOutputDims"; zero when the node published none
};

/// One node instance and the host's side of its pipeline: negotiation, buffers, requests. Requests may be
/// processed on several threads at once; everything else stands alone. Made by DeskHost::CreateNode; the
/// host must outlive it.
class DeskNode {
public:
    /// Throws NodeError when the library refuses; a node it nevertheless returned is destroyed first.
    DeskNode(DeskHost& host, Variant variant);
    /// Destroys the node if it still lives.
    ~DeskNode();
    DeskNode(const DeskNode&) = delete;
    DeskNode& operator=(const DeskNode&) = delete;

    /// Publishes the margin, asks the node for its buffers and tells it the output's size. Throws
    /// NodeError when a callback fails.
    Negotiated Negotiate(Size output, Margin margin);

    /// A buffer of the negotiated size. It lives as long as the node, which caches buffers by descriptor.
    /// Throws std::logic_error before Negotiate.
    std::shared_ptr<GrallocBuffer> AllocateInput();
    std::shared_ptr<GrallocBuffer> AllocateOutput();

    /// Takes one request through both passes, whatever other requests are in the node on other threads
    /// (PipelinedDriver lets them overlap as their dependency records say). The grid becomes the request's
    /// metadata between the two; null leaves it out. Both buffers must live as long as the node. Returns the
    /// failing pass's result, or the second's.
    uint32_t Process(uint64_t requestId, const IPEICAGridTransform* grid, GrallocBuffer& input,
                     GrallocBuffer& output);

    /// What QueryRequestWindow answers, on any thread; empty for the request that the node finished last.
    /// Throws std::logic_error once the node is destroyed.
    void SetReferenceRequest(ReferenceRequest reference);

    /// Throws NodeError when the callback fails. Once only.
    void Destroy();

    Variant Kind() const {
        return variant_;
    }
    DeskHost& Host() const {
        return host_;
    }
    /// The node's own handle; null once destroyed.
    void* Handle() const {
        return handle_;
    }
    /// The host session it was created with. Opaque to the node: any address that no other node has will do.
    void* Session() const {
        return const_cast<DeskNode*>(this);
    }

private:
    std::shared_ptr<GrallocBuffer> Allocate(Size size, const Alignment& alignment);

    DeskHost& host_;
    Variant variant_;
    void* handle_ = nullptr;
    Negotiated negotiated_ = {};
    std::vector<std::shared_ptr<GrallocBuffer>> buffers_;
};

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
    /// The node must outlive the request.
    NodeRequest(const DeskNode& node, const NodeFrame& frame);
    NodeRequest(const NodeRequest&) = delete;
    NodeRequest& operator=(const NodeRequest&) = delete;

    /// The node declares what the request waits for; then its grid is there. Returns the callback's result.
    uint32_t FirstPass();
    /// Whether the node asked that the request wait for its predecessor.
    bool IsSequential() const;
    /// The node renders; then the grid is gone. Returns the callback's result.
    uint32_t SecondPass();

private:
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
