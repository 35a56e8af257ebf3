#include "desk/warp/reference_renderer.h"

#include <gtest/gtest.h>

#include "tests/desk/support/tool_fixture.h"

namespace {

const cv::Size Input(400, 300);

desk::Nv12 Noise(cv::Size size) {
    desk::Nv12 picture(size);
    cv::RNG random(5);
    random.fill(picture.luma, cv::RNG::UNIFORM, 0, 256);
    random.fill(picture.chroma, cv::RNG::UNIFORM, 0, 256);
    return picture;
}

bool IsEqual(const cv::Mat& a, const cv::Mat& b) {
    return cv::norm(a, b, cv::NORM_INF) == 0;
}

}  // namespace

TEST(Reference, TheGridThatChangesNothingCopiesTheMiddle) {
    const desk::Nv12 input = Noise(Input);
    desk::Nv12 output(cv::Size(320, 240));
    desk::RenderReference(desk::WarpMap(ShiftGrid(400, 300, 0, 0), Input, {320, 240}), input, output);
    EXPECT_TRUE(IsEqual(output.luma, input.luma(cv::Rect(40, 30, 320, 240))));
    EXPECT_TRUE(IsEqual(output.chroma, input.chroma(cv::Rect(20, 15, 160, 120))));
}

TEST(Reference, HalfAPixelIsTheMeanOfTwoAndAnEdgeIsRepeated) {
    desk::Nv12 input(Input);
    for (int x = 0; x < Input.width; x++) {
        input.luma.col(x).setTo(x % 2 == 0 ? 100 : 102);
    }
    input.chroma.setTo(cv::Scalar::all(128));
    desk::Nv12 output(Input);
    const desk::WarpMap map(ShiftGrid(400, 300, 20.5F, 0), Input, Input);
    desk::RenderReference(map, input, output);
    EXPECT_EQ(output.luma.at<uint8_t>(10, 10), 101);
    EXPECT_EQ(output.luma.at<uint8_t>(10, 390), 102);
    EXPECT_EQ(output.chroma.at<cv::Vec2b>(10, 10), cv::Vec2b(128, 128));
}

TEST(Reference, WithoutAMarginTheLastRowAndColumnStayClear) {
    const desk::Nv12 input = Noise(Input);
    desk::Nv12 output(Input);
    const desk::WarpMap map(ShiftGrid(400, 300, 0, 0), Input, Input);
    desk::RenderReference(map, input, output);
    EXPECT_TRUE(IsEqual(output.luma(cv::Rect(0, 0, 399, 299)), input.luma(cv::Rect(0, 0, 399, 299))));
    EXPECT_EQ(cv::countNonZero(output.luma.col(399)), 0);
    EXPECT_EQ(cv::countNonZero(output.luma.row(299)), 0);
    const cv::Mat mask = desk::CoverageMask(map, Input, 1);
    EXPECT_EQ(mask.at<uint8_t>(150, 398), 0);
    EXPECT_EQ(mask.at<uint8_t>(150, 397), 255);
}

TEST(Reference, MarginUseIsWhatIsShownBeyondTheMiddle) {
    const desk::SideUse used = desk::WarpMap(ShiftGrid(400, 300, 7, -4), Input, {320, 240}).MarginUse();
    EXPECT_NEAR(used[desk::Left], -7, 1e-4);
    EXPECT_NEAR(used[desk::Right], 7, 1e-4);
    EXPECT_NEAR(used[desk::Top], 4, 1e-4);
    EXPECT_NEAR(used[desk::Bottom], -4, 1e-4);
}
