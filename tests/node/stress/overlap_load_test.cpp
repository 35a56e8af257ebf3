// Many requests of one node at a time, on several threads, against the same requests one after the other.

#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <map>

#include "desk/host/pipelined_driver.h"
#include "desk/host/rules/node_call.h"
#include "platform/nativewindowbuffer.h"
#include "tests/node/fakegl/fake_gl_fixture.h"

namespace {

constexpr size_t Threads = 8;
constexpr size_t InFlight = 2 * Threads;
constexpr uint64_t Grids = static_cast<uint64_t>(500 * TEST_SOAK);  // more than are in flight together
constexpr uint64_t Requests = Threads * Grids;

/// Which of the grids a request has.
uint64_t GridIndex(uint64_t requestId) {
    return (requestId - 1) % Grids + 1;
}

/// A dump file: "Frame 57, ..." is request 57's line.
struct Dump {
    std::vector<uint64_t> order;        ///< requests, as their lines follow one another
    std::map<uint64_t, size_t> values;  ///< digests of what follows the request's id
};

}  // namespace

/// The same requests, first one after the other and then overlapping.
class OverlapLoad : public FakeGlFixture {
protected:
    OverlapLoad() {
        host_.SetLogLevels(1 | 2, false);
        host_.SetDumps(true);
        gl_->watch = [this](const GlCall& call, const GlFault&, uint64_t answer) { Watch(call, answer); };
        for (uint64_t one = 1; one <= Grids; ++one) {
            const auto shift = static_cast<float>(one);
            grids_.push_back(Grid([&](int column, int row) {
                return GridPoint{shift * 0.25F + static_cast<float>(column), static_cast<float>(row) - shift};
            }));
        }
    }

    struct Seen {
        std::vector<uint64_t> drawn;                    ///< requests in the order of their draws
        std::map<uint64_t, std::vector<float>> meshes;  ///< what each drew
        std::map<std::string, Dump> dumps;
        size_t imports = 0;
    };

    /// Takes the requests 1 to `requests` through a new node. Each has buffers to itself on its way.
    Seen Run(desk::Variant variant, uint64_t requests, const desk::ReferenceRequest& reference,
             size_t threads) {
        for (const auto& file : std::filesystem::directory_iterator(dumpDir_)) {
            std::filesystem::remove(file);
        }
        seen_ = {};
        gl_->Take();
        stage_ = std::make_unique<Stage>(host_, variant, InFlight);
        stage_->node->SetReferenceRequest(reference);
        std::vector<std::future<uint32_t>> results(InFlight);
        {
            desk::PipelinedDriver driver(*stage_->node, InFlight, threads);
            for (uint64_t request = 1; request <= requests + InFlight; ++request) {
                std::future<uint32_t>& result = results[request % InFlight];
                if (result.valid()) {
                    EXPECT_EQ(result.get(), 0U);
                }
                if (request <= requests) {
                    result = driver.Submit(stage_->Frame(request, grids_[GridIndex(request) - 1]));
                }
            }
        }
        EXPECT_EQ(gl_->liveImages, 2 * InFlight);
        stage_.reset();
        for (const char* kind : {"Grid", "Tex", "Vert"}) {
            Dump& dump = seen_.dumps[kind];
            for (const std::string& line : DumpLines(kind)) {
                dump.order.push_back(std::stoull(line.substr(std::strlen("Frame "))));
                dump.values[dump.order.back()] = std::hash<std::string>()(line.substr(line.find(',')));
            }
        }
        return std::move(seen_);
    }

private:
    void Watch(const GlCall& call, uint64_t answer) {
        const uint64_t request = desk::CurrentCall().requestId;
        if (call.name == "eglCreateImageKHR") {
            ++seen_.imports;
            handles_[answer] = reinterpret_cast<const ANativeWindowBuffer*>(call.words[3])->handle;
        } else if (call.name == "glBindTexture" || call.name == "glBindFramebuffer") {
            bound_[call.name == "glBindTexture" ? 0 : 1] = call.words[1];
        } else if (call.name == "glEGLImageTargetTexture2DOES") {
            shown_[0][bound_[0]] = handles_[call.words[1]];
        } else if (call.name == "glEGLImageTargetRenderbufferStorageOES") {
            shown_[1][bound_[1]] = handles_[call.words[1]];
        } else if (call.name == "glVertexAttribPointer" && call.words[0] == 5) {
            texCoordinates_ = reinterpret_cast<const float*>(call.words[5]);
        } else if (call.name == "glDrawElements") {
            EXPECT_EQ(shown_[0][bound_[0]], stage_->inputs[request % InFlight]->Handle()) << request;
            EXPECT_EQ(shown_[1][bound_[1]], stage_->outputs[request % InFlight]->Handle()) << request;
            seen_.drawn.push_back(request);
            seen_.meshes[request].assign(texCoordinates_, texCoordinates_ + desk::MeshFloats);
        }
    }

    Seen seen_;
    std::unique_ptr<Stage> stage_;
    std::vector<IPEICAGridTransform> grids_;
    const float* texCoordinates_ = nullptr;
    // Of inputs and of outputs: the name bound last, and the buffer behind each name.
    uint64_t bound_[2] = {};
    std::map<uint64_t, const native_handle_t*> shown_[2];
    std::map<uint64_t, const native_handle_t*> handles_;  // of images
};

TEST_F(OverlapLoad, EveryRequestIsDrawnOnceWithItsOwnBuffersAndGridAndDumpedWhole) {
    const desk::ReferenceRequest follows = [](uint64_t request) { return request - 1; };  // nobody waits
    for (const auto variant : Variants) {
        Seen alone = Run(variant, Grids, {}, 1);
        for (const bool isSequential : {true, false}) {
            SCOPED_TRACE(fmt::format("{}, sequential: {}", desk::NameOf(variant), isSequential));
            const uint64_t requests = isSequential ? Grids : Requests;
            Seen together =
                Run(variant, requests, isSequential ? desk::ReferenceRequest() : follows, Threads);
            EXPECT_EQ(together.imports, 2 * InFlight);
            EXPECT_EQ(together.drawn.size(), requests);
            EXPECT_TRUE(!isSequential || std::is_sorted(together.drawn.begin(), together.drawn.end()));
            // The mesh is dumped where it is drawn; the grid before, by requests that are in flight together.
            EXPECT_EQ(together.dumps["Tex"].order, together.drawn);
            EXPECT_EQ(together.dumps["Vert"].order, together.drawn);
            EXPECT_EQ(together.dumps["Grid"].order.size(), requests);
            uint64_t latest = 0;
            for (const uint64_t request : together.dumps["Grid"].order) {
                latest = std::max(latest, request);
                EXPECT_LT(latest - request, isSequential ? 1 : InFlight);
            }
            for (uint64_t request = 1; request <= requests; ++request) {
                const uint64_t same = GridIndex(request);
                ASSERT_EQ(together.meshes[request], alone.meshes[same]) << request;
                for (auto& [kind, dump] : together.dumps) {
                    ASSERT_EQ(dump.values[request], alone.dumps[kind].values[same]) << kind << request;
                }
            }
        }
    }
}
