#include "tests/node/fakegl/established_fixture.h"

class Dumps : public EstablishedFixture {
protected:
    Dumps() {
        host_.clock = LUMDateTime{9, 5, 14, 3, 2, 124, {}};  // 2024-03-03 14:05:09
        host_.SetDumps(true);
    }
    std::set<std::string> Names() const {
        std::set<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(dumpDir_)) {
            names.insert(entry.path().filename());
        }
        return names;
    }
};

TEST_F(Dumps, AreNamedByVariantAndTime) {
    for (const auto variant : Variants) {
        node_ = host_.CreateNode(variant);
        NoteLog(desk::NameOf(variant), "dump");
    }
    Note("{}", fmt::join(Names(), "\n"));
}

TEST_F(Dumps, SwitchOnTheIntegerOne) {
    // The last ones are 1 in their lower 32 bits, then beyond 64 bits.
    for (const char* value :
         {"1", "01", " 1", "+1", "1x", "1abc", "", "0", "2", "11", "-1", "+", "x1", "0x1", "true",
          "4294967297", "-4294967295", "9223372036854775808", "18446744073709551617"}) {
        host_.properties.With([&](auto& all) { all["persist.vendor.camera.enabledewarpdump"] = value; });
        host_.CreateNode(desk::Variant::RealTime);
        Note("\"{}\": {} files", value, Names().size());
        for (const std::string& name : Names()) {
            std::filesystem::remove(dumpDir_ / name);
        }
    }
}

// The grid's line is longer than one formatting call may be. A disabled grid is not written, and its mesh is
// that of no grid.
TEST_F(Dumps, HoldOneLinePerFrame) {
    MakeNode();
    grid_ = Grid([](int column, int row) {
        return GridPoint{9e36F * (static_cast<float>(column) - 0.5F), -9e36F * static_cast<float>(row)};
    });
    grid_.dumpValue0 = 4000000000U;
    grid_.dumpValue1 = 7;
    ASSERT_EQ(Frame((1ULL << 32) + 42), 0U);
    grid_.gridTransformEnable = 2;
    ASSERT_EQ(Frame(43), 0U);
    NoteLog("logged", "successfully");
    node_.reset();
    for (const char* kind : {"Grid", "Tex", "Vert"}) {
        for (const std::string& line : DumpLines(kind)) {
            Note("{}, {} bytes: {} ...{}.", kind, line.size(), line.substr(0, 160),
                 line.substr(line.size() - 80));
        }
    }
}
