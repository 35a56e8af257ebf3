#include <cmath>
#include <csignal>
#include <limits>

#include "tests/node/fakegl/fake_gl_fixture.h"

using ::testing::ElementsAre;

class Negotiate : public FakeGlFixture {
protected:
    /// One query with the given downstream sizes; the input's requirement and the output's.
    struct Answer {
        LumNodeBufferRequirement in;
        LumNodeBufferRequirement out;
    };

    Answer Query(desk::Size optimal, desk::Size largest) {
        LumNodeBufferRequirement downstream = {};
        downstream.minWidth = 320;
        downstream.minHeight = 240;
        downstream.maxWidth = largest.width;
        downstream.maxHeight = largest.height;
        downstream.optimalWidth = optimal.width;
        downstream.optimalHeight = optimal.height;
        LumOutputPortQueryInfo output = {};
        output.pDownstreamRequirement = &downstream;
        output.outputPortId = 6;
        output.outputBufferOption.format = desk::LumFormatNv12;
        LumInputPortQueryInfo input = {};
        input.inputPortId = 5;
        input.inputBufferOption.format = desk::LumFormatNv12;
        LumNodeQueryBufferInfo query = {};
        query.size = sizeof(query);
        query.hNodeSession = node_->Handle();
        query.numOutputPorts = 1;
        query.pOutputPortQueryInfo = &output;
        query.pInputOptions = &input;
        EXPECT_EQ(host_.Callbacks().QueryBufferInfo(&query), 0U);
        return {input.inputBufferOption, output.outputBufferOption};
    }
    void SetMargin(float horizontal, float vertical) {
        host_.State().metadata.Set(node_->Session(), 0, desk::MarginTag(node_->Kind()),
                                   LumStabilizationMargin{horizontal, vertical});
    }
};

TEST_F(Negotiate, WidensTheInputByTheMargin) {
    node_ = host_.CreateNode(desk::Variant::RealTime);
    const float nan = std::nanf("");
    const struct {
        desk::Size optimal;
        float horizontal = 0.0F;
        float vertical = 0.0F;
        desk::Size largest;
        desk::Size input;
        desk::Size inputLargest;
    } rows[] = {
        {{1011, 1080}, 0.15F, 0.15F, {4096, 3072}, {1160, 1242}, {4096, 3072}},
        {{1011, 1080}, 0.15F, 0.15F, {1011, 1080}, {1160, 1242}, {1160, 1242}},
        {{1920, 1080}, 0.2F, 0.1F, {1920, 1080}, {2304, 1188}, {2304, 1188}},
        {{641, 481}, -0.5F, nan, {641, 481}, {640, 480}, {641, 481}},
        {{1920, 1080}, 0.0F, 0.0F, {800, 600}, {1920, 1080}, {1920, 1080}},
    };
    for (const auto& row : rows) {
        SetMargin(row.horizontal, row.vertical);
        const Answer answer = Query(row.optimal, row.largest);
        EXPECT_EQ(answer.in.optimalWidth, row.input.width);
        EXPECT_EQ(answer.in.optimalHeight, row.input.height);
        EXPECT_EQ(answer.in.maxWidth, row.inputLargest.width);
        EXPECT_EQ(answer.in.maxHeight, row.inputLargest.height);
        EXPECT_EQ(answer.in.minWidth, 320U);
        EXPECT_EQ(answer.in.minHeight, 240U);
        EXPECT_EQ(answer.out.optimalWidth, row.optimal.width) << "the output side is copied as it is";
        EXPECT_EQ(answer.out.maxHeight, row.largest.height);
        const auto dims = host_.State().metadata.Get<LumStabilizedOutputDims>(
            node_->Session(), 0, desk::OutputDimsTag(node_->Kind()));
        ASSERT_TRUE(dims.has_value());
        EXPECT_EQ(dims->width, row.optimal.width);
        EXPECT_EQ(dims->height, row.optimal.height);
    }
}

TEST_F(Negotiate, SpeaksPerVariant) {
    const struct {
        desk::Variant variant;
        const char* head;
        const char* dims;
        const char* margin;
    } rows[] = {{desk::Variant::RealTime, "[DEWARP_2] ",
                 "I SetStabilizedOutputDimsRealTime() [DEWARP_2] WriteEIsV2 Dims [64, 48]",
                 "I GetEisV2Margin() [DEWARP_2] EisV2 Margin = 0.500000"},
                {desk::Variant::LookAhead, "[DEWARP_3] ",
                 "I SetStabilizedOutputDimsLookAhead() [DEWARP_3] WriteEIsV3 Dims [64, 48]",
                 "I GetEisV3Margin() [DEWARP_3] EisV3 Margin = 0.500000"}};
    for (const auto& row : rows) {
        node_ = host_.CreateNode(row.variant);
        SetMargin(0.25F, 0.5F);
        TakeLog();
        Query({64, 48}, {64, 48});
        const std::string head = std::string("I QueryBufferInfo() ") + row.head;
        EXPECT_THAT(
            TakeLog(),
            ElementsAre(head + "Input port id=5, format=3 Output port id=6, format=3", row.dims, row.margin,
                        head + "Input stride and scanline Alignments: Plane0[128][32] Plane1[128][16]",
                        head + "Output stride and scanline Alignments: Plane0[128][32] Plane1[128][16]",
                        head + "Input Optimal[80][72] Min[320][240] Max[80][72] Output optimal[64][48]"));
        node_.reset();
    }
}

TEST_F(Negotiate, GoesOnWithTheMarginItHolds) {
    for (const auto variant : {desk::Variant::RealTime, desk::Variant::LookAhead}) {
        node_ = host_.CreateNode(variant);
        SetMargin(0.25F, 0.25F);
        Query({64, 48}, {64, 48});
        SetMargin(0.5F, 0.5F);
        for (const char* service : {"GetVendorTagBase", "GetMetaData"}) {
            FailService(service);
            EXPECT_EQ(Query({64, 48}, {64, 48}).in.optimalWidth, 80U) << service;
        }
        host_.State().fault = nullptr;
        EXPECT_EQ(Query({64, 48}, {64, 48}).in.optimalWidth, 96U);
        node_.reset();
    }
}

TEST_F(Negotiate, AlignmentsGoOnFromPlaneToPlane) {
    node_ = host_.CreateNode(desk::Variant::RealTime);
    SetMargin(0.0F, 0.0F);
    // The host has alignments for the very first plane only.
    FailService("GetAlignment");
    Answer answer = Query({64, 48}, {64, 48});
    EXPECT_EQ(answer.in.planeAlignment[0].strideAlignment, 0);
    host_.State().fault = [seen = 0](const desk::HostCall& call, uint32_t&) mutable {
        return call.service == "GetAlignment" && seen++ > 0;
    };
    answer = Query({64, 48}, {64, 48});
    for (const LumAlignmentInfo& plane :
         {answer.in.planeAlignment[1], answer.out.planeAlignment[0], answer.out.planeAlignment[1]}) {
        EXPECT_EQ(plane.strideAlignment, 128);
        EXPECT_EQ(plane.scanlineAlignment, 32);
    }
}

TEST_F(Negotiate, NoPortsTouchNothingAndAnImpossibleMarginAborts) {
    node_ = host_.CreateNode(desk::Variant::RealTime);
    LumNodeQueryBufferInfo query = {};
    query.size = sizeof(query);
    query.hNodeSession = node_->Handle();
    TakeLog();
    EXPECT_EQ(host_.Callbacks().QueryBufferInfo(&query), 0U);
    EXPECT_THAT(TakeLog(), ::testing::IsEmpty());
    SetMargin(std::numeric_limits<float>::infinity(), 0.0F);
    EXPECT_EXIT(Query({64, 48}, {64, 48}), ::testing::KilledBySignal(SIGABRT), "");
}
