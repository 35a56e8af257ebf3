#include "desk/motion/motion_estimator.h"

#include <algorithm>
#include <opencv2/calib3d.hpp>
#include <opencv2/imgproc.hpp>
#include <opencv2/video/tracking.hpp>

namespace desk {
namespace {

constexpr int EnoughRows = 540;     // more rows cost time and hardly sharpen the estimate
constexpr size_t MinAgreeing = 12;  // 24 numbers for the pose's 9: fewer hardly average any error
constexpr double MinLeft = 0.6;     // of a key frame's corners: fewer leave a large part of the frame bare

/// Positions about the middle of the unshrunken picture.
Position ToPosition(cv::Point2f point, cv::Size shrunken, int factor) {
    return static_cast<double>(factor) *
           Position(point.x - (shrunken.width - 1) / 2.0, point.y - (shrunken.height - 1) / 2.0);
}

/// Tukey's biweight (Beaton and Tukey 1974): 0 where a pair is far off the pose, which then belongs to
/// something else that moves. Four medians of errors in a plane are the 4.7 standard deviations that are
/// usual: without such pairs the fit loses 5 % of its precision.
double TukeyBiweight(double error, double median) {
    const double share = error / (4 * median);
    return share >= 1 ? 0 : (1 - share * share) * (1 - share * share);
}

/// The pose that most pairs agree on, when all of them are more or less right: least squares, reweighted.
FramePose FitRobustly(const std::vector<Position>& frame, const std::vector<Position>& scene, double height) {
    constexpr int Rounds = 5;               // after which the pose changes by less than corners are off
    constexpr double SmallestMedian = 0.1;  // pixels: corners are not followed more closely
    std::vector<double> weights(frame.size(), 1);
    FramePose pose;
    for (int round = 0; round < Rounds; round++) {
        pose = FitPose(frame, scene, weights, height);
        for (size_t i = 0; i < frame.size(); i++) {
            weights[i] = std::abs(SceneOf(pose, frame[i]) - scene[i]);
        }
        std::vector<double> sorted = weights;
        const auto middle = sorted.begin() + static_cast<std::ptrdiff_t>(sorted.size() / 2);
        std::nth_element(sorted.begin(), middle, sorted.end());
        const double median = std::max(*middle, SmallestMedian);
        for (double& weight : weights) {
            weight = TukeyBiweight(weight, median);
        }
    }
    return pose;
}

}  // namespace

FramePose MotionEstimator::Add(const cv::Mat& luma) {
    // Whole, so that every pixel of the shrunken picture is the mean of as many.
    factor_ = std::max(1, (luma.rows + EnoughRows / 2) / EnoughRows);
    cv::resize(luma, picture_, luma.size() / factor_, 0, 0, cv::INTER_AREA);
    const auto left = static_cast<size_t>(MinLeft * static_cast<double>(corners_.size()));
    if (key_.empty() || Follow() < std::max(MinAgreeing, left)) {
        MakeKey();
    }
    return pose_;
}

void MotionEstimator::MakeKey() {
    constexpr int MaxCorners = 400;    // the time grows with their number, precision with its root only
    constexpr double Quality = 0.005;  // of the best corner's: low, so that dull parts of the frame count too
    picture_.copyTo(key_);
    cv::goodFeaturesToTrack(key_, corners_, MaxCorners, Quality, key_.rows / 40.0);  // spread over the frame
    moved_ = corners_;
    scene_.clear();
    for (const cv::Point2f& corner : corners_) {
        scene_.push_back(SceneOf(pose_, ToPosition(corner, key_.size(), factor_)));
    }
}

/// Finds the key frame's corners in the picture and the pose from them. Returns how many agree.
size_t MotionEstimator::Follow() {
    if (corners_.size() < MinAgreeing) {
        return 0;
    }
    std::vector<uchar> found;
    cv::calcOpticalFlowPyrLK(key_, picture_, corners_, moved_, found, cv::noArray(), {21, 21}, 3,
                             {cv::TermCriteria::COUNT | cv::TermCriteria::EPS, 30, 0.01},
                             cv::OPTFLOW_USE_INITIAL_FLOW);
    // RANSAC (Fischler and Bolles 1981) drops what moves by itself. What agrees is not refined: the fit is.
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
    pose_ = FitRobustly(frame, scene, factor_ * key_.rows);
    for (size_t i = 0; i < corners_.size(); i++) {
        const Position at = FrameOf(pose_, scene_[i]) / static_cast<double>(factor_);
        moved_[i] = cv::Point2d(at.real() + (key_.cols - 1) / 2.0, at.imag() + (key_.rows - 1) / 2.0);
    }
    return frame.size();
}

}  // namespace desk
