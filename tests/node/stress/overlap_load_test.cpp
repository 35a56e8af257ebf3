// Many requests of one node at a time, on several threads, against the same requests one after the other.

#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <map>

#include "desk/host/rules/node_call.h"
#include "tests/node/stress/overlap.h"

namespace {

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

    void Read(const std::vector<std::string>& lines) {
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

    /// Takes the requests 1 to `requests` through a new node. Each has buffers to itself while it is on its
    /// way.
    Seen Run(desk::Variant variant, uint64_t requests, const desk::ReferenceRequest& reference,
             size_t threads) {
        for (const auto& file : std::filesystem::directory_iterator(dumpDir_)) {
            std::filesystem::remove(file);
        }
        seen_ = {};
        MakeNode(variant);
        node_->SetReferenceRequest(reference);
        const Ring ring(*node_, InFlight);
        std::vector<std::future<uint32_t>> results(InFlight);
        {
            desk::PipelinedDriver driver(host_, *node_, InFlight, threads);
            for (uint64_t request = 1; request <= requests + InFlight; ++request) {
                std::future<uint32_t>& result = results[request % InFlight];
                if (result.valid()) {
                    EXPECT_EQ(result.get(), 0U);
                }
                if (request <= requests) {
                    result = driver.Submit(ring.Frame(request, grids_[GridIndex(request) - 1]));
                }
            }
        }
        EXPECT_EQ(gl_->liveImages, 2 * InFlight);
        node_.reset();
        for (const char* kind : {"Grid", "Tex", "Vert"}) {
            seen_.dumps[kind].Read(DumpLines(kind));
        }
        return std::move(seen_);
    }

private:
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
    std::vector<IPEICAGridTransform> grids_;
    const float* texCoordinates_ = nullptr;
};

TEST_F(OverlapLoad, EveryRequestIsDrawnOnceWithItsOwnGridAndDumpedWhole) {
    for (const auto variant : Variants) {
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
        for (uint32_t i = 0; i < input.Stride() * input.Height(); ++i) {
            input.Luma()[i] = static_cast<uint8_t>(Level(request) + static_cast<int>(i % input.Stride()));
        }
    }
    /// Under which nothing changes but for the shift to the right.
    static IPEICAGridTransform GridOf(desk::Size input, uint64_t request) {
        const auto at = [](uint32_t pixels, int cell, float cells) {
            return static_cast<float>(pixels) * (static_cast<float>(cell - 1) / cells - 0.5F);
        };
        return Grid([&](int column, int row) {
            return GridPoint{at(input.width, column, 32) + static_cast<float>(Shift(request)),
                             at(input.height, row, 24)};
        });
    }
};

TEST_F(PixelOverlap, EveryOutputShowsItsOwnInputThroughItsOwnGrid) {
    for (const auto variant : Variants) {
        auto node = host_.CreateNode(variant);
        node->SetReferenceRequest(Predecessor);
        const desk::Negotiated sizes = node->Negotiate({64, 48}, {0.25F, 0.25F});
        const int border = static_cast<int>(sizes.input.width - sizes.output.width) / 2;
        const Ring ring(*node, InFlight);
        std::vector<IPEICAGridTransform> grids(InFlight);
        std::vector<std::future<uint32_t>> results(InFlight);
        const auto check = [&](uint64_t request) {
            ASSERT_EQ(results[request % InFlight].get(), 0U);
            desk::GrallocBuffer& output = *ring.outputs[request % InFlight];
            for (const uint32_t x : {12U, 32U, 52U}) {
                const int expected = Level(request) + border + static_cast<int>(x) + Shift(request);
                ASSERT_NEAR(output.Luma()[24 * output.Stride() + x], expected, 2)
                    << "request " << request << ", x " << x;
            }
        };
        desk::PipelinedDriver driver(host_, *node, InFlight, Threads);
        for (uint64_t request = 1; request <= Requests / 4 + InFlight; ++request) {
            const size_t lane = request % InFlight;
            if (request > InFlight) {
                check(request - InFlight);
            }
            if (request <= Requests / 4) {
                grids[lane] = GridOf(sizes.input, request);
                Fill(*ring.inputs[lane], request);
                results[lane] = driver.Submit(ring.Frame(request, grids[lane]));
            }
        }
        EXPECT_EQ(host_.Counters().gl->liveImages, 2 * InFlight);
    }
}
