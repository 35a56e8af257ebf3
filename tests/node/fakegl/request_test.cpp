#include <csignal>
#include <cstring>

#include "tests/node/fakegl/established_fixture.h"

using ::testing::IsEmpty;

class Request : public EstablishedFixture {};

TEST_F(Request, FirstPassDeclaresWhatItWaitsFor) {
    for (const auto variant : Variants) {
        MakeNode(variant);
        unsigned notices = 0;
        host_.State().fault = [&notices](const desk::HostCall& call, uint32_t&) {
            notices += (call.service == "NotifyRequestDone") ? 1U : 0U;
            return call.service == "NotifyRequestDone";  // its failure changes nothing
        };
        RawRequest raw = MakeRaw(1, 65536);  // only the low 16 bits tell the pass
        raw.inputs.resize(3, raw.inputs[0]);
        raw.inputs[1].pFenceSignaled = nullptr;
        EXPECT_EQ(Send(raw), 0U);
        const LumDependencyInfo& declared = raw.dependency;
        Note("{}: {} fences, {} property, sequence {}, input buffers {}, done {}; {} notices",
             desk::NameOf(variant), declared.fenceCount, declared.propertyCount, declared.processSequenceId,
             declared.inputBufferDependency, declared.processingDone, notices);
        EXPECT_EQ(declared.pFenceHandles[1], raw.inputs[2].pFenceHandle);
        EXPECT_EQ(declared.propertyIds[0], host_.State().tags.Id(desk::GridTag(variant)));
        EXPECT_EQ(declared.hNodeSession, node_->Session());
        EXPECT_THAT(gl_->Take(), IsEmpty()) << "the first pass renders nothing";
        host_.State().fault = nullptr;
        node_.reset();
    }
}

TEST_F(Request, ANinthFenceAborts) {
    MakeNode();
    RawRequest raw = MakeRaw(1, 0);
    raw.inputs.resize(8, raw.inputs[0]);
    EXPECT_EQ(Send(raw), 0U);
    EXPECT_EQ(raw.dependency.fenceCount, 8U);
    raw.inputs.resize(9, raw.inputs[0]);
    raw.dependency.processSequenceId = 0;
    EXPECT_EXIT(Send(raw), ::testing::KilledBySignal(SIGABRT), "");
}

TEST_F(Request, WaitsForItsPredecessorWhenItIsNotTheNext) {
    MakeNode();
    const struct {
        uint64_t request;
        uint64_t reference;
        uint32_t flag;
    } rows[] = {
        {5, 4, 0}, {5, 3, 1}, {1, 0, 0}, {2, 0, 1}, {5, 5, 1}, {1, 7, 0}, {1ULL << 40, (1ULL << 40) - 1, 0}};
    for (const auto& row : rows) {
        node_->SetReferenceRequest([&row](uint64_t) { return row.reference; });
        RawRequest raw = MakeRaw(row.request, 0);
        EXPECT_EQ(Send(raw), 0U);
        EXPECT_EQ(raw.dependency.sequentialExecution, row.flag) << row.request << " after " << row.reference;
    }
}

TEST_F(Request, OtherSequencesTouchNothing) {
    MakeNode();
    for (const uint32_t sequence : {2U, 0xFFFFU, 0x10002U}) {
        RawRequest raw = MakeRaw(3, sequence);
        const LumDependencyInfo before = raw.dependency;
        EXPECT_EQ(Send(raw), 0U);
        EXPECT_EQ(std::memcmp(&raw.dependency, &before, sizeof(before)), 0);
        EXPECT_EQ(raw.info.lookAheadComplete, 0U);
        NoteLog(std::to_string(sequence));
    }
}

TEST_F(Request, AMissingGridFailsTheRequestAndEndsIt) {
    for (const auto variant : Variants) {
        MakeNode(variant);
        RawRequest raw = MakeRaw(4, 1);
        EXPECT_EQ(Send(raw), 1U);
        Note("{}: done {}, look-ahead complete {}", desk::NameOf(variant), raw.dependency.processingDone,
             raw.info.lookAheadComplete);
        NoteLog("logged");
        EXPECT_THAT(gl_->Take(), IsEmpty());
        node_.reset();
    }
}

TEST_F(Request, ADisabledGridIsUnityWhateverItHolds) {
    MakeNode();
    host_.SetDumps(false);
    grid_ = Grid([](int column, int row) {
        return GridPoint{static_cast<float>(column), static_cast<float>(row)};
    });
    grid_.gridTransformEnable = 2;
    EXPECT_EQ(Frame(9), 0U);
    NoteLines("warnings", TakeLog('W'));
    EXPECT_THAT(gl_->Take(), ::testing::Contains("glDrawElements(4, 0x1200, 0x1403, 0x0)"));
}

TEST_F(Request, ThePreviewFlagCountsForTheTagIdOneOnly) {
    MakeNode();
    EXPECT_EQ(Frame(1), 0U);
    NoteLog("another id", "Preview");
    node_.reset();
    host_.State().tags.Pin(desk::PreviewTag(), 1);
    for (const int flag : {1, 0, 2, -1}) {  // -1: no payload
        MakeNode();
        if (flag >= 0) {
            host_.State().metadata.Set(node_->Session(), 1, desk::PreviewTag(), static_cast<uint8_t>(flag));
        }
        EXPECT_EQ(Frame(1), 0U);
        NoteLog(fmt::format("{}, {}", flag, gl_->Take().empty() ? "returned" : "rendered"), "Preview");
        node_.reset();
    }
}
