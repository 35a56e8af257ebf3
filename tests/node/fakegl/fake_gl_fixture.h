#pragma once

#include "tests/node/fakegl/fake_gl.h"
#include "tests/support/stage.h"

/// Made before the host and gone after it, which gives back what tests leave mapped.
struct FakeGlOwner {
    std::unique_ptr<FakeGl> gl_ = std::make_unique<FakeGl>();
};

/// One host over the fake GL, and what most tests need of a node.
class FakeGlFixture : protected FakeGlOwner, public NodeFixture {
protected:
    FakeGlFixture() : NodeFixture(gl_.get()) {
        host_.SetLogLevels(AllLevels, true);
    }

    /// A node negotiated for small buffers, one of each allocated; logs and calls so far forgotten.
    void MakeNode(desk::Variant variant = desk::Variant::RealTime) {
        node_ = host_.CreateNode(variant);
        node_->Negotiate({64, 48}, {0.25F, 0.25F});
        input_ = node_->AllocateInput();
        output_ = node_->AllocateOutput();
        gl_->Take();
        TakeLog();
    }
    uint32_t Frame(uint64_t requestId = 1) {
        return node_->Process(requestId, &grid_, *input_, *output_);
    }

    void TearDown() override {
        node_.reset();
        NodeFixture::TearDown();
    }

    std::unique_ptr<desk::DeskNode> node_;
    std::shared_ptr<desk::GrallocBuffer> input_;
    std::shared_ptr<desk::GrallocBuffer> output_;
    IPEICAGridTransform grid_ = Grid([](int, int) { return GridPoint{0.0F, 0.25F}; });
};
