#pragma once

#include <cstring>

#include "tests/support/node_fixture.h"

constexpr desk::Variant Variants[] = {desk::Variant::RealTime, desk::Variant::LookAhead};

/// A negotiated node, and input and output buffers, so many of each, which requests use in turn.
struct Stage {
    Stage(desk::DeskHost& host, desk::Variant variant, size_t count = 1, desk::Size size = {64, 48},
          float margin = 0.25F)
        : inputs(count),
          outputs(count),
          node(host.CreateNode(variant)),
          sizes(node->Negotiate(size, {margin, margin})) {
        for (size_t i = 0; i < 2 * count; ++i) {
            Replace(i);
        }
    }
    /// An input when `i` is even. The former is gone first, so that its descriptor comes back.
    void Replace(size_t i) {
        auto& buffer = (i % 2 == 0 ? inputs : outputs)[i / 2];
        buffer.reset();
        buffer = i % 2 == 0 ? desk::GrallocBuffer::Create(sizes.input, sizes.inputAlignment[0])
                            : desk::GrallocBuffer::Create(sizes.output, sizes.outputAlignment[0]);
        std::memset(buffer->Luma(), 0xAA, buffer->ByteSize());
    }
    desk::NodeFrame Frame(uint64_t requestId, const IPEICAGridTransform& grid) const {
        const size_t i = requestId % inputs.size();
        return {requestId, &grid, inputs[i].get(), outputs[i].get()};
    }
    uint32_t Process(uint64_t requestId, const IPEICAGridTransform& grid) const {
        const desk::NodeFrame frame = Frame(requestId, grid);
        return node->Process(requestId, &grid, *frame.input, *frame.output);
    }

    std::vector<std::shared_ptr<desk::GrallocBuffer>> inputs;  // gone after the node, which caches them
    std::vector<std::shared_ptr<desk::GrallocBuffer>> outputs;
    std::unique_ptr<desk::DeskNode> node;
    desk::Negotiated sizes;
};
