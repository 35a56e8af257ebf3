#include <gtest/gtest.h>

#include <cmath>

#include "desk/measure/motion_meter.h"
#include "desk/motion/motion_estimator.h"
#include "desk/motion/steady_camera.h"
#include "desk/synth/scene.h"
#include "desk/warp/reference_renderer.h"
#include "tests/desk/support/noise.h"

namespace desk {
namespace {

const cv::Size Input(384, 288);
const cv::Size Output(320, 240);

/// The pose of the row y below the middle of frame n.
using Path = std::function<CameraPose(int n, double y)>;

std::vector<cv::Mat> Film(const Path& path, cv::Size size, int frames) {
    const cv::Size reach = size + cv::Size(600, 60);
    Scene scene(Noise(reach + cv::Size(8, 8), CV_8UC3), size, reach);
    std::vector<cv::Mat> film;
    for (int n = 0; n < frames; n++) {
        cv::Mat picture;
        scene.Record([&](double row) { return path(n, row - (size.height - 1) / 2.0); }, picture);
        cv::cvtColor(picture, film.emplace_back(), cv::COLOR_BGR2GRAY);
    }
    return film;
}

std::vector<FramePose> Estimated(const std::vector<cv::Mat>& film) {
    MotionEstimator estimator;
    std::vector<FramePose> poses;
    for (const cv::Mat& luma : film) {
        poses.push_back(estimator.Add(luma));
    }
    return poses;
}

std::vector<SteadyCamera::View> Steadied(Variant variant, const std::vector<FramePose>& poses) {
    const size_t window = variant == Variant::LookAhead ? 30 : 0;
    SteadyCamera camera(variant, static_cast<int64_t>(window), Input, Output);
    std::vector<SteadyCamera::View> views;
    for (size_t n = 0; views.size() < poses.size(); n++) {
        if (n < poses.size()) {
            camera.Add(poses[n]);
        }
        if (n >= window) {
            views.push_back(camera.Next());
            const SideUse used = WarpMap(views.back().grid, Input, Output).MarginUse();
            EXPECT_LE(std::max(used[desk::Left], used[desk::Right]), 32.1) << "the view leaves the input";
            EXPECT_LE(std::max(used[desk::Top], used[desk::Bottom]), 24.1) << "the view leaves the input";
        }
    }
    return views;
}

TEST(MotionEstimator, FindsEveryPathOfTheCamera) {
    const auto sway = [](int n) { return std::sin(n / 3.0); };
    const struct {
        const char* name;
        double bound;  ///< of the root of the mean square error in pixels, anywhere in any frame
        Path path;     ///< from straight ahead
        int frames = 12;
        cv::Size size = Input;
    } cases[] = {
        {"shift", 0.06,
         [&](int n, double) {
             return CameraPose{5 * sway(n), n / -3.0};
         }},
        {"roll", 0.03,
         [&](int n, double) {
             return CameraPose{0, 0, 0.08 * sway(n)};
         }},
        {"zoom", 0.03,
         [&](int n, double) {
             return CameraPose{0, 0, 0, 1 + 0.03 * sway(n)};
         }},
        {"shift by row", 0.015, [&](int n, double y) { return CameraPose{0.02 * y * sway(n)}; }},
        {"bend by row", 0.04, [&](int n, double y) { return CameraPose{2e-4 * y * y * sway(n)}; }},
        {"roll by row", 0.025,
         [&](int n, double y) {
             return CameraPose{0, 0, 1e-4 * y * sway(n)};
         }},
        {"beyond the first frame", 0.015, [](int n, double) { return CameraPose{12.0 * n}; }, 24},
        {"shrunken",
         0.08,
         [&](int n, double) {
             return CameraPose{5 * sway(n), 1.0 * n};
         },
         4,
         {640, 810}},
    };
    for (const auto& [name, bound, path, frames, size] : cases) {
        const std::vector<FramePose> poses = Estimated(Film(path, size, frames));
        double squares = 0;
        for (int i = 0; i < 25 * frames; i++) {
            const cv::Point2d p((i % 5 - 2) / 5.0 * size.width, (i / 5 % 5 - 2) / 5.0 * size.height);
            const cv::Point2d q = SceneOf(path(i / 25, p.y), p);
            const FramePose& pose = poses[static_cast<size_t>(i / 25)];
            squares += std::norm(SceneOf(pose, {p.x, p.y}) - Position(q.x, q.y)) / (25 * frames);
            EXPECT_LT(std::abs(FrameOf(pose, {q.x, q.y}) - Position(p.x, p.y)), 4 * bound) << name;
        }
        EXPECT_LT(std::sqrt(squares), bound) << name;
    }
}

TEST(MotionEstimator, HoldsStillWhereNothingCanBeFollowed) {
    const cv::Mat world = Noise({400, 300}, CV_8UC1);
    const auto view = [&](int x, int y) { return world(cv::Rect(x, y, 320, 240)); };
    const cv::Mat blank(240, 320, CV_8UC1, cv::Scalar(90));
    const auto poses = Estimated({view(0, 0), view(5, 0), blank, view(50, 60), view(52, 60)});
    for (size_t n = 1; n < poses.size(); n++) {
        EXPECT_NEAR(poses[n].shift.real(), n < 4 ? 5 : 7, 0.05) << "in frame " << n;
    }
}

TEST(SteadyCamera, TakesTheShakeOutOfThePictures) {
    const ShakyCamera camera({5, 1, 0.6}, Input, Output.height, 30);
    const auto path = [&](int n, double y) { return camera.RowPose(n, y + (Input.height - 1) / 2.0); };
    const std::vector<cv::Mat> film = Film(path, Input, 40);
    for (const auto& [variant, bound] : {std::pair(Variant::LookAhead, 0.15), {Variant::RealTime, 0.5}}) {
        MotionMeter meter;
        const auto views = Steadied(variant, Estimated(film));
        for (size_t n = 0; n < views.size(); n++) {
            Nv12 input(Input);
            Nv12 output(Output);
            film[n].copyTo(input.luma);
            RenderReference(WarpMap(views[n].grid, Input, Output), input, output);
            meter.Add(output.luma);
        }
        EXPECT_LT(meter.Rms(), bound) << "pixels; 2.2 unless steadied";
    }
}

TEST(SteadyCamera, FollowsACameraThatIsTurnedWithoutAJerk) {
    std::vector<FramePose> poses(60);
    for (size_t n = 0; n < poses.size(); n++) {
        poses[n].shift = static_cast<double>(n) * Position(6, -1);
    }
    for (const Variant variant : {Variant::LookAhead, Variant::RealTime}) {
        const auto views = Steadied(variant, poses);
        for (size_t n = 1; n < views.size(); n++) {
            EXPECT_LT(std::abs(views[n].steady.shift - views[n - 1].steady.shift), 9) << "in frame " << n;
        }
    }
}

}  // namespace
}  // namespace desk
