#pragma once

#include "tests/node/fakegl/fake_gl.h"
#include "tests/support/stage.h"

/// The records of a request, filled by hand for what a well-behaved host never sends.
struct RawRequest {
    std::vector<LumImageList> inputs;
    LumImageList output;
    LumDependencyInfo dependency;
    LumNodeProcessRequestInfo info;
};

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

    /// A request of the node's own buffers. `sequence` tells the pass.
    RawRequest MakeRaw(uint64_t id, uint32_t sequence) {
        RawRequest raw = {{input_->ImageList()}, output_->ImageList(), {}, {}};
        raw.dependency.processSequenceId = sequence;
        raw.info.size = sizeof(raw.info);
        raw.info.hNodeSession = node_->Handle();
        raw.info.requestId = id;
        return raw;
    }
    uint32_t Send(RawRequest& raw) {
        std::vector<LumImageList*> inputs;
        for (LumImageList& list : raw.inputs) {
            inputs.push_back(&list);
        }
        LumImageList* output = &raw.output;
        raw.info.pDependency = &raw.dependency;
        raw.info.inputCount = static_cast<uint32_t>(inputs.size());
        raw.info.inputImageLists = inputs.data();
        raw.info.outputCount = 1;
        raw.info.outputImageLists = &output;
        return host_.Callbacks().ProcRequest(&raw.info);
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
