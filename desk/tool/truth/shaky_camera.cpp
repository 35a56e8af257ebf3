#include "desk/tool/truth/shaky_camera.h"

#include <fmt/format.h>

#include <cmath>

#include "desk/tool/errors.h"

namespace desk {

ShakyCamera::ShakyCamera(const HandShake& shake, cv::Size frameSize, double framesPerSecond, double readout)
    : shake_(shake), frameSize_(frameSize), framesPerSecond_(framesPerSecond), readout_(readout) {}

CameraPose ShakyCamera::RowPose(int frame, double row) const {
    return shake_.At((frame + readout_ * row / frameSize_.height) / framesPerSecond_);
}

cv::Point2d ShakyCamera::FromScene(int frame, cv::Point2d q) const {
    // The pose depends on the row that is looked for. During the readout the hand moves by a small part of
    // the frame's height, so each round shrinks the error by a factor of a hundred or more.
    constexpr int MaxRounds = 20;
    constexpr double Enough = 1e-9;
    cv::Point2d p = q;
    for (int round = 0; round < MaxRounds; round++) {
        const CameraPose pose = RowPose(frame, p.y + (frameSize_.height - 1) / 2.0);
        const double c = std::cos(pose.roll);
        const double s = std::sin(pose.roll);
        const cv::Point2d d = q - cv::Point2d(pose.x, pose.y);
        const cv::Point2d next(c * d.x + s * d.y, c * d.y - s * d.x);
        const bool settled = cv::norm(next - p) < Enough;
        p = next;
        if (settled) {
            break;
        }
    }
    return p;
}

cv::Size ShakyCamera::Reach(cv::Size view, const CameraPose& bound) {
    const double s = std::sin(bound.roll);
    const auto border = [](double pixels) { return 2 * static_cast<int>(std::ceil(pixels)); };
    return {view.width + border(bound.x + s * view.height / 2),
            view.height + border(bound.y + s * view.width / 2)};
}

void ShakyCamera::RequireRoom(cv::Size input, cv::Size output, const CameraPose& bound) {
    const cv::Size needed = Reach(output, bound);
    if (needed.width > input.width || needed.height > input.height) {
        throw UsageError(
            fmt::format("the margin is too small: the node asked for an input of {} x {}, and steadying an "
                        "output of {} x "
                        "{} takes up to {} x {}, a margin of {:.3f},{:.3f}",
                        input.width, input.height, output.width, output.height, needed.width, needed.height,
                        static_cast<double>(needed.width) / output.width - 1,
                        static_cast<double>(needed.height) / output.height - 1));
    }
}

}  // namespace desk
