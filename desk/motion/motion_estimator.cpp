#include "desk/motion/motion_estimator.h"

#include <algorithm>
#include <opencv2/calib3d.hpp>
#include <opencv2/imgproc.hpp>
#include <opencv2/video/tracking.hpp>

namespace desk {
namespace {

constexpr int EnoughRows = 540;  // more rows cost time and hardly sharpen the estimate
constexpr size_t MinAgreeing = 12;
constexpr double MinLeft = 0.6;  // of a key frame's corners

/// A whole number, so that every pixel of the shrunken picture is the mean of as many.
int ShrinkFactor(int rows) {
    return std::max(1, (rows + EnoughRows / 2) / EnoughRows);
}

/// Positions about the middle of the unshrunken picture.
Position ToPosition(cv::Point2f point, cv::Size shrunken, double factor) {
    return factor * Position(point.x - (shrunken.width - 1) / 2.0, point.y - (shrunken.height - 1) / 2.0);
}

/// Small where a pair is far off the place: such pairs belong to something else that moves.
double WeightOf(double error, double scale) {
    const double share = error / (4 * scale);
    return share >= 1 ? 0 : (1 - share * share) * (1 - share * share);
}

/// The place that most pairs agree on, when all of them are more or less right.
CameraPlace FitMost(const std::vector<Position>& frame, const std::vector<Position>& scene, double height) {
    constexpr int Rounds = 5;
    constexpr double SmallestScale = 0.1;  // pixels: corners are not followed more closely
    std::vector<double> weights(frame.size(), 1);
    CameraPlace place;
    for (int round = 0; round < Rounds; round++) {
        place = FitPlace(frame, scene, weights, height);
        std::vector<double> errors;
        for (size_t i = 0; i < frame.size(); i++) {
            errors.push_back(std::abs(SceneOf(place, frame[i]) - scene[i]));
        }
        std::vector<double> sorted = errors;
        std::nth_element(sorted.begin(), sorted.begin() + static_cast<std::ptrdiff_t>(sorted.size() / 2),
                         sorted.end());
        const double scale = std::max(sorted[sorted.size() / 2], SmallestScale);
        std::transform(errors.begin(), errors.end(), weights.begin(),
                       [scale](double error) { return WeightOf(error, scale); });
    }
    return place;
}

}  // namespace

CameraPlace MotionEstimator::Add(const cv::Mat& luma) {
    const int factor = ShrinkFactor(luma.rows);
    factor_ = factor;
    cv::resize(luma, picture_, luma.size() / factor, 0, 0, cv::INTER_AREA);
    const size_t enough =
        std::max(MinAgreeing, static_cast<size_t>(MinLeft * static_cast<double>(corners_.size())));
    if (key_.empty() || Follow() < enough) {
        MakeKey();
    }
    return place_;
}

void MotionEstimator::MakeKey() {
    constexpr int MaxCorners = 400;
    constexpr double Quality = 0.005;
    picture_.copyTo(key_);
    cv::goodFeaturesToTrack(key_, corners_, MaxCorners, Quality, key_.rows / 40.0);
    moved_ = corners_;
    scene_.clear();
    for (const cv::Point2f& corner : corners_) {
        scene_.push_back(SceneOf(place_, ToPosition(corner, key_.size(), factor_)));
    }
}

/// Finds the key frame's corners in the picture and the place from them. Returns how many agree.
size_t MotionEstimator::Follow() {
    if (corners_.size() < MinAgreeing) {
        return 0;
    }
    std::vector<uchar> found;
    cv::calcOpticalFlowPyrLK(key_, picture_, corners_, moved_, found, cv::noArray(), {21, 21}, 3,
                             {cv::TermCriteria::COUNT | cv::TermCriteria::EPS, 30, 0.01},
                             cv::OPTFLOW_USE_INITIAL_FLOW);
    std::vector<uchar> agrees;
    constexpr double MaxDisagreement = 3;  // shrunken pixels; a rolling shutter bends what no affine map does
    if (cv::estimateAffine2D(corners_, moved_, agrees, cv::RANSAC, MaxDisagreement, 500, 0.995, 0).empty()) {
        return 0;
    }
    std::vector<Position> frame;
    std::vector<Position> scene;
    for (size_t i = 0; i < corners_.size(); i++) {
        if (found[i] != 0 && agrees[i] != 0) {
            frame.push_back(ToPosition(moved_[i], key_.size(), factor_));
            scene.push_back(scene_[i]);
        }
    }
    if (frame.size() < MinAgreeing) {
        return frame.size();
    }
    place_ = FitMost(frame, scene, factor_ * key_.rows);
    for (size_t i = 0; i < corners_.size(); i++) {
        const Position at = FrameOf(place_, scene_[i]) / factor_;
        moved_[i] = cv::Point2f(static_cast<float>(at.real() + (key_.cols - 1) / 2.0),
                                static_cast<float>(at.imag() + (key_.rows - 1) / 2.0));
    }
    return frame.size();
}

}  // namespace desk
