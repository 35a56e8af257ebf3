#include "desk/motion/steady_camera.h"

#include <algorithm>
#include <cmath>

#include "desk/warp/warp_map.h"

namespace desk {
namespace {

/// What a frame counts for another one: Gaussian, 1 for itself. The deviation is in frames.
double Bell(size_t frame, size_t other, double deviation) {
    const double distance = (static_cast<double>(frame) - static_cast<double>(other)) / deviation;
    return std::exp(-distance * distance / 2);
}

}  // namespace

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
    constexpr int Rounds = 5;  // after which few frames are still to be put back, and those by little
    // Where the clip begins or ends, fewer frames have to even out the same shake: the far ones weigh more.
    const double missing = static_cast<double>(2 * window_ + 1) / static_cast<double>(poses_.size());
    const double deviation = std::max(static_cast<double>(window_) / 2, 0.5) * missing;
    std::vector<FramePose> path(poses_.size());
    for (size_t middle = 0; middle < path.size(); middle++) {
        double weights = 0;
        for (size_t i = 0; i < poses_.size(); i++) {
            const double weight = Bell(i, middle, deviation);
            weights += weight;
            path[middle] = Between(path[middle], poses_[i], weight / weights);
        }
    }
    for (int round = 0; round < Rounds && GiveWay(path); round++) {
    }
    return path[static_cast<size_t>(frame_ - oldest_)];
}

/// Moves what of the path over the window would see beyond the input back into it, and its surroundings
/// likewise: to a large motion the steady camera gives way before it has to, and without a jerk. Returns
/// whether anything was to be moved.
bool SteadyCamera::GiveWay(std::vector<FramePose>& path) const {
    constexpr double Deviation = 3;  // frames: more gives way where it need not, fewer jerk
    std::vector<FramePose> moves(path.size());
    std::vector<double> weights(path.size());
    for (size_t outside = 0; outside < path.size(); outside++) {
        if (MarginShare(poses_[outside], path[outside]) > 1) {
            const FramePose move = Plus(Inside(poses_[outside], path[outside]), -1, path[outside]);
            for (size_t i = 0; i < path.size(); i++) {
                const double weight = Bell(i, outside, Deviation);
                moves[i] = Plus(moves[i], weight, move);
                weights[i] += weight;
            }
        }
    }
    for (size_t i = 0; i < path.size(); i++) {
        path[i] = Plus(path[i], 1 / std::max(weights[i], 1.0), moves[i]);
    }
    return *std::max_element(weights.begin(), weights.end()) > 0;
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
FramePose SteadyCamera::Inside(const FramePose& shaky, FramePose steady) const {
    constexpr int Rounds = 12;         // what is used of the margin is nearly in proportion: 2 are usual
    constexpr double Within = 0.9999;  // so that the rounds end
    double share = MarginShare(shaky, steady);
    for (int round = 0; round < Rounds && share > 1; round++) {
        steady = Between(shaky, steady, Within / share);
        share = MarginShare(shaky, steady);
    }
    return steady;
}

}  // namespace desk
