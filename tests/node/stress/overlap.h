#pragma once

#include <unistd.h>

#include "desk/host/pipelined_driver.h"
#include "tests/node/fakegl/fake_gl_fixture.h"

constexpr size_t Threads = 8;

/// Every request follows its reference directly, so none has to wait for its predecessor.
inline uint64_t Predecessor(uint64_t requestId) {
    return requestId - 1;
}

/// A node's input and output buffers, so many of each.
struct Ring {
    Ring(desk::DeskNode& node, size_t count) {
        for (size_t i = 0; i < count; ++i) {
            inputs.push_back(node.AllocateInput());
            outputs.push_back(node.AllocateOutput());
        }
    }
    desk::NodeFrame Frame(uint64_t requestId, const IPEICAGridTransform& grid) const {
        const size_t i = requestId % inputs.size();
        return {requestId, &grid, inputs[i].get(), outputs[i].get()};
    }
    std::vector<std::shared_ptr<desk::GrallocBuffer>> inputs;
    std::vector<std::shared_ptr<desk::GrallocBuffer>> outputs;
};
