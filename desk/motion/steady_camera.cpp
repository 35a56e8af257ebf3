#include "desk/motion/steady_camera.h"

#include <algorithm>
#include <cmath>

#include "desk/warp/warp_map.h"

namespace desk {
namespace {

/// The place a share of the way from one to another.
CameraPlace Between(const CameraPlace& from, const CameraPlace& to, double share) {
    return (1 - share) * from + share * to;
}

}  // namespace

void SteadyCamera::Add(const CameraPlace& shaky) {
    places_.push_back(shaky);
}

SteadyCamera::View SteadyCamera::Next() {
    const CameraPlace shaky = places_[static_cast<size_t>(frame_ - oldest_)];
    steady_ = Inside(shaky, variant_ == Variant::LookAhead ? MeanAround() : Follow(shaky));
    if (++frame_ - oldest_ > window_) {
        places_.pop_front();
        oldest_++;
    }
    return {shaky, steady_, MakeGrid(input_, [&](cv::Point2d q) {
                const Position p = FrameOf(shaky, SceneOf(steady_, {q.x, q.y}));
                return cv::Point2d(p.real(), p.imag());
            })};
}

/// The near places weigh most.
CameraPlace SteadyCamera::MeanAround() const {
    // Where the clip begins or ends, fewer frames have to even out the same shake: the far ones weigh more.
    const double missing = static_cast<double>(2 * window_ + 1) / static_cast<double>(places_.size());
    const double deviation = std::max(static_cast<double>(window_) / 2, 0.5) * missing;
    CameraPlace sum;
    double weights = 0;
    double distance = static_cast<double>(oldest_ - frame_);
    for (const CameraPlace& place : places_) {
        const double weight = std::exp(-distance * distance / (2 * deviation * deviation));
        sum = sum + weight * place;
        weights += weight;
        distance++;
    }
    return (1 / weights) * sum;
}

/// First the mean of all places up to now, later of about the last 50, and of the last few only as the margin
/// runs out: then the camera is being turned. The steps that the mean makes are evened out in their turn.
CameraPlace SteadyCamera::Follow(const CameraPlace& shaky) {
    constexpr double SlowestMean = 0.02;
    constexpr double SlowestStep = 0.15;
    constexpr double Reluctance = 4;
    const double newest = 1 / static_cast<double>(frame_ + 1);
    const double usual = std::max(newest, SlowestMean);
    const double urgent = std::pow(std::min(MarginShare(shaky, steady_), 1.0), Reluctance);
    mean_ = Between(mean_, shaky, usual + (1 - usual) * urgent);
    return Between(steady_, mean_, std::max(newest, SlowestStep));
}

/// How much of the margin the steady camera uses: 1 when it just sees the input's edge.
double SteadyCamera::MarginShare(const CameraPlace& shaky, const CameraPlace& steady) const {
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

/// The steady place, moved towards the shaky camera's just so far that all it sees is in the input.
CameraPlace SteadyCamera::Inside(const CameraPlace& shaky, const CameraPlace& steady) const {
    if (MarginShare(shaky, steady) <= 1) {
        return steady;
    }
    constexpr int Halvings = 12;
    double inside = 0;
    double outside = 1;
    for (int i = 0; i < Halvings; i++) {
        const double middle = (inside + outside) / 2;
        (MarginShare(shaky, Between(shaky, steady, middle)) <= 1 ? inside : outside) = middle;
    }
    return Between(shaky, steady, inside);
}

}  // namespace desk
