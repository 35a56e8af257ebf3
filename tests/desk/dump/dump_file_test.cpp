#include "desk/dump/dump_file.h"

#include <gmock/gmock.h>

#include <sstream>

#include "desk/dump/grid_dump.h"
#include "tests/desk/support/tool_fixture.h"

using ::testing::HasSubstr;
using ::testing::StartsWith;

namespace {

const cv::Size Input(400, 300);

class DumpFile : public ToolTest {
protected:
    /// The message with which a file is refused as the source of a node's grids, without the folder.
    std::string Refusal(const std::string& text) const {
        try {
            desk::GridDump(Write("dump.txt", text), Input);
        } catch (const desk::DumpError& error) {
            return std::string(error.what()).substr(folder_.string().size() + 1);
        }
        return "accepted";
    }
};

/// A line of a mesh dump: n-th float `first` + n * `step`, all but the first and the last twice.
std::string MeshLine(uint64_t frame, double first, double step) {
    desk::DumpLine line;
    line.requestId = frame;
    for (size_t i = 0; i < desk::MeshValueCount; i++) {
        line.values.push_back(first + static_cast<double>(i) * step);
    }
    std::ostringstream text;
    desk::WriteDumpLine(text, desk::DumpKind::TexCoordinates, line);
    return text.str();
}

}  // namespace

TEST_F(DumpFile, AGridComesBackAsItWasWritten) {
    const IPEICAGridTransform grid = ShiftGrid(1536, 864, 3.25F, -0.5F);
    const std::string text = GridLine(18446744073709551615U, grid);
    EXPECT_THAT(text, StartsWith("Frame 18446744073709551615, 1536, 864, -812.7500, "));
    const desk::GridDump dump(Write("dump.txt", text), {1536, 864});
    ASSERT_EQ(dump.Size(), 1U);
    EXPECT_EQ(dump.RequestId(0), 18446744073709551615U);
    EXPECT_EQ(GridLine(dump.RequestId(0), dump.Grid(0)), text);
}

TEST_F(DumpFile, AMeshComesBackAsItWasWritten) {
    const std::string text = MeshLine(7, 0.4, 0.001) + MeshLine(8, 0.4, 0.002);
    desk::DumpReader reader(Write("dump.txt", text));
    EXPECT_EQ(reader.Kind(), desk::DumpKind::TexCoordinates);
    std::ostringstream again;
    while (const auto line = reader.Next()) {
        desk::WriteDumpLine(again, reader.Kind(), *line);
    }
    EXPECT_EQ(again.str(), text);
}

TEST_F(DumpFile, AMeshAboutZeroIsThatOfTheVertices) {
    EXPECT_EQ(desk::DumpReader(Write("dump.txt", MeshLine(1, -1, 1 / 32.0))).Kind(),
              desk::DumpKind::Vertices);
}

TEST_F(DumpFile, CopiesInAMeshLineMustAgree) {
    std::string text = MeshLine(7, 0.0, 0.001);
    text.replace(text.find("0.0050", text.find("0.0050") + 1), 6, "0.0051");
    desk::DumpReader reader(Write("dump.txt", text));
    EXPECT_THROW(reader.Next(), desk::DumpError);
}

TEST_F(DumpFile, ReadingGoesOnAfterABadLine) {
    const std::vector<std::string> lines = CleanLines(2);
    desk::DumpReader reader(Write("dump.txt", lines[0] + "Frame x\n" + lines[1]));
    EXPECT_EQ(reader.Next()->requestId, 1U);
    EXPECT_THROW(reader.Next(), desk::DumpError);
    EXPECT_EQ(reader.Next()->requestId, 2U);
    EXPECT_FALSE(reader.Next());
}

TEST_F(DumpFile, AGridsCopiesOfLinesAreFoundByRequest) {
    const std::vector<std::string> lines = CleanLines(3);
    const desk::GridDump dump(Write("dump.txt", lines[2] + lines[0]), Input);
    EXPECT_EQ(dump.Find(1), 1U);
    EXPECT_EQ(dump.Find(3), 0U);
    EXPECT_FALSE(dump.Find(2));
    EXPECT_EQ(GridLine(1, dump.Grid(1)), lines[0]);
    EXPECT_EQ(GridLine(3, dump.Grid(0)), lines[2]);
}

TEST_F(DumpFile, WhatCannotDriveANodeIsRefusedWithItsPlace) {
    const std::string good = GridLine(1, ShiftGrid(400, 300, 0, 0));
    EXPECT_EQ(Refusal(good), "accepted");
    EXPECT_EQ(Refusal(""), "dump.txt: expected a dump file of the node, got an empty file");
    EXPECT_THAT(Refusal("RIFF"), HasSubstr("dump.txt:1:1: expected a dump file of the node"));
    EXPECT_THAT(Refusal(MeshLine(1, 0.4, 0.001)),
                HasSubstr("expected a grid dump, got a texture coordinate dump"));
    EXPECT_THAT(Refusal(good + good),
                HasSubstr("dump.txt:2:1: expected every request id once, got 1 again after line 1"));
    EXPECT_THAT(Refusal(good.substr(0, good.size() - 1)), HasSubstr("the file is cut off"));
    EXPECT_THAT(Refusal(good.substr(0, 40)),
                HasSubstr("dump.txt:1:40: expected a comma, a blank and value 3 of 1890"));
    EXPECT_THAT(Refusal(GridLine(1, ShiftGrid(400, 300, 4e6F, 0))),
                HasSubstr("dump.txt:1:20: expected a coordinate within 65536 pixels"));
}

TEST_F(DumpFile, AGridFromAnotherSizeIsRefused) {
    const std::filesystem::path file = Write("dump.txt", GridLine(1, ShiftGrid(400, 300, 3, 2)));
    EXPECT_NO_THROW(desk::GridDump(file, {404, 304}));
    EXPECT_THROW(desk::GridDump(file, {640, 300}), desk::DumpError);
    EXPECT_THROW(desk::GridDump(file, {400, 200}), desk::DumpError);
}
