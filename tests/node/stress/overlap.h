#pragma once

#include <unistd.h>

#include "desk/host/pipelined_driver.h"
#include "tests/node/fakegl/fake_gl_fixture.h"

constexpr size_t Threads = 8;

/// Every request follows its reference directly, so none has to wait for its predecessor.
inline uint64_t Predecessor(uint64_t requestId) {
    return requestId - 1;
}

/// Input and output buffers, so many of each, which requests use in turn.
struct Ring {
    /// The node's own, which live as long as it.
    Ring(desk::DeskNode& node, size_t count) {
        for (size_t i = 0; i < count; ++i) {
            inputs.push_back(node.AllocateInput());
            outputs.push_back(node.AllocateOutput());
        }
    }
    /// Nobody else's.
    Ring(const desk::Negotiated& sizes, size_t count) : inputs(count), outputs(count) {
        for (size_t i = 0; i < 2 * count; ++i) {
            Replace(sizes, i);
        }
    }
    /// An input when `i` is even. The former is gone first.
    void Replace(const desk::Negotiated& sizes, size_t i) {
        auto& buffer = (i % 2 == 0 ? inputs : outputs)[i / 2];
        buffer.reset();
        buffer = i % 2 == 0 ? desk::GrallocBuffer::Create(sizes.input, sizes.inputAlignment[0])
                            : desk::GrallocBuffer::Create(sizes.output, sizes.outputAlignment[0]);
    }
    desk::NodeFrame Frame(uint64_t requestId, const IPEICAGridTransform& grid) const {
        const size_t i = requestId % inputs.size();
        return {requestId, &grid, inputs[i].get(), outputs[i].get()};
    }
    uint32_t Process(desk::DeskNode& node, uint64_t requestId, const IPEICAGridTransform& grid) const {
        const desk::NodeFrame frame = Frame(requestId, grid);
        return node.Process(requestId, &grid, *frame.input, *frame.output);
    }

    std::vector<std::shared_ptr<desk::GrallocBuffer>> inputs;
    std::vector<std::shared_ptr<desk::GrallocBuffer>> outputs;
};
