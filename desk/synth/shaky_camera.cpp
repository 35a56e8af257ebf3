#include "desk/synth/shaky_camera.h"

#include <fmt/format.h>

#include <cmath>
#include <numeric>

#include "desk/base/usage_error.h"

namespace desk {
namespace {

cv::Matx22d Turn(const CameraPose& pose) {
    const double c = pose.scale * std::cos(pose.roll);
    const double s = pose.scale * std::sin(pose.roll);
    return {c, -s, s, c};
}

Tremor MakeTremor(std::mt19937& engine, double amplitudeAt1Hz) {
    // The standard distributions may differ from library to library; the engine's own numbers may not.
    const auto fraction = [&engine] { return static_cast<double>(engine()) / 4294967296.0; };
    Tremor tremor{};
    for (size_t i = 0; i < tremor.size(); i++) {
        const double frequency = static_cast<double>(i) + 1 + fraction();
        // A hand's fast movements are small ones: each band adds the same speed.
        tremor[i] = {amplitudeAt1Hz / frequency, frequency, 2 * CV_PI * fraction()};
    }
    return tremor;
}

double At(const Tremor& tremor, double seconds) {
    return std::accumulate(tremor.begin(), tremor.end(), 0.0, [seconds](double sum, const Wave& wave) {
        return sum + wave.amplitude * std::sin(2 * CV_PI * wave.frequency * seconds + wave.phase);
    });
}

double Bound(const Tremor& tremor) {
    return std::accumulate(tremor.begin(), tremor.end(), 0.0,
                           [](double sum, const Wave& wave) { return sum + wave.amplitude; });
}

}  // namespace

cv::Point2d SceneOf(const CameraPose& pose, cv::Point2d frame) {
    return Turn(pose) * frame + cv::Point2d(pose.x, pose.y);
}

ShakyCamera::ShakyCamera(const Shake& shake, cv::Size frameSize, int viewHeight, double framesPerSecond)
    : frameSize_(frameSize), framesPerSecond_(framesPerSecond), readout_(shake.readout) {
    // They make the 10 pixels that the constructor promises.
    constexpr double ShiftAt1Hz = 0.018;  // of the view's height
    constexpr double RollAt1Hz = 0.0085;  // radians
    std::mt19937 engine(shake.seed);
    x_ = MakeTremor(engine, shake.strength * ShiftAt1Hz * viewHeight);
    y_ = MakeTremor(engine, shake.strength * ShiftAt1Hz * viewHeight);
    roll_ = MakeTremor(engine, shake.strength * RollAt1Hz);
}

CameraPose ShakyCamera::RowPose(int frame, double row) const {
    const double seconds = (frame + readout_ * row / frameSize_.height) / framesPerSecond_;
    return {At(x_, seconds), At(y_, seconds), At(roll_, seconds)};
}

cv::Point2d ShakyCamera::FrameOf(int frame, cv::Point2d scene) const {
    // The pose depends on the row that is looked for. During the readout the hand moves by a small part of
    // the frame's height, so each round shrinks the error by a factor of a hundred or more.
    constexpr int Rounds = 8;
    cv::Point2d position = scene;
    for (int round = 0; round < Rounds; round++) {
        const CameraPose pose = RowPose(frame, position.y + (frameSize_.height - 1) / 2.0);
        position = Turn(pose).inv() * (scene - cv::Point2d(pose.x, pose.y));
    }
    return position;
}

cv::Size ShakyCamera::Reach(cv::Size view) const {
    const double s = std::sin(Bound(roll_));
    const auto border = [](double pixels) { return 2 * static_cast<int>(std::ceil(pixels)); };
    return view + cv::Size(border(Bound(x_) + s * view.height / 2), border(Bound(y_) + s * view.width / 2));
}

void ShakyCamera::RequireRoom(cv::Size view) const {
    const cv::Size needed = Reach(view);
    if (needed.width > frameSize_.width || needed.height > frameSize_.height) {
        throw UsageError(fmt::format(
            "the margin is too small: the node asks for an input of {} x {}, and steadying an output "
            "of {} x {} takes up to {} x {}, a margin of {:.3f},{:.3f}",
            frameSize_.width, frameSize_.height, view.width, view.height, needed.width, needed.height,
            static_cast<double>(needed.width) / view.width - 1,
            static_cast<double>(needed.height) / view.height - 1));
    }
}

}  // namespace desk
