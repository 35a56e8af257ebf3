#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <functional>

#include "desk/motion/motion_estimator.h"
#include "desk/motion/steady_camera.h"
#include "desk/synth/scene.h"
#include "desk/warp/warp_map.h"
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
    using Amounts = std::array<double, 4>;  // x and y in pixels, roll in radians, scale beyond 1
    const struct {
        const char* name;
        double bound;         ///< of the root of the mean square error in pixels, anywhere in any frame
        Amounts sway;         ///< of the middle row
        Amounts perRow;       ///< more of it for every row below
        Amounts perRowTwice;  ///< and for the square of the row
        int frames = 12;
        cv::Size size = Input;
    } cases[] = {
        {"shift", 0.06, {5, -3}, {}, {}},         {"roll", 0.02, {0, 0, 0.08}, {}, {}},
        {"zoom", 0.03, {0, 0, 0, 0.03}, {}, {}},  {"shift per row", 0.015, {}, {0.02, 0.01}, {}},
        {"bend", 0.04, {}, {}, {2e-4, 1e-4}},     {"roll per row", 0.025, {}, {0, 0, 1e-4}, {}},
        {"key frames", 0.045, {200}, {}, {}, 24}, {"shrunken", 0.08, {5, 3}, {}, {}, 4, {640, 810}},
    };
    for (const auto& known : cases) {
        const auto path = [&known](int n, double y) {
            const auto now = [&](size_t i) {
                return std::sin(4.0 * n / known.frames) *
                       (known.sway[i] + y * known.perRow[i] + y * y * known.perRowTwice[i]);
            };
            return CameraPose{now(0), now(1), now(2), 1 + now(3)};
        };
        const std::vector<FramePose> poses = Estimated(Film(path, known.size, known.frames));
        double squares = 0;
        for (int i = 0; i < 25 * known.frames; i++) {
            const cv::Point2d p((i % 5 - 2) / 5.0 * known.size.width,
                                (i / 5 % 5 - 2) / 5.0 * known.size.height);
            const cv::Point2d q = SceneOf(path(i / 25, p.y), p);
            const FramePose& pose = poses[static_cast<size_t>(i / 25)];
            squares += std::norm(SceneOf(pose, {p.x, p.y}) - Position(q.x, q.y));
            EXPECT_LT(std::abs(FrameOf(pose, {q.x, q.y}) - Position(p.x, p.y)), 4 * known.bound)
                << known.name;
        }
        EXPECT_LT(std::sqrt(squares / 25 / known.frames), known.bound) << known.name;
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

TEST(MotionEstimator, FollowsTheBackgroundAndNothingElse) {
    const cv::Size size(320, 240);
    const cv::Mat world = Noise({400, 300}, CV_8UC1);
    cv::Mat other;
    cv::flip(world, other, -1);
    const cv::Mat bare(world.size(), CV_8UC1, cv::Scalar(120));
    const cv::Mat black(world.size(), CV_8UC1, cv::Scalar(16));
    const struct {
        const char* name;
        double shake;     ///< pixels
        cv::Rect start;   ///< of something in front, with its own texture
        cv::Point speed;  ///< its pixels per frame
        const cv::Mat& background;
        const cv::Mat& front;
    } cases[] = {
        {"in front of a camera that stands, from the start", 0, {-40, 0, 230, 240}, {5, 0}, world, other},
        {"more and more of it, in front of a hand", 4, {-180, 0, 190, 240}, {12, 0}, world, other},
        {"as much of it as of what is round it", 4, {20, 40, 220, 160}, {-1, 0}, world, other},
        {"a title that stands", 4, {0, 200, 320, 40}, {0, 0}, world, other},
        {"something in front of a bare wall", 0, {60, 60, 70, 60}, {4, 1}, bare, other},
        {"a bar of black", 4, {0, 0, 320, 50}, {0, 0}, world, black},
    };
    for (const auto& known : cases) {
        std::vector<cv::Mat> film;
        std::vector<Position> truth;
        for (int n = 0; n < 16; n++) {
            const cv::Point at(cvRound(known.shake * std::sin(1.3 * n)),
                               cvRound(known.shake * std::sin(2.1 * n)));
            film.push_back(known.background(cv::Rect(cv::Point(40, 30) + at, size)).clone());
            const cv::Rect front = (known.start + n * known.speed) & cv::Rect({}, size);
            known.front(cv::Rect(front.tl() - known.start.tl() - n * known.speed, front.size()))
                .copyTo(film.back()(front));
            truth.emplace_back(at.x, at.y);
        }
        const auto poses = Estimated(film);
        for (size_t n = 0; n < poses.size(); n++) {
            EXPECT_LE(std::abs(poses[n].shift - truth[n]), known.shake == 0 ? 0 : 0.1)
                << known.name << ", frame " << n;
        }
    }
}

TEST(SteadyCamera, FollowsACameraThatIsTurnedWithoutAJerk) {
    for (const Position step : {Position(6, -1), Position(-1, 5)}) {
        std::vector<FramePose> poses(70);
        for (size_t n = 0; n < poses.size(); n++) {
            poses[n].shift = static_cast<double>(n) * step;
        }
        for (const Variant variant : {Variant::LookAhead, Variant::RealTime}) {
            const auto views = Steadied(variant, poses);
            for (size_t n = 1; n < views.size(); n++) {
                EXPECT_LT(std::abs(views[n].steady.shift - views[n - 1].steady.shift), 9) << "in frame " << n;
            }
        }
        EXPECT_LT(std::abs(Steadied(Variant::LookAhead, poses)[35].steady.shift - 35.0 * step), 1e-9);
    }
}

TEST(SteadyCamera, GivesWayToALargeMotionInGoodTime) {
    const struct {
        const char* name;
        double jerk;  ///< bound of what the steady camera's steps change by, looking ahead, pixels
        std::function<double(double n)> path;
    } cases[] = {
        {"a hand that sways", 9.5, [](double n) { return 80 * std::sin(0.12 * n) + 4 * std::sin(1.7 * n); }},
        {"a turn", 10, [](double n) { return 12 * std::clamp(n - 40, 0.0, 15.0) + 4 * std::sin(1.7 * n); }},
        {"a jump that was none", 90, [](double n) { return n == 40 ? 100 : 0; }},
    };
    for (const auto& known : cases) {
        std::vector<FramePose> poses(100);
        double before = 0;
        for (size_t n = 0; n < poses.size(); n++) {
            poses[n].shift = known.path(static_cast<double>(n));
            before += n == 0 ? 0 : std::norm(poses[n].shift - poses[n - 1].shift);
        }
        for (const Variant variant : {Variant::LookAhead, Variant::RealTime}) {
            const auto views = Steadied(variant, poses);
            double after = 0;
            double jerk = 0;
            for (size_t n = 2; n < views.size(); n++) {
                const Position step = views[n].steady.shift - views[n - 1].steady.shift;
                after += std::norm(step);
                jerk = std::max(jerk, std::abs(step - views[n - 1].steady.shift + views[n - 2].steady.shift));
            }
            EXPECT_LT(after, 0.9 * before) << known.name << ", " << NameOf(variant);
            EXPECT_LT(variant == Variant::LookAhead ? jerk : 0, known.jerk) << known.name;
        }
    }
}

TEST(SteadyCamera, LooksAheadWithAGaussian) {
    std::vector<FramePose> poses(81);
    poses[40].shift = 20;
    const auto views = Steadied(Variant::LookAhead, poses);
    // 20 exp(-d^2 / (2 s^2)) over the sum of exp for all frames in the window: s is 15, and where the clip
    // begins 61 frames over those that there are times as much.
    for (const auto& [n, shift] :
         {std::pair(40, 0.5552), {30, 0.4446}, {50, 0.4446}, {11, 0.2434}, {9, 0.0}}) {
        EXPECT_NEAR(views[static_cast<size_t>(n)].steady.shift.real(), shift, 1e-4) << n;
    }
}

}  // namespace
}  // namespace desk
