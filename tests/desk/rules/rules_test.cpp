// Every rule of the host, broken once by a library that is made for it (rogue_node.cpp), and the sentence
// that the host has to say. Two rules are tested where they come up: calls that meet in one node
// (stress/overlap_test.cpp), and errors that the GL driver reports (pixels/render_test.cpp).

#include <EGL/egl.h>
#include <EGL/eglext.h>
#include <dlfcn.h>
#include <fmt/core.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fstream>

#include "desk/abi/gralloc_layout.h"
#include "desk/host/desk_host.h"
#include "desk/host/desk_node.h"
#include "desk/host/node_request.h"
#include "desk/host/rules/record_watch.h"
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
constexpr const char* RoguePath = "/system/lib64/" TEST_ROGUE_NAME;
const TagRegistry tags;  // with the ids of every host

/// The rogue stays loaded from one host to the next. A function of its own, by name.
template <typename Function>
Function OfRogue(const char* name) {
    static void* const library = ::dlopen(TEST_ROGUE_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    return reinterpret_cast<Function>(::dlsym(library, name));
}

/// Of libraries a device of the test's own has the rogue, or the desk's GL.
HostOptions Options(bool needsGl = false) {
    const std::filesystem::path rogue = TEST_ROGUE_LIBRARY;
    return {rogue, needsGl ? TEST_SYSTEM_LIBRARIES : rogue.parent_path(), ::testing::TempDir(), nullptr};
}

/// A misdeed of one step.
Misdeed In(Phase step, const Misdeed& misdeed) {
    return [step, &misdeed](RogueCall& call) {
        if (call.step == step) {
            misdeed(call);
        }
    };
}

std::function<void()> cleanUp = nullptr;  // what a misdeed leaves to be done when it has been found

/// The findings of one life of the rogue. A request that is found at fault in its first pass has no second.
std::vector<std::string> FindingsOf(Variant variant, const Misdeed& misdeed, bool needsGl = false,
                                    const std::vector<uint64_t>& requests = {7}) {
    OfRogue<decltype(&RogueSet)>("RogueSet")(misdeed ? &misdeed : nullptr);
    DeskHost host(Options(needsGl));
    if (const auto node = host.CreateNode(variant); node->Handle() != nullptr) {
        node->Negotiate({64, 48}, {});
        const auto input = node->AllocateInput();
        const auto output = node->AllocateOutput();
        for (const uint64_t id : requests) {
            const size_t before = host.State().contract.List().size();
            NodeRequest request(host, *node, {id, nullptr, input.get(), output.get()});
            request.FirstPass();
            if (host.State().contract.List().size() == before) {
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
    return host.State().contract.List();
}

/// A sentence about what was done in a step; one that begins with "the" or "after" is a whole one.
std::string Sentence(Variant variant, Phase step, const std::string& text) {
    if (text.rfind("the ", 0) == 0 || text.rfind("after ", 0) == 0) {
        return text;
    }
    NodeState node;
    node.variant = variant;
    const bool isOfNode = step > PhaseCaps && step != PhaseRefusal;
    return Describe({step, isOfNode ? &node : nullptr, 7, nullptr}) + " " + text;
}

struct Row {
    Misdeed misdeed;
    std::vector<std::string> sentences;
};

/// Each misdeed alone, done in this step.
void Expect(Variant variant, Phase step, const std::vector<Row>& rows, bool needsGl = false) {
    for (const Row& row : rows) {
        std::vector<std::string> sentences;
        for (const std::string& text : row.sentences) {
            sentences.push_back(Sentence(variant, step, text));
        }
        EXPECT_THAT(FindingsOf(variant, In(step, row.misdeed), needsGl), ElementsAreArray(sentences));
    }
}

std::string Left(int count, const char* what) {
    return fmt::format("after the last node is gone the process holds {} {}; expected 0", count, what);
}

template <typename Record>
using Spoil = std::function<void(Record&)>;

uint32_t LookUp(RogueCall& call, const Tag& tag, const Spoil<LumVendorTagBaseInfo>& spoil) {
    LumVendorTagBaseInfo info = {sizeof(info), 0, tag.section, tag.name};
    spoil(info);
    return call.services.GetVendorTagBase(&info);
}

/// The arguments of a GetMetaData.
struct Reading {
    uint32_t tag = 0;
    uint64_t request = 0;
    LumNodeInterface services = {};
    void* session = nullptr;
    LumMetadataType type = LumMetadataTypeVendorTag;
    uint32_t reserved = 0;
};

void* Read(RogueCall& call, uint32_t tag, const Spoil<Reading>& spoil) {
    Reading read = {tag, call.step == PhaseSecondPass ? 7U : 0U, call.services, call.session};
    spoil(read);
    return GetMetaData(read.request, read.tag, read.type, &read.services, read.session, read.reserved);
}

/// A publication with all that it points to; whatever the tag, 8 bytes are enough.
struct Publication {
    uint32_t id = 0;
    uint64_t payload = 0;
    LumTagData data = {};
    LumMetadataInfo info = {};
};

uint32_t Publish(RogueCall& call, const Tag& tag, const Spoil<Publication>& spoil) {
    Publication made = {tags.FlaggedId(tag)};
    made.data = {sizeof(made.data), 0, 0, &made.payload, tag.payloadSize, {}};
    made.info = {sizeof(made.info), 0, call.session, 1, 0, &made.id, &made.data, tag.pool, {}};
    spoil(made);
    return call.services.SetMetadata(&made.info);
}

uint32_t Notify(RogueCall& call, const Spoil<LumRequestDoneInfo>& spoil) {
    LumRequestDoneInfo done = {sizeof(done), 0, call.session, 7, 0};
    spoil(done);
    return call.services.NotifyRequestDone(&done);
}

uint32_t QueryWindow(RogueCall& call, void* session, LumRequestWindowInfo window = {}) {
    return call.services.QueryRequestWindow(session, &window);
}

const native_handle* OutputOf(RogueCall& call) {
    return call.As<LumNodeProcessRequestInfo>().outputImageLists[0]->firstImage.pNativeHandle;
}

void LogLine(const char* level, const char* letter) {
    LumLog::LogSystem(level, letter, "file.cpp", "Function", 1, "text");
}

// A misdeed, and what spoils one field of a record, in the words of a row below.
#define DO(...) [&]([[maybe_unused]] RogueCall& c) { __VA_ARGS__; }
#define WITH(...) [&](auto& record) { record.__VA_ARGS__; }
const auto Whole = [](auto&) {};
int elsewhere = 0;

TEST(Rules, ANodeThatKeepsThemIsNotBlamed) {
    for (const Variant variant : {RT, LA}) {
        EXPECT_THAT(FindingsOf(variant, nullptr, false, {7, 8}), IsEmpty());
    }
}

TEST(Rules, ASentenceIsSaidOncePerRequest) {
    const Misdeed twice = DO(FWrite("", 1, 1, stdout); FWrite("", 1, 1, stdout));
    const std::string of = "the real-time node in the second pass of request ";
    const std::string writes = " writes to a file that is not open";
    EXPECT_THAT(FindingsOf(RT, In(PhaseSecondPass, twice), false, {7, 8}),
                ElementsAreArray({of + "7" + writes, of + "8" + writes}));
}

// Each service in each step: blamed outside of its phases and nowhere else.
TEST(Rules, AServiceHasItsPhases) {
    const Tag& grid = GridTag(RT);
    const Tag& extra = ExtraBuffersTag();
    static char text[PropertyValueSize];
    const struct {
        const Service& service;
        std::string subject;
        Misdeed call;
        bool isInTable = false;
    } rows[] = {
        {service::SetNodeInterface, "x", DO(SetNodeInterface(&c.services, "x", nullptr, nullptr))},
        {service::GetVendorTagBase, grid.FullName(), DO(LookUp(c, grid, Whole)), true},
        {service::GetMetaData, grid.FullName(), DO(Read(c, tags.Id(grid), Whole))},
        {service::SetMetadata, extra.FullName(), DO(Publish(c, extra, Whole)), true},
        {service::NotifyRequestDone, "", DO(Notify(c, Whole)), true},
        {service::QueryRequestWindow, "", DO(QueryWindow(c, c.session)), true},
        {service::GetAlignment, "", DO(GetAlignment(1, 1, 0, LumFormatNv12, nullptr, nullptr))},
        {service::GetDateTime, "", DO(GetDateTime(nullptr))},
        {service::FOpen, "x", DO(FOpen("x", "a"))},
        {service::FClose, "", DO(FClose(nullptr))},
        {service::FWrite, "", DO(FWrite("", 1, 1, nullptr))},
        {service::VSNPrintF, "", DO(SNPrintF(text, sizeof(text), "x"))},
        {service::LibMapFullName, "x", DO(LibMapFullName("x"))},
        {service::LibGetAddr, "x", DO(LibGetAddr(nullptr, "x"))},
        {service::LibUnmap, "", DO(LibUnmap(nullptr))},
        {service::SetGrallocMetaData, "9", DO(Orba::Gralloc::SetGrallocMetaData(nullptr, 9, 0, nullptr))},
        {service::PropertyGet, "x", DO(property_get("x", text, ""))},
        {service::LogSystem, "text", DO(LogLine("[ERROR  ]", "E"))},
    };
    for (const auto& row : rows) {
        const auto expected =
            fmt::format("calls {}({}), which has no place there", row.service.name, row.subject);
        for (unsigned bit = row.isInTable ? PhaseInterface : PhaseOutside; bit <= PhaseRefusal; bit <<= 1) {
            const auto step = static_cast<Phase>(bit);
            const auto findings = FindingsOf(RT, In(step, row.call));
            const auto sentence = Sentence(RT, step, expected);
            const bool isPlaced = (row.service.phases & step) != 0;
            EXPECT_EQ(isPlaced ? 0 : 1, std::count(findings.begin(), findings.end(), sentence)) << sentence;
        }
    }
}

TEST(Rules, FilesLibrariesBuffersAndLogs) {
    using namespace Orba::Gralloc;
    static const native_handle none = {};
    const BufferGeometry flat = {2, 48};
    int32_t alignment = 0;
    Expect(RT, PhaseCreate,
           {{DO(FClose(FOpen(DumpFile, "w"))),
             {"opens /data/vendor/camera/x with the mode \"w\"; expected \"a\""}},
            {DO(FOpen("/tmp/x", "a")), {"opens /tmp/x, which does not lie in /data/vendor/camera"}},
            {DO(LibGetAddr(&elsewhere, "x")), {"looks x up in a library that is not mapped"}}});
    Expect(RT, PhaseQuery,
           {{DO(GetAlignment(0, 48, 0, LumFormatNv12, &alignment, &alignment)),
             {"asks for the alignment of an image of 0 x 48 pixels"}}});
    Expect(RT, PhaseDestroy,
           {{DO(FClose(stdout)), {"closes a file that is not open"}},
            {DO(LibUnmap(&elsewhere)), {"unmaps a library that is not mapped"}}});
    Expect(RT, PhaseSecondPass,
           {{DO(FWrite("", 1, 1, stdout)), {"writes to a file that is not open"}},
            {DO(SetGrallocMetaData(&none, MetadataColor, 4, "")),
             {"sets metadata of a handle that is no gralloc buffer"}},
            {DO(SetGrallocMetaData(OutputOf(c), 99, 4, "")), {"sets the unknown gralloc metadata 99"}},
            {DO(SetGrallocMetaData(OutputOf(c), MetadataColor, 4, "")),
             {"sets the gralloc metadata 10001 with 4 bytes; expected 2804"}},
            {DO(SetGrallocMetaData(OutputOf(c), MetadataBufferGeometry, sizeof(flat), &flat)),
             {"gives a buffer of 12288 bytes a stride of 2 and 48 lines"}},
            {DO(LogLine("[FATAL  ]", "F")), {"logs at the unknown level \"[FATAL  ]\""}},
            {DO(LogLine("[ERROR  ]", "W")), {"logs at the level [ERROR  ] with the letter W"}},
            {DO(LogLine("[VERBOSE]", "V")), {"logs at the level [VERBOSE], which is switched off"}}});
}

TEST(Rules, TableAndTags) {
    const auto call = [](void* slot) { reinterpret_cast<uint32_t (*)()>(slot)(); };
    const std::string slot = "calls a slot of the services table that it does not know";
    const std::string noPlace = ", which has no place there";
    const std::string notOwn = ", which belongs to the other variant";
    const std::string name = GridTag(RT).FullName();
    const std::string other = GridTag(LA).FullName();
    const Tag& margin = MarginTag(RT);
    LumNodeInterface copy = {};
    uint32_t base = 0;
    Expect(RT, PhaseInterface,
           {{DO(SetNodeInterface(&c.services, "com.other", &copy, &base)),
             {"gives its name as \"com.other\"; expected \"com.oxa.node.dewarp\""}}});
    const auto lookUp = [](RogueCall& c, const Spoil<LumVendorTagBaseInfo>& spoil) {
        LookUp(c, GridTag(RT), spoil);
    };
    Expect(
        RT, PhaseCreate,
        {{DO(call(c.services.reservedSlot3)), {slot}},
         {DO(call(c.services.reservedSlots5[0])), {slot}},
         {DO(call(c.services.reservedSlots17[14])), {slot}},
         {DO(Publish(c, OutputDimsTag(RT), Whole)), {"publishes " + OutputDimsTag(RT).FullName() + noPlace}},
         {DO(LookUp(c, GridTag(LA), Whole)), {"looks up " + other + notOwn}},
         {DO(lookUp(c, WITH(pTagName = nullptr))), {"looks up a vendor tag without saying which"}},
         {DO(lookUp(c, WITH(size = 20))), {"looks up " + name + " with a record of size 20; expected 24"}},
         {DO(lookUp(c, WITH(vendorTagBase = 1))), {"looks up " + name + " with a record that is not zeroed"}},
         {DO(lookUp(c, WITH(pComponentName = "no"))),
          {"looks up the tag no/ICAInGridTransform, which the host does not have"}}});
    Expect(
        RT, PhaseQuery,
        {{DO(lookUp(c, Whole)), {"looks up " + name + noPlace}},
         {DO(Read(c, tags.Id(GridTag(RT)), Whole)), {"reads " + name + noPlace}},
         {DO(Publish(c, OutputDimsTag(LA), Whole)), {"publishes " + OutputDimsTag(LA).FullName() + notOwn}},
         {DO(Read(c, tags.Id(margin), Whole)),
          {fmt::format("reads {} under the id {:#x}; expected {:#x}", margin.FullName(), tags.Id(margin),
                       tags.FlaggedId(margin))}}});
    const auto read = [](RogueCall& c, const Spoil<Reading>& spoil) { Read(c, tags.Id(GridTag(RT)), spoil); };
    const std::string reads = "reads " + name;
    Expect(
        RT, PhaseSecondPass,
        {{DO(c.services.GetMetadata(nullptr)),
          {"calls GetMetadata through the table; expected LumNodeUtils::GetMetaData"}},
         {DO(read(c, WITH(tag = tags.Id(GridTag(LA))))), {"reads " + other + notOwn}},
         {DO(read(c, WITH(tag = 5))), {"reads the tag 0x5, which the host does not have"}},
         {DO(read(c, WITH(session = &elsewhere))), {"calls GetMetaData with a session that is not its own"}},
         {DO(read(c, WITH(services.minorVersion ^= 1))),
          {reads + " through a services table that is not the host's"}},
         {DO(read(c, WITH(reserved = 1))), {reads + " with the reserved argument 1; expected 0"}},
         {DO(read(c, WITH(type = LumMetadataTypeUnset))), {reads + " from the pool 0; expected 2"}},
         {DO(read(c, WITH(request = 8))), {reads + " of request 8; expected 7"}}});
}

TEST(Rules, Publications) {
    const Tag& extra = ExtraBuffersTag();
    const std::string it = "publishes " + extra.FullName();
    const std::string reserved = it + " with reserved bytes that are not zero";
    const struct {
        Spoil<Publication> spoil;
        std::string sentence;
    } rows[] = {
        {WITH(info.size = 48), "publishes with a LumMetadataInfo of size 48; expected 56"},
        {WITH(info.tagCount = 2), "publishes 2 tags; expected one, with its payload"},
        {WITH(info.pTagData = nullptr), "publishes 1 tags; expected one, with its payload"},
        {WITH(info.hSession = &elsewhere), "calls SetMetadata with a session that is not its own"},
        {WITH(id = 5), "publishes the tag 0x5, which the host does not have"},
        {WITH(id = tags.Id(extra)),
         fmt::format("{} under the id {:#x}; expected {:#x}", it, tags.Id(extra), tags.FlaggedId(extra))},
        {WITH(info.metadataType = LumMetadataTypeVendorTag), it + " to the pool 2; expected 0"},
        {WITH(data.requestId = 7), it + " for request 7; expected 0"},
        {WITH(info.reserved4 = 1), reserved},
        {WITH(info.reserved20 = 1), reserved},
        {WITH(info.reserved44[11] = 1), reserved},
        {WITH(data.reserved4 = 1), reserved},
        {WITH(data.reserved32[15] = 1), reserved},
        {WITH(data.size = 40), it + " with a LumTagData of size 40; expected 48"},
        {WITH(data.dataSize = 8), it + " with 8 bytes; expected 4"},
        {WITH(data.pData = nullptr), it + " with 4 bytes; expected 4"},
    };
    Expect(RT, PhaseCreate,
           {{DO(c.services.SetMetadata(nullptr)), {"calls SetMetadata with a null argument"}}});
    for (const auto& row : rows) {
        Expect(RT, PhaseCreate, {{DO(Publish(c, extra, row.spoil)), {row.sentence}}});
    }
}

TEST(Rules, Requests) {
    const std::string window = "calls QueryRequestWindow ";
    const std::string twoWindows = window + "2 times; expected once";
    const std::string notice = "calls NotifyRequestDone ";
    const std::string twoNotices = notice + "2 times; expected 1";
    const std::string notZero = " or reserved bytes that are not zero";
    const std::string notOwn = "with a session that is not its own";
    Expect(RT, PhaseFirstPass,
           {{DO(QueryWindow(c, c.session)), {twoWindows}},
            {DO(QueryWindow(c, c.session, {{0, 0}, 0, 1})),
             {window + "with a record that is not zeroed", twoWindows}},
            {DO(QueryWindow(c, &elsewhere)), {window + notOwn}},
            {DO(c.services.QueryRequestWindow(c.session, nullptr)), {window + "with a null argument"}},
            {DO(Notify(c, Whole)), {notice + "1 times; expected 0"}},
            {DO(++const_cast<native_handle*>(OutputOf(c))->data[GrallocFdCount + GrallocIntSize]),
             {"changed the native handle of a buffer"}}});
    Expect(
        LA, PhaseFirstPass,
        {{DO(Notify(c, Whole)), {twoNotices}},
         {DO(Notify(c, WITH(requestId = 8))), {"says that request 8 is done", twoNotices}},
         {DO(Notify(c, WITH(size = 24))), {notice + "with a record of size 24" + notZero, twoNotices}},
         {DO(Notify(c, WITH(reserved4 = 1))), {notice + "with a record of size 32" + notZero, twoNotices}},
         {DO(Notify(c, WITH(reserved24 = 1))), {notice + "with a record of size 32" + notZero, twoNotices}},
         {DO(Notify(c, WITH(hNodeSession = &elsewhere))), {notice + notOwn}},
         {DO(c.services.NotifyRequestDone(nullptr)), {notice + "with a null argument"}}});
}

/// A record that a step shows to the node: its named fields, and one of each kind of byte beside them.
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
    const auto output = AT(c.As<LumNodeQueryBufferInfo>().pOutputPortQueryInfo);
    const auto input = AT(c.As<LumNodeQueryBufferInfo>().pInputOptions);
    const auto downstream = AT(const_cast<LumNodeBufferRequirement*>(
        c.As<LumNodeQueryBufferInfo>().pOutputPortQueryInfo->pDownstreamRequirement));
    const auto dependency = AT(c.As<LumNodeProcessRequestInfo>().pDependency);
    const auto inputs = AT(c.As<LumNodeProcessRequestInfo>().inputImageLists[0]);
    const auto outputs = AT(c.As<LumNodeProcessRequestInfo>().outputImageLists[0]);
#undef AT
    constexpr size_t Format = offsetof(LumNodeBufferRequirement, format);
    constexpr size_t Plane2 = offsetof(LumNodeBufferRequirement, planeAlignment[2]);
    constexpr size_t OfOutput = offsetof(LumOutputPortQueryInfo, outputBufferOption);
    constexpr size_t OfInput = offsetof(LumInputPortQueryInfo, inputBufferOption);
    std::vector<RecordField> create = CreateFields;
    create.erase(create.begin() + 1);  // the handle is the node's to fill
    std::vector<Shown> shown = {
        {PhaseEntry, "LumNodeCallbacks", own, {}, {12}},
        {PhaseCreate, "LumNodeCreateInfo", own, create, {4, 71}},
        {PhaseQuery, "LumNodeQueryBufferInfo", own, {}, {4, 16}},
        {PhaseQuery, "LumOutputPortQueryInfo", output, {}, {0, OfOutput + Format, OfOutput + Plane2, 95}},
        {PhaseQuery, "LumInputPortQueryInfo", input, {}, {0, OfInput + Format, OfInput + Plane2}},
        {PhaseQuery, "the downstream requirement", downstream, {}, {0, Plane2}},
    };
    for (const Phase pass : {PhaseFirstPass, PhaseSecondPass}) {
        shown.push_back({pass, "LumNodeProcessRequestInfo", own, RequestFields, {4, 103}});
        shown.push_back({pass, "LumDependencyInfo", dependency, DependencyFields, {0, 276}});
        shown.push_back({pass, "LumImageList", inputs, {}, {0}});
        shown.push_back({pass, "LumImageList", outputs, ImageListFields, {0}});
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
            const Misdeed flip = [&](RogueCall& call) {
                auto* bytes = static_cast<unsigned char*>(record.find(call)) + field.offset;
                const size_t width = field.name == nullptr ? 0 : field.size % 8 == 0 ? 8 : 4;
                uint64_t before = 0;
                uint64_t after = 0;
                std::memcpy(&before, bytes, width);
                *bytes ^= 1;
                std::memcpy(&after, bytes, width);
                if (field.name != nullptr) {
                    sentence = fmt::format("leaves {:#x} in {}.{} (byte {}); expected {:#x}", after,
                                           record.name, field.name, field.offset, before);
                }
            };
            const auto findings = FindingsOf(RT, In(record.step, flip));
            EXPECT_THAT(findings, ElementsAreArray({Sentence(RT, record.step, sentence)}));
        }
    }
}

/// A context left current, with an image, on the desk's own GL.
void LeaveGl(RogueCall&) {
    static const auto buffer = GrallocBuffer::Create({64, 48}, {128, 32});
    void* const library = LibMapFullName("/system/lib64/libEGL.so");
    const auto find = [&](auto type, const char* name) {
        return reinterpret_cast<decltype(type)>(LibGetAddr(library, name));
    };
    const EGLDisplay display = find(decltype(&eglGetDisplay){}, "eglGetDisplay")(EGL_DEFAULT_DISPLAY);
    find(decltype(&eglInitialize){}, "eglInitialize")(display, nullptr, nullptr);
    const EGLint version[] = {EGL_CONTEXT_CLIENT_VERSION, 3, EGL_NONE};
    const EGLContext context = find(decltype(&eglCreateContext){}, "eglCreateContext")(
        display, EGL_NO_CONFIG_KHR, EGL_NO_CONTEXT, version);
    auto* const makeCurrent = find(decltype(&eglMakeCurrent){}, "eglMakeCurrent");
    makeCurrent(display, EGL_NO_SURFACE, EGL_NO_SURFACE, context);
    const GrallocMetadata metadata = {GrallocMetadataMagic, 1, {128, 64}, 1, {}};
    ASSERT_EQ(static_cast<ssize_t>(sizeof(metadata)),
              ::pwrite(buffer->Handle()->data[GrallocMetadataFd], &metadata, sizeof(metadata), 0));
    static ANativeWindowBuffer window;
    window.common.incRef = window.common.decRef = [](android_native_base_t*) {};
    window.width = 64;
    window.height = 48;
    window.stride = 128;
    window.format = GrallocFormatNv12;
    window.handle = buffer->Handle();
    const EGLImageKHR image = find(PFNEGLCREATEIMAGEKHRPROC{}, "eglCreateImageKHR")(
        display, EGL_NO_CONTEXT, EGL_NATIVE_BUFFER_ANDROID, reinterpret_cast<EGLClientBuffer>(&window),
        nullptr);
    EXPECT_NE(nullptr, image);
    cleanUp = [=, destroy = find(PFNEGLDESTROYIMAGEKHRPROC{}, "eglDestroyImageKHR"),
               end = find(decltype(&eglTerminate){}, "eglTerminate")] {
        destroy(display, image);
        makeCurrent(display, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
        end(display);
    };
}

TEST(Rules, WhatIsLeftBehind) {
    const auto keep = [](void* block) { cleanUp = [block] { std::free(block); }; };
    const auto copy = [](int copied) { cleanUp = [copied] { ::close(copied); }; };
    Expect(RT, PhaseCreate,
           {{DO(c.As<LumNodeCreateInfo>().phNodeSession = nullptr),
             {"the library created a node with success but returned no handle"}},
            {DO(FOpen(DumpFile, "a")), {Left(1, "open files")}},
            {DO(LibMapFullName(RoguePath); LibUnmap(LibMapFullName(RoguePath))),
             {Left(1, "mapped libraries")}}});
    Expect(RT, PhaseSecondPass,
           {{DO(keep(c.allocate(1))), {Left(1, "allocated blocks")}},
            {DO(copy(::dup(OutputOf(c)->data[GrallocPixelFd]))), {Left(1, "buffer descriptors")}}});
    Expect(RT, PhaseDestroy,
           {{DO(c.As<LumNodedestroyInfo>().hNodeSession = &elsewhere), {"leaves its handle in the record"}},
            {DO(c.result = LumResultFailure),
             {"the node cannot be destroyed: result 1, failure", Left(1, "nodes")}}});
    if (TEST_HAS_DESK_GL) {
        Expect(RT, PhaseCreate,
               {{LeaveGl,
                 {"leaves its EGL context current on the calling thread", Left(1, "mapped libraries"),
                  Left(1, "GL images"), Left(1, "GL contexts"), Left(1, "initialised displays")}}},
               true);
    }
}

// The rule is named and the service fails.
TEST(Rules, NullArguments) {
    static const char* const none = nullptr;  // of which the compiler knows nothing
    static char text[PropertyValueSize];
    LumNodeInterface copy = {};
    uint32_t base = 0;
    static int32_t (*const vprint)(char*, size_t, const char*, va_list) = VSNPrintF;
    const auto print = [](char* buffer, const char* format, ...) {
        va_list arguments;
        va_start(arguments, format);
        EXPECT_GT(0, vprint(buffer, sizeof(text), format, arguments));
        va_end(arguments);
    };
    const struct {
        const Service& service;
        Phase step;
        Misdeed call;
    } rows[] = {
        {service::SetNodeInterface, PhaseInterface,
         DO(EXPECT_NE(0U, SetNodeInterface(&c.services, none, &copy, &base)))},
        {service::SetNodeInterface, PhaseInterface,
         DO(EXPECT_NE(0U, SetNodeInterface(&c.services, "com.oxa.node.dewarp", nullptr, nullptr)))},
        {service::GetAlignment, PhaseQuery, DO(GetAlignment(1, 1, 0, LumFormatNv12, nullptr, nullptr))},
        {service::GetDateTime, PhaseCreate, DO(GetDateTime(nullptr))},
        {service::FOpen, PhaseCreate, DO(EXPECT_EQ(nullptr, FOpen(none, "a")))},
        {service::FOpen, PhaseCreate, DO(EXPECT_EQ(nullptr, FOpen(DumpFile, none)))},
        {service::FWrite, PhaseSecondPass, DO(EXPECT_EQ(0U, FWrite(none, 1, 1, stdout)))},
        {service::VSNPrintF, PhaseCreate, DO(print(text, none))},
        {service::VSNPrintF, PhaseCreate, DO(print(nullptr, "x"))},
        {service::LibMapFullName, PhaseCreate, DO(EXPECT_EQ(nullptr, LibMapFullName(none)))},
        {service::LibGetAddr, PhaseCreate, DO(EXPECT_EQ(nullptr, LibGetAddr(&elsewhere, none)))},
        {service::PropertyGet, PhaseCreate, DO(EXPECT_EQ(3, property_get(none, text, "low")))},
        {service::PropertyGet, PhaseCreate, DO(EXPECT_EQ(0, property_get("x", nullptr, "low")))},
        {service::LogSystem, PhaseCreate, DO(LogLine(none, "E"))},
        {service::PosixMemalign, PhaseCreate, DO(EXPECT_EQ(ENOMEM, c.allocateAligned(nullptr, 8, 8)))},
    };
    for (const auto& row : rows) {
        const std::string name = row.service.name;
        Expect(RT, row.step, {{row.call, {"calls " + name + " with a null argument"}}});
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
         DO(std::memset(&c.As<LumNodeCallbacks>().Create, HostPattern, sizeof(void*))),
         "LumNodeEntry left one of the eight callbacks of a dewarp node out"},
        {TEST_ROGUE_LIBRARY, PhaseInterface, DO(c.result = 1), "does not take the host's services: result 1"},
        {TEST_ROGUE_LIBRARY, PhaseCaps, DO(c.As<LumNodeCapsInfo>().nodeCapsMask = 1),
         "reports the capabilities 1 (result 0, success); expected 384"},
    };
    for (const auto& row : rows) {
        const Misdeed once = In(row.step, row.misdeed);
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
