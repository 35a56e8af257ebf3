// What every service asks of its caller, and what those about files, libraries, buffers and lines ask more.

#include <cerrno>
#include <cstdlib>

#include "desk/abi/gralloc_layout.h"
#include "host/lumlog.h"
#include "platform/properties.h"
#include "tests/desk/rules/rules.h"

namespace {

using namespace desk;
using namespace LumNodeUtils;
using namespace Orba::Gralloc;

constexpr const char* DumpFile = "/data/vendor/camera/x";

void Log(const char* level, const char* letter) {
    LumLog::LogSystem(level, letter, "file.cpp", "Function", 1, "text");
}

/// A call of a service with a null argument, and whether the service refuses it.
struct NullCall {
    const Service& service;
    std::string subject;
    std::function<bool(RogueCall&)> isRefused;
};

#define CALL(...) []([[maybe_unused]] RogueCall& c) { return __VA_ARGS__; }
const char* const none = std::getenv("");  // null, of which the compiler knows nothing
int32_t (*const print)(char*, size_t, const char*, ...) = SNPrintF;
char text[PropertyValueSize];
const NullCall NullCalls[] = {
    {service::SetNodeInterface, "", CALL(SetNodeInterface(&c.services, none, nullptr, nullptr) != 0)},
    {service::SetNodeInterface, "x", CALL(SetNodeInterface(&c.services, "x", nullptr, nullptr) != 0)},
    {service::GetVendorTagBase, "", CALL(c.services.GetVendorTagBase(nullptr) != 0)},
    {service::GetMetaData, "tag 0x5", CALL(!GetMetaData(7, 5, Vendor, nullptr, c.session, 0))},
    {service::SetMetadata, "", CALL(c.services.SetMetadata(nullptr) != 0)},
    {service::NotifyRequestDone, "", CALL(c.services.NotifyRequestDone(nullptr) != 0)},
    {service::QueryRequestWindow, "", CALL(c.services.QueryRequestWindow(c.session, nullptr) != 0)},
    {service::GetAlignment, "", CALL((GetAlignment(1, 1, 0, {}, nullptr, &elsewhere), elsewhere == 0))},
    {service::GetDateTime, "", CALL((GetDateTime(nullptr), true))},
    {service::FOpen, "", CALL(FOpen(none, "a") == nullptr)},
    {service::FOpen, DumpFile, CALL(FOpen(DumpFile, none) == nullptr)},
    {service::FClose, "", CALL(FClose(nullptr) == EOF)},
    {service::FWrite, "", CALL(FWrite(none, 1, 1, stdout) == 0)},
    {service::FWrite, "", CALL(FWrite("", 1, 1, nullptr) == 0)},
    {service::VSNPrintF, "", CALL(print(text, sizeof(text), none) < 0)},
    {service::VSNPrintF, "", CALL(print(nullptr, sizeof(text), "x") < 0)},
    {service::LibMapFullName, "", CALL(LibMapFullName(none) == nullptr)},
    {service::LibGetAddr, "", CALL(LibGetAddr(&elsewhere, none) == nullptr)},
    {service::LibGetAddr, "x", CALL(LibGetAddr(nullptr, "x") == nullptr)},
    {service::LibUnmap, "", CALL(LibUnmap(nullptr) != 0)},
    {service::SetGrallocMetaData, "9", CALL(SetGrallocMetaData(nullptr, 9, 0, "") != 0)},
    {service::PropertyGet, "", CALL(property_get(none, text, "low") == 3)},
    {service::PropertyGet, "x", CALL(property_get("x", nullptr, "low") == 0)},
    {service::LogSystem, "text", CALL((Log(none, "E"), true))},
    {service::PosixMemalign, "", CALL(c.allocateAligned(nullptr, 8, 8) == ENOMEM)},
};

// In every step a null argument is named and the call refused; where the service has no place, that is told
// as well; the fault is asked once, whatever is wrong.
TEST(Services, KnowTheirStepsAndTheirArguments) {
    FindingsOf({}, DO());  // after which the rogue has a table in every step
    for (const NullCall& row : NullCalls) {
        const std::string name = row.service.name;
        for (unsigned bit = PhaseOutside; bit <= PhaseRefusal; bit <<= 1) {
            const auto step = static_cast<Phase>(bit);
            const std::string calls = Caller(step) + " calls " + name;
            std::vector<std::string> expected = {calls + " with a null argument"};
            if ((row.service.phases & step) == 0) {
                expected.insert(expected.begin(), calls + "(" + row.subject + "), which has no place there");
            }
            int asked = 0;
            const Fault count = [&](const HostCall& call, uint32_t&) {
                asked += call.caller.phase == step && call.service == name && call.subject == row.subject;
                return false;
            };
            const Misdeed misdeed = DO(asked = 0; EXPECT_TRUE(row.isRefused(c)) << name);
            EXPECT_EQ(FindingsOf({step, RT, {7}, count}, misdeed), expected);
            const bool hasFault = (step & (PhaseEntry | PhaseInterface | PhaseCaps)) == 0;  // set after these
            const bool isAsked = hasFault && name != "VSNPrintF" && name != "LogSystem";
            EXPECT_EQ(asked, isAsked ? 1 : 0) << expected.back();
        }
    }
}

TEST(Services, FailWithoutAHost) {
    FindingsOf({}, DO());  // the library has its table from a host that is no more
    const Misdeed all = [](RogueCall& c) {
        for (const NullCall& row : NullCalls) {
            EXPECT_TRUE(row.isRefused(c)) << row.service.name;
        }
        EXPECT_EQ(nullptr, c.allocate(1));
    };
    OfRogue<decltype(&RogueSet)>("RogueSet")(&all);
    OfRogue<decltype(&RogueStep)>("RogueStep")(PhaseOutside, nullptr);
}

TEST(Services, AskForWhatThereIs) {
    static const native_handle blank = {};
    const BufferGeometry flat = {2, 48};
    int32_t lines = 0;
    Expect({PhaseCreate}, {{"a file to overwrite", DO(FClose(FOpen(DumpFile, "w")))},
                           {"a file in another folder", DO(FOpen("/tmp/x", "a"))},
                           {"a symbol of no library", DO(LibGetAddr(&elsewhere, "x"))}});
    Expect({PhaseQuery},
           {{"an image without columns", DO(GetAlignment(0, 48, 0, LumFormatNv12, &lines, &lines))},
            {"an image without lines", DO(GetAlignment(64, 0, 0, LumFormatNv12, &lines, &lines))}});
    Expect({PhaseDestroy}, {{"a foreign file closed", DO(FClose(stdout))},
                            {"a foreign library unmapped", DO(LibUnmap(&elsewhere))}});
    Expect({PhaseSecondPass},
           {{"a foreign file written", DO(FWrite("", 1, 1, stdout))},
            {"no gralloc handle", DO(SetGrallocMetaData(&blank, MetadataColor, 4, ""))},
            {"an unknown gralloc item", DO(SetGrallocMetaData(OutputOf(c), 99, 4, ""))},
            {"short colours", DO(SetGrallocMetaData(OutputOf(c), MetadataColor, 4, ""))},
            {"no colours", DO(SetGrallocMetaData(OutputOf(c), MetadataColor, 2804, nullptr))},
            {"a wrong geometry", DO(SetGrallocMetaData(OutputOf(c), MetadataBufferGeometry, 8, &flat))},
            {"an unknown level", DO(Log("[FATAL  ]", "F"))},
            {"a wrong letter", DO(Log("[ERROR  ]", "W"))},
            {"a level that is off", DO(Log("[VERBOSE]", "V"))}});
    Expect({PhaseSecondPass, RT, {7, 8}},
           {{"two writes", DO(FWrite("", 1, 1, stdout); FWrite("", 1, 1, stdout))}});
    Expect({PhaseOutside, RT, {7, 8}}, {{"nothing", DO()}});
    Expect({PhaseOutside, LA, {7, 8}}, {{"nothing", DO()}});
}

}  // namespace
