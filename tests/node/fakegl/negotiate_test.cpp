#include <cmath>

#include "tests/node/fakegl/established_fixture.h"

class Negotiate : public EstablishedFixture {
protected:
    /// Makes a node's query with the given downstream sizes and notes what comes of it.
    void Query(desk::Size optimal = {64, 48}, desk::Size largest = {64, 48}) {
        const LumNodeBufferRequirement downstream = {
            320, 240, largest.width, largest.height, optimal.width, optimal.height, {}, {}};
        LumOutputPortQueryInfo output = {};
        output.pDownstreamRequirement = &downstream;
        output.outputPortId = 6;
        LumInputPortQueryInfo input = {};
        input.inputPortId = 5;
        LumNodeBufferRequirement& out = output.outputBufferOption;
        out.format = input.inputBufferOption.format = desk::LumFormatNv12;
        auto query = desk::PatternedRecord<LumNodeQueryBufferInfo>();
        query.hNodeSession = node_->Handle();
        query.numOutputPorts = 1;
        query.pOutputPortQueryInfo = &output;
        query.pInputOptions = &input;
        TakeLog();
        EXPECT_EQ(host_.gate->QueryBufferInfo(&query), 0U);
        const auto dims = host_.metadata.Get<LumStabilizedOutputDims>(
            node_->Session(), 0, desk::TagOf(desk::TagKind::OutputDims, node_->Kind()));
        ASSERT_TRUE(dims.has_value());
        NoteLog(fmt::format("output {}x{} ({}x{} to {}x{}), published {}x{}", out.optimalWidth,
                            out.optimalHeight, out.minWidth, out.minHeight, out.maxWidth, out.maxHeight,
                            dims->width, dims->height));
    }
    void SetMargin(float horizontal, float vertical) {
        host_.metadata.Set(node_->Session(), 0, desk::TagOf(desk::TagKind::RequestedMargin, node_->Kind()),
                           LumStabilizationMargin{horizontal, vertical});
    }
};

TEST_F(Negotiate, WidensTheInputByTheMargin) {
    node_ = host_.CreateNode(desk::Variant::RealTime);
    SetMargin(0.15F, 0.15F);
    Query({1011, 1080}, {4096, 3072});
    Query({1011, 1080}, {1011, 1080});
    SetMargin(0.2F, 0.1F);
    Query({1920, 1080}, {1920, 1080});
    SetMargin(-0.5F, std::nanf(""));
    Query({641, 481}, {641, 481});
    SetMargin(0.0F, 0.0F);
    Query({1920, 1080}, {800, 600});
}

TEST_F(Negotiate, GoesOnWithTheMarginItHolds) {
    for (const auto variant : Variants) {
        host_.fault = nullptr;
        node_ = host_.CreateNode(variant);
        SetMargin(0.25F, 0.5F);
        Query();
        SetMargin(0.5F, 0.5F);
        for (const char* service : {"GetVendorTagBase", "GetMetaData"}) {
            FailService(service);
            Query();
        }
    }
}

TEST_F(Negotiate, AlignmentsGoOnFromPlaneToPlane) {
    node_ = host_.CreateNode(desk::Variant::RealTime);
    SetMargin(0.0F, 0.0F);
    // The host has alignments for none of the planes, then for the very first only.
    for (const int served : {0, 1}) {
        host_.fault = [seen = 0, served](const desk::HostCall& call, uint32_t&) mutable {
            return call.service == "GetAlignment" && seen++ >= served;
        };
        Query();
    }
}
