#include "desk/motion/steady_camera.h"

#include <algorithm>
#include <cmath>

#include "desk/warp/warp_map.h"

namespace desk {

SteadyCamera::View SteadyCamera::Next() {
    const FramePose shaky = poses_[static_cast<size_t>(frame_ - oldest_)];
    steady_ = Inside(shaky, variant_ == Variant::LookAhead ? SmoothAround() : SmoothSoFar(shaky));
    if (++frame_ - oldest_ > window_) {
        poses_.pop_front();
        oldest_++;
    }
    return {shaky, steady_, MakeGrid(input_, [&](cv::Point2d q) {
                const Position p = FrameOf(shaky, SceneOf(steady_, {q.x, q.y}));
                return cv::Point2d(p.real(), p.imag());
            })};
}

/// Gaussian smoothing: the window holds two standard deviations on either side.
FramePose SteadyCamera::SmoothAround() const {
    // Where the clip begins or ends, fewer frames have to even out the same shake: the far ones weigh more.
    const double missing = static_cast<double>(2 * window_ + 1) / static_cast<double>(poses_.size());
    const double deviation = std::max(static_cast<double>(window_) / 2, 0.5) * missing;
    FramePose mean;
    double weights = 0;
    double distance = static_cast<double>(oldest_ - frame_);
    for (const FramePose& pose : poses_) {
        const double weight = std::exp(-distance * distance / (2 * deviation * deviation));
        weights += weight;
        mean = Between(mean, pose, weight / weights);
        distance++;
    }
    return mean;
}

/// Exponential smoothing, twice: of the poses, and of the steps that their mean makes. The mean begins as
/// that of all poses up to now. As the margin runs out the newest pose counts more and more: then the camera
/// is being turned.
FramePose SteadyCamera::SmoothSoFar(const FramePose& shaky) {
    constexpr double SlowestMean = 0.02;  // later the last 50 frames count: a hand sways faster
    constexpr double SlowestStep = 0.15;  // some 7 frames, too few to fall behind a camera that is turned
    constexpr double Reluctance = 4;      // half of the margin is shake's: it speeds the mean up by 1/16 only
    const double newest = 1 / static_cast<double>(frame_ + 1);
    const double usual = std::max(newest, SlowestMean);
    const double urgent = std::pow(std::min(MarginShare(shaky, steady_), 1.0), Reluctance);
    mean_ = Between(mean_, shaky, usual + (1 - usual) * urgent);
    return Between(steady_, mean_, std::max(newest, SlowestStep));
}

/// How much of the margin the steady camera uses: 1 when it just sees the input's edge.
double SteadyCamera::MarginShare(const FramePose& shaky, const FramePose& steady) const {
    double share = 0;
    for (const int x : {-1, 0, 1}) {
        for (const int y : {-1, 0, 1}) {
            const Position output(x * (output_.width - 1) / 2.0, y * (output_.height - 1) / 2.0);
            const Position beyond = FrameOf(shaky, SceneOf(steady, output)) - output;
            // Against the direction of the corner is towards the middle, and costs no margin.
            share = std::max({share, x * beyond.real() / std::max((input_.width - output_.width) / 2.0, 0.5),
                              y * beyond.imag() / std::max((input_.height - output_.height) / 2.0, 0.5)});
        }
    }
    return share;
}

/// The steady pose, moved towards the shaky camera's just so far that all it sees is in the input.
FramePose SteadyCamera::Inside(const FramePose& shaky, const FramePose& steady) const {
    if (MarginShare(shaky, steady) <= 1) {
        return steady;
    }
    constexpr int Halvings = 12;  // to 1/4096 of the way
    double inside = 0;
    double outside = 1;
    for (int i = 0; i < Halvings; i++) {
        const double middle = (inside + outside) / 2;
        (MarginShare(shaky, Between(shaky, steady, middle)) <= 1 ? inside : outside) = middle;
    }
    return Between(shaky, steady, inside);
}

}  // namespace desk
