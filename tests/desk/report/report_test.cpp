#include <gtest/gtest.h>

#include <fstream>
#include <numeric>
#include <sstream>

#include "desk/report/page.h"
#include "tests/support/folder.h"

namespace {

/// What a run of three frames tells. The first frame uses most of the margin; one position is not known.
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
    results.frames[1].camera->after.x = NAN;
    std::vector<double>& node = results.milliseconds[desk::Stage::Node];
    node.resize(100);
    std::iota(node.rbegin(), node.rend(), 1);
    results.counters = {8, 16, 1, 30};
    results.motion = {2.5, 0.25};
    results.damagedFrames = {{5, 9}};
    results.worseFrames = {{1, 3}};
    results.gridlessFrames = {{10, 12}};
    results.findings = {"reads <none>"};
    results.missedLimits = {"misses"};
    return results;
}

std::string Bytes(const std::filesystem::path& file) {
    std::ostringstream bytes;
    bytes << std::ifstream(file, std::ios::binary).rdbuf();
    return bytes.str();
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

TEST(Report, IsThePageAndTheJsonThatAreKept) {
    const TemporaryFolder folder;
    desk::WriteReport(Results(), folder.path, false);
    for (const char* name : {"report.html", "report.json"}) {
        EXPECT_EQ(Bytes(folder.path / name), Bytes(std::filesystem::path(TEST_KEPT) / name)) << name;
    }
}

}  // namespace
