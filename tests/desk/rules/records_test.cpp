// What a node leaves behind: the records it is shown, as they were but for what is its own, and nothing else.

#include <fmt/core.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <numeric>

#include "desk/abi/gralloc_layout.h"
#include "desk/host/rules/record_watch.h"
#include "tests/desk/rules/rules.h"

namespace {

using namespace desk;
using namespace LumNodeUtils;
using Query = LumNodeQueryBufferInfo;
using Request = LumNodeProcessRequestInfo;

/// A record that a step shows to the node: where its named fields are, and one of each kind of byte beside
/// them.
struct Shown {
    Phase step;
    const char* name;
    std::function<void*(RogueCall&)> find;
    std::vector<RecordField> fields;
    std::vector<size_t> others;
};

std::vector<Shown> ShownRecords() {
#define AT(...) [](RogueCall& c) -> void* { return __VA_ARGS__; }
    const auto own = AT(c.record);
    const auto output = AT(c.As<Query>().pOutputPortQueryInfo);
    const auto input = AT(c.As<Query>().pInputOptions);
    const auto wanted =
        AT(const_cast<LumNodeBufferRequirement*>(c.As<Query>().pOutputPortQueryInfo->pDownstreamRequirement));
    const auto dependency = AT(c.As<Request>().pDependency);
    const auto inputs = AT(c.As<Request>().inputImageLists[0]);
    const auto outputs = AT(c.As<Request>().outputImageLists[0]);
    // In a requirement the format and the third plane's alignment are the host's.
    constexpr size_t Format = offsetof(LumNodeBufferRequirement, format);
    constexpr size_t Plane2 = offsetof(LumNodeBufferRequirement, planeAlignment[2]);
    std::vector<RecordField> create = CreateFields;
    create.erase(create.begin() + 1);  // the handle is the node's to fill
    std::vector<Shown> shown = {
        {PhaseEntry, "LumNodeCallbacks", own, {}, {12}},
        {PhaseCreate, "LumNodeCreateInfo", own, create, {4, 71}},
        {PhaseQuery, "LumNodeQueryBufferInfo", own, {}, {4, 16}},
        {PhaseQuery, "LumOutputPortQueryInfo", output, {}, {0, 16 + Format, 16 + Plane2, 95}},
        {PhaseQuery, "LumInputPortQueryInfo", input, {}, {0, 4 + Format, 4 + Plane2}},
        {PhaseQuery, "the downstream requirement", wanted, {}, {0, Plane2}},
    };
    for (const Phase pass : {PhaseFirstPass, PhaseSecondPass}) {
        shown.push_back({pass, "LumNodeProcessRequestInfo", own, RequestFields, {4, 103}});
        shown.push_back({pass, "LumDependencyInfo", dependency, DependencyFields, {0, 276}});
        shown.push_back({pass, "LumImageList", inputs, {}, {0}});
        shown.push_back({pass, "LumImageList", outputs, ImageListFields, {0}});
    }
    return shown;
}

TEST(Records, AreTheHosts) {
    for (Shown& record : ShownRecords()) {
        std::vector<std::pair<RecordField, size_t>> flips;  // of the first word and of the last
        for (const RecordField& field : record.fields) {
            flips.emplace_back(field, 0);
            if (const size_t width = field.size % 8 == 0 ? 8 : 4; field.size > width) {
                flips.emplace_back(field, field.size - width);
            }
        }
        for (const size_t offset : record.others) {
            flips.push_back({{nullptr, offset, 1}, 0});
        }
        for (const auto& [field, word] : flips) {
            std::string sentence = Caller(record.step);
            const Misdeed flip = [&, field = field, place = field.offset + word](RogueCall& call) {
                auto* bytes = static_cast<unsigned char*>(record.find(call)) + place;
                uint64_t words[2] = {};  // before and after
                const size_t width = field.size % 8 == 0 ? 8 : std::min<size_t>(field.size, 4);
                std::memcpy(&words[0], bytes, width);
                bytes[width - 1] ^= 1;
                std::memcpy(&words[1], bytes, width);
                sentence +=
                    field.name == nullptr
                        ? fmt::format(" changed byte {} of {}, which belongs to the host", place, record.name)
                        : fmt::format(" leaves {:#x} in {}.{} (byte {}); expected {:#x}", words[1],
                                      record.name, field.name, place, words[0]);
            };
            const auto findings = FindingsOf({record.step}, flip);
            EXPECT_THAT(findings, ::testing::ElementsAre(sentence));
        }
    }
    Expect({PhaseFirstPass},
           {{"a changed handle", DO(++OutputOf(c)->data[GrallocFdCount + GrallocIntSize])}});
}

TEST(Records, SayWhatTheHostWants) {
    const auto look = [](RogueCall& c) {
        if (c.step == PhaseCreate) {
            const auto& made = c.As<LumNodeCreateInfo>();
            EXPECT_EQ(made.nodeId, made.instanceId);
            EXPECT_NE(static_cast<char*>(c.record)[4], 0)
                << "which a node could leave without being found out";
        } else {
            const auto& request = c.As<Request>();
            EXPECT_EQ(request.lookAheadComplete, 0U);
            EXPECT_EQ(request.pDependency->processingDone, 0U);
            // Only the first does not follow the one that was finished last.
            EXPECT_EQ(request.pDependency->sequentialExecution, request.requestId == 7 ? 1U : 0U);
        }
    };
    Expect({PhaseCreate | PhaseFirstPass, RT, {7, 8, 9}}, {{"nothing", look}});
    std::string words;
    for (uint32_t result = 0; result < 16; ++result) {
        words += "; " + ResultText(result);
    }
    EXPECT_THAT(Sentences("results"), ::testing::ElementsAre(words.substr(2)));
}

TEST(Buffers, AreAsLargeAsTheirAlignmentsSay) {
    const auto countMapped = [] {
        std::ifstream maps("/proc/self/maps");
        size_t count = 0;
        for (std::string line; std::getline(maps, line);) {
            count += line.find("desk-gralloc") != std::string::npos;
        }
        return count;
    };
    const std::pair<Size, Alignment> asked[] = {
        {{2, 2}, {0, 0}},     {{3, 5}, {1, 1}},     {{130, 50}, {128, 32}}, {{128, 32}, {128, 32}},
        {{64, 48}, {96, 20}}, {{16384, 2}, {0, 0}}, {{2, 16384}, {0, 0}},   {{2, 2}, {16384, 0}},
        {{2, 2}, {0, 16384}}, {{1, 2}, {0, 0}},     {{2, 1}, {0, 0}},       {{16385, 2}, {0, 0}},
        {{2, 16385}, {0, 0}}, {{2, 2}, {-1, 0}},    {{2, 2}, {0, -1}},      {{2, 2}, {16385, 0}},
        {{2, 2}, {0, 16385}}};
    std::vector<std::string> got;
    for (const auto& [size, alignment] : asked) {
        try {
            const auto buffer = GrallocBuffer::Create(size, alignment);
            const auto bytes = [&] {
                return std::accumulate(buffer->Luma(), buffer->Luma() + buffer->ByteSize(), 0U);
            };
            EXPECT_EQ(bytes(), 0U);
            *buffer->Chroma() = 7;
            buffer->Remap();
            EXPECT_EQ(bytes(), 7U);
            EXPECT_EQ(countMapped(), GrallocBuffer::LiveCount());
            got.push_back(fmt::format("{} x {}: {} x {} in {} bytes, chroma from {}", buffer->Width(),
                                      buffer->Height(), buffer->Stride(), buffer->Scanline(),
                                      buffer->ByteSize(), buffer->Chroma() - buffer->Luma()));
        } catch (const std::invalid_argument& error) {
            got.push_back(error.what());
        }
    }
    EXPECT_EQ(got, Sentences("a buffer"));
    EXPECT_EQ(countMapped(), 0U);
}

TEST(Teardown, LeavesNothing) {
    const auto map = [] { return LibMapFullName("/system/lib64/" TEST_ROGUE_NAME); };
    const auto mapGl = [&] { LibUnmap(map()); };  // the rogue is the device's GL library
    const auto keep = [](void* block) { leftover = [block] { std::free(block); }; };
    const auto copy = [](int copied) { leftover = [copied] { ::close(copied); }; };
    Expect({PhaseCreate}, {{"no handle", DO(c.As<LumNodeCreateInfo>().phNodeSession = nullptr)},
                           {"a file left open", DO(FOpen("/data/vendor/camera/x", "a"))},
                           {"a library left mapped", DO(map(); mapGl())},
                           {"a context left current", DO(mapGl(); c.gl.contextCurrent = 1)},
                           {"an image left", DO(mapGl(); c.gl.liveImages = 1)},
                           {"a context left", DO(mapGl(); c.gl.liveContexts = 2)},
                           {"a display left", DO(mapGl(); c.gl.initialisedDisplays = 1)},
                           {"an image fewer", DO(c.gl.liveImages = 1; mapGl(); c.gl.liveImages = 0)}});
    Expect({PhaseSecondPass}, {{"a block kept", DO(keep(c.allocate(1)))},
                               {"a descriptor kept", DO(copy(::dup(OutputOf(c)->data[GrallocPixelFd])))}});
    // The context of a frame that failed stays until the next that does not.
    Expect(
        {PhaseCreate | PhaseSecondPass},
        {{"nothing", DO(c.step == PhaseCreate ? mapGl() : void((c.result = 1, c.gl.contextCurrent = 1)))}});
    const auto alive = GrallocBuffer::Create({2, 2}, {});
    Expect({PhaseDestroy}, {{"nothing", DO()}});
    Expect({PhaseDestroy}, {{"a handle left", DO(c.As<LumNodedestroyInfo>().hNodeSession = &elsewhere)},
                            {"no destruction", DO(c.result = LumResultFailure)}});
}

TEST(Teardown, ALibraryThatIsNoDewarpNodeIsRefused) {
    const auto says = [](const char* message) {
        return ::testing::ThrowsMessage<std::runtime_error>(::testing::HasSubstr(message));
    };
    const auto leaveOut = DO(std::memset(&c.As<LumNodeCallbacks>().Create, HostPattern, sizeof(void*)));
    EXPECT_THAT([&] { FindingsOf({PhaseEntry}, leaveOut); }, says("LumNodeEntry left one of the eight"));
    EXPECT_THAT([] { FindingsOf({PhaseInterface}, DO(c.result = 1)); },
                says("take the host's services: result 1"));
    EXPECT_THAT([] { FindingsOf({PhaseCaps}, DO(c.As<LumNodeCapsInfo>().nodeCapsMask = 1)); },
                says("reports the capabilities 1 (result 0, success); expected 384"));
    Dl_info library = {};  // without an entry
    ASSERT_NE(0, ::dladdr(reinterpret_cast<void*>(&::getppid), &library));
    const std::string other = TEST_ROGUE_LIBRARY;
    EXPECT_THROW(FindingsOf({PhaseCreate}, DO(DeskHost({other, {}, {}, nullptr}))), std::logic_error);
    EXPECT_THAT([&] { DeskHost({TEST_SENTENCES, {}, {}, nullptr}); }, says(".txt cannot be loaded: "));
    EXPECT_THAT([&] { DeskHost({library.dli_fname, {}, {}, nullptr}); }, says(" has no LumNodeEntry"));
}

}  // namespace
