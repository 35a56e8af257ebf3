#include <gmock/gmock.h>

#include <cmath>
#include <numeric>
#include <sstream>

#include "desk/dump/dump_checks.h"
#include "desk/dump/dump_reader.h"
#include "desk/dump/grid_dump.h"
#include "desk/warp/warp_map.h"
#include "tests/desk/support/folder_test.h"

using namespace ::testing;

namespace {

const cv::Size Input(400, 300);

IPEICAGridTransform ShiftGrid(int inputWidth, int inputHeight, float x, float y) {
    return desk::MakeGrid({inputWidth, inputHeight}, [&](cv::Point2d q) {
        return q + cv::Point2d(static_cast<double>(x), static_cast<double>(y));
    });
}

std::string GridLine(uint64_t requestId, const IPEICAGridTransform& grid) {
    std::ostringstream line;
    desk::WriteDumpLine(line, desk::DumpKind::Grid, desk::ToDumpLine(requestId, grid));
    return line.str();
}

using Lines = std::vector<std::string>;

/// A clean dump: the grids of a 400 x 300 input that sways by a few pixels, requests 1 to `count`.
Lines CleanLines(int count) {
    Lines lines;
    for (int i = 0; i < count; i++) {
        const auto sway = static_cast<float>(5 * std::sin(0.4 * i));
        lines.push_back(GridLine(static_cast<uint64_t>(i) + 1, ShiftGrid(400, 300, sway, sway / 2)));
    }
    return lines;
}

/// A line of a mesh dump: the first vertex lies at `first`, its neighbours 1/32 further.
std::string MeshLine(uint64_t frame, double first) {
    desk::DumpLine line;
    line.requestId = frame;
    for (int i = 0; i < desk::MeshVertices + 1; i++) {
        const div_t at = div(i / 2, desk::MeshColumns);
        line.values.push_back(first + (i % 2 == 0 ? at.rem : at.quot) / 32.0);
    }
    std::ostringstream text;
    desk::WriteDumpLine(text, desk::DumpKind::TexCoordinates, line);
    return text.str();
}

/// Replaces the n-th number of a line, counted from 0 after the request id.
void Put(std::string& line, size_t n, const std::string& number) {
    size_t at = 0;
    for (size_t i = 0; i <= n; i++) {
        at = line.find(", ", at) + 2;
    }
    line.replace(at, line.find_first_of(", ", at) - at, number);
}

/// Where x of a grid's point stands among the numbers of its line.
constexpr size_t X(size_t column, size_t row) {
    return 2 + 2 * (row * desk::GridColumns + column);
}

class Dump : public FolderTest {
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
    desk::DumpCheck Check(const Lines& lines, cv::Size output = {320, 240}) const {
        const std::string text = std::accumulate(lines.begin(), lines.end(), std::string());
        return desk::CheckDump(Write("dump.txt", text), {Input, output});
    }
    /// A line of text for each.
    std::string Findings(const Lines& lines, cv::Size output = {320, 240}) const {
        std::string all;
        for (const desk::DumpFinding& finding : Check(lines, output).findings) {
            all += std::to_string(finding.line) + " " + finding.kind + ": " + finding.text + "\n";
        }
        return all;
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
    const Lines lines = CleanLines(3);
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
    EXPECT_THAT(Refusal(good, {640, 300}), HasSubstr("expected a grid for an input of 640 x 300, got one"));
    EXPECT_THAT(Refusal(good, {400, 200}), HasSubstr("that spans 400 x 300 pixels"));
    const std::pair<std::string, const char*> refusals[] = {
        {"", "dump.txt: expected a dump file of the node, got an empty file"},
        {"RIFF", "dump.txt:1:1: expected a dump file of the node"},
        {MeshLine(1, 0), "expected a grid dump, got a texture coordinate dump"},
        {good + good, "dump.txt:2:1: expected every request id once, got 1 again after line 1"},
        {good.substr(0, good.size() - 1), "the file is cut off"},
        {good.substr(0, 40), "dump.txt:1:40: expected a comma, a blank and value 3 of 1890"},
        {GridLine(1, ShiftGrid(400, 300, 4e6F, 0)),
         "dump.txt:1:20: expected a coordinate within 65536 pixels"},
    };
    for (const auto& [text, sentence] : refusals) {
        EXPECT_THAT(Refusal(text), HasSubstr(sentence));
    }
}

/// How a defect is put into a clean dump of 20 lines, and what is found.
const std::pair<void (*)(Lines& lines), const char*> Defects[] = {
    {[](Lines& n) { Put(n[4], X(7, 3), "1x2"); }, "5 malformed: expected a comma, a blank and value 226 of"},
    {[](Lines& n) { n[6] = n[6].substr(0, n[6].rfind(", ")) + " \n"; },
     "7 malformed: expected a comma, a blank and value 1890 of 1890"},
    {[](Lines& n) { Put(n[8], X(10, 10), "nan"); },
     "9 not-finite: expected a coordinate within 65536 pixels, got nan"},
    {[](Lines& n) { Put(n[9], X(11, 10) + 1, "-inf"); }, "10 not-finite: "},
    {[](Lines& n) { Put(n[2], X(20, 5), "43750000.0000"); }, "3 out-of-range: "},
    {[](Lines& n) { Put(n[11], X(12, 8), "0.0000"); }, "12 fold-over: 2 of the mesh's cells have a negative"},
    {[](Lines& n) { n[19] = GridLine(20, ShiftGrid(400, 300, 30, 20)); }, "20 jump: from request 19 to 20"},
    {[](Lines& n) { n[13].replace(0, 8, "Frame 13"); },
     "14 repeated-request: request 13 was already in line 13"},
    {[](Lines& n) { n.back().pop_back(); }, "20 malformed: expected a line feed: the file is cut off"},
    // The vertices of a mesh may not move at all.
    {[](Lines& n) {
         n = {MeshLine(1, -0.5), MeshLine(2, -0.5), MeshLine(3, -0.501)};
     },
     "3 jump: from request 2 to 3 the mesh moves by 0.14 % of its width a frame, expected at most 0.02 %"},
    {[](Lines& n) {
         Put((n = {MeshLine(7, 0), MeshLine(8, 0)})[1], 10, "0.0001");
     },
     "2 malformed: expected value 6 and its copy to agree"},
};

TEST_F(Dump, EverySeededDefectIsFoundAndNothingElse) {
    for (const auto& [seed, finding] : Defects) {
        Lines lines = CleanLines(20);
        seed(lines);
        const std::string found = Findings(lines);
        EXPECT_THAT(found, StartsWith(finding));
        EXPECT_EQ(found.find('\n'), found.size() - 1) << found;
    }
}

TEST_F(Dump, ACleanDumpHasNoFindings) {
    const desk::DumpCheck check = Check(CleanLines(20));
    EXPECT_THAT(check.findings, IsEmpty());
    ASSERT_EQ(check.frames.size(), 20U);
    EXPECT_NEAR((*check.frames[4].used)[desk::Right], 5 * std::sin(1.6), 1e-3);
    EXPECT_NEAR((*check.frames[4].used)[desk::Left], -5 * std::sin(1.6), 1e-3);
    // After a gap of seven frames the mesh may have moved seven times as far.
    const auto line = [](uint64_t request, float x) { return GridLine(request, ShiftGrid(400, 300, x, 0)); };
    EXPECT_EQ(Findings({line(1, 0), line(2, 3), line(3, 6), line(4, 9), line(11, 30)}), "");
}

TEST_F(Dump, ReachBeyondTheInputNamesSideAndFirstFrame) {
    // The margin is 3 pixels across and 2 down, the sway up to 5 and 2.5 to either side.
    const std::string found = Findings(CleanLines(20), {394, 296});
    EXPECT_EQ(std::count(found.begin(), found.end(), '\n'), 4);
    for (const char* reach : {"\n4 reach: request 4 is the first of 4 to read beyond the input's bottom side",
                              "\n11 reach: request 11 is the first of 5 to read beyond the input's left side",
                              "\n12 reach: request 12 is the first of 3 to read beyond the input's top side",
                              "the input's right side, by 2.00 pixels at most"}) {
        EXPECT_THAT(found, HasSubstr(reach));
    }
}

}  // namespace
