#include <gmock/gmock.h>

#include <numeric>
#include <sstream>

#include "desk/dump/dump_checks.h"
#include "desk/dump/dump_reader.h"
#include "desk/dump/grid_dump.h"
#include "tests/desk/support/tool_fixture.h"

using namespace ::testing;

namespace {

const cv::Size Input(400, 300);

/// A line of a mesh dump: the first vertex lies at `first`, its neighbours 1/32 further.
std::string MeshLine(uint64_t frame, double first) {
    desk::DumpLine line;
    line.requestId = frame;
    for (int i = 0; i < static_cast<int>(desk::MeshValueCount); i++) {
        const int vertex = i / 2;
        line.values.push_back(first +
                              (i % 2 == 0 ? vertex % desk::MeshColumns : vertex / desk::MeshColumns) / 32.0);
    }
    std::ostringstream text;
    desk::WriteDumpLine(text, desk::DumpKind::TexCoordinates, line);
    return text.str();
}

/// Replaces the n-th number of a line, counted from 0 after the request id.
std::string WithNumber(const std::string& line, size_t n, const std::string& number) {
    size_t at = 0;
    for (size_t i = 0; i <= n; i++) {
        at = line.find(", ", at) + 2;
    }
    return line.substr(0, at) + number + line.substr(line.find_first_of(", ", at));
}

/// Where x of a grid's point stands among the numbers of its line.
constexpr size_t NumberOfX(size_t column, size_t row) {
    return 2 + 2 * (row * desk::GridColumns + column);
}

class Dump : public ToolTest {
protected:
    /// The message with which a file is refused as the source of a node's grids, without the folder.
    std::string Refusal(const std::string& text, cv::Size input = Input) const {
        try {
            desk::GridDump(Write("dump.txt", text), input);
        } catch (const desk::DumpError& error) {
            return std::string(error.what()).substr(folder_.string().size() + 1);
        }
        return "accepted";
    }
    desk::DumpCheck Check(const std::vector<std::string>& lines, cv::Size output = {320, 240}) const {
        const std::string text = std::accumulate(lines.begin(), lines.end(), std::string());
        return desk::CheckDump(Write("dump.txt", text), {Input, output});
    }
};

TEST_F(Dump, LinesComeBackAsTheyWereWritten) {
    const uint64_t most = 18446744073709551615U;
    const std::string grid = GridLine(most, ShiftGrid(1536, 864, 3.25F, -0.5F));
    EXPECT_THAT(grid, StartsWith("Frame 18446744073709551615, 1536, 864, -812.7500, "));
    const desk::GridDump dump(Write("dump.txt", grid), {1536, 864});
    ASSERT_EQ(dump.Lines().size(), 1U);
    EXPECT_EQ(GridLine(dump.Lines()[0].requestId, dump.Lines()[0].grid), grid);
    const std::string mesh = MeshLine(7, 0) + MeshLine(8, 0.125);
    desk::DumpReader reader(Write("dump.txt", mesh));
    EXPECT_EQ(reader.Kind(), desk::DumpKind::TexCoordinates);
    std::ostringstream again;
    while (const auto line = reader.Next()) {
        desk::WriteDumpLine(again, reader.Kind(), *line);
    }
    EXPECT_EQ(again.str(), mesh);
    EXPECT_EQ(desk::DumpReader(Write("dump.txt", MeshLine(1, -0.5))).Kind(), desk::DumpKind::Vertices);
}

TEST_F(Dump, ReadingGoesOnAfterABadLineAndLinesAreFoundByRequest) {
    const std::vector<std::string> lines = CleanLines(3);
    desk::DumpReader reader(Write("dump.txt", lines[0] + "Frame x\n" + lines[1]));
    EXPECT_EQ(reader.Next()->requestId, 1U);
    EXPECT_THROW(reader.Next(), desk::DumpError);
    EXPECT_EQ(reader.Next()->requestId, 2U);
    EXPECT_FALSE(reader.Next());
    const desk::GridDump dump(Write("dump.txt", lines[2] + lines[0]), Input);
    EXPECT_EQ(dump.Find(1), 1U);
    EXPECT_EQ(dump.Find(3), 0U);
    EXPECT_FALSE(dump.Find(2));
    EXPECT_EQ(GridLine(1, dump.Lines()[1].grid), lines[0]);
}

TEST_F(Dump, WhatCannotDriveANodeIsRefusedWithItsPlace) {
    const std::string good = GridLine(1, ShiftGrid(400, 300, 3, 2));
    EXPECT_EQ(Refusal(good), "accepted");
    EXPECT_EQ(Refusal(good, {404, 304}), "accepted");
    EXPECT_THAT(Refusal(good, {640, 300}),
                HasSubstr("expected a grid for an input of 640 x 300, got one that"));
    EXPECT_THAT(Refusal(good, {400, 200}), HasSubstr("that spans 400 x 300 pixels"));
    EXPECT_EQ(Refusal(""), "dump.txt: expected a dump file of the node, got an empty file");
    EXPECT_THAT(Refusal("RIFF"), HasSubstr("dump.txt:1:1: expected a dump file of the node"));
    EXPECT_THAT(Refusal(MeshLine(1, 0)), HasSubstr("expected a grid dump, got a texture coordinate dump"));
    EXPECT_THAT(Refusal(good + good),
                HasSubstr("dump.txt:2:1: expected every request id once, got 1 again after line 1"));
    EXPECT_THAT(Refusal(good.substr(0, good.size() - 1)), HasSubstr("the file is cut off"));
    EXPECT_THAT(Refusal(good.substr(0, 40)),
                HasSubstr("dump.txt:1:40: expected a comma, a blank and value 3 of 1890"));
    EXPECT_THAT(Refusal(GridLine(1, ShiftGrid(400, 300, 4e6F, 0))),
                HasSubstr("dump.txt:1:20: expected a coordinate within 65536 pixels"));
}

/// One defect, put into a clean dump of 20 lines.
struct Defect {
    void (*seed)(std::vector<std::string>& lines);
    const char* kind;
    size_t line;
    const char* text;
};

const Defect Defects[] = {
    {[](auto& lines) { lines[4] = WithNumber(lines[4], NumberOfX(7, 3), "1x2"); }, "malformed", 5,
     "expected a comma, a blank and value 226 of 1890, got \"x2, "},
    {[](auto& lines) { lines[6] = lines[6].substr(0, lines[6].rfind(", ")) + " \n"; }, "malformed", 7,
     "value 1890 of 1890"},
    {[](auto& lines) { lines[8] = WithNumber(lines[8], NumberOfX(10, 10), "nan"); }, "not-finite", 9,
     "got nan"},
    {[](auto& lines) { lines[9] = WithNumber(lines[9], NumberOfX(11, 10) + 1, "-inf"); }, "not-finite", 10,
     "got -inf"},
    {[](auto& lines) { lines[2] = WithNumber(lines[2], NumberOfX(20, 5), "43750000.0000"); }, "out-of-range",
     3, "got 43750000.0000"},
    {[](auto& lines) { lines[11] = WithNumber(lines[11], NumberOfX(12, 8), "0.0000"); }, "fold-over", 12,
     "cells have a negative area"},
    {[](auto& lines) { lines[19] = GridLine(20, ShiftGrid(400, 300, 30, 20)); }, "jump", 20,
     "from request 19 to 20"},
    {[](auto& lines) { lines[13] = "Frame 13" + lines[13].substr(8); }, "repeated-request", 14,
     "request 13 was already in line 13"},
    {[](auto& lines) { lines.back().pop_back(); }, "malformed", 20, "the file is cut off"},
    // The vertices of a mesh may not move at all.
    {[](auto& lines) {
         lines = {MeshLine(1, -0.5), MeshLine(2, -0.5), MeshLine(3, -0.501)};
     },
     "jump", 3, "moves by 0.14 % of its width a frame, expected at most 0.02 %"},
    {[](auto& lines) {
         lines = {MeshLine(7, 0), WithNumber(MeshLine(8, 0), 10, "0.0001")};
     },
     "malformed", 2, "expected value 6 and its copy to agree"},
};

TEST_F(Dump, EverySeededDefectIsFoundAndNothingElse) {
    for (const Defect& defect : Defects) {
        std::vector<std::string> lines = CleanLines(20);
        defect.seed(lines);
        EXPECT_THAT(Check(lines).findings,
                    ElementsAre(AllOf(Field(&desk::DumpFinding::line, defect.line),
                                      Field(&desk::DumpFinding::kind, defect.kind),
                                      Field(&desk::DumpFinding::text, HasSubstr(defect.text)))));
    }
}

TEST_F(Dump, ACleanDumpHasNoFindings) {
    const desk::DumpCheck check = Check(CleanLines(20));
    EXPECT_THAT(check.findings, IsEmpty());
    ASSERT_EQ(check.frames.size(), 20U);
    EXPECT_NEAR((*check.frames[4].used)[desk::Right], 5 * std::sin(1.6), 1e-3);
    EXPECT_NEAR((*check.frames[4].used)[desk::Left], -5 * std::sin(1.6), 1e-3);
    // After a gap of seven frames the mesh may have moved seven times as far.
    const std::vector<std::string> gap = {GridLine(1, ShiftGrid(400, 300, 0, 0)),
                                          GridLine(2, ShiftGrid(400, 300, 3, 0)),
                                          GridLine(9, ShiftGrid(400, 300, 24, 0))};
    EXPECT_THAT(Check(gap).findings, IsEmpty());
}

TEST_F(Dump, ReachBeyondTheInputNamesSideAndFirstFrame) {
    // The output is 6 pixels smaller than the input, the sway up to 5 to either side.
    const desk::DumpCheck check = Check(CleanLines(20), {394, 294});
    ASSERT_EQ(check.findings.size(), 2U);
    EXPECT_EQ(check.findings[0].line, 3U);
    EXPECT_EQ(check.findings[0].text,
              "request 3 is the first of 7 to read beyond the input's right side, by "
              "2.00 pixels at most");
    EXPECT_THAT(check.findings[1].text, HasSubstr("the input's left side"));
}

}  // namespace
