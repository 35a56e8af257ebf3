#include "desk/motion/motion_estimator.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <opencv2/calib3d.hpp>
#include <opencv2/imgproc.hpp>
#include <opencv2/video/tracking.hpp>

namespace desk {
namespace {

constexpr int EnoughRows = 540;     // more rows cost time and hardly sharpen the estimate
constexpr size_t MinAgreeing = 12;  // 24 numbers for the pose's 9: fewer hardly average any error
constexpr int MinCells = 4;      // with a corner that agrees: fewer may be one thing in front of a bare wall
constexpr double MinLeft = 0.6;  // of a key frame's corners: fewer leave a large part of the frame bare
constexpr double Tolerance = 3;  // shrunken pixels; a rolling shutter bends what no affine map does
constexpr int Columns = 8;       // of the grid of cells
constexpr int Rows = 6;

using Grid = std::array<double, Columns * Rows>;

size_t CellOf(cv::Point2f at, cv::Size picture) {
    const auto along = [](float x, int pixels, int cells) {
        return std::clamp(static_cast<int>(x * static_cast<float>(cells) / static_cast<float>(pixels)), 0,
                          cells - 1);
    };
    return static_cast<size_t>(along(at.y, picture.height, Rows) * Columns +
                               along(at.x, picture.width, Columns));
}

/// Positions about the middle of the unshrunken picture.
Position ToPosition(cv::Point2f point, cv::Size shrunken, int factor) {
    return static_cast<double>(factor) *
           Position(point.x - (shrunken.width - 1) / 2.0, point.y - (shrunken.height - 1) / 2.0);
}

cv::Point2f ToPoint(Position position, cv::Size shrunken, int factor) {
    const Position at = position / static_cast<double>(factor);
    return cv::Point2d(at.real() + (shrunken.width - 1) / 2.0, at.imag() + (shrunken.height - 1) / 2.0);
}

/// Tukey's biweight (Beaton and Tukey 1974): 0 where a pair is far off the pose, which then belongs to
/// something else that moves. Four medians of errors in a plane are the 4.7 standard deviations that are
/// usual: without such pairs the fit loses 5 % of its precision.
double TukeyBiweight(double error, double median) {
    const double share = error / (4 * median);
    return share >= 1 ? 0 : (1 - share * share) * (1 - share * share);
}

double WeightedMedian(const std::vector<double>& values, const std::vector<double>& weights) {
    std::vector<std::pair<double, double>> sorted;
    double total = 0;
    for (size_t i = 0; i < values.size(); i++) {
        sorted.emplace_back(values[i], weights[i]);
        total += weights[i];
    }
    std::sort(sorted.begin(), sorted.end());
    double below = 0;
    for (const auto& [value, weight] : sorted) {
        below += weight;
        if (2 * below >= total) {
            return value;
        }
    }
    return 0;
}

/// Pairs of positions, and how far each is to be trusted, 0 to 1.
struct Pairs {
    std::vector<Position> frame;
    std::vector<Position> scene;
    std::vector<double> trust;
};

/// The pose that the pairs agree on of which `errors`, in pixels, tells a first guess: least squares,
/// reweighted. Leaves the errors against that pose there and returns their scale, beyond four times which a
/// pair disagrees.
double FitRobustly(const Pairs& pairs, double height, std::vector<double>& errors, FramePose& pose) {
    constexpr int Rounds = 5;               // after which the pose changes by less than corners are off
    constexpr double SmallestMedian = 0.1;  // pixels: corners are not followed more closely
    std::vector<double> weights = pairs.trust;
    for (size_t i = 0; i < errors.size(); i++) {
        weights[i] = std::isinf(errors[i]) ? 0 : weights[i];
    }
    double median = 0;
    for (int round = 0; round < Rounds; round++) {
        median = std::max(WeightedMedian(errors, weights), SmallestMedian);
        for (size_t i = 0; i < errors.size(); i++) {
            weights[i] = pairs.trust[i] * TukeyBiweight(errors[i], median);
        }
        pose = FitPose(pairs.frame, pairs.scene, weights, height);
        for (size_t i = 0; i < errors.size(); i++) {
            errors[i] = std::abs(SceneOf(pose, pairs.frame[i]) - pairs.scene[i]);
        }
    }
    return median;
}

/// How far apart two poses see the same positions, pixels RMS over a picture.
double Distance(const FramePose& one, const FramePose& other, cv::Size picture) {
    double squares = 0;
    for (const double x : {-0.4, 0.0, 0.4}) {
        for (const double y : {-0.4, 0.0, 0.4}) {
            const Position at(x * picture.width, y * picture.height);
            squares += std::norm(SceneOf(one, at) - SceneOf(other, at));
        }
    }
    return std::sqrt(squares / 9);
}

std::vector<cv::Point2f> LucasKanade(const cv::Mat& from, const cv::Mat& to,
                                     const std::vector<cv::Point2f>& start, std::vector<cv::Point2f> guess,
                                     std::vector<uchar>& found) {
    cv::calcOpticalFlowPyrLK(from, to, start, guess, found, cv::noArray(), {21, 21}, 3,
                             {cv::TermCriteria::COUNT | cv::TermCriteria::EPS, 30, 0.01},
                             cv::OPTFLOW_USE_INITIAL_FLOW);
    return guess;
}

}  // namespace

FramePose MotionEstimator::Add(const cv::Mat& luma) {
    // Whole, so that every pixel of the shrunken picture is the mean of as many.
    factor_ = std::max(1, (luma.rows + EnoughRows / 2) / EnoughRows);
    cv::resize(luma, picture_, luma.size() / factor_, 0, 0, cv::INTER_AREA);
    if (!corners_.empty()) {
        Follow();
    }
    const auto found = static_cast<double>(
        std::count_if(corners_.begin(), corners_.end(), [](const Corner& corner) { return corner.isFound; }));
    constexpr double MinFound = 0.2;  // of the corners: fewer are found behind a cut only
    const bool isCut = found <= MinFound * static_cast<double>(corners_.size());
    if (isCut || !FindMotion()) {
        MakeKey(isCut);
    }
    return pose_;
}

void MotionEstimator::MakeKey(bool isCut) {
    constexpr size_t MaxPerCell = 9;    // the time grows with their number, precision with its root only
    constexpr double Quality = 0.0005;  // of the best corner's: low, a wall behind something shiny counts too
    constexpr double Unknown = 0.5;     // trust in what comes into the picture
    Grid trust{};
    Grid tracks{};
    for (const Corner& corner : corners_) {
        if (corner.isFound && !isCut) {
            const size_t cell = CellOf(corner.moved, picture_.size());
            trust[cell] += corner.trust;
            tracks[cell]++;
        }
    }
    picture_.copyTo(key_);
    std::vector<cv::Point2f> candidates;
    cv::goodFeaturesToTrack(key_, candidates, 0, Quality, key_.rows / 40.0);
    corners_.clear();
    Grid taken{};
    for (const cv::Point2f& at : candidates) {
        const size_t cell = CellOf(at, key_.size());
        if (taken[cell] < MaxPerCell) {
            taken[cell]++;
            const double known = isCut ? 1 : tracks[cell] > 0 ? trust[cell] / tracks[cell] : Unknown;
            corners_.push_back(
                {at, at, at, false, SceneOf(pose_, ToPosition(at, key_.size(), factor_)), known, 0});
        }
    }
    constexpr double Whole = 3;  // corners that make a cell count as one: a single one may be chance
    constexpr double AtBorder =
        3;  // the background reaches the picture's borders, what is in front of it seldom
    trusted_ = 0;
    for (Corner& corner : corners_) {
        const size_t cell = CellOf(corner.key, key_.size());
        const bool isBorder = cell % Columns % (Columns - 1) == 0 || cell / Columns % (Rows - 1) == 0;
        corner.share = (isBorder ? AtBorder : 1) / std::max(taken[cell], Whole);
        trusted_ += corner.trust;
    }
}

/// Finds the key frame's corners in the picture.
void MotionEstimator::Follow() {
    constexpr double MaxReturnError = 0.5;  // pixels: noise does not come back, a corner does
    std::vector<cv::Point2f> key;
    std::vector<cv::Point2f> stood;
    for (Corner& corner : corners_) {
        corner.stood = ToPoint(FrameOf(pose_, corner.scene), key_.size(), factor_);
        key.push_back(corner.key);
        stood.push_back(corner.stood);
    }
    std::vector<uchar> there;
    std::vector<uchar> back;
    const auto moved = LucasKanade(key_, picture_, key, stood, there);
    const auto returned = LucasKanade(picture_, key_, moved, key, back);
    for (size_t i = 0; i < corners_.size(); i++) {
        corners_[i].moved = moved[i];
        corners_[i].isFound =
            there[i] != 0 && back[i] != 0 && cv::norm(returned[i] - key[i]) <= MaxReturnError;
    }
}

/// Each corner's error in shrunken pixels against the background's motion since the last frame, which is
/// affine here; infinite where a corner disagrees. That motion is none when enough of the picture stands.
/// Otherwise RANSAC (Fischler and Bolles 1981) finds the one that the cells of the grid agree on most.
std::vector<double> MotionEstimator::FirstGuess(const std::vector<Corner>& found) const {
    constexpr double Standing = 0.5;      // pixels that a corner may seem to move while the camera stands
    constexpr double EnoughStand = 0.35;  // of what all cells count: titles and bars that stand cover less
    constexpr double MaxTurn = 0.1;       // of roll, scale and shear within a frame: a camera does less
    constexpr double Usual = 0.02;        // of the height: a step of as much counts half
    constexpr int Samples = 400;          // of which 10 are of the background alone where it covers 0.3
    const auto score = [&found](double tolerance, const auto& errorOf) {
        double sum = 0;
        for (const Corner& corner : found) {
            const double share = errorOf(corner) / tolerance;
            sum += share >= 1 ? 0 : corner.trust * corner.share * (1 - share * share);
        }
        return sum;
    };
    cv::Matx23d motion = cv::Matx23d::eye();
    const auto off = [&motion](const Corner& corner) {
        const cv::Point2f& at = corner.stood;
        return std::hypot(motion(0, 0) * at.x + motion(0, 1) * at.y + motion(0, 2) - corner.moved.x,
                          motion(1, 0) * at.x + motion(1, 1) * at.y + motion(1, 2) - corner.moved.y);
    };
    const auto errors = [&](double tolerance) {
        std::vector<double> all;
        for (const Corner& corner : found) {
            const double error = off(corner);
            all.push_back(error < tolerance ? error : std::numeric_limits<double>::infinity());
        }
        return all;
    };
    if (score(Standing, off) >= EnoughStand * score(1, [](const Corner&) { return 0.0; })) {
        return errors(Standing);
    }
    std::array<std::vector<const Corner*>, Columns * Rows> inCell;
    for (const Corner& corner : found) {
        inCell[CellOf(corner.key, key_.size())].push_back(&corner);
    }
    const auto end =
        std::remove_if(inCell.begin(), inCell.end(), [](const auto& cell) { return cell.empty(); });
    cv::RNG random(1);  // the same in every run
    const auto any = [&random](auto begin, auto size) {
        return *(begin + random.uniform(0, static_cast<int>(size)));
    };
    double best = 0;
    cv::Matx23d bestMotion = motion;
    for (int sample = 0; sample < Samples; sample++) {
        cv::Matx33d from;
        cv::Matx32d to;
        for (int i = 0; i < 3; i++) {
            const auto& cell = any(inCell.begin(), end - inCell.begin());
            const Corner& corner = *any(cell.begin(), cell.size());
            from(i, 0) = corner.stood.x;
            from(i, 1) = corner.stood.y;
            from(i, 2) = 1;
            to(i, 0) = corner.moved.x;
            to(i, 1) = corner.moved.y;
        }
        motion = from.solve(to).t();
        if (cv::norm(motion.get_minor<2, 2>(0, 0) - cv::Matx22d::eye()) > MaxTurn) {
            continue;
        }
        const cv::Vec3d middle(key_.cols / 2.0, key_.rows / 2.0, 1);
        const double step = cv::norm(motion * middle - cv::Vec2d(middle[0], middle[1])) / (Usual * key_.rows);
        if (const double agreement = score(Tolerance, off) / (1 + step * step); agreement > best) {
            best = agreement;
            bestMotion = motion;
        }
    }
    motion = bestMotion;
    return errors(Tolerance);
}

/// Fits the pose to the corners that were found, and trusts them by it. Returns whether the key frame serves
/// on.
bool MotionEstimator::FindMotion() {
    std::vector<Corner> found;
    std::copy_if(corners_.begin(), corners_.end(), std::back_inserter(found),
                 [](const Corner& corner) { return corner.isFound; });
    if (found.size() < MinAgreeing) {
        return false;
    }
    std::vector<double> errors = FirstGuess(found);
    Pairs pairs;
    for (const Corner& corner : found) {
        pairs.frame.push_back(ToPosition(corner.moved, key_.size(), factor_));
        pairs.scene.push_back(corner.scene);
        pairs.trust.push_back(corner.trust);
    }
    for (double& error : errors) {
        error *= factor_;
    }
    FramePose pose;
    const double scale = FitRobustly(pairs, factor_ * key_.rows, errors, pose);
    Grid agreeing{};
    size_t agree = 0;
    size_t next = 0;
    for (Corner& corner : corners_) {
        constexpr double Haste = 0.2;        // of the trust that is still to win or to lose, per frame
        constexpr double LeastTrust = 0.05;  // so that a scene of nothing else is followed in the end
        const bool agrees = corner.isFound && errors[next] < std::min(4 * scale, 2 * Tolerance * factor_);
        next += corner.isFound ? 1 : 0;
        agree += agrees ? 1 : 0;
        agreeing[CellOf(corner.key, key_.size())] += agrees ? 1 : 0;
        corner.trust += Haste * ((agrees ? 1 : LeastTrust) - corner.trust);
    }
    const auto cells = std::count_if(agreeing.begin(), agreeing.end(), [](double n) { return n > 0; });
    if (agree < MinAgreeing || cells < MinCells) {
        return false;
    }
    // What the fit tells no better than chance would is no motion, and where there was none for long much
    // less is.
    constexpr double Chance =
        4;  // twice what corners leave that err alone; those in one block of a codec err alike
    constexpr int Long = 5;  // frames; a hand does not rest as long
    constexpr double Much = 0.15;
    const double known =
        stood_ >= Long ? Much * factor_ : Chance * scale / std::sqrt(static_cast<double>(agree));
    if (Distance(pose, pose_, key_.size() * factor_) > known) {
        pose_ = pose;
        stood_ = 0;
    } else {
        stood_++;
    }
    return static_cast<double>(agree) >= MinLeft * trusted_;
}

}  // namespace desk
