#include <gmock/gmock.h>

#include <numeric>

#include "desk/dump/dump_checks.h"
#include "tests/desk/support/tool_fixture.h"

using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::Field;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

namespace {

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

/// One defect, put into a clean dump of 20 lines.
struct Defect {
    const char* name;
    void (*seed)(std::vector<std::string>& lines);
    const char* kind;
    size_t line;
    const char* text;
};

const Defect Defects[] = {
    {"MalformedNumber", [](auto& lines) { lines[4] = WithNumber(lines[4], NumberOfX(7, 3), "1x2"); },
     "malformed", 5, "expected a comma, a blank and value 226 of 1890, got \"x2, "},
    {"ShortLine", [](auto& lines) { lines[6] = lines[6].substr(0, lines[6].rfind(", ")) + " \n"; },
     "malformed", 7, "value 1890 of 1890"},
    {"NotANumber", [](auto& lines) { lines[8] = WithNumber(lines[8], NumberOfX(10, 10), "nan"); },
     "not-finite", 9, "got nan"},
    {"Infinity", [](auto& lines) { lines[9] = WithNumber(lines[9], NumberOfX(11, 10) + 1, "-inf"); },
     "not-finite", 10, "got -inf"},
    {"MillionFold", [](auto& lines) { lines[2] = WithNumber(lines[2], NumberOfX(20, 5), "43750000.0000"); },
     "out-of-range", 3, "got 43750000.0000"},
    {"FoldOver", [](auto& lines) { lines[11] = WithNumber(lines[11], NumberOfX(12, 8), "0.0000"); },
     "fold-over", 12, "cells have a negative area"},
    {"Jump", [](auto& lines) { lines[19] = GridLine(20, ShiftGrid(400, 300, 30, 20)); }, "jump", 20,
     "from request 19 to 20"},
    {"RepeatedRequest", [](auto& lines) { lines[13] = "Frame 13" + lines[13].substr(8); }, "repeated-request",
     14, "request 13 was already in line 13"},
    {"CutOff", [](auto& lines) { lines.back().pop_back(); }, "malformed", 20, "the file is cut off"},
};

class DumpChecks : public ToolTest, public ::testing::WithParamInterface<Defect> {
protected:
    desk::DumpCheck Check(const std::vector<std::string>& lines, cv::Size output = {320, 240}) const {
        const std::string text = std::accumulate(lines.begin(), lines.end(), std::string());
        return desk::CheckDump(Write("dump.txt", text), {{400, 300}, output});
    }
};

}  // namespace

TEST_F(DumpChecks, ACleanDumpHasNoFindings) {
    const desk::DumpCheck check = Check(CleanLines(20));
    EXPECT_THAT(check.findings, IsEmpty());
    ASSERT_EQ(check.frames.size(), 20U);
    EXPECT_NEAR(check.frames[4].used->right, 5 * std::sin(1.6), 1e-3);
    EXPECT_NEAR(check.frames[4].used->left, -5 * std::sin(1.6), 1e-3);
}

TEST_P(DumpChecks, FindsTheSeededDefectAndNothingElse) {
    std::vector<std::string> lines = CleanLines(20);
    GetParam().seed(lines);
    EXPECT_THAT(Check(lines).findings,
                ElementsAre(AllOf(Field(&desk::DumpFinding::line, GetParam().line),
                                  Field(&desk::DumpFinding::kind, GetParam().kind),
                                  Field(&desk::DumpFinding::text, HasSubstr(GetParam().text)))));
}

INSTANTIATE_TEST_SUITE_P(Seeded, DumpChecks, ::testing::ValuesIn(Defects),
                         [](const auto& row) { return row.param.name; });

TEST_F(DumpChecks, ReachBeyondTheInputNamesSideAndFirstFrame) {
    // The output is 6 pixels smaller than the input, the sway up to 5 to either side.
    const desk::DumpCheck check = Check(CleanLines(20), {394, 294});
    ASSERT_EQ(check.findings.size(), 2U);
    EXPECT_EQ(check.findings[0].kind, "reach");
    EXPECT_EQ(check.findings[0].line, 3U);
    EXPECT_THAT(check.findings[0].text, HasSubstr("request 3 is the first of"));
    EXPECT_THAT(check.findings[0].text, HasSubstr("the input's right side, by 2.00 pixels"));
    EXPECT_THAT(check.findings[1].text, HasSubstr("the input's left side"));
}
