#include "tests/node/fakegl/established_fixture.h"

class FrameCalls : public EstablishedFixture {};

TEST_F(FrameCalls, AreTheEstablishedSequence) {
    MakeNode();
    EXPECT_EQ(Frame(1), 0U);
    NoteCalls("importing frame");
    EXPECT_EQ(Frame(2), 0U);
    NoteCalls("frame of cached buffers");
    input_->Remap();
    EXPECT_EQ(Frame(3), 0U);
    NoteCalls("frame of a stale input");
    EXPECT_EQ(gl_->liveImages, 2U);
    node_.reset();
    EXPECT_EQ(gl_->liveImages + gl_->liveNames, 0U);
}

TEST_F(FrameCalls, AreLoggedInTheEstablishedWords) {
    MakeNode();
    const LumImage in = input_->ImageList().firstImage;
    const LumImage out = output_->ImageList().firstImage;
    Name("in_fd", in.fd);
    Name("in_address", in.pAddr);
    Name("in_handle", static_cast<void*>(in.pNativeHandle));
    Name("out_fd", out.fd);
    Name("out_address", out.pAddr);
    Name("out_handle", static_cast<void*>(out.pNativeHandle));
    EXPECT_EQ(Frame(7), 0U);
    NoteLog("importing frame");
    EXPECT_EQ(Frame(8), 0U);
    NoteLog("frame of cached buffers");
    node_.reset();
    NoteLog("destruction");
}

TEST_F(FrameCalls, ConvertFormatsOnceAndForAll) {
    for (const uint32_t format : {3U, 4U, 13U, 5U}) {
        MakeNode();
        RawRequest raw = MakeRaw(1, 1);
        host_.State().metadata.Set(node_->Session(), 1, desk::GridTag(desk::Variant::RealTime), grid_);
        raw.inputs[0].format = raw.output.format = static_cast<LumFormat>(format);
        EXPECT_EQ(Send(raw), 0U);
        NoteLog(std::to_string(format), "ConvertLumFormat");
        raw.inputs[0].format = raw.output.format = static_cast<LumFormat>(99);
        raw.dependency.processingDone = 0;
        EXPECT_EQ(Send(raw), 0U);
        NoteLog("then 99", "Convert");
        node_.reset();
    }
}

TEST_F(FrameCalls, AllocateNothingInSteadyState) {
    MakeNode();
    ASSERT_EQ(Frame(1), 0U);
    const uint64_t before = host_.Counters().totalAllocations;
    for (uint64_t request = 2; request < 20; ++request) {
        ASSERT_EQ(Frame(request), 0U);
    }
    EXPECT_EQ(host_.Counters().totalAllocations, before);
}
