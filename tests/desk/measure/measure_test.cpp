#include <gtest/gtest.h>

#include <cmath>

#include "desk/measure/motion_meter.h"
#include "desk/measure/quality.h"
#include "tests/desk/support/noise.h"

TEST(MotionMeter, TellsTheRootOfTheMeanSquareInPixels) {
    const auto motion = [](const cv::Mat& world, const std::vector<cv::Point>& path) {
        desk::MotionMeter meter;
        for (const cv::Point& at : path) {
            meter.Add(world(cv::Rect(at, cv::Size(240, 180))));
        }
        return meter.Rms();
    };
    const cv::Mat world = Noise({320, 240}, CV_8UC1);
    EXPECT_NEAR(motion(world, {{0, 0}, {3, 4}, {6, 8}, {3, 4}}), 5, 0.005);
    EXPECT_NEAR(motion(world, {{0, 0}, {6, 0}, {6, 0}}), std::sqrt(36 / 2.0), 0.3) << "over all pictures";
    EXPECT_LT(motion(world, {{5, 5}, {5, 5}, {5, 5}}), 0.001);
    // A sharp thing that moves over two fifths of a dull picture has most of the corners and is not the
    // background.
    cv::Mat dull = world / 4;
    desk::MotionMeter meter;
    for (const int x : {0, 5, 10}) {
        cv::Mat picture = dull(cv::Rect(0, 0, 240, 180)).clone();
        world(cv::Rect(40, 30, 80, 120)).copyTo(picture(cv::Rect(60 + x, 30, 80, 120)));
        meter.Add(picture);
    }
    EXPECT_LT(meter.Rms(), 0.01);
    EXPECT_TRUE(std::isnan(motion(cv::Mat(world.size(), CV_8UC1, cv::Scalar(90)), {{0, 0}, {3, 4}})));
}

TEST(PlaneMeter, TellsOfAllSamplesThatCountAndOfTheWorstPicture) {
    const auto plane = [](int level) { return cv::Mat(120, 160, CV_8UC2, cv::Scalar::all(level)); };
    cv::Mat mask(120, 160, CV_8U, cv::Scalar(0));
    mask.rowRange(0, 60).setTo(255);
    desk::PlaneMeter meter(mask, 3);
    EXPECT_EQ(cv::norm(meter.Add(plane(100), plane(100))), 0);
    EXPECT_TRUE(std::isinf(meter.Psnr()));
    cv::Mat partly = plane(0);
    partly.rowRange(0, 60).setTo(cv::Scalar::all(100));
    partly.rowRange(0, 15).setTo(cv::Scalar::all(110));
    EXPECT_EQ(cv::norm(meter.Add(partly, plane(100)), cv::NORM_INF), 10);
    meter.Add(plane(97), plane(100));
    // The pictures' mean squares are 0, 100 / 4 and 9: 10 log10(255 * 255 / mean square).
    EXPECT_NEAR(meter.Psnr(), 37.588, 0.001);
    EXPECT_NEAR(meter.WorstPsnr(), 34.151, 0.001);
    EXPECT_EQ(meter.Max(), 10);
    EXPECT_NEAR(meter.Mean(), (2.5 + 3) / 3, 1e-9);
    EXPECT_NEAR(meter.ShareWithinLimit(), 11 / 12.0, 1e-9);
}
