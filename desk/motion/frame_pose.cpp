#include "desk/motion/frame_pose.h"

#include <array>
#include <opencv2/core.hpp>

namespace desk {
namespace {

constexpr Position I(0, 1);
constexpr int Unknowns = 9;

/// What one of each unknown adds to the position in the scene, in frame heights: scale * cos(roll), scale *
/// sin(roll), x and y of the shift, of its slope and of its bend, and the roll's slope.
std::array<Position, Unknowns> TermsAt(Position frame) {
    const double y = frame.imag();
    return {frame, I * frame, 1, I, y, I * y, y * y, I * y * y, I * y * frame};
}

// The ridge of the regression (Hoerl and Kennard 1970), which keeps an unknown that the pairs do not tell at
// zero: the square of the error of one pair over that of what the unknown usually is. Scale, roll and shift
// are left free.
const cv::Vec<double, Unknowns> Ridge(0, 0, 0, 0, 1e-4, 1e-4, 1e-2, 1e-2, 1e-2);

}  // namespace

Position SceneOf(const FramePose& pose, Position frame) {
    const double y = frame.imag();
    return std::exp(pose.turn) * frame + pose.shift + y * (pose.shiftPerRow + y * pose.shiftBend) +
           I * (pose.rollPerRow * y) * frame;
}

Position FrameOf(const FramePose& pose, Position scene) {
    // Down the rows the pose changes little, so every round makes the error many times smaller.
    constexpr int Rounds = 5;
    const Position back = std::exp(-pose.turn);
    Position frame = back * (scene - pose.shift);
    for (int round = 0; round < Rounds; round++) {
        frame -= back * (SceneOf(pose, frame) - scene);
    }
    return frame;
}

FramePose FitPose(const std::vector<Position>& frame, const std::vector<Position>& scene,
                  const std::vector<double>& weights, double height) {
    auto normal = cv::Matx<double, Unknowns, Unknowns>::diag(Ridge);
    cv::Vec<double, Unknowns> right;
    for (size_t i = 0; i < frame.size(); i++) {
        const auto terms = TermsAt(frame[i] / height);
        for (int row = 0; row < Unknowns; row++) {
            const Position weighted = weights[i] * std::conj(terms[static_cast<size_t>(row)]);
            right(row) += (weighted * scene[i] / height).real();
            for (int column = 0; column < Unknowns; column++) {
                normal(row, column) += (weighted * terms[static_cast<size_t>(column)]).real();
            }
        }
    }
    const cv::Vec<double, Unknowns> found = normal.solve(right, cv::DECOMP_SVD);
    return {std::log(Position(found[0], found[1])), height * Position(found[2], found[3]),
            Position(found[4], found[5]), Position(found[6], found[7]) / height, found[8] / height};
}

FramePose Plus(const FramePose& pose, double times, const FramePose& other) {
    return {pose.turn + times * other.turn, pose.shift + times * other.shift,
            pose.shiftPerRow + times * other.shiftPerRow, pose.shiftBend + times * other.shiftBend,
            pose.rollPerRow + times * other.rollPerRow};
}

FramePose Between(const FramePose& from, const FramePose& to, double share) {
    return Plus(from, share, Plus(to, -1, from));
}

}  // namespace desk
