#include <gmock/gmock.h>

#include <nlohmann/json.hpp>
#include <numeric>
#include <regex>

#include "desk/report/chart.h"
#include "desk/report/page.h"
#include "tests/desk/support/folder_test.h"

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;

namespace {

/// What a run of three frames tells. The first frame uses most of the margin.
desk::RunResults Results() {
    desk::RunResults results;
    results.facts.clip = "a<b&c.mkv";
    results.facts.inputSize = {500, 300};
    results.facts.outputSize = {400, 200};
    for (int i = 0; i < 3; i++) {
        const desk::SideUse used = {8.0 - i, -5, -9, 40.0 - i};
        results.frames.push_back(
            {i, uint64_t(i) + 7, used, {{{1.0 + i, 2, 3, 4, 5}, {-1.0 - i, 12, 13, 14, 15}}}});
    }
    std::vector<double>& node = results.milliseconds[desk::Stage::Node];
    node.resize(100);
    std::iota(node.rbegin(), node.rend(), 1);
    results.counters = {8, 16, 1, 30};
    results.motion = {2.5, 0.25};
    results.damagedFrames = {{5, 9}};
    results.findings = {"reads <none>"};
    results.missedLimits = {"misses"};
    return results;
}

/// The lines of a picture that are drawn in a colour: positions x, y in turn.
std::vector<std::vector<double>> LinesIn(const std::string& svg, const std::string& colour) {
    std::vector<std::vector<double>> lines;
    const std::regex pattern("stroke='" + colour + "' stroke-width='2' points='([^']*)'");
    for (std::sregex_iterator line(svg.begin(), svg.end(), pattern), end; line != end; ++line) {
        std::istringstream text(std::regex_replace((*line)[1].str(), std::regex(","), " "));
        lines.emplace_back(std::istream_iterator<double>(text), std::istream_iterator<double>());
    }
    return lines;
}

TEST(Report, TheJsonHoldsWhatWasMeasured) {
    const desk::Json json = ToJson(Results());
    EXPECT_EQ(json["stage_ms"]["node"], desk::Json({{"p50", 50}, {"p95", 95}, {"max", 100}}));
    EXPECT_EQ(json["margin_use"], desk::Json::parse(R"({
        "horizontal": {"pixels_on_a_side": 50, "most_used": 8, "negotiated": 0.25, "sufficient": 0.04},
        "vertical": {"pixels_on_a_side": 50, "most_used": 40, "negotiated": 0.5, "sufficient": 0.4}})"));
    EXPECT_EQ(json["crop"], 400 * 200 / (500 * 300.0));
    EXPECT_EQ(json["motion_px_rms"], desk::Json({{"before", 2.5}, {"after", 0.25}}));
    EXPECT_EQ(json["counters"],
              desk::Json({{"imports", 8}, {"cache_hits", 16}, {"live_images", 1}, {"open_fds", 30}}));
    EXPECT_EQ(json["damaged_frames"], desk::Json({{{"first", 5}, {"last", 8}}}));
    EXPECT_EQ(json["frames"][2], desk::Json::parse(R"({"frame": 2, "request": 9,
        "margin_used": {"left": 6, "top": -5, "right": -9, "bottom": 38},
        "camera_before": {"x": 3, "y": 2, "roll": 3, "log_scale": 4, "step": 5},
        "camera_after": {"x": -3, "y": 12, "roll": 13, "log_scale": 14, "step": 15}})"));
}

TEST(Report, ARisingCurveRisesFromOneEdgeToTheOtherAndBreaksAtAGap) {
    const std::string svg = desk::Draw({"", "u", {{"rising", {0, 5, NAN, 10}}, {"limit", {10, 10}, true}}});
    const auto rising = LinesIn(svg, "#0072b2");
    EXPECT_THAT(rising, ElementsAre(ElementsAre(80, 280, 366.67, 168), ElementsAre(940, 56)));
    EXPECT_THAT(LinesIn(svg, "#828282"), ElementsAre(ElementsAre(80, 56, 366.67, 56)));
    const std::string mesh = desk::DrawMesh("", {{0, 0}, {4, 0}, {0, 2}, {4, 2}}, 2, {});
    EXPECT_THAT(mesh, HasSubstr("'8.00,26.00 8.00,498.00 '"));
}

class ReportPage : public FolderTest {};

TEST_F(ReportPage, ShowsTheResultsAndEscapesThem) {
    desk::WriteReport(Results(), folder_, false);
    const std::string page = Bytes(folder_ / "report.html");
    EXPECT_THAT(page, HasSubstr("<h1>dewarp-desk  a&lt;b&amp;c.mkv</h1>"));
    EXPECT_THAT(page, HasSubstr("<th>input size</th><td>500 x 300</td>"));
    EXPECT_THAT(page, HasSubstr("<li class='bad'>reads &lt;none></li>"));
    EXPECT_THAT(page, Not(HasSubstr("a<b")));
    EXPECT_THAT(page, HasSubstr("<th>before</th><td>2.5</td></tr>\n<tr><th>after</th><td>0.25</td>"));
    EXPECT_EQ(LinesIn(page, "#0072b2").size(), 6U);
    EXPECT_LT(LinesIn(page, "#0072b2")[0][3], LinesIn(page, "#0072b2")[0][1]);
    EXPECT_GT(LinesIn(page, "#d55e00")[0][3], LinesIn(page, "#d55e00")[0][1]);
    EXPECT_EQ(desk::Json::parse(Bytes(folder_ / "report.json")), ToJson(Results()));
}

}  // namespace
