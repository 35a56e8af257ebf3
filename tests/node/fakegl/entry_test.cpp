#include <cstring>

#include "tests/node/fakegl/established_fixture.h"

class Entry : public EstablishedFixture {
protected:
    /// Calls with no record and with one that is a byte short, which has to stay as it is.
    template <typename Record>
    void Refuse(uint32_t (desk::NodeGate::*callback)(Record*)) {
        int handle = 0;
        Record record = {};
        record.size = sizeof(Record) - 1;
        if constexpr (!std::is_same_v<Record, LumNodeCapsInfo> &&
                      !std::is_same_v<Record, LumNodeCreateInfo>) {
            record.hNodeSession = &handle;
        }
        const Record before = record;
        const uint32_t ofNull = (host_.Callbacks().*callback)(nullptr);
        NoteLog(fmt::format("{}, {}", ofNull, (host_.Callbacks().*callback)(&record)));
        EXPECT_EQ(std::memcmp(&record, &before, sizeof(Record)), 0);
    }
};

TEST_F(Entry, FillsEightSlotsAndLeavesTheRest) {
    LumNodeCallbacks table = {};
    std::memset(&table, 0x5a, sizeof(table));
    table.size = 216;
    table.majorVersion = 0;
    table.minorVersion = 7;
    host_.Callbacks().Enter(&table);
    EXPECT_EQ(table.minorVersion, 0U);
    EXPECT_EQ(table.size, 216U);
    for (unsigned slot = 0; slot < 25; ++slot) {
        uint64_t word = 0;
        std::memcpy(&word, reinterpret_cast<const char*>(&table) + 16 + 8 * slot, sizeof(word));
        EXPECT_EQ(word != 0x5a5a5a5a5a5a5a5aULL, slot == 22 || (slot <= 7 && slot != 1)) << "slot " << slot;
    }
    NoteLog("logged");
}

TEST_F(Entry, LeavesARefusedTableAsItWas) {
    const struct {
        uint32_t size;
        uint32_t version;
        uint32_t levels;
    } rows[] = {{215, 0, AllLevels}, {216, 1, AllLevels}, {215, 0, 0}};
    for (const auto& [size, version, levels] : rows) {
        host_.SetLogLevels(levels, false);
        LumNodeCallbacks table = {};
        table.size = size;
        table.majorVersion = version;
        table.minorVersion = 7;
        const LumNodeCallbacks before = table;
        host_.Callbacks().Enter(&table);
        EXPECT_EQ(std::memcmp(&table, &before, sizeof(table)), 0);
        NoteLog(fmt::format("{} bytes, version {}, levels {}", size, version, levels));
    }
    for (const uint32_t levels : {0U, AllLevels}) {
        host_.SetLogLevels(levels, false);
        host_.Callbacks().Enter(nullptr);
        NoteLog("no table");
    }
}

TEST_F(Entry, EveryCallbackRefusesNullAndShortRecords) {
    TakeLog();
    using Node = desk::NodeGate;
    for (const uint32_t levels : {AllLevels, 0U}) {
        host_.SetLogLevels(levels, false);
        Refuse(&Node::GetCaps);
        Refuse(&Node::Create);
        Refuse(&Node::Destroy);
        Refuse(&Node::QueryBufferInfo);
        Refuse(&Node::SetBufferInfo);
        Refuse(&Node::ProcRequest);
    }
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
    TakeLog();
    for (const uint32_t caps : {0U, 64U, 384U}) {
        LumNodeCreateInfo info = {};
        info.size = sizeof(info);
        info.nodeCaps = caps;
        int before = 0;
        info.phNodeSession = &before;
        EXPECT_EQ(host_.Callbacks().Create(&info), 2U);
        EXPECT_EQ(info.phNodeSession, &before);
        EXPECT_EQ(info.nodeFlags, 0x60U);
        EXPECT_THAT(TakeLog(), ::testing::IsEmpty());
        EXPECT_EQ(host_.Counters().liveAllocations, 0U);
    }
}
