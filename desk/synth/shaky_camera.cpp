#include "desk/synth/shaky_camera.h"

#include <fmt/format.h>

#include <cmath>

#include "desk/base/usage_error.h"

namespace desk {

ShakyCamera::Tremor::Tremor(std::mt19937& engine, double amplitudeAt1Hz) {
    // The standard distributions may differ from library to library; the engine's own numbers may not.
    const auto fraction = [&engine] { return static_cast<double>(engine()) / 4294967296.0; };
    for (size_t i = 0; i < waves_.size(); i++) {
        const double frequency = static_cast<double>(i) + 1 + fraction();
        // A hand's fast movements are small ones: each band adds the same speed.
        waves_[i] = {amplitudeAt1Hz / frequency, frequency, 2 * CV_PI * fraction()};
    }
}

double ShakyCamera::Tremor::At(double seconds) const {
    double sum = 0;
    for (const Wave& wave : waves_) {
        sum += wave.amplitude * std::sin(2 * CV_PI * wave.frequency * seconds + wave.phase);
    }
    return sum;
}

double ShakyCamera::Tremor::Bound() const {
    double sum = 0;
    for (const Wave& wave : waves_) {
        sum += wave.amplitude;
    }
    return sum;
}

ShakyCamera::ShakyCamera(const Shake& shake, cv::Size frameSize, int viewHeight, double framesPerSecond)
    : frameSize_(frameSize), framesPerSecond_(framesPerSecond), readout_(shake.readout) {
    constexpr double ShiftAt1Hz = 0.018;  // of the view's height
    constexpr double RollAt1Hz = 0.0085;  // radians
    std::mt19937 engine(shake.seed);
    x_ = Tremor(engine, shake.strength * ShiftAt1Hz * viewHeight);
    y_ = Tremor(engine, shake.strength * ShiftAt1Hz * viewHeight);
    roll_ = Tremor(engine, shake.strength * RollAt1Hz);
}

CameraPose ShakyCamera::RowPose(int frame, double row) const {
    const double seconds = (frame + readout_ * row / frameSize_.height) / framesPerSecond_;
    return {x_.At(seconds), y_.At(seconds), roll_.At(seconds)};
}

cv::Point2d ShakyCamera::FromScene(int frame, cv::Point2d q) const {
    // The pose depends on the row that is looked for. During the readout the hand moves by a small part of
    // the frame's height, so each round shrinks the error by a factor of a hundred or more.
    constexpr int Rounds = 8;
    cv::Point2d p = q;
    for (int round = 0; round < Rounds; round++) {
        const CameraPose pose = RowPose(frame, p.y + (frameSize_.height - 1) / 2.0);
        const double c = std::cos(pose.roll);
        const double s = std::sin(pose.roll);
        const cv::Point2d d = q - cv::Point2d(pose.x, pose.y);
        p = {c * d.x + s * d.y, c * d.y - s * d.x};
    }
    return p;
}

cv::Size ShakyCamera::Reach(cv::Size view) const {
    const double s = std::sin(roll_.Bound());
    const auto border = [](double pixels) { return 2 * static_cast<int>(std::ceil(pixels)); };
    return view + cv::Size(border(x_.Bound() + s * view.height / 2), border(y_.Bound() + s * view.width / 2));
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
