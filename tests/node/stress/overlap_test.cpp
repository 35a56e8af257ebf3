// Several requests in one node at a time, as a camera framework has them all day.

#include <fmt/format.h>

#include <unistd.h>

#include <atomic>
#include <chrono>

#include "desk/host/pipelined_driver.h"
#include "desk/host/rules/node_call.h"
#include "tests/node/fakegl/fake_gl_fixture.h"

using namespace std::chrono_literals;

class Overlap : public FakeGlFixture {
protected:
    Overlap() {
        host_.SetLogLevels(1 | 2, false);
        ::alarm(200);  // a pass that waits for good
    }
    ~Overlap() override {
        ::alarm(0);
    }

    void TearDown() override {
        gl_->hold = nullptr;
        host_.fault = nullptr;
        FakeGlFixture::TearDown();
    }

    static constexpr size_t Threads = 8;

    /// Every request follows its reference directly, so none has to wait for its predecessor.
    static uint64_t Predecessor(uint64_t requestId) {
        return requestId - 1;
    }
    desk::NodeFrame FrameOf(uint64_t requestId) {
        return {requestId, &grid_, input_.get(), output_.get()};
    }

    /// Holds the first that passes until it is released.
    struct Gate {
        void Pass() {
            if (isFirst.exchange(false)) {
                reached.set_value();
                released.get_future().wait();
            }
        }
        std::atomic<bool> isFirst = true;
        std::promise<void> reached;
        std::promise<void> released;
    };

    /// Holds the first request to be drawn in its glFlush.
    void HoldFirst(Gate& gate) {
        gl_->hold = [&gate](const GlCall& call) {
            if (call.name == "glFlush") {
                gate.Pass();
            }
        };
    }

    /// Renders request 2 on a thread of its own and holds it in its `nth` call of `name` until released.
    class HeldRequest {
    public:
        HeldRequest(FakeGl& gl, desk::NodeRequest& request, const std::string& name, unsigned nth) : gl_(gl) {
            EXPECT_EQ(request.FirstPass(), 0U);
            gl_.hold = [this, name, nth](const GlCall& call) {
                if (desk::CurrentCall().requestId != 2) {
                    ++callsOfOthers;
                } else if (call.name == name && ++seen_ == nth) {
                    gate_.Pass();
                }
            };
            result_ = std::async(std::launch::async, [&request] { return request.SecondPass(); });
            gate_.reached.get_future().wait();
        }
        void Release() {
            gate_.released.set_value();
            EXPECT_EQ(result_.get(), 0U);
        }
        ~HeldRequest() {
            gl_.hold = nullptr;
        }

        std::atomic<unsigned> callsOfOthers = 0;

    private:
        FakeGl& gl_;
        unsigned seen_ = 0;
        Gate gate_;
        std::future<uint32_t> result_;
    };
};

TEST_F(Overlap, WhileOneRendersFirstPassesReturnAndSecondPassesWait) {
    MakeNode();
    node_->SetReferenceRequest(Predecessor);
    ASSERT_EQ(Frame(), 0U);
    const std::pair<const char*, unsigned> rows[] = {{"eglMakeCurrent", 1}, {"glVertexAttribPointer", 1},
                                                     {"glDrawElements", 1}, {"glFlush", 1},
                                                     {"glFinish", 1},       {"eglMakeCurrent", 2}};
    for (const auto& [call, nth] : rows) {
        SCOPED_TRACE(fmt::format("held in {} {}", call, nth));
        desk::NodeRequest rendering(*node_, FrameOf(2));
        desk::NodeRequest other(*node_, FrameOf(3));
        std::promise<void> hasGrid;
        host_.fault = [&](const desk::HostCall& made, uint32_t&) {
            if (made.caller.requestId == 3 && made.service == "GetMetaData") {
                hasGrid.set_value();
            }
            return false;
        };
        HeldRequest held(*gl_, rendering, call, nth);
        EXPECT_EQ(other.FirstPass(), 0U);

        auto waiting = std::async(std::launch::async, [&] { return other.SecondPass(); });
        hasGrid.get_future().wait();
        EXPECT_EQ(waiting.wait_for(50ms), std::future_status::timeout);
        EXPECT_EQ(held.callsOfOthers, 0U);
        held.Release();
        EXPECT_EQ(waiting.get(), 0U);
        EXPECT_GT(held.callsOfOthers, 0U);
        host_.fault = nullptr;
    }
}

TEST_F(Overlap, EveryOtherCallStandsAlone) {
    MakeNode();
    expectFindings_ = true;
    desk::NodeRequest rendering(*node_, FrameOf(2));
    HeldRequest held(*gl_, rendering, "glFlush", 1);
    EXPECT_THROW(node_->Destroy(), desk::NodeError);
    EXPECT_THROW(node_->Negotiate({64, 48}, {0.25F, 0.25F}), desk::NodeError);
    const LumBufferFormat format = {64, 48};
    LumNodeSetBufferPropertiesInfo properties = {};
    properties.size = sizeof(properties);
    properties.hNodeSession = node_->Handle();
    properties.pFormat = &format;
    EXPECT_EQ(host_.gate->SetBufferInfo(&properties), 1U);
    EXPECT_EQ(held.callsOfOthers, 0U);
    held.Release();
    const auto says = [](const char* call) {
        return fmt::format(
            "the real-time node in {} meets another call on the same node; expected the host to let "
            "only requests overlap",
            call);
    };
    EXPECT_THAT(
        host_.contract.List(),
        ::testing::ElementsAre(says("its destruction"), says("QueryBufferInfo"), says("SetBufferInfo")));
    EXPECT_EQ(Frame(3), 0U) << "the node still lives";
}

TEST_F(Overlap, TheDriverLetsRequestsOvertakeWhereTheNodeAllowsIt) {
    MakeNode();
    node_->SetReferenceRequest(Predecessor);
    // The first to render is held until all are in their second passes.
    Gate gate;
    HoldFirst(gate);
    std::atomic<size_t> rendering = 0;
    host_.fault = [&](const desk::HostCall& call, uint32_t&) {
        if (call.service == "GetMetaData" && ++rendering == Threads) {
            gate.released.set_value();
        }
        return false;
    };
    desk::PipelinedDriver driver(*node_, Threads, Threads);
    for (uint64_t request = 1; request <= Threads; ++request) {
        driver.Submit(FrameOf(request));
    }
}

TEST_F(Overlap, TheDriverHandsOverNoMoreThanItMayAndEveryResult) {
    MakeNode();
    Gate gate;
    HoldFirst(gate);
    desk::PipelinedDriver driver(*node_, 2, Threads);
    auto drawn = driver.Submit(FrameOf(1));
    desk::NodeFrame gridless = FrameOf(2);
    gridless.grid = nullptr;
    auto failed = driver.Submit(gridless);
    auto third = std::async(std::launch::async, [&] { return driver.Submit(FrameOf(3)); });
    EXPECT_EQ(third.wait_for(50ms), std::future_status::timeout) << "two are in flight";
    gate.released.set_value();
    EXPECT_EQ(drawn.get(), 0U);
    EXPECT_EQ(failed.get(), 1U);
    EXPECT_EQ(third.get().get(), 0U);
    for (uint64_t request = 1; request <= 3; ++request) {
        EXPECT_EQ(
            host_.metadata.Find(node_->Session(), request, desk::TagOf(desk::TagKind::Grid, node_->Kind())),
            nullptr)
            << request;
    }
}

TEST_F(Overlap, ARequestThatMeetsANegotiationFailsWithoutItsSecondPass) {
    MakeNode();
    expectFindings_ = true;
    Gate gate;
    std::atomic<unsigned> secondPasses = 0;
    host_.fault = [&](const desk::HostCall& call, uint32_t&) {
        secondPasses += call.caller.phase == desk::PhaseSecondPass ? 1 : 0;
        if (call.service == "GetAlignment") {
            gate.Pass();
        }
        return false;
    };
    auto negotiation = std::async(std::launch::async, [&] { node_->Negotiate({64, 48}, {0.25F, 0.25F}); });
    gate.reached.get_future().wait();
    EXPECT_EQ(desk::PipelinedDriver(*node_, 1, 1).Submit(FrameOf(1)).get(), 1U);
    EXPECT_EQ(secondPasses, 0U);
    gate.released.set_value();
    negotiation.get();
    EXPECT_EQ(host_.contract.List().size(), 1U);
}
