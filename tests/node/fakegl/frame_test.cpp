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
    grid_.gridTransformEnable = 0;
    EXPECT_EQ(Frame(8), 0U);
    NoteLog("frame of cached buffers and no grid");
    node_.reset();
    NoteLog("destruction");
}

TEST_F(FrameCalls, ConvertFormatsOnceAndForAll) {
    for (const uint32_t format : {3U, 4U, 13U, 5U}) {
        MakeNode();
        host_.metadata.Set(node_->Session(), 1, desk::TagOf(desk::TagKind::Grid, desk::Variant::RealTime),
                           grid_);
        LumImageList input = input_->ImageList();
        LumImageList output = output_->ImageList();
        LumImageList* lists[] = {&input, &output};
        for (const uint32_t one : {format, 99U}) {
            input.format = output.format = static_cast<LumFormat>(one);
            LumDependencyInfo dependency = {};
            dependency.processSequenceId = 1;
            auto info = desk::PatternedRecord<LumNodeProcessRequestInfo>();
            info.hNodeSession = node_->Handle();
            info.requestId = info.inputCount = info.outputCount = 1;
            info.pDependency = &dependency;
            info.inputImageLists = &lists[0];
            info.outputImageLists = &lists[1];
            EXPECT_EQ(host_.gate->ProcRequest(&info), 0U);
            NoteLog(std::to_string(one), "ConvertLumFormat");
        }
    }
}
