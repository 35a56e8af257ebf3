#include <cmath>
#include <csignal>
#include <limits>

#include "tests/node/fakegl/established_fixture.h"

class Negotiate : public EstablishedFixture {
protected:
    /// One query with the given downstream sizes; the input's requirement and the output's.
    struct Answer {
        LumNodeBufferRequirement in;
        LumNodeBufferRequirement out;
    };

    Answer Query(desk::Size optimal = {64, 48}, desk::Size largest = {64, 48}) {
        const LumNodeBufferRequirement downstream = {
            320, 240, largest.width, largest.height, optimal.width, optimal.height, {}, {}};
        LumOutputPortQueryInfo output = {};
        output.pDownstreamRequirement = &downstream;
        output.outputPortId = 6;
        LumInputPortQueryInfo input = {};
        input.inputPortId = 5;
        output.outputBufferOption.format = input.inputBufferOption.format = desk::LumFormatNv12;
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
    static std::string Text(const LumNodeBufferRequirement& one) {
        return fmt::format("{}x{} ({}x{} to {}x{})", one.optimalWidth, one.optimalHeight, one.minWidth,
                           one.minHeight, one.maxWidth, one.maxHeight);
    }
};

TEST_F(Negotiate, WidensTheInputByTheMargin) {
    node_ = host_.CreateNode(desk::Variant::RealTime);
    const struct {
        desk::Size optimal;
        float horizontal = 0;
        float vertical = 0;
        desk::Size largest;
    } rows[] = {
        {{1011, 1080}, 0.15F, 0.15F, {4096, 3072}}, {{1011, 1080}, 0.15F, 0.15F, {1011, 1080}},
        {{1920, 1080}, 0.2F, 0.1F, {1920, 1080}},   {{641, 481}, -0.5F, std::nanf(""), {641, 481}},
        {{1920, 1080}, 0.0F, 0.0F, {800, 600}},
    };
    for (const auto& row : rows) {
        SetMargin(row.horizontal, row.vertical);
        const Answer answer = Query(row.optimal, row.largest);
        const auto dims = host_.State().metadata.Get<LumStabilizedOutputDims>(
            node_->Session(), 0, desk::OutputDimsTag(node_->Kind()));
        ASSERT_TRUE(dims.has_value());
        Note("margin {}, {}: input {}, output {}, published {}x{}", row.horizontal, row.vertical,
             Text(answer.in), Text(answer.out), dims->width, dims->height);
    }
}

TEST_F(Negotiate, SpeaksPerVariant) {
    for (const auto variant : Variants) {
        node_ = host_.CreateNode(variant);
        SetMargin(0.25F, 0.5F);
        TakeLog();
        Query();
        NoteLog(desk::NameOf(variant));
        node_.reset();
    }
}

TEST_F(Negotiate, GoesOnWithTheMarginItHolds) {
    for (const auto variant : Variants) {
        node_ = host_.CreateNode(variant);
        SetMargin(0.25F, 0.25F);
        Query();
        SetMargin(0.5F, 0.5F);
        for (const char* service : {"GetVendorTagBase", "GetMetaData"}) {
            FailService(service);
            EXPECT_EQ(Query().in.optimalWidth, 80U) << service;
        }
        host_.State().fault = nullptr;
        EXPECT_EQ(Query().in.optimalWidth, 96U);
        node_.reset();
    }
}

TEST_F(Negotiate, AlignmentsGoOnFromPlaneToPlane) {
    node_ = host_.CreateNode(desk::Variant::RealTime);
    SetMargin(0.0F, 0.0F);
    // The host has alignments for none of the planes, then for the very first only.
    for (const int served : {0, 1}) {
        host_.State().fault = [seen = 0, served](const desk::HostCall& call, uint32_t&) mutable {
            return call.service == "GetAlignment" && seen++ >= served;
        };
        const Answer answer = Query();
        for (const LumAlignmentInfo& plane : {answer.in.planeAlignment[0], answer.in.planeAlignment[1],
                                              answer.out.planeAlignment[0], answer.out.planeAlignment[1]}) {
            EXPECT_EQ(plane.strideAlignment, served * 128);
            EXPECT_EQ(plane.scanlineAlignment, served * 32);
        }
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
    EXPECT_EXIT(Query(), ::testing::KilledBySignal(SIGABRT), "");
}
