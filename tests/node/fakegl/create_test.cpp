#include "tests/node/fakegl/established_fixture.h"

class Create : public EstablishedFixture {};

TEST_F(Create, BringsTheEngineUpInOrder) {
    node_ = host_.CreateNode(desk::Variant::RealTime);
    NoteCalls("creation");
    node_.reset();
    NoteCalls("destruction");
}

TEST_F(Create, SaysWhatItDidPerVariant) {
    for (const auto variant : Variants) {
        auto node = host_.CreateNode(variant);
        NoteLog(desk::NameOf(variant));
        Note("extra buffers: {}",
             host_.metadata.Get<uint32_t>(node->Session(), 0, desk::TagOf(desk::TagKind::ExtraBuffers))
                 .value_or(0));
    }
}

TEST_F(Create, TakesTheFirstConfigThatFitsExactly) {
    gl_->configs = {{8, 8, 8, 8, 16, 8, 0, 0}, {8, 8, 8, 8, 24, 8, 1, 4}, {8, 8, 8, 0, 24, 8, 0, 0},
                    {8, 8, 8, 8, 24, 0, 0, 0}, {8, 8, 8, 8, 24, 8, 0, 0}, {8, 8, 8, 8, 24, 8, 0, 0}};
    node_ = host_.CreateNode(desk::Variant::LookAhead);
    EXPECT_THAT(gl_->Take(), ::testing::Contains("eglCreateContext(0xd1, 0xcf04, 0x0, ptr)"));
}
