#include "desk/motion/motion_estimator.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <map>
#include <numeric>
#include <opencv2/imgproc.hpp>

#include "desk/measure/corners.h"

namespace desk {
namespace {

constexpr int EnoughRows = 540;     // more rows cost time and hardly sharpen the estimate
constexpr size_t MinAgreeing = 12;  // 24 numbers for the pose's 9: fewer hardly average any error
constexpr int MinColumns = 5;    // or rows of cells that what agrees reaches over: less may be one thing in
constexpr int MinRows = 4;       // front of a bare wall
constexpr double MinLeft = 0.6;  // of a key frame's corners: fewer leave a large part of the frame bare
constexpr double Tolerance = 3;  // pixels; a rolling shutter bends what no affine map does
using PerCell = std::array<double, CellCount>;

Position ToPosition(cv::Point2f point, cv::Size picture) {
    return {point.x - (picture.width - 1) / 2.0, point.y - (picture.height - 1) / 2.0};
}

cv::Point2f ToPoint(Position position, cv::Size picture) {
    return cv::Point2d(position.real() + (picture.width - 1) / 2.0,
                       position.imag() + (picture.height - 1) / 2.0);
}

/// Tukey's biweight (Beaton and Tukey 1974): 0 where a pair is far off the pose, which then belongs to
/// something else that moves. Four medians of errors in a plane are the 4.7 standard deviations that are
/// usual: without such pairs the fit loses 5 % of its precision.
double TukeyBiweight(double error, double median) {
    const double share = error / (4 * median);
    return share >= 1 ? 0 : (1 - share * share) * (1 - share * share);
}

/// The error that half of the weight lies below.
double WeightedMedian(const std::vector<double>& errors, const std::vector<double>& weights) {
    std::multimap<double, double> sorted;
    for (size_t i = 0; i < errors.size(); i++) {
        sorted.emplace(errors[i], weights[i]);
    }
    double left = std::accumulate(weights.begin(), weights.end(), 0.0) / 2;
    for (const auto& [error, weight] : sorted) {
        left -= weight;
        if (left <= 0) {
            return error;
        }
    }
    return 0;
}

}  // namespace

FramePose MotionEstimator::Add(const cv::Mat& luma) {
    // Whole, so that every pixel of the shrunken picture is the mean of as many.
    const int factor = std::max(1, (luma.rows + EnoughRows / 2) / EnoughRows);
    cv::resize(luma, picture_, luma.size() / factor, 0, 0, cv::INTER_AREA);
    constexpr double MinFound = 0.2;  // of the corners: fewer are found behind a cut only
    const auto known = static_cast<double>(corners_.size());
    Follow();
    const bool isCut = static_cast<double>(corners_.size()) <= MinFound * known;
    if (isCut || !FindMotion()) {
        MakeKey(isCut);
    }
    return {pose_.turn, pose_.shift * static_cast<double>(factor), pose_.shiftPerRow,
            pose_.shiftBend / static_cast<double>(factor), pose_.rollPerRow / factor};
}

void MotionEstimator::MakeKey(bool isCut) {
    constexpr size_t MaxPerCell = 9;    // the time grows with their number, precision with its root only
    constexpr double Quality = 0.0005;  // of the best corner's: low, a wall behind something shiny counts too
    constexpr double Unknown = 0.5;     // trust in what comes into the picture
    constexpr double Whole = 3;         // corners that make a cell count as one: a single one may be chance
    constexpr double AtBorder = 3;      // which the background reaches, and what is in front of it seldom
    PerCell trust{};
    PerCell tracks{};
    for (const Corner& corner : corners_) {
        const size_t cell = CellOf(ToPoint(corner.moved, key_.size()), key_.size());
        trust[cell] += corner.trust;
        tracks[cell]++;
    }
    picture_.copyTo(key_);
    corners_.clear();
    trusted_ = 0;
    PerCell taken{};
    for (const cv::Point2f& at : SpreadCorners(key_, MaxPerCell, Quality)) {
        const size_t cell = CellOf(at, key_.size());
        taken[cell]++;
        const double known = isCut ? 1 : tracks[cell] > 0 ? trust[cell] / tracks[cell] : Unknown;
        corners_.push_back({at, {}, {}, cell, SceneOf(pose_, ToPosition(at, key_.size())), known, 0});
        trusted_ += known;
    }
    for (Corner& corner : corners_) {
        const bool isBorder = corner.cell % CellColumns % (CellColumns - 1) == 0 ||
                              corner.cell / CellColumns % (CellRows - 1) == 0;
        corner.share = (isBorder ? AtBorder : 1) / std::max(taken[corner.cell], Whole);
    }
}

/// Finds the key frame's corners in the picture, and forgets those that are lost.
void MotionEstimator::Follow() {
    std::vector<cv::Point2f> key;
    std::vector<cv::Point2f> moved;
    for (Corner& corner : corners_) {
        corner.stood = FrameOf(pose_, corner.scene);
        key.push_back(corner.key);
        moved.push_back(ToPoint(corner.stood, key_.size()));
    }
    const auto found = FollowCorners(key_, picture_, key, moved);
    std::vector<Corner> followed;
    for (size_t i = 0; i < corners_.size(); i++) {
        if (found[i]) {
            followed.push_back(corners_[i]);
            followed.back().moved = ToPosition(moved[i], key_.size());
        }
    }
    corners_ = followed;
}

/// How far each corner is off, in pixels, when all have moved by as much since the last frame; infinite where
/// one disagrees. They have not moved at all when enough of the picture stands. Otherwise they moved as that
/// corner which most others agree with.
std::vector<double> MotionEstimator::FirstErrors() const {
    constexpr double Standing = 0.5;  // pixels that a corner may seem to move while the camera stands
    constexpr double Enough = 0.35;   // of what all cells count: titles cover less
    const auto error = [](const Corner& corner, Position step) {
        return std::abs(corner.moved - corner.stood - step);
    };
    const auto agreement = [&](Position step, double tolerance) {
        double sum = 0;
        for (const Corner& corner : corners_) {
            const double share = error(corner, step) / tolerance;
            sum += share >= 1 ? 0 : corner.trust * corner.share * (1 - share * share);
        }
        return sum;
    };
    Position step;
    double tolerance = Standing;
    if (agreement(step, Standing) < Enough * agreement(step, std::numeric_limits<double>::infinity())) {
        tolerance = Tolerance;
        double most = 0;
        for (const Corner& corner : corners_) {
            const Position tried = corner.moved - corner.stood;
            const double agree = agreement(tried, Tolerance);
            if (agree > most) {
                most = agree;
                step = tried;
            }
        }
    }
    std::vector<double> errors;
    for (const Corner& corner : corners_) {
        const double off = error(corner, step);
        errors.push_back(off < tolerance ? off : std::numeric_limits<double>::infinity());
    }
    return errors;
}

/// The pose that the corners agree on of which `errors`, in pixels, tells a first guess: least squares,
/// reweighted. Leaves the errors against that pose there and returns their scale, beyond four times which a
/// corner disagrees.
double MotionEstimator::FitRobustly(std::vector<double>& errors, FramePose& pose) const {
    constexpr int Rounds = 5;               // after which the pose changes by less than corners are off
    constexpr double SmallestMedian = 0.1;  // pixels: corners are not followed more closely
    std::vector<Position> frame;
    std::vector<Position> scene;
    std::vector<double> weights;
    for (size_t i = 0; i < corners_.size(); i++) {
        frame.push_back(corners_[i].moved);
        scene.push_back(corners_[i].scene);
        weights.push_back(std::isinf(errors[i]) ? 0 : corners_[i].trust);
    }
    double median = 0;
    for (int round = 0; round < Rounds; round++) {
        median = std::max(WeightedMedian(errors, weights), SmallestMedian);
        for (size_t i = 0; i < errors.size(); i++) {
            weights[i] = corners_[i].trust * TukeyBiweight(errors[i], median);
        }
        pose = FitPose(frame, scene, weights, key_.rows);
        for (size_t i = 0; i < errors.size(); i++) {
            errors[i] = std::abs(SceneOf(pose, frame[i]) - scene[i]);
        }
    }
    return median;
}

/// Fits the pose to the corners, and trusts them by it. Returns whether the key frame serves on.
bool MotionEstimator::FindMotion() {
    std::vector<double> errors = FirstErrors();
    FramePose pose;
    const double scale = FitRobustly(errors, pose);
    const size_t agree = Trust(errors, std::min(4 * scale, 2 * Tolerance));
    if (agree >= MinAgreeing) {
        MoveTo(pose, scale / std::sqrt(static_cast<double>(agree)));
    }
    return static_cast<double>(agree) >= std::max(MinLeft * trusted_, static_cast<double>(MinAgreeing));
}

/// Trusts each corner more whose error in pixels is within the limit, and all others less. Returns how
/// many they are, none when they lie in too few cells.
size_t MotionEstimator::Trust(const std::vector<double>& errors, double limit) {
    constexpr double Haste = 0.2;        // of the trust that is still to win or to lose, per frame
    constexpr double LeastTrust = 0.05;  // so that a scene of nothing else is followed in the end
    cv::Rect reach;                      // in cells
    size_t agree = 0;
    for (size_t i = 0; i < corners_.size(); i++) {
        Corner& corner = corners_[i];
        const bool agrees = errors[i] < limit;
        corner.trust += Haste * ((agrees ? 1 : LeastTrust) - corner.trust);
        if (agrees) {
            agree++;
            reach |= cv::Rect(static_cast<int>(corner.cell % CellColumns),
                              static_cast<int>(corner.cell / CellColumns), 1, 1);
        }
    }
    return reach.width < MinColumns && reach.height < MinRows ? 0 : agree;
}

/// Takes the pose over, `chance` pixels off where its corners err alone, unless the camera stands: what the
/// fit tells no better than chance would is no motion, and where there was none for long much less is.
void MotionEstimator::MoveTo(const FramePose& pose, double chance) {
    constexpr double Alike = 4;    // corners in one block of a codec err alike
    constexpr int Long = 5;        // frames; a hand does not rest as long
    constexpr double Much = 0.15;  // pixels
    double squares = 0;
    for (const Corner& corner : corners_) {
        squares += std::norm(SceneOf(pose, corner.moved) - SceneOf(pose_, corner.moved));
    }
    const double step = std::sqrt(squares / static_cast<double>(corners_.size()));
    if (step > (stood_ >= Long ? Much : Alike * chance)) {
        pose_ = pose;
        stood_ = 0;
    } else {
        stood_++;
    }
}

}  // namespace desk
