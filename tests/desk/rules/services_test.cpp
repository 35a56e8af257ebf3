// What every service asks of its caller, and what those about files, libraries, buffers and lines ask more.

#include <fmt/core.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <regex>
#include <tuple>

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

// In every step a null argument is named and the call refused; where the service has no place, as
// sentences.txt has it, that is told as well; the fault is asked once, whatever is wrong.
TEST(Services, KnowTheirStepsAndTheirArguments) {
    FindingsOf({}, DO());  // after which the rogue has a table in every step
    for (const NullCall& row : NullCalls) {
        const std::string name = row.service.name;
        std::string places;
        for (unsigned bit = PhaseOutside; bit <= PhaseRefusal; bit <<= 1) {
            const auto step = static_cast<Phase>(bit);
            const std::string calls = Caller(step) + " calls " + name;
            std::vector<std::string> expected = {calls + " with a null argument"};
            int asked = 0;
            const Fault count = [&](const HostCall& call, uint32_t&) {
                asked += call.caller.phase == step && call.service == name && call.subject == row.subject;
                return false;
            };
            const Misdeed misdeed = DO(asked = 0; EXPECT_TRUE(row.isRefused(c)) << name);
            const auto findings = FindingsOf({step, RT, {7}, count}, misdeed);
            if (findings.size() == 1) {
                places += "; " + Describe({step});
            } else {
                expected.insert(expected.begin(), calls + "(" + row.subject + "), which has no place there");
            }
            EXPECT_EQ(findings, expected);
            const bool hasFault = (step & (PhaseEntry | PhaseInterface | PhaseCaps)) == 0;  // set after these
            const bool isAsked = hasFault && name != "VSNPrintF" && name != "LogSystem";
            EXPECT_EQ(asked, isAsked ? 1 : 0) << expected.back();
        }
        EXPECT_THAT(Sentences("places of " + name), ::testing::ElementsAre(places.substr(2)));
    }
}

TEST(Services, FailWithoutAHost) {
    FindingsOf({}, DO());  // the library has its table from a host that is no more
    for (const NullCall& row : NullCalls) {
        EXPECT_TRUE(row.isRefused(rogue)) << row.service.name;
    }
    EXPECT_EQ(nullptr, rogue.allocate(1));
}

TEST(Services, ServeTheDevice) {
    const auto property = [](const char* name, const char* fallback) {
        char value[PropertyValueSize + 1] = {};
        const auto length = static_cast<size_t>(property_get(name, value, fallback));
        return std::string(value, length);
    };
    ::setenv("TZ", "EAST-5", 1);  // where no clock is ever put forward or back
    ::tzset();
    const auto now = [] {
        LUMDateTime date = {};
        GetDateTime(&date);
        std::tm local = {};
        std::tie(local.tm_sec, local.tm_min, local.tm_hour, local.tm_mday, local.tm_mon, local.tm_year) =
            std::tie(date.seconds, date.minutes, date.hours, date.dayOfMonth, date.month, date.year);
        return std::mktime(&local);
    };
    const auto alignment = [](uint32_t plane, int format) {
        std::array<int32_t, 2> found = {-1, -1};
        GetAlignment(64, 48, plane, static_cast<LumFormat>(format), &found[0], &found[1]);
        return found;
    };
    FILE* file = nullptr;
    const auto serve = [&](RogueCall& c) {
        if (c.step == PhaseCreate) {
            file = FOpen(DumpFile, "a");
            EXPECT_EQ(LibMapFullName("/system/lib/" TEST_ROGUE_NAME), nullptr);
            const std::time_t before = std::time(nullptr);
            EXPECT_GE(now(), before);
            EXPECT_LE(now(), std::time(nullptr));
            HostState::Current()->properties.With([](auto& all) { all["x"] = "high"; });
            EXPECT_EQ(property("x", "low"), "high");
            EXPECT_EQ(property("y", nullptr), "");
            const std::string longest(PropertyValueSize - 1, 'y');
            EXPECT_EQ(property("y", longest.c_str()), longest);
            EXPECT_EQ(property("y", (longest + "y").c_str()), longest);
        } else if (c.step == PhaseQuery) {
            EXPECT_THAT(alignment(0, LumFormatNv12), ::testing::ElementsAre(128, 32));
            EXPECT_THAT(alignment(1, LumFormatNv12), ::testing::ElementsAre(128, 16));
            EXPECT_THAT(alignment(2, LumFormatNv12), ::testing::ElementsAre(-1, -1));
            EXPECT_THAT(alignment(0, LumFormatNv12 + 1), ::testing::ElementsAre(-1, -1));
        } else if (c.step == PhaseSecondPass) {
            EXPECT_EQ(FWrite("abcdef", 2, 2, file), 2U);
            GrallocMetadata wanted = {GrallocMetadataMagic, 0, {}, 1, {}};
            std::memset(&wanted.color, 7, sizeof(wanted.color));
            EXPECT_EQ(SetGrallocMetaData(OutputOf(c), MetadataColor, sizeof(wanted.color), &wanted.color), 0);
            GrallocMetadata told = {};
            EXPECT_GT(::pread(OutputOf(c)->data[GrallocMetadataFd], &told, sizeof(told), 0), 0);
            EXPECT_EQ(std::memcmp(&told, &wanted, sizeof(told)), 0);
        } else {
            EXPECT_EQ(FClose(file), 0);
            std::string written;
            std::ifstream(HostState::Current()->options.dumpDir / "x") >> written;
            EXPECT_EQ(written, "abcd");
        }
    };
    Expect({PhaseCreate | PhaseQuery | PhaseSecondPass | PhaseDestroy}, {{"nothing", serve}});
}

TEST(Services, LogInLogcatsForm) {
    const std::string log = LogOf({PhaseCreate}, DO(Log("[ERROR  ]", "E"); LibUnmap(&elsewhere)));
    const std::string head = fmt::format("[01]\\d-[0-3]\\d [0-2]\\d:[0-5]\\d:[0-5]\\d\\.\\d{{3}} {:5} {:5} ",
                                         ::getpid(), ::gettid());
    EXPECT_TRUE(std::regex_match(log, std::regex(head + "E DEWARP  : file.cpp:1 Function\\(\\) text\n" +
                                                 head + "W DESK    : finding: the real-time node .*\n")))
        << log;
    EXPECT_EQ(g_enableLuxLogs, 3U) << "errors and warnings are logged unless other levels are asked for";
}

TEST(Services, AskForWhatThereIs) {
    const auto setColour = [](RogueCall& c, size_t word, int value) {
        int copy[3 + GrallocFdCount + GrallocIntCount] = {};
        std::memcpy(copy, OutputOf(c), sizeof(copy));
        copy[word] = value;
        SetGrallocMetaData(reinterpret_cast<native_handle*>(copy), MetadataColor, 4, "");
    };
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
            {"no gralloc handle", DO(setColour(c, 0, sizeof(native_handle) + 4))},
            {"no gralloc handle", DO(setColour(c, 1, 1))},
            {"no gralloc handle", DO(setColour(c, 2, 4))},
            {"no gralloc handle", DO(setColour(c, 3 + GrallocFdCount + GrallocIntMagic, 0))},
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
