#include "desk/warp/reference_renderer.h"

#include <gtest/gtest.h>

namespace desk {
namespace {

const cv::Size Input(400, 300);

WarpMap Shift(cv::Size output, double x, double y) {
    return {MakeGrid(Input, [&](cv::Point2d q) { return q + cv::Point2d(x, y); }), Input, output};
}

/// What the map makes of a picture of noise, and that picture.
std::array<Nv12, 2> Rendered(const WarpMap& map, cv::Size size) {
    Nv12 input(Input);
    cv::RNG random(5);
    random.fill(input.luma, cv::RNG::UNIFORM, 0, 256);
    random.fill(input.chroma, cv::RNG::UNIFORM, 0, 256);
    Nv12 output(size);
    RenderReference(map, input, output);
    return {output, input};
}

TEST(Reference, TheGridThatChangesNothingCopiesTheMiddle) {
    const auto [output, input] = Rendered(Shift({320, 240}, 0, 0), {320, 240});
    EXPECT_EQ(cv::norm(output.luma, input.luma(cv::Rect(40, 30, 320, 240)), cv::NORM_INF), 0);
    EXPECT_EQ(cv::norm(output.chroma, input.chroma(cv::Rect(20, 15, 160, 120)), cv::NORM_INF), 0);
}

TEST(Reference, HalfAPixelIsTheMeanOfTwoAndAnEdgeIsRepeated) {
    const auto [output, input] = Rendered(Shift(Input, 20.5, 10), Input);
    const auto mean = (input.luma.at<uint8_t>(20, 30) + input.luma.at<uint8_t>(20, 31)) / 2.0;
    EXPECT_NEAR(output.luma.at<uint8_t>(10, 10), mean, 0.5);
    EXPECT_EQ(output.luma.at<uint8_t>(280, 390), input.luma.at<uint8_t>(290, 399));
    // In chroma's samples the shift is of 10 and a quarter, and of 5 rows.
    const cv::Vec2b left = input.chroma.at<cv::Vec2b>(15, 20);
    const cv::Vec2b right = input.chroma.at<cv::Vec2b>(15, 21);
    EXPECT_NEAR(output.chroma.at<cv::Vec2b>(10, 10)[1], 0.75 * left[1] + 0.25 * right[1], 0.5);
}

TEST(Reference, WithoutAMarginTheLastRowAndColumnStayClear) {
    const WarpMap map = Shift(Input, 0, 0);
    const auto [output, input] = Rendered(map, Input);
    const cv::Rect shown(0, 0, 399, 299);
    EXPECT_EQ(cv::norm(output.luma(shown), input.luma(shown), cv::NORM_INF), 0);
    EXPECT_EQ(cv::countNonZero(output.luma.col(399)) + cv::countNonZero(output.luma.row(299)), 0);
    const cv::Mat mask = CoverageMask(map, Input, 1);
    EXPECT_EQ(mask.at<uint8_t>(150, 398), 0);
    EXPECT_EQ(mask.at<uint8_t>(150, 397), 255);
}

TEST(WarpMap, ShowsWhatTheGridSaysLinearlyInTriangles) {
    const SideUse used = Shift({320, 240}, 7, -4).MarginUse();
    EXPECT_NEAR(used[Left], -7, 1e-4);
    EXPECT_NEAR(used[Right], 7, 1e-4);
    EXPECT_NEAR(used[Top], 4, 1e-4);
    EXPECT_NEAR(used[Bottom], -4, 1e-4);
    // Only the last corner of the first cell is moved, by 10 pixels: the upper left triangle does not know of
    // it.
    IPEICAGridTransform grid = MakeGrid(Input, [](cv::Point2d q) { return q; });
    grid.gridTransformArray[2 * GridColumns + 2].x += 10;
    const WarpMap map(grid, Input, Input);
    EXPECT_NEAR(map.At({3, 3}).x, 3, 1e-4);
    EXPECT_NEAR(map.At({9, 9}).x, 9 + 10 * (2 * 10 / 12.5 - 1), 1e-4);
}

}  // namespace
}  // namespace desk
