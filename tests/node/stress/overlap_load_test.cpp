// Many requests of one node at a time, on several threads, against the same requests one after the other.

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <future>
#include <map>

#include "desk/host/pipelined_driver.h"
#include "desk/host/rules/node_call.h"
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

/// Every request follows its reference directly, so none has to wait for its predecessor.
uint64_t Predecessor(uint64_t requestId) {
    return requestId - 1;
}

/// A dump file: "Frame 57, ..." is request 57's line.
struct Dump {
    std::vector<uint64_t> order;        ///< requests, as their lines follow one another
    std::map<uint64_t, size_t> values;  ///< digests of what follows the request's id

    Dump() = default;
    explicit Dump(const std::vector<std::string>& lines) {
        for (const std::string& line : lines) {
            order.push_back(std::stoull(line.substr(std::strlen("Frame "))));
            values[order.back()] = std::hash<std::string>()(line.substr(line.find(',')));
        }
    }
};

}  // namespace

/// The same requests, first one after the other and then overlapping.
class OverlapLoad : public FakeGlFixture {
protected:
    OverlapLoad() {
        host_.SetLogLevels(1 | 2, false);
        host_.SetDumps(true);
        gl_->watch = [this](const GlCall& call, const GlFault&, uint64_t) { Watch(call); };
    }

    struct Seen {
        std::vector<uint64_t> drawn;                    ///< requests in the order of their draws
        std::map<uint64_t, std::vector<float>> meshes;  ///< what each drew
        std::map<std::string, Dump> dumps;
        size_t imports = 0;
    };

    /// Takes the requests 1 to `requests` through a new node. Each has a buffer of a ring of InFlight to
    /// itself.
    Seen Run(desk::Variant variant, uint64_t requests, const desk::ReferenceRequest& reference,
             size_t threads) {
        for (const auto& file : std::filesystem::directory_iterator(dumpDir_)) {
            std::filesystem::remove(file);
        }
        seen_ = {};
        MakeNode(variant);
        node_->SetReferenceRequest(reference);
        std::vector<std::shared_ptr<desk::GrallocBuffer>> inputs(InFlight);
        std::vector<std::shared_ptr<desk::GrallocBuffer>> outputs(InFlight);
        std::generate(inputs.begin(), inputs.end(), [this] { return node_->AllocateInput(); });
        std::generate(outputs.begin(), outputs.end(), [this] { return node_->AllocateOutput(); });
        std::vector<std::future<uint32_t>> results(InFlight);
        {
            desk::PipelinedDriver driver(host_, *node_, InFlight, threads);
            for (uint64_t request = 1; request <= requests + InFlight; ++request) {
                const size_t lane = request % InFlight;
                if (results[lane].valid()) {
                    EXPECT_EQ(results[lane].get(), 0U);
                }
                if (request <= requests) {
                    results[lane] =
                        driver.Submit({request, &GridOf(request), inputs[lane].get(), outputs[lane].get()});
                }
            }
        }
        EXPECT_EQ(gl_->liveImages, 2 * InFlight);
        node_.reset();
        for (const char* kind : {"Grid", "Tex", "Vert"}) {
            seen_.dumps[kind] = Dump(DumpLines(kind));
        }
        return std::move(seen_);
    }

private:
    const IPEICAGridTransform& GridOf(uint64_t request) {
        const uint64_t one = GridIndex(request);
        IPEICAGridTransform& grid = grids_[one];
        if (grid.gridTransformEnable == 0) {
            const auto shift = static_cast<float>(one);
            grid = Grid([&](int column, int row) {
                return GridPoint{shift * 0.25F + static_cast<float>(column), static_cast<float>(row) - shift};
            });
        }
        return grid;
    }
    void Watch(const GlCall& call) {
        if (call.name == "eglCreateImageKHR") {
            ++seen_.imports;
        } else if (call.name == "glVertexAttribPointer" && call.words[0] == 5) {
            texCoordinates_ = reinterpret_cast<const float*>(call.words[5]);
        } else if (call.name == "glDrawElements") {
            const uint64_t request = desk::CurrentCall().requestId;
            seen_.drawn.push_back(request);
            seen_.meshes[request].assign(texCoordinates_, texCoordinates_ + desk::MeshFloats);
        }
    }

    Seen seen_;
    std::map<uint64_t, IPEICAGridTransform> grids_;
    const float* texCoordinates_ = nullptr;
};

TEST_F(OverlapLoad, EveryRequestIsDrawnOnceWithItsOwnGridAndDumpedWhole) {
    for (const auto variant : {desk::Variant::RealTime, desk::Variant::LookAhead}) {
        Seen alone = Run(variant, Grids, {}, 1);
        for (const bool isSequential : {true, false}) {
            SCOPED_TRACE(fmt::format("{}, sequential: {}", desk::NameOf(variant), isSequential));
            const uint64_t requests = isSequential ? Grids : Requests;
            Seen together =
                Run(variant, requests, isSequential ? desk::ReferenceRequest() : Predecessor, Threads);
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

/// Over real pixels: a ramp of luma that begins at another level in each request, and a shift of its own.
class PixelOverlap : public NodeFixture {
protected:
    PixelOverlap() : NodeFixture(nullptr) {
        host_.SetLogLevels(1 | 2, false);
    }

    static int Level(uint64_t request) {
        return 20 + static_cast<int>(request * 13 % 100);
    }
    static int Shift(uint64_t request) {
        return static_cast<int>(request % 9) - 4;
    }
    static void Fill(desk::GrallocBuffer& input, uint64_t request) {
        for (uint32_t y = 0; y < input.Height(); ++y) {
            for (uint32_t x = 0; x < input.Width(); ++x) {
                input.Luma()[y * input.Stride() + x] =
                    static_cast<uint8_t>(Level(request) + static_cast<int>(x));
            }
        }
    }
};

TEST_F(PixelOverlap, EveryOutputShowsItsOwnInputThroughItsOwnGrid) {
    for (const auto variant : {desk::Variant::RealTime, desk::Variant::LookAhead}) {
        auto node = host_.CreateNode(variant);
        node->SetReferenceRequest(Predecessor);
        const desk::Negotiated sizes = node->Negotiate({64, 48}, {0.25F, 0.25F});
        struct Lane {
            std::shared_ptr<desk::GrallocBuffer> input;
            std::shared_ptr<desk::GrallocBuffer> output;
            IPEICAGridTransform grid{};
            uint64_t request = 0;
            std::future<uint32_t> result;
        };
        std::vector<Lane> lanes(InFlight);
        for (Lane& lane : lanes) {
            lane.input = node->AllocateInput();
            lane.output = node->AllocateOutput();
        }
        const auto check = [&](Lane& lane) {
            if (!lane.result.valid()) {
                return;
            }
            ASSERT_EQ(lane.result.get(), 0U);
            const int border = static_cast<int>(sizes.input.width - sizes.output.width) / 2;
            for (const uint32_t x : {12U, 32U, 52U}) {
                const int expected = Level(lane.request) + border + static_cast<int>(x) + Shift(lane.request);
                ASSERT_NEAR(lane.output->Luma()[24 * lane.output->Stride() + x], expected, 2)
                    << "request " << lane.request << ", x " << x;
            }
        };
        {
            desk::PipelinedDriver driver(host_, *node, InFlight, Threads);
            for (uint64_t request = 1; request <= Requests / 4; ++request) {
                Lane& lane = lanes[request % InFlight];
                check(lane);
                lane.request = request;
                lane.grid = Grid([&](int column, int row) {
                    // Nothing changes but for the shift to the right.
                    const auto at = [](uint32_t pixels, float fraction) {
                        return static_cast<float>(pixels) * (fraction - 0.5F);
                    };
                    return GridPoint{
                        at(sizes.input.width, static_cast<float>(column - 1) / desk::CellColumns) +
                            static_cast<float>(Shift(request)),
                        at(sizes.input.height, static_cast<float>(row - 1) / desk::CellRows)};
                });
                Fill(*lane.input, request);
                lane.result = driver.Submit({request, &lane.grid, lane.input.get(), lane.output.get()});
            }
        }
        for (Lane& lane : lanes) {
            check(lane);
        }
        EXPECT_EQ(host_.Counters().gl->liveImages, 2 * InFlight);
    }
}
