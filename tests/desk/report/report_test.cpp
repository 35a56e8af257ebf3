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
    results.facts.outputSize = {400, 160};
    for (int i = 0; i < 3; i++) {
        const desk::SideUse used = {8.0 - i, -5, -9, 40.0 - i};
        results.frames.push_back(
            {i, uint64_t(i) + 7, used, {{{1.0 + i, 2, 3, 4, 5}, {-1.0 - i, 12, 13, 14, 15.0 * i}}}});
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
        "vertical": {"pixels_on_a_side": 70, "most_used": 40, "negotiated": 0.875, "sufficient": 0.5}})"));
    EXPECT_EQ(json["crop"], 400 * 160 / (500 * 300.0));
    EXPECT_EQ(json["motion_px_rms"], desk::Json({{"before", 2.5}, {"after", 0.25}}));
    EXPECT_EQ(json["counters"],
              desk::Json({{"imports", 8}, {"cache_hits", 16}, {"live_images", 1}, {"open_fds", 30}}));
    EXPECT_EQ(json["damaged_frames"], desk::Json({{{"first", 5}, {"last", 8}}}));
    EXPECT_EQ(json["frames"][2], desk::Json::parse(R"({"frame": 2, "request": 9,
        "margin_used": {"left": 6, "top": -5, "right": -9, "bottom": 38},
        "camera_before": {"x": 3, "y": 2, "roll": 3, "log_scale": 4, "step": 5},
        "camera_after": {"x": -3, "y": 12, "roll": 13, "log_scale": 14, "step": 30}})"));
}

TEST(Report, ARisingCurveRisesFromOneEdgeToTheOtherAndBreaksAtAGap) {
    const std::string svg = desk::Draw({"", "u", {{"rising", {0, 5, NAN, 10}}, {"limit", {10, 10}, true}}});
    const auto rising = LinesIn(svg, "#0072b2");
    EXPECT_THAT(rising, ElementsAre(ElementsAre(80, 280, 366.67, 168), ElementsAre(940, 56)));
    EXPECT_THAT(LinesIn(svg, "#828282"), ElementsAre(ElementsAre(80, 56, 366.67, 56)));
    const std::string mesh = desk::DrawMesh("", {{0, 0}, {4, 0}, {0, 2}, {4, 2}}, 2, {});
    EXPECT_THAT(mesh, HasSubstr("'8.00,26.00 8.00,498.00 '"));
}

TEST(Report, ThePictureShowsBeforeAndAfterOverTheirCaptionsAndTheCredit) {
    const cv::Scalar blue(200, 0, 0);
    const cv::Scalar green(0, 200, 0);
    const cv::Mat picture =
        desk::BeforeAfter({100, 960, CV_8UC3, blue}, "before", {100, 960, CV_8UC3, green}, "after", "me");
    ASSERT_EQ(picture.size(), cv::Size(960, 50 + 36 + 36));
    const auto part = [&](int x, int y, int width, int height) { return picture({x, y, width, height}); };
    EXPECT_EQ(cv::mean(part(0, 0, 480, 50)), blue);
    EXPECT_EQ(cv::mean(part(480, 0, 480, 50)), green);
    const auto written = [&](int x, int y) { return cv::countNonZero(part(x, y, 480, 36).reshape(1) > 200); };
    EXPECT_GT(written(0, 50), written(480, 50)) << "the longer word stands left";
    EXPECT_GT(written(480, 50), written(0, 86)) << "the credit is the shortest";
    EXPECT_GT(written(0, 86), 0);
    EXPECT_EQ(written(480, 86), 0);
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
    const desk::ChartLine across{"negotiated", {50, 50, 50}, true};
    for (const desk::Chart& chart : std::vector<desk::Chart>{
             {"camera path, across", "input pixels", {{"before", {1, 2, 3}}, {"after", {-1, -2, -3}}}},
             {"camera path, down", "input pixels", {{"before", {2, 2, 2}}, {"after", {12, 12, 12}}}},
             {"camera roll", "radians", {{"before", {3, 3, 3}}, {"after", {13, 13, 13}}}},
             {"way of the camera from frame to frame",
              "input pixels",
              {{"before", {5, 5, 5}}, {"after", {0, 15, 30}}}},
             {"horizontal margin used on each side",
              "input pixels",
              {{"left", {8, 7, 6}}, {"right", {-9, -9, -9}}, across}},
             {"vertical margin used on each side",
              "input pixels",
              {{"top", {-5, -5, -5}}, {"bottom", {40, 39, 38}}, {"negotiated", {70, 70, 70}, true}}}}) {
        EXPECT_THAT(page, HasSubstr(desk::Draw(chart)));
    }
    EXPECT_EQ(LinesIn(page, "#0072b2").size(), 6U);
    EXPECT_EQ(desk::Json::parse(Bytes(folder_ / "report.json")), ToJson(Results()));
}

}  // namespace
