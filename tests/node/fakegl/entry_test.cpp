#include <cstring>

#include "tests/node/fakegl/fake_gl_fixture.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class Entry : public FakeGlFixture {};

TEST_F(Entry, FillsEightSlotsAndLeavesTheRest) {
    LumNodeCallbacks table = {};
    std::memset(&table, 0x5a, sizeof(table));
    table.size = 216;
    table.majorVersion = 0;
    table.minorVersion = 7;
    host_.Callbacks().Enter(&table);
    EXPECT_EQ(table.minorVersion, 0U);
    EXPECT_EQ(table.size, 216U);
    const unsigned filled = 1U << 0 | 1U << 2 | 1U << 3 | 1U << 4 | 1U << 5 | 1U << 6 | 1U << 7 | 1U << 22;
    for (unsigned slot = 0; slot < 25; ++slot) {
        uint64_t word = 0;
        std::memcpy(&word, reinterpret_cast<const char*>(&table) + 16 + 8 * slot, sizeof(word));
        EXPECT_EQ(word != 0x5a5a5a5a5a5a5a5aULL, (filled >> slot & 1U) != 0) << "slot " << slot;
    }
    EXPECT_THAT(TakeLog(), ElementsAre("E LumNodeEntry() Dewarp Node OpenGL LUMNODEEntry funtion"));
}

TEST_F(Entry, LeavesARefusedTableAsItWas) {
    const struct {
        uint32_t size;
        uint32_t major;
        const char* message;
    } rows[] = {{215, 0, "E LumNodeEntry() Lum API major version doesn't match (0:7) vs (0:0)"},
                {216, 1, "E LumNodeEntry() Lum API major version doesn't match (1:7) vs (0:0)"}};
    for (const auto& row : rows) {
        LumNodeCallbacks table = {};
        table.size = row.size;
        table.majorVersion = row.major;
        table.minorVersion = 7;
        const LumNodeCallbacks before = table;
        host_.Callbacks().Enter(&table);
        EXPECT_EQ(std::memcmp(&table, &before, sizeof(table)), 0);
        EXPECT_EQ(TakeLog().at(1), row.message);
    }
    host_.Callbacks().Enter(nullptr);
    EXPECT_EQ(TakeLog().at(1), "E LumNodeEntry() Invalid Argument: " + NullText());
}

TEST_F(Entry, EveryCallbackRefusesNullAndShortRecords) {
    using Node = desk::NodeGate;
    int handle = 0;
    const auto record = [&handle](auto empty, uint32_t size) {
        empty.size = size;
        if constexpr (!std::is_same_v<decltype(empty), LumNodeCapsInfo> &&
                      !std::is_same_v<decltype(empty), LumNodeCreateInfo>) {
            empty.hNodeSession = &handle;
        }
        return empty;
    };
    const auto refuse = [&](auto callback, auto empty, const std::string& name, const std::string& nullText,
                            const std::string& shortText) {
        using Record = decltype(empty);
        EXPECT_EQ((host_.Callbacks().*callback)(nullptr), 5U);
        Record shorter = record(empty, sizeof(Record) - 1);
        const Record before = shorter;
        EXPECT_EQ((host_.Callbacks().*callback)(&shorter), 1U);
        EXPECT_EQ(std::memcmp(&shorter, &before, sizeof(Record)), 0) << name;
        EXPECT_THAT(TakeLog(), ElementsAre("E " + name + "() " + nullText, "E " + name + "() " + shortText));
    };
    TakeLog();
    refuse(&Node::GetCaps, LumNodeCapsInfo{}, "DewarpNodeGetCaps", "Invalid argument: pCapsInfo is NULL",
           "LUMNODECAPSINFO is smaller than expected");
    refuse(&Node::Create, LumNodeCreateInfo{}, "DewarpNodeCreate", "Invalid argument: pTagTypeInfo is NULL",
           "LUMNODECREATEINFO is smaller than expected");
    refuse(&Node::Destroy, LumNodedestroyInfo{}, "DewarpNodeDestroy",
           "Invalid argument: pDestroyInfo is NULL", "LUMNODEDESTROYINFO is smaller than expected");
    refuse(&Node::QueryBufferInfo, LumNodeQueryBufferInfo{}, "DewarpNodeQueryBufferInfo", "Invalid argument",
           "LUMNODEQUERYBUFFERINFO is smaller than expected");
    refuse(&Node::SetBufferInfo, LumNodeSetBufferPropertiesInfo{}, "DewarpNodeSetBufferInfo",
           "Invalid argument", "LUMNODESETBUFFERPROPERTIESINFO is smaller than expected");
    refuse(&Node::ProcRequest, LumNodeProcessRequestInfo{}, "DewarpNodeProcRequest", "Invalid argument",
           "LUMNODEPROCESSREQUESTINFO is smaller than expected");
}

TEST_F(Entry, ANullHandleIsRefusedBeforeTheSize) {
    LumNodedestroyInfo record = {};
    record.size = 8;
    EXPECT_EQ(host_.Callbacks().Destroy(&record), 5U);
    LumNodeCapsInfo caps = {8, 0};
    EXPECT_EQ(host_.Callbacks().GetCaps(&caps), 0U);
    EXPECT_EQ(caps.nodeCapsMask, 384U);
    EXPECT_EQ(host_.Callbacks().DumpCoreNodeConfig(-1, 4, nullptr), 0U);
}

TEST_F(Entry, RefusesCapabilitiesThatNameNoVariant) {
    for (const uint32_t caps : {0U, 64U, 384U}) {
        LumNodeCreateInfo info = {};
        info.size = sizeof(info);
        info.nodeCaps = caps;
        int before = 0;
        info.phNodeSession = &before;
        TakeLog();
        EXPECT_EQ(host_.Callbacks().Create(&info), 2U);
        EXPECT_EQ(info.phNodeSession, &before);
        EXPECT_EQ(info.nodeFlags, 0x60U);
        EXPECT_THAT(TakeLog(), IsEmpty());
        EXPECT_EQ(host_.Counters().liveAllocations, 0U);
    }
}
