#include <csignal>
#include <cstring>

#include "tests/node/fakegl/fake_gl_fixture.h"

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class Request : public FakeGlFixture {
protected:
    /// A request record with `fences` inputs, filled by hand for what a well-behaved host never sends.
    struct Raw {
        explicit Raw(desk::DeskNode& node, desk::GrallocBuffer& input, desk::GrallocBuffer& output,
                     uint64_t id, uint32_t sequence)
            : inputs(1, input.ImageList()), outputList(output.ImageList()) {
            dependency.processSequenceId = sequence;
            info.size = sizeof(info);
            info.hNodeSession = node.Handle();
            info.requestId = id;
            info.pDependency = &dependency;
            info.outputCount = 1;
            info.outputImageLists = &output_;
        }
        LumNodeProcessRequestInfo* Record() {
            inputs_.clear();
            for (LumImageList& list : inputs) {
                inputs_.push_back(&list);
            }
            info.inputCount = static_cast<uint32_t>(inputs_.size());
            info.inputImageLists = inputs_.data();
            return &info;
        }

        std::vector<LumImageList> inputs;
        LumImageList outputList;
        LumDependencyInfo dependency = {};
        LumNodeProcessRequestInfo info = {};

    private:
        std::vector<LumImageList*> inputs_;
        LumImageList* output_ = &outputList;
    };

    Raw MakeRaw(uint64_t id, uint32_t sequence) {
        return Raw(*node_, *input_, *output_, id, sequence);
    }
    uint32_t Send(Raw& raw) {
        return host_.Callbacks().ProcRequest(raw.Record());
    }
};

TEST_F(Request, FirstPassDeclaresWhatItWaitsFor) {
    for (const auto variant : {desk::Variant::RealTime, desk::Variant::LookAhead}) {
        MakeNode(variant);
        unsigned notices = 0;
        host_.State().fault = [&notices](const desk::HostCall& call, uint32_t&) {
            notices += (call.service == "NotifyRequestDone") ? 1U : 0U;
            return call.service == "NotifyRequestDone";  // its failure changes nothing
        };
        Raw raw = MakeRaw(1, 65536);  // only the low 16 bits tell the pass
        raw.inputs.resize(3, raw.inputs[0]);
        raw.inputs[1].pFenceSignaled = nullptr;
        EXPECT_EQ(Send(raw), 0U);
        EXPECT_EQ(raw.dependency.fenceCount, 2U);
        EXPECT_EQ(raw.dependency.pFenceHandles[1], raw.inputs[2].pFenceHandle);
        EXPECT_EQ(raw.dependency.propertyCount, 1U);
        EXPECT_EQ(raw.dependency.propertyIds[0], host_.State().tags.Id(desk::GridTag(variant)));
        EXPECT_EQ(raw.dependency.processSequenceId, 1U);
        EXPECT_EQ(raw.dependency.inputBufferDependency, 1U);
        EXPECT_EQ(raw.dependency.hNodeSession, node_->Session());
        EXPECT_EQ(raw.dependency.processingDone, 0U);
        EXPECT_EQ(notices, variant == desk::Variant::LookAhead ? 1U : 0U);
        EXPECT_THAT(gl_->Take(), IsEmpty()) << "the first pass renders nothing";
        host_.State().fault = nullptr;
        node_.reset();
    }
}

TEST_F(Request, ANinthFenceAborts) {
    MakeNode();
    Raw raw = MakeRaw(1, 0);
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
        Raw raw = MakeRaw(row.request, 0);
        EXPECT_EQ(Send(raw), 0U);
        EXPECT_EQ(raw.dependency.sequentialExecution, row.flag) << row.request << " after " << row.reference;
    }
}

TEST_F(Request, OtherSequencesTouchNothing) {
    MakeNode();
    for (const uint32_t sequence : {2U, 0xFFFFU, 0x10002U}) {
        Raw raw = MakeRaw(3, sequence);
        const LumDependencyInfo before = raw.dependency;
        EXPECT_EQ(Send(raw), 0U);
        EXPECT_EQ(std::memcmp(&raw.dependency, &before, sizeof(before)), 0);
        EXPECT_EQ(raw.info.lookAheadComplete, 0U);
        EXPECT_THAT(TakeLog(), ElementsAre("I ProcessRequest() [DEWARP_2] Req 3 Seq " +
                                           std::to_string(sequence & 0xFFFF)));
    }
}

TEST_F(Request, AMissingGridFailsTheRequestAndEndsIt) {
    for (const auto variant : {desk::Variant::RealTime, desk::Variant::LookAhead}) {
        MakeNode(variant);
        Raw raw = MakeRaw(4, 1);
        EXPECT_EQ(Send(raw), 1U);
        EXPECT_EQ(raw.dependency.processingDone, 1U);
        EXPECT_EQ(raw.info.lookAheadComplete, variant == desk::Variant::LookAhead ? 1U : 0U);
        EXPECT_THAT(gl_->Take(), IsEmpty());
        EXPECT_THAT(TakeLog('E'),
                    ElementsAre(std::string("E ProcessRequest() [DEWARP_") +
                                (variant == desk::Variant::LookAhead ? "3" : "2") +
                                "] Unable to read m_vendorTagId.ICAInGridTransformTagId vendor tag "
                                "locations"));
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
    EXPECT_THAT(TakeLog('W'), ElementsAre("W DewarpImage() [DEWARP_2] Applying unity transform for 9"));
    EXPECT_THAT(gl_->Take(), Contains("glDrawElements(4, 0x1200, 0x1403, 0x0)"));
}

TEST_F(Request, ThePreviewFlagCountsForTheTagIdOneOnly) {
    MakeNode();
    EXPECT_EQ(Frame(1), 0U);
    node_.reset();
    host_.State().tags.Pin(desk::PreviewTag(), 1);
    const std::string v = "V IsPreviewStreamPresent() [DEWARP_2] ";
    const struct {
        int flag;  // -1: no payload
        bool isRendered;
        std::vector<std::string> log;
    } rows[] = {
        {1, true, {v + "Preview Stream Present[1] for request 1"}},
        {0, false, {v + "Preview Stream Present[0] for request 1", v + "This is time to return request 1"}},
        {2, false, {v + "Preview Stream Present[2] for request 1"}},
        {-1, true, {v + "Unable to read VendorTag bPreviewStreamPresent request 1"}},
    };
    for (const auto& row : rows) {
        MakeNode();
        if (row.flag >= 0) {
            host_.State().metadata.Set(node_->Session(), 1, desk::PreviewTag(),
                                       static_cast<uint8_t>(row.flag));
        }
        EXPECT_EQ(Frame(1), 0U);
        EXPECT_EQ(!gl_->Take().empty(), row.isRendered) << row.flag;
        std::vector<std::string> log = TakeLog('V');
        log.resize(std::min(log.size(), row.log.size()));
        EXPECT_EQ(log, row.log);
        node_.reset();
    }
}
