#include <cstring>

#include "tests/node/fakegl/established_fixture.h"

class Entry : public EstablishedFixture {
protected:
    /// Calls with no record and with one that is a byte short.
    template <typename Record>
    void Refuse(uint32_t (desk::NodeGate::*callback)(Record*)) {
        auto record = desk::PatternedRecord<Record>();
        --record.size;
        const uint32_t ofNull = ((*host_.gate).*callback)(nullptr);
        NoteLog(fmt::format("{}, {}", ofNull, ((*host_.gate).*callback)(&record)));
    }
};

TEST_F(Entry, LeavesARefusedTableAsItWas) {
    for (const auto& [size, version] : {std::pair{215U, 0U}, std::pair{216U, 1U}}) {
        LumNodeCallbacks table = {};
        table.size = size;
        table.majorVersion = version;
        table.minorVersion = 7;
        const LumNodeCallbacks before = table;
        host_.gate->Enter(&table);
        EXPECT_EQ(std::memcmp(&table, &before, sizeof(table)), 0);
        NoteLog(fmt::format("{} bytes, version {}", size, version));
    }
    host_.gate->Enter(nullptr);
    NoteLog("no table");
}

TEST_F(Entry, EveryCallbackRefusesNullAndShortRecords) {
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

TEST_F(Entry, RefusesCapabilitiesThatNameNoVariant) {
    LumNodeCapsInfo caps = {8, 0};
    EXPECT_EQ(host_.gate->GetCaps(&caps), 0U);
    EXPECT_EQ(caps.nodeCapsMask, 384U);
    for (const uint32_t refused : {0U, 64U, caps.nodeCapsMask}) {
        auto info = desk::PatternedRecord<LumNodeCreateInfo>();
        info.nodeCaps = refused;
        info.nodeFlags = 0;
        info.phNodeSession = &info;
        EXPECT_EQ(host_.gate->Create(&info), 2U);
        EXPECT_EQ(info.phNodeSession, &info);
        EXPECT_EQ(info.nodeFlags, 0x60U);
    }
    EXPECT_EQ(host_.gate->DumpCoreNodeConfig(-1, 4, nullptr), 0U);
    EXPECT_THAT(TakeLog(), ::testing::IsEmpty());
}
