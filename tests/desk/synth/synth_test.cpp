#include <gtest/gtest.h>

#include <cmath>

#include "desk/base/usage_error.h"
#include "desk/synth/scene.h"
#include "tests/desk/support/noise.h"

namespace desk {
namespace {

const cv::Size View(320, 240);
const cv::Size Frame(384, 288);

/// In pixels, where the roll moves a corner of the view.
double Distance(const CameraPose& a, const CameraPose& b) {
    return std::hypot(a.x - b.x, a.y - b.y) + 200 * std::abs(a.roll - b.roll);
}

TEST(ShakyCamera, GoesOnePathForASeedItsRowsOneAfterTheOther) {
    double squares = 0;
    for (int i = 0; i < 1000; i++) {
        const auto pose = [i](uint32_t seed, double strength, double readout, int frame, double share) {
            const Shake shake{seed + static_cast<uint32_t>(i / 100), strength, readout};
            return ShakyCamera(shake, Frame, View.height, 30).RowPose(i % 100 + frame, share * Frame.height);
        };
        const CameraPose top = pose(1, 1, 0, 0, 0);
        const CameraPose next = pose(1, 1, 0, 1, 0);
        EXPECT_GT(Distance(top, pose(2, 1, 0, 0, 0)), 0.1) << "seeds differ";
        EXPECT_LT(Distance(pose(1, 2, 0, 0, 1), {2 * top.x, 2 * top.y, 2 * top.roll}), 1e-9);
        EXPECT_LT(Distance(pose(1, 1, 1, 0, 1), next), 1e-9) << "where a frame ends the next begins";
        EXPECT_LT(Distance(pose(1, 1, 0.6, 0, 1), pose(1, 1, 1, 0, 0.6)), 1e-9);
        squares += std::pow(next.x - top.x, 2) + std::pow(next.y - top.y, 2);
    }
    EXPECT_NEAR(std::sqrt(squares / 1000) * 1080 / View.height, 10, 1) << "pixels of a view of 1080 lines";
}

TEST(ShakyCamera, KnowsWhereItSeesWhatAndHowFarItReaches) {
    const ShakyCamera camera({3, 1, 1}, Frame, View.height, 30);
    const cv::Size wide(3200, 240);  // so that roll moves the edges about as far as shift
    const cv::Size reach = camera.Reach(wide);
    cv::Point2d farthest;
    for (int i = 0; i < 2000; i++) {
        const cv::Point2d p((i % 2 - 0.5) * (wide.width - 1), (i / 2 % 2 - 0.5) * (wide.height - 1));
        const cv::Point2d q = SceneOf(camera.RowPose(i / 4, p.y + (Frame.height - 1) / 2.0), p);
        EXPECT_LT(cv::norm(camera.FrameOf(i / 4, q) - p), 1e-6);
        farthest = {std::max(farthest.x, std::abs(q.x)), std::max(farthest.y, std::abs(q.y))};
    }
    EXPECT_NEAR(2 * farthest.x, reach.width - 12, 12);
    EXPECT_NEAR(2 * farthest.y, reach.height - 15, 15);
    EXPECT_NO_THROW(ShakyCamera({3}, camera.Reach(View), View.height, 30).RequireRoom(View));
    EXPECT_THROW(ShakyCamera({3}, camera.Reach(View) - cv::Size(0, 2), View.height, 30).RequireRoom(View),
                 UsageError);
}

TEST(Scene, IsSeenFromWhereTheCameraPoints) {
    const cv::Size reach(480, 360);
    const cv::Mat photo = Noise(reach + cv::Size(8, 8), CV_8UC3);
    EXPECT_THROW(Scene(photo, Frame, reach + cv::Size(2, 0)), UsageError);
    Scene scene(photo, Frame, reach);
    cv::Mat picture;
    scene.Record([](double row) { return row < 144 ? CameraPose{-7, -4} : CameraPose{30, 12}; }, picture);
    const cv::Mat all = scene.Still(reach);
    EXPECT_LE(cv::norm(picture.rowRange(0, 144), all(cv::Rect(41, 32, 384, 144)), cv::NORM_INF), 1);
    EXPECT_LE(cv::norm(picture.rowRange(144, 288), all(cv::Rect(78, 192, 384, 144)), cv::NORM_INF), 1);
    // A quarter turn from right to down, twice as near: what lies 99 or 100 right lies 50 below the middle.
    scene.Record([](double) { return CameraPose{0, 0, CV_PI / 2, 0.5}; }, picture);
    EXPECT_NEAR(picture.at<cv::Vec3b>(144, 291)[1], all.at<cv::Vec3b>(229, 239)[1], 6);
}

}  // namespace
}  // namespace desk
