#include "tests/node/fakegl/established_fixture.h"

class Request : public EstablishedFixture {};

// What a first pass has to declare the host works out for itself.
TEST_F(Request, WaitsForItsPredecessorWhenItIsNotTheNext) {
    MakeNode();
    const std::pair<uint64_t, uint64_t> rows[] = {
        {5, 4}, {5, 3}, {1, 0}, {2, 0}, {5, 5}, {1, 7}, {1ULL << 40, (1ULL << 40) - 1}};
    for (const auto& [request, reference] : rows) {
        node_->SetReferenceRequest([reference = reference](uint64_t) { return reference; });
        EXPECT_EQ(Frame(request), 0U);
    }
}

TEST_F(Request, ThePreviewFlagCountsForTheTagIdOneOnly) {
    MakeNode();
    EXPECT_EQ(Frame(1), 0U);
    NoteLog("another id", "Preview");
    host_.tags.Pin(desk::TagOf(desk::TagKind::Preview), 1);
    for (const int flag : {1, 0, 2, -1}) {  // -1: no payload
        MakeNode();
        if (flag >= 0) {
            host_.metadata.Set(node_->Session(), 1, desk::TagOf(desk::TagKind::Preview),
                               static_cast<uint8_t>(flag));
        }
        EXPECT_EQ(Frame(1), 0U);
        NoteLog(fmt::format("{}, {}", flag, gl_->Take().empty() ? "returned" : "rendered"), "Preview");
    }
}
