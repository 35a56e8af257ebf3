// Every rule of the host, broken once by a library that is made for it (rogue_node.cpp), and the sentence
// that the host has to say. Two rules are tested where they come up: calls that meet in one node
// (stress/overlap_test.cpp), and errors that the GL driver reports (pixels/render_test.cpp).

#include <EGL/egl.h>
#include <EGL/eglext.h>
#include <dlfcn.h>
#include <fmt/core.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>

#include "desk/host/desk_host.h"
#include "desk/host/desk_node.h"
#include "desk/host/gralloc_layout.h"
#include "desk/host/node_request.h"
#include "desk/host/record_watch.h"
#include "host/lumlog.h"
#include "platform/nativewindowbuffer.h"
#include "platform/properties.h"
#include "tests/desk/rules/rogue.h"

namespace {

using namespace desk;
using namespace LumNodeUtils;
using ::testing::ElementsAreArray;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

constexpr auto RT = Variant::RealTime;
constexpr auto LA = Variant::LookAhead;
constexpr const char* DumpFile = "/data/vendor/camera/x";
const TagRegistry tags;  // with the ids of every host

/// The rogue stays loaded from one host to the next. A function of its own, by name.
template <typename Function>
Function OfRogue(const char* name) {
    static void* const library = ::dlopen(TEST_ROGUE_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    return reinterpret_cast<Function>(::dlsym(library, name));
}

struct NoLibraries : LibraryProvider {
    void* Map(const std::string&) override {
        return this;
    }
    void* Symbol(void*, const char*) override {
        return nullptr;
    }
    bool Unmap(void*) override {
        return true;
    }
};

HostOptions Options() {
    HostOptions options;
    options.nodeLibrary = TEST_ROGUE_LIBRARY;
    options.systemLibraryDir = TEST_SYSTEM_LIBRARIES;
    options.dumpDir = ::testing::TempDir();
    options.log = nullptr;
    return options;
}

std::function<void()> cleanUp = nullptr;  // what a misdeed leaves to be done when it has been found

/// The findings of one life of the rogue. A request that is found at fault in its first pass has no second.
std::vector<std::string> FindingsOf(Variant variant, const Misdeed& misdeed, bool needsGl = false,
                                    const std::vector<uint64_t>& requests = {7}) {
    OfRogue<decltype(&RogueSet)>("RogueSet")(misdeed ? &misdeed : nullptr);
    NoLibraries libraries;
    DeskHost host(Options());
    host.SetLibraries(needsGl ? nullptr : &libraries);
    if (const auto node = host.CreateNode(variant); node->Handle() != nullptr) {
        node->Negotiate({64, 48}, {});
        const auto input = node->AllocateInput();
        const auto output = node->AllocateOutput();
        for (const uint64_t id : requests) {
            const size_t before = host.Findings().List().size();
            NodeRequest request(host, *node, {id, nullptr, input.get(), output.get()});
            request.FirstPass();
            if (host.Findings().List().size() == before) {
                request.SecondPass();
            }
        }
    }
    host.Callbacks().DumpCoreNodeConfig(0, 0, nullptr);
    OfRogue<decltype(&RogueStep)>("RogueStep")(PhaseOutside, nullptr);
    host.CheckTornDown();
    if (const auto clean = std::exchange(cleanUp, nullptr)) {
        clean();
    }
    return host.Findings().List();
}

/// A sentence about what was done in a step; one that begins with "the" or "after" is a whole one.
std::string Sentence(Variant variant, Phase step, const std::string& text) {
    static const std::map<Phase, std::string> places = {{PhaseOutside, "outside of every callback"},
                                                        {PhaseEntry, "in LumNodeEntry"},
                                                        {PhaseInterface, "in SetNodeInterface"},
                                                        {PhaseCaps, "in GetCaps"},
                                                        {PhaseCreate, "in its creation"},
                                                        {PhaseQuery, "in QueryBufferInfo"},
                                                        {PhaseSetBuffer, "in SetBufferInfo"},
                                                        {PhaseFirstPass, "in the first pass of request 7"},
                                                        {PhaseDestroy, "in its destruction"},
                                                        {PhaseSecondPass, "in the second pass of request 7"},
                                                        {PhaseRefusal, "in a call that it has to refuse"}};
    if (text.rfind("the ", 0) == 0 || text.rfind("after ", 0) == 0) {
        return text;
    }
    const bool isOfNode = step > PhaseCaps && step != PhaseRefusal;
    const char* node = variant == LA ? "look-ahead node" : "real-time node";
    return fmt::format("the {} {} {}", isOfNode ? node : "library", places.at(step), text);
}

struct Row {
    Variant variant;
    Phase step;
    Misdeed misdeed;
    std::vector<std::string> sentences;
    bool needsGl = false;
};

void ExpectSentences(const std::vector<Row>& rows) {
    for (const Row& row : rows) {
        if (row.needsGl && !TEST_HAS_DESK_GL) {
            continue;
        }
        std::vector<std::string> sentences;
        for (const std::string& text : row.sentences) {
            sentences.push_back(Sentence(row.variant, row.step, text));
        }
        const auto once = [&row](RogueCall& call) {
            if (call.step == row.step) {
                row.misdeed(call);
            }
        };
        EXPECT_THAT(FindingsOf(row.variant, once, row.needsGl), ElementsAreArray(sentences));
    }
}

std::string Left(int count, const char* what) {
    return fmt::format("after the last node is gone the process holds {} {}; expected 0", count, what);
}

using Spoil = std::function<void(LumVendorTagBaseInfo&)>;
uint32_t LookUp(
    RogueCall& call, const Tag& tag, const Spoil& spoil = [](auto&) {}) {
    LumVendorTagBaseInfo info = {sizeof(info), 0, tag.section, tag.name};
    spoil(info);
    return call.services.GetVendorTagBase(&info);
}

void* Read(RogueCall& call, uint32_t tag, uint64_t request = 7,
           LumMetadataType type = LumMetadataTypeVendorTag, uint32_t reserved = 0) {
    return GetMetaData(request, tag, type, &call.services, call.session, reserved);
}

/// A publication with all that it points to; whatever the tag, 8 bytes are enough.
struct Publication {
    uint32_t id;
    uint64_t payload = 0;
    LumTagData data = {};
    LumMetadataInfo info = {};
};

uint32_t Publish(RogueCall& call, const Tag& tag, const std::function<void(Publication&)>& spoil = nullptr) {
    Publication made = {tags.FlaggedId(tag)};
    made.data = {sizeof(made.data), 0, 0, &made.payload, tag.payloadSize, {}};
    made.info = {sizeof(made.info), 0, call.session, 1, 0, &made.id, &made.data, tag.pool, {}};
    if (spoil != nullptr) {
        spoil(made);
    }
    return call.services.SetMetadata(&made.info);
}

uint32_t Notify(RogueCall& call, const std::function<void(LumRequestDoneInfo&)>& spoil = nullptr) {
    LumRequestDoneInfo done = {sizeof(done), 0, call.session, 7, 0};
    if (spoil != nullptr) {
        spoil(done);
    }
    return call.services.NotifyRequestDone(&done);
}

uint32_t QueryWindow(RogueCall& call, void* session, LumRequestWindowInfo window = {}) {
    return call.services.QueryRequestWindow(session, &window);
}

const native_handle* OutputOf(RogueCall& call) {
    return call.As<LumNodeProcessRequestInfo>().outputImageLists[0]->firstImage.pNativeHandle;
}

void Log(const char* level, const char* letter) {
    LumLog::LogSystem(level, letter, "file.cpp", "Function", 1, "text");
}

using C = RogueCall&;
int elsewhere = 0;

TEST(Rules, ANodeThatKeepsThemIsNotBlamed) {
    for (const Variant variant : {RT, LA}) {
        EXPECT_THAT(FindingsOf(variant, nullptr, false, {7, 8}), IsEmpty());
    }
}

TEST(Rules, ASentenceIsSaidOncePerRequest) {
    const auto twice = [](C call) {
        for (int i = 0; i < 2 && call.step == PhaseSecondPass; ++i) {
            FWrite("", 1, 1, stdout);
        }
    };
    const std::string text =
        "the real-time node in the second pass of request {} writes to a file that is not open";
    EXPECT_THAT(FindingsOf(RT, twice, false, {7, 8}),
                ElementsAreArray({fmt::format(fmt::runtime(text), 7), fmt::format(fmt::runtime(text), 8)}));
}

// Each service in each step: blamed outside of its phases and nowhere else.
TEST(Rules, AServiceHasItsPhases) {
    const Tag& grid = GridTag(RT);
    const Tag& extra = ExtraBuffersTag();
    const struct {
        const Service& service;
        std::string subject;
        Misdeed act;
        bool isInTable = false;
    } rows[] = {
        {service::SetNodeInterface, "x", [](C c) { SetNodeInterface(&c.services, "x", nullptr, nullptr); }},
        {service::GetVendorTagBase, grid.FullName(), [&](C c) { LookUp(c, grid); }, true},
        {service::GetMetaData, grid.FullName(), [&](C c) { Read(c, tags.Id(grid)); }},
        {service::SetMetadata, extra.FullName(), [&](C c) { Publish(c, extra); }, true},
        {service::NotifyRequestDone, "", [](C c) { Notify(c); }, true},
        {service::QueryRequestWindow, "", [](C c) { QueryWindow(c, c.session); }, true},
        {service::GetAlignment, "", [](C) { GetAlignment(1, 1, 0, LumFormatNv12, nullptr, nullptr); }},
        {service::GetDateTime, "", [](C) { GetDateTime(nullptr); }},
        {service::FOpen, "x", [](C) { FOpen("x", "a"); }},
        {service::FClose, "", [](C) { FClose(nullptr); }},
        {service::FWrite, "", [](C) { FWrite("", 1, 1, nullptr); }},
        {service::VSNPrintF, "",
         [](C) {
             char text[8];
             SNPrintF(text, sizeof(text), "x");
         }},
        {service::LibMapFullName, "x", [](C) { LibMapFullName("x"); }},
        {service::LibGetAddr, "x", [](C) { LibGetAddr(nullptr, "x"); }},
        {service::LibUnmap, "", [](C) { LibUnmap(nullptr); }},
        {service::SetGrallocMetaData, "9",
         [](C) { Orba::Gralloc::SetGrallocMetaData(nullptr, 9, 0, nullptr); }},
        {service::PropertyGet, "x",
         [](C) {
             char value[PropertyValueSize];
             property_get("x", value, "");
         }},
        {service::LogSystem, "text", [](C) { Log("[ERROR  ]", "E"); }},
    };
    for (const auto& row : rows) {
        const auto expected =
            fmt::format("calls {}({}), which has no place there", row.service.name, row.subject);
        for (unsigned step = PhaseOutside; step <= PhaseRefusal; step <<= 1) {
            if (row.isInTable && step == PhaseEntry) {
                continue;  // the host has not handed the table over
            }
            const auto act = [&](C call) {
                if (call.step == step) {
                    row.act(call);
                }
            };
            const auto findings = FindingsOf(RT, act);
            const auto sentence = Sentence(RT, static_cast<Phase>(step), expected);
            const bool isPlaced = (row.service.phases & step) != 0;
            EXPECT_EQ(std::count(findings.begin(), findings.end(), sentence), isPlaced ? 0 : 1) << sentence;
        }
    }
}

TEST(Rules, FilesLibrariesBuffersAndLogs) {
    using namespace Orba::Gralloc;
    static const native_handle none = {};
    ExpectSentences({
        {RT,
         PhaseQuery,
         [](C) {
             int32_t a;
             GetAlignment(0, 48, 0, LumFormatNv12, &a, &a);
         },
         {"asks for the alignment of an image of 0 x 48 pixels"}},
        {RT,
         PhaseCreate,
         [](C) { FClose(FOpen(DumpFile, "w")); },
         {"opens /data/vendor/camera/x with the mode \"w\"; expected \"a\""}},
        {RT,
         PhaseCreate,
         [](C) { FOpen("/tmp/x", "a"); },
         {"opens /tmp/x, which does not lie in /data/vendor/camera"}},
        {RT, PhaseDestroy, [](C) { EXPECT_EQ(EOF, FClose(stdout)); }, {"closes a file that is not open"}},
        {RT, PhaseSecondPass, [](C) { FWrite("", 1, 1, stdout); }, {"writes to a file that is not open"}},
        {RT,
         PhaseCreate,
         [](C) { LibGetAddr(&elsewhere, "x"); },
         {"looks x up in a library that is not mapped"}},
        {RT, PhaseDestroy, [](C) { LibUnmap(&elsewhere); }, {"unmaps a library that is not mapped"}},
        {RT,
         PhaseSecondPass,
         [](C) { SetGrallocMetaData(&none, MetadataColor, 4, ""); },
         {"sets metadata of a handle that is no gralloc buffer"}},
        {RT,
         PhaseSecondPass,
         [](C c) { SetGrallocMetaData(OutputOf(c), 99, 4, ""); },
         {"sets the unknown gralloc metadata 99"}},
        {RT,
         PhaseSecondPass,
         [](C c) { SetGrallocMetaData(OutputOf(c), MetadataColor, 4, ""); },
         {"sets the gralloc metadata 10001 with 4 bytes; expected 2804"}},
        {RT,
         PhaseSecondPass,
         [](C c) {
             const BufferGeometry geometry = {2, 48};
             SetGrallocMetaData(OutputOf(c), MetadataBufferGeometry, sizeof(geometry), &geometry);
         },
         {"gives a buffer of 12288 bytes a stride of 2 and 48 lines"}},
        {RT, PhaseSecondPass, [](C) { Log("[FATAL  ]", "F"); }, {"logs at the unknown level \"[FATAL  ]\""}},
        {RT,
         PhaseSecondPass,
         [](C) { Log("[ERROR  ]", "W"); },
         {"logs at the level [ERROR  ] with the letter W"}},
        {RT,
         PhaseSecondPass,
         [](C) { Log("[VERBOSE]", "V"); },
         {"logs at the level [VERBOSE], which is switched off"}},
    });
}

TEST(Rules, TableAndTags) {
    const auto call = [](void* slot) { reinterpret_cast<uint32_t (*)()>(slot)(); };
    const std::string slot = "calls a slot of the services table that it does not know";
    const Tag& grid = GridTag(RT);
    const std::string name = grid.FullName();
    const std::string ofLookAhead = GridTag(LA).FullName();
    const uint32_t id = tags.Id(grid);
    const Tag& margin = MarginTag(RT);
    ExpectSentences({
        {RT, PhaseCreate, [&](C c) { call(c.services.reservedSlot3); }, {slot}},
        {RT, PhaseCreate, [&](C c) { call(c.services.reservedSlots5[0]); }, {slot}},
        {RT, PhaseCreate, [&](C c) { call(c.services.reservedSlots17[14]); }, {slot}},
        {RT,
         PhaseSecondPass,
         [](C c) { c.services.GetMetadata(nullptr); },
         {"calls GetMetadata through the table; expected LumNodeUtils::GetMetaData"}},
        {RT,
         PhaseInterface,
         [](C c) {
             LumNodeInterface copy;
             uint32_t base = 0;
             SetNodeInterface(&c.services, "com.other", &copy, &base);
         },
         {"gives its name as \"com.other\"; expected \"com.oxa.node.dewarp\""}},
        {RT, PhaseQuery, [&](C c) { LookUp(c, grid); }, {"looks up " + name + ", which has no place there"}},
        {RT, PhaseQuery, [&](C c) { Read(c, id, 0); }, {"reads " + name + ", which has no place there"}},
        {RT,
         PhaseCreate,
         [](C c) { Publish(c, OutputDimsTag(RT)); },
         {"publishes " + OutputDimsTag(RT).FullName() + ", which has no place there"}},
        {RT,
         PhaseCreate,
         [](C c) { LookUp(c, GridTag(LA)); },
         {"looks up " + ofLookAhead + ", which belongs to the other variant"}},
        {RT,
         PhaseSecondPass,
         [](C c) { Read(c, tags.Id(GridTag(LA))); },
         {"reads " + ofLookAhead + ", which belongs to the other variant"}},
        {RT,
         PhaseQuery,
         [](C c) { Publish(c, OutputDimsTag(LA)); },
         {"publishes " + OutputDimsTag(LA).FullName() + ", which belongs to the other variant"}},
        {RT,
         PhaseCreate,
         [&](C c) { LookUp(c, grid, [](auto& info) { info.pTagName = nullptr; }); },
         {"looks up a vendor tag without saying which"}},
        {RT,
         PhaseCreate,
         [&](C c) { LookUp(c, grid, [](auto& info) { info.size = 20; }); },
         {"looks up " + name + " with a record of size 20; expected 24"}},
        {RT,
         PhaseCreate,
         [&](C c) { LookUp(c, grid, [](auto& info) { info.vendorTagBase = 1; }); },
         {"looks up " + name + " with a record that is not zeroed"}},
        {RT,
         PhaseCreate,
         [](C c) { LookUp(c, GridTag(RT), [](auto& info) { info.pTagName = "such"; }); },
         {"looks up the tag org.tamo.camera2.ipeicaconfigs/such, which the host does not have"}},
        {RT,
         PhaseSecondPass,
         [&](C c) {
             LumNodeInterface other = c.services;
             other.minorVersion ^= 1;
             GetMetaData(7, id, LumMetadataTypeVendorTag, &other, c.session, 0);
         },
         {"reads " + name + " through a services table that is not the host's"}},
        {RT,
         PhaseSecondPass,
         [&](C c) { Read(c, id, 7, LumMetadataTypeVendorTag, 1); },
         {"reads " + name + " with the reserved argument 1; expected 0"}},
        {RT, PhaseSecondPass, [](C c) { Read(c, 5); }, {"reads the tag 0x5, which the host does not have"}},
        {RT,
         PhaseQuery,
         [&](C c) { Read(c, tags.Id(margin), 0); },
         {fmt::format("reads {} under the id {:#x}; expected {:#x}", margin.FullName(), tags.Id(margin),
                      tags.FlaggedId(margin))}},
        {RT,
         PhaseSecondPass,
         [&](C c) { Read(c, id, 7, LumMetadataTypeUnset); },
         {"reads " + name + " from the pool 0; expected 2"}},
        {RT, PhaseSecondPass, [&](C c) { Read(c, id, 8); }, {"reads " + name + " of request 8; expected 7"}},
    });
}

TEST(Rules, Publications) {
    const Tag& extra = ExtraBuffersTag();
    const std::string what = "publishes " + extra.FullName();
    const std::string reserved = what + " with reserved bytes that are not zero";
    const struct {
        std::function<void(Publication&)> spoil;
        std::string sentence;
    } rows[] = {
        {[](auto& made) { made.info.size = 48; }, "publishes with a LumMetadataInfo of size 48; expected 56"},
        {[](auto& made) { made.info.tagCount = 2; }, "publishes 2 tags; expected one, with its payload"},
        {[](auto& made) { made.info.pTagData = nullptr; },
         "publishes 1 tags; expected one, with its payload"},
        {[](auto& made) { made.info.hSession = &elsewhere; },
         "calls SetMetadata with a session that is not its own"},
        {[](auto& made) { made.id = 5; }, "publishes the tag 0x5, which the host does not have"},
        {[&](auto& made) { made.id = tags.Id(extra); },
         fmt::format("{} under the id {:#x}; expected {:#x}", what, tags.Id(extra), tags.FlaggedId(extra))},
        {[](auto& made) { made.info.metadataType = LumMetadataTypeVendorTag; },
         what + " to the pool 2; expected 0"},
        {[](auto& made) { made.data.requestId = 7; }, what + " for request 7; expected 0"},
        {[](auto& made) { made.info.reserved4 = 1; }, reserved},
        {[](auto& made) { made.info.reserved20 = 1; }, reserved},
        {[](auto& made) { made.info.reserved44[11] = 1; }, reserved},
        {[](auto& made) { made.data.reserved4 = 1; }, reserved},
        {[](auto& made) { made.data.reserved32[15] = 1; }, reserved},
        {[](auto& made) { made.data.size = 40; }, what + " with a LumTagData of size 40; expected 48"},
        {[](auto& made) { made.data.dataSize = 8; }, what + " with 8 bytes; expected 4"},
        {[](auto& made) { made.data.pData = nullptr; }, what + " with 4 bytes; expected 4"},
    };
    ExpectSentences(
        {{RT, PhaseCreate, [](C c) { c.services.SetMetadata(nullptr); }, {"publishes with a null record"}}});
    for (const auto& row : rows) {
        const auto publish = [&](C c) { Publish(c, extra, row.spoil); };
        ExpectSentences({{RT, PhaseCreate, publish, {row.sentence}}});
    }
}

TEST(Rules, Requests) {
    const std::string window = "calls QueryRequestWindow ";
    const std::string notice = "calls NotifyRequestDone ";
    const std::string record = notice + "with a record of size {} or reserved bytes that are not zero";
    const std::string again = notice + "2 times; expected 1";
    const auto records = [&](unsigned size) { return fmt::format(fmt::runtime(record), size); };
    ExpectSentences({
        {RT, PhaseFirstPass, [](C c) { QueryWindow(c, c.session); }, {window + "2 times; expected once"}},
        {RT,
         PhaseFirstPass,
         [](C c) {
             QueryWindow(c, c.session, {{0, 0}, 0, 1});
         },
         {window + "with a record that is not zeroed", window + "2 times; expected once"}},
        {RT,
         PhaseFirstPass,
         [](C c) { c.services.QueryRequestWindow(c.session, nullptr); },
         {window + "with a null record"}},
        {RT,
         PhaseFirstPass,
         [](C c) { QueryWindow(c, &elsewhere); },
         {window + "with a session that is not its own"}},
        {RT, PhaseFirstPass, [](C c) { Notify(c); }, {notice + "1 times; expected 0"}},
        {LA, PhaseFirstPass, [](C c) { Notify(c); }, {again}},
        {LA,
         PhaseFirstPass,
         [](C c) { Notify(c, [](auto& done) { done.requestId = 8; }); },
         {"says that request 8 is done", again}},
        {LA,
         PhaseFirstPass,
         [](C c) { Notify(c, [](auto& done) { done.size = 24; }); },
         {records(24), again}},
        {LA,
         PhaseFirstPass,
         [](C c) { Notify(c, [](auto& done) { done.reserved4 = 1; }); },
         {records(32), again}},
        {LA,
         PhaseFirstPass,
         [](C c) { Notify(c, [](auto& done) { done.reserved24 = 1; }); },
         {records(32), again}},
        {LA,
         PhaseFirstPass,
         [](C c) { c.services.NotifyRequestDone(nullptr); },
         {notice + "with a null record"}},
        {LA,
         PhaseFirstPass,
         [](C c) { Notify(c, [](auto& done) { done.hNodeSession = &elsewhere; }); },
         {notice + "with a session that is not its own"}},
        {RT,
         PhaseSecondPass,
         [](C c) {
             GetMetaData(7, tags.Id(GridTag(RT)), LumMetadataTypeVendorTag, &c.services, &elsewhere, 0);
         },
         {"calls GetMetaData with a session that is not its own"}},
        {RT,
         PhaseFirstPass,
         [](C c) { ++const_cast<native_handle*>(OutputOf(c))->data[GrallocFdCount + GrallocIntSize]; },
         {"changed the native handle of a buffer"}},
    });
}

/// A record that a step shows to the node: its named fields, and one of each kind of byte beside them.
struct Shown {
    Phase step;
    const char* name;
    std::function<void*(C)> find;
    std::vector<RecordField> fields;
    std::vector<size_t> others;
};

std::vector<Shown> ShownRecords() {
    const auto own = [](C c) { return c.record; };
    const auto output = [](C c) -> void* { return c.As<LumNodeQueryBufferInfo>().pOutputPortQueryInfo; };
    const auto input = [](C c) -> void* { return c.As<LumNodeQueryBufferInfo>().pInputOptions; };
    const auto downstream = [=](C c) -> void* {
        return const_cast<LumNodeBufferRequirement*>(
            static_cast<LumOutputPortQueryInfo*>(output(c))->pDownstreamRequirement);
    };
    constexpr size_t Format = offsetof(LumNodeBufferRequirement, format);
    constexpr size_t Plane2 = offsetof(LumNodeBufferRequirement, planeAlignment[2]);
    constexpr size_t OfOutput = offsetof(LumOutputPortQueryInfo, outputBufferOption);
    constexpr size_t OfInput = offsetof(LumInputPortQueryInfo, inputBufferOption);
    std::vector<RecordField> create = CreateFields();
    create.erase(create.begin() + 1);  // the handle is the node's to fill
    std::vector<Shown> shown = {
        {PhaseEntry, "LumNodeCallbacks", own, {}, {offsetof(LumNodeCallbacks, reserved12)}},
        {PhaseCreate, "LumNodeCreateInfo", own, create, {4, 71}},
        {PhaseQuery, "LumNodeQueryBufferInfo", own, {}, {4, 16}},
        {PhaseQuery, "LumOutputPortQueryInfo", output, {}, {0, OfOutput + Format, OfOutput + Plane2, 95}},
        {PhaseQuery, "LumInputPortQueryInfo", input, {}, {0, OfInput + Format, OfInput + Plane2}},
        {PhaseQuery, "the downstream requirement", downstream, {}, {0, Plane2}},
    };
    for (const Phase pass : {PhaseFirstPass, PhaseSecondPass}) {
        shown.push_back({pass, "LumNodeProcessRequestInfo", own, RequestFields(), {4, 103}});
        shown.push_back({pass,
                         "LumDependencyInfo",
                         [](C c) -> void* { return c.As<LumNodeProcessRequestInfo>().pDependency; },
                         DependencyFields(),
                         {0, 276}});
        shown.push_back({pass,
                         "LumImageList",
                         [](C c) -> void* { return c.As<LumNodeProcessRequestInfo>().inputImageLists[0]; },
                         {},
                         {0}});
        shown.push_back({pass,
                         "LumImageList",
                         [](C c) -> void* { return c.As<LumNodeProcessRequestInfo>().outputImageLists[0]; },
                         ImageListFields(),
                         {0}});
    }
    return shown;
}

TEST(Rules, ARecordIsTheHosts) {
    for (const Shown& record : ShownRecords()) {
        std::vector<RecordField> fields = record.fields;
        for (const size_t offset : record.others) {
            fields.push_back({nullptr, offset, 0});
        }
        for (const RecordField& field : fields) {
            std::string sentence =
                fmt::format("changed byte {} of {}, which belongs to the host", field.offset, record.name);
            const auto flip = [&](C call) {
                if (call.step != record.step) {
                    return;
                }
                auto* bytes = static_cast<unsigned char*>(record.find(call)) + field.offset;
                const size_t width = field.size % 8 == 0 ? 8 : 4;
                uint64_t values[2] = {};
                std::memcpy(&values[0], bytes, field.name != nullptr ? width : 0);
                *bytes ^= 1;
                std::memcpy(&values[1], bytes, field.name != nullptr ? width : 0);
                if (field.name != nullptr) {
                    sentence = fmt::format("leaves {:#x} in {}.{} (byte {}); expected {:#x}", values[1],
                                           record.name, field.name, field.offset, values[0]);
                }
            };
            const auto findings = FindingsOf(RT, flip);
            EXPECT_THAT(findings, ElementsAreArray({Sentence(RT, record.step, sentence)}));
        }
    }
}

/// A context left current, with an image, on the desk's own GL.
void LeaveGl(C) {
    static const auto buffer = GrallocBuffer::Create({64, 48}, {128, 32});
    void* const library = LibMapFullName("/system/lib64/libEGL.so");
    const auto find = [&](auto type, const char* name) {
        return reinterpret_cast<decltype(type)>(LibGetAddr(library, name));
    };
    const EGLDisplay display = find(PFNEGLGETDISPLAYPROC{}, "eglGetDisplay")(EGL_DEFAULT_DISPLAY);
    find(PFNEGLINITIALIZEPROC{}, "eglInitialize")(display, nullptr, nullptr);
    const EGLint version[] = {EGL_CONTEXT_CLIENT_VERSION, 3, EGL_NONE};
    const EGLContext context = find(PFNEGLCREATECONTEXTPROC{}, "eglCreateContext")(display, EGL_NO_CONFIG_KHR,
                                                                                   EGL_NO_CONTEXT, version);
    auto* const makeCurrent = find(PFNEGLMAKECURRENTPROC{}, "eglMakeCurrent");
    makeCurrent(display, EGL_NO_SURFACE, EGL_NO_SURFACE, context);
    const GrallocMetadata metadata = {
        GrallocMetadataMagic,
        1,
        {static_cast<int>(buffer->Stride()), static_cast<int>(buffer->Scanline())},
        1,
        {}};
    ASSERT_EQ(static_cast<ssize_t>(sizeof(metadata)),
              ::pwrite(buffer->Handle()->data[GrallocMetadataFd], &metadata, sizeof(metadata), 0));
    static ANativeWindowBuffer window;
    window.common.incRef = window.common.decRef = [](android_native_base_t*) {};
    window.width = 64;
    window.height = 48;
    window.stride = static_cast<int>(buffer->Stride());
    window.format = GrallocFormatNv12;
    window.handle = buffer->Handle();
    const EGLImageKHR image = find(PFNEGLCREATEIMAGEKHRPROC{}, "eglCreateImageKHR")(
        display, EGL_NO_CONTEXT, EGL_NATIVE_BUFFER_ANDROID, reinterpret_cast<EGLClientBuffer>(&window),
        nullptr);
    EXPECT_NE(nullptr, image);
    auto* const destroyImage = find(PFNEGLDESTROYIMAGEKHRPROC{}, "eglDestroyImageKHR");
    auto* const destroyContext = find(PFNEGLDESTROYCONTEXTPROC{}, "eglDestroyContext");
    auto* const terminate = find(PFNEGLTERMINATEPROC{}, "eglTerminate");
    cleanUp = [=] {
        destroyImage(display, image);
        makeCurrent(display, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
        destroyContext(display, context);
        terminate(display);
    };
}

TEST(Rules, WhatIsLeftBehind) {
    ExpectSentences({
        {RT,
         PhaseCreate,
         [](C c) { c.As<LumNodeCreateInfo>().phNodeSession = nullptr; },
         {"the library created a node with success but returned no handle"}},
        {RT,
         PhaseDestroy,
         [](C c) { c.As<LumNodedestroyInfo>().hNodeSession = &elsewhere; },
         {"leaves its handle in the record"}},
        {RT,
         PhaseDestroy,
         [](C c) { c.result = LumResultFailure; },
         {"the node cannot be destroyed: result 1, failure", Left(1, "nodes")}},
        {RT,
         PhaseSecondPass,
         [](C c) {
             void* const block = c.allocate(1);
             cleanUp = [block] { std::free(block); };
         },
         {Left(1, "allocated blocks")}},
        {RT, PhaseCreate, [](C) { FOpen(DumpFile, "a"); }, {Left(1, "open files")}},
        {RT,
         PhaseCreate,
         [](C) {
             LibMapFullName("x");
             LibUnmap(LibMapFullName("x"));
         },
         {Left(1, "mapped libraries")}},
        {RT,
         PhaseSecondPass,
         [](C c) {
             const int copy = ::dup(OutputOf(c)->data[GrallocPixelFd]);
             cleanUp = [copy] { ::close(copy); };
         },
         {Left(1, "buffer descriptors")}},
        {RT,
         PhaseCreate,
         LeaveGl,
         {"leaves its EGL context current on the calling thread", Left(1, "mapped libraries"),
          Left(1, "GL images"), Left(1, "GL contexts"), Left(1, "initialised displays")},
         true},
    });
}

// The rule is named and the service fails.
TEST(Rules, NullArguments) {
    static const char* const none = nullptr;  // of which the compiler knows nothing
    static char text[PropertyValueSize];
    const auto print = [](char* buffer, const char* format, ...) {
        va_list arguments;
        va_start(arguments, format);
        EXPECT_GT(0, VSNPrintF(buffer, sizeof(text), format, arguments));
        va_end(arguments);
    };
    const struct {
        const Service& service;
        Phase step;
        Misdeed call;
    } rows[] = {
        {service::SetNodeInterface, PhaseInterface,
         [](C c) {
             uint32_t base = 0;
             LumNodeInterface copy;
             EXPECT_NE(0U, SetNodeInterface(&c.services, none, &copy, &base));
         }},
        {service::SetNodeInterface, PhaseInterface,
         [](C c) { EXPECT_NE(0U, SetNodeInterface(&c.services, "com.oxa.node.dewarp", nullptr, nullptr)); }},
        {service::GetAlignment, PhaseQuery,
         [](C) { GetAlignment(1, 1, 0, LumFormatNv12, nullptr, nullptr); }},
        {service::GetDateTime, PhaseCreate, [](C) { GetDateTime(nullptr); }},
        {service::FOpen, PhaseCreate, [](C) { EXPECT_EQ(nullptr, FOpen(none, "a")); }},
        {service::FOpen, PhaseCreate, [](C) { EXPECT_EQ(nullptr, FOpen(DumpFile, none)); }},
        {service::FWrite, PhaseSecondPass, [](C) { EXPECT_EQ(0U, FWrite(none, 1, 1, stdout)); }},
        {service::VSNPrintF, PhaseCreate, [&](C) { print(text, none); }},
        {service::VSNPrintF, PhaseCreate, [&](C) { print(nullptr, "x"); }},
        {service::LibMapFullName, PhaseCreate, [](C) { EXPECT_EQ(nullptr, LibMapFullName(none)); }},
        {service::LibGetAddr, PhaseCreate, [](C) { EXPECT_EQ(nullptr, LibGetAddr(&elsewhere, none)); }},
        {service::PropertyGet, PhaseCreate, [](C) { EXPECT_EQ(3, property_get(none, text, "low")); }},
        {service::PropertyGet, PhaseCreate, [](C) { EXPECT_EQ(0, property_get("x", nullptr, "low")); }},
        {service::LogSystem, PhaseCreate, [](C) { Log(none, "E"); }},
        {service::PosixMemalign, PhaseCreate,
         [](C c) { EXPECT_EQ(ENOMEM, c.allocateAligned(nullptr, 8, 8)); }},
    };
    for (const auto& row : rows) {
        const std::string name = row.service.name;
        ExpectSentences({{RT, row.step, row.call, {"calls " + name + " with a null argument"}}});
    }
}

TEST(Rules, ALibraryThatIsNoDewarpNodeIsRefused) {
    const std::filesystem::path text = std::filesystem::path(::testing::TempDir()) / "text.so";
    std::ofstream(text) << "no library\n";
    Dl_info withoutEntry = {};
    ASSERT_NE(0, ::dladdr(reinterpret_cast<void*>(&::getppid), &withoutEntry));
    const struct {
        std::filesystem::path library;
        Phase step;
        Misdeed misdeed;
        const char* message;
    } rows[] = {
        {text, PhaseOutside, nullptr, "text.so cannot be loaded: "},
        {withoutEntry.dli_fname, PhaseOutside, nullptr, " has no LumNodeEntry"},
        {TEST_ROGUE_LIBRARY, PhaseEntry,
         [](C c) { std::memset(&c.As<LumNodeCallbacks>().Create, HostPattern, sizeof(void*)); },
         "LumNodeEntry left one of the eight callbacks of a dewarp node out"},
        {TEST_ROGUE_LIBRARY, PhaseInterface, [](C c) { c.result = 1; },
         "does not take the host's services: result 1"},
        {TEST_ROGUE_LIBRARY, PhaseCaps, [](C c) { c.As<LumNodeCapsInfo>().nodeCapsMask = 1; },
         "reports the capabilities 1 (result 0, success); expected 384"},
    };
    for (const auto& row : rows) {
        const Misdeed once = [&row](C call) {
            if (call.step == row.step) {
                row.misdeed(call);
            }
        };
        OfRogue<decltype(&RogueSet)>("RogueSet")(&once);
        HostOptions options = Options();
        options.nodeLibrary = row.library;
        try {
            const DeskHost host(options);
            ADD_FAILURE() << "expected: " << row.message;
        } catch (const std::runtime_error& error) {
            EXPECT_THAT(error.what(), HasSubstr(row.message));
        }
    }
    OfRogue<decltype(&RogueSet)>("RogueSet")(nullptr);
    std::filesystem::remove(text);
}

}  // namespace
