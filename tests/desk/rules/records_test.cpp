// What a node leaves behind: the records it is shown, as they were but for what is its own, and nothing else.

#include <dlfcn.h>
#include <fmt/core.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <numeric>

#include "desk/abi/gralloc_layout.h"
#include "tests/desk/rules/rules.h"

void RogueMisdeed(RogueCall& call) {
    misdeed(call);
    rogue = call;
}

namespace {

using namespace desk;
using namespace LumNodeUtils;
using Query = LumNodeQueryBufferInfo;
using Request = LumNodeProcessRequestInfo;

// A byte is flipped in every named field, in long ones at both ends, and one of each kind beside them:
// sentences.txt tells its place, where `now4` and `was8` stand for what 4 or 8 bytes hold then and held
// before.
TEST(Records, AreTheHosts) {
#define AT(...) [](RogueCall& c) -> const void* { return __VA_ARGS__; }
    const struct {
        Phase step;
        const char* name;
        const void* (*find)(RogueCall&);
    } records[] = {
        {PhaseEntry, "the callbacks", AT(c.record)},
        {PhaseCreate, "a creation", AT(c.record)},
        {PhaseQuery, "a query", AT(c.record)},
        {PhaseQuery, "an output port", AT(c.As<Query>().pOutputPortQueryInfo)},
        {PhaseQuery, "an input port", AT(c.As<Query>().pInputOptions)},
        {PhaseQuery, "a requirement", AT(c.As<Query>().pOutputPortQueryInfo->pDownstreamRequirement)},
        {PhaseFirstPass, "a request", AT(c.record)},
        {PhaseFirstPass, "dependencies", AT(c.As<Request>().pDependency)},
        {PhaseFirstPass, "an input list", AT(c.As<Request>().inputImageLists[0])},
        {PhaseFirstPass, "an output list", AT(c.As<Request>().outputImageLists[0])},
        {PhaseSecondPass, "a request", AT(c.record)},
        {PhaseSecondPass, "dependencies", AT(c.As<Request>().pDependency)},
        {PhaseSecondPass, "an input list", AT(c.As<Request>().inputImageLists[0])},
        {PhaseSecondPass, "an output list", AT(c.As<Request>().outputImageLists[0])},
    };
    for (const auto& record : records) {
        for (const std::string& sentence : Sentences(record.name)) {
            const size_t place = std::stoul(sentence.substr(sentence.find("byte ") + 5));
            const size_t width = sentence.find("now8") < 99 ? 8 : sentence.find("now4") < 99 ? 4 : 1;
            uint64_t was = 0;
            uint64_t now = 0;
            const auto flip = [&](RogueCall& c) {
                auto* bytes = static_cast<unsigned char*>(const_cast<void*>(record.find(c))) + place;
                std::memcpy(&was, bytes, width);
                bytes[width - 1] ^= 1;
                std::memcpy(&now, bytes, width);
            };
            const auto findings = FindingsOf({record.step}, flip);
            const std::string expected = fmt::format(
                fmt::runtime(sentence), fmt::arg("who", Caller(record.step)), fmt::arg("now4", now),
                fmt::arg("now8", now), fmt::arg("was4", was), fmt::arg("was8", was));
            EXPECT_THAT(findings, ::testing::ElementsAre(expected));
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
    uint32_t result = 0;
    for (const std::string& text : Sentences("a result")) {
        EXPECT_EQ(ResultText(result++), text);
    }
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
    // Columns, lines and the alignments of the two, and what comes of them.
    for (const std::string& sentence : Sentences("a buffer")) {
        Size size;
        Alignment alignment = {};
        std::istringstream(sentence) >> size.width >> size.height >> alignment.strideAlignment >>
            alignment.scanlineAlignment;
        std::string got;
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
            got = fmt::format("{} x {} in {} bytes, chroma from {}", buffer->Stride(), buffer->Scanline(),
                              buffer->ByteSize(), buffer->Chroma() - buffer->Luma());
        } catch (const std::invalid_argument& error) {
            got = error.what();
        }
        EXPECT_EQ(got, sentence.substr(sentence.find("gives ") + 6));
    }
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
                           {"a context left current", DO(mapGl(); c.gl->contextCurrent = 1)},
                           {"an image left", DO(mapGl(); c.gl->liveImages = 1)},
                           {"a context left", DO(mapGl(); c.gl->liveContexts = 2)},
                           {"a display left", DO(mapGl(); c.gl->initialisedDisplays = 1)},
                           {"an image fewer", DO(c.gl->liveImages = 1; mapGl(); c.gl->liveImages = 0)}});
    Expect({PhaseSecondPass}, {{"a block kept", DO(keep(c.allocate(1)))},
                               {"a descriptor kept", DO(copy(::dup(OutputOf(c)->data[GrallocPixelFd])))}});
    // The context of a frame that failed stays until the next that does not.
    Expect(
        {PhaseCreate | PhaseSecondPass},
        {{"nothing", DO(c.step == PhaseCreate ? mapGl() : void((c.result = 1, c.gl->contextCurrent = 1)))}});
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
