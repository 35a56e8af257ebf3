#include "desk/motion/motion_estimator.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <opencv2/imgproc.hpp>

#include "desk/measure/corners.h"

namespace desk {
namespace {

constexpr int EnoughRows = 540;     // more rows cost time and hardly sharpen the estimate
constexpr size_t MinAgreeing = 12;  // 24 numbers for the pose's 9: fewer hardly average any error
constexpr int MinColumns = 5;    // or rows of cells that what agrees reaches over: less may be one thing in
constexpr int MinRows = 4;       // front of a bare wall
constexpr double MinLeft = 0.6;  // of a key frame's corners: fewer leave a large part of the frame bare
constexpr double EnoughStand = 0.35;  // of what all cells count: titles cover less
constexpr double Tolerance = 3;       // shrunken pixels; a rolling shutter bends what no affine map does
using PerCell = std::array<double, CellCount>;

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

/// A corner that was found, as the first guess sees it.
struct Track {
    cv::Point2f stood;  ///< where it would be, had the camera stood since the last frame
    cv::Point2f moved;  ///< where it is
    double counts;      ///< how much
    size_t cell;        ///< of the key frame
};

double Error(const Track& track, const cv::Matx23d& motion) {
    const cv::Point2f& at = track.stood;
    const double x = motion(0, 0) * at.x + motion(0, 1) * at.y + motion(0, 2) - track.moved.x;
    const double y = motion(1, 0) * at.x + motion(1, 1) * at.y + motion(1, 2) - track.moved.y;
    return std::sqrt(x * x + y * y);
}

/// What the tracks count that agree with an affine motion, near ones more.
double Agreement(const std::vector<Track>& tracks, const cv::Matx23d& motion, double tolerance) {
    double sum = 0;
    for (const Track& track : tracks) {
        const double share = Error(track, motion) / tolerance;
        sum += share >= 1 ? 0 : track.counts * (1 - share * share);
    }
    return sum;
}

/// RANSAC (Fischler and Bolles 1981) for the affine motion that the cells of the picture agree on most; of
/// two that explain as much the smaller one, since it does less harm if it is the wrong one.
cv::Matx23d DominantMotion(const std::vector<Track>& tracks, cv::Size picture) {
    constexpr double MaxTurn = 0.1;  // of roll, scale and shear within a frame: a camera does less
    constexpr double Usual = 0.02;   // of the height: a step of as much counts half
    constexpr int Samples = 400;     // of which 10 are of the background alone where it covers 0.3
    std::array<std::vector<const Track*>, CellCount> cells;
    for (const Track& track : tracks) {
        cells[track.cell].push_back(&track);
    }
    const auto end =
        std::remove_if(cells.begin(), cells.end(), [](const auto& cell) { return cell.empty(); });
    cv::RNG random(1);  // the same in every run
    const auto any = [&random](auto begin, auto size) {
        return *(begin + random.uniform(0, static_cast<int>(size)));
    };
    const cv::Vec3d middle(picture.width / 2.0, picture.height / 2.0, 1);
    cv::Matx23d best = cv::Matx23d::eye();
    double most = 0;
    for (int sample = 0; sample < Samples; sample++) {
        cv::Matx33d from = cv::Matx33d::ones();
        cv::Matx32d to;
        for (int i = 0; i < 3; i++) {
            const auto& cell = any(cells.begin(), end - cells.begin());
            const Track& track = *any(cell.begin(), cell.size());
            from(i, 0) = track.stood.x;
            from(i, 1) = track.stood.y;
            to(i, 0) = track.moved.x;
            to(i, 1) = track.moved.y;
        }
        const cv::Matx23d motion = from.solve(to).t();
        if (cv::norm(motion.get_minor<2, 2>(0, 0) - cv::Matx22d::eye()) > MaxTurn) {
            continue;
        }
        const double step =
            cv::norm(motion * middle - cv::Vec2d(middle[0], middle[1])) / (Usual * picture.height);
        if (const double agreement = Agreement(tracks, motion, Tolerance) / (1 + step * step);
            agreement > most) {
            most = agreement;
            best = motion;
        }
    }
    return best;
}

/// Each track's error in shrunken pixels against the background's motion since the last frame; infinite where
/// a track disagrees. That motion is none when enough of the picture stands.
std::vector<double> FirstErrors(const std::vector<Track>& tracks, cv::Size picture) {
    constexpr double Standing = 0.5;  // pixels that a corner may seem to move while the camera stands
    double all = 0;
    for (const Track& track : tracks) {
        all += track.counts;
    }
    cv::Matx23d motion = cv::Matx23d::eye();
    double tolerance = Standing;
    if (Agreement(tracks, motion, Standing) < EnoughStand * all) {
        motion = DominantMotion(tracks, picture);
        tolerance = Tolerance;
    }
    std::vector<double> errors;
    for (const Track& track : tracks) {
        const double error = Error(track, motion);
        errors.push_back(error < tolerance ? error : std::numeric_limits<double>::infinity());
    }
    return errors;
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
    constexpr double Whole = 3;         // corners that make a cell count as one: a single one may be chance
    constexpr double AtBorder = 3;      // which the background reaches, and what is in front of it seldom
    PerCell trust{};
    PerCell tracks{};
    for (const Corner& corner : corners_) {
        if (corner.isFound && !isCut) {
            const size_t cell = CellOf(corner.moved, picture_.size());
            trust[cell] += corner.trust;
            tracks[cell]++;
        }
    }
    picture_.copyTo(key_);
    corners_.clear();
    trusted_ = 0;
    PerCell taken{};
    for (const cv::Point2f& at : SpreadCorners(key_, MaxPerCell, Quality)) {
        const size_t cell = CellOf(at, key_.size());
        taken[cell]++;
        const double known = isCut ? 1 : tracks[cell] > 0 ? trust[cell] / tracks[cell] : Unknown;
        corners_.push_back(
            {at, at, at, false, cell, SceneOf(pose_, ToPosition(at, key_.size(), factor_)), known, 0});
        trusted_ += known;
    }
    for (Corner& corner : corners_) {
        const bool isBorder = corner.cell % CellColumns % (CellColumns - 1) == 0 ||
                              corner.cell / CellColumns % (CellRows - 1) == 0;
        corner.share = (isBorder ? AtBorder : 1) / std::max(taken[corner.cell], Whole);
    }
}

/// Finds the key frame's corners in the picture.
void MotionEstimator::Follow() {
    constexpr double MaxReturnError = 0.5;  // pixels: six times what a corner of a dull wall is off
    std::vector<cv::Point2f> key;
    std::vector<cv::Point2f> moved;
    for (Corner& corner : corners_) {
        corner.stood = ToPoint(FrameOf(pose_, corner.scene), key_.size(), factor_);
        key.push_back(corner.key);
        moved.push_back(corner.stood);
    }
    const auto found = FollowCorners(key_, picture_, key, moved, MaxReturnError);
    for (size_t i = 0; i < corners_.size(); i++) {
        corners_[i].moved = moved[i];
        corners_[i].isFound = found[i];
    }
}

/// What stays at its place of the picture while most of it moves was laid over it.
void MotionEstimator::DropTitles() {
    constexpr double Still = 0.2;  // pixels
    const auto stays = [](const Corner& corner) { return cv::norm(corner.moved - corner.key) < Still; };
    double all = 0;
    double still = 0;
    for (const Corner& corner : corners_) {
        const double counts = corner.isFound ? corner.trust * corner.share : 0;
        all += counts;
        still += stays(corner) ? counts : 0;
    }
    for (Corner& corner : corners_) {
        corner.isFound = corner.isFound && !(still < EnoughStand * all && stays(corner));
    }
}

/// Fits the pose to the corners that were found, and trusts them by it. Returns whether the key frame serves
/// on.
bool MotionEstimator::FindMotion() {
    DropTitles();
    std::vector<Track> tracks;
    Pairs pairs;
    for (const Corner& corner : corners_) {
        if (corner.isFound) {
            tracks.push_back({corner.stood, corner.moved, corner.trust * corner.share, corner.cell});
            pairs.frame.push_back(ToPosition(corner.moved, key_.size(), factor_));
            pairs.scene.push_back(corner.scene);
            pairs.trust.push_back(corner.trust);
        }
    }
    if (tracks.size() < MinAgreeing) {
        return false;
    }
    std::vector<double> errors = FirstErrors(tracks, key_.size());
    for (double& error : errors) {
        error *= factor_;
    }
    FramePose pose;
    const double scale = FitRobustly(pairs, factor_ * key_.rows, errors, pose);
    const size_t agree = Trust(errors, std::min(4 * scale, 2 * Tolerance * factor_));
    if (agree >= MinAgreeing) {
        MoveTo(pose, scale / std::sqrt(static_cast<double>(agree)));
    }
    return static_cast<double>(agree) >= std::max(MinLeft * trusted_, static_cast<double>(MinAgreeing));
}

/// Trusts each found corner more whose error in pixels is within the limit, and all others less. Returns how
/// many they are, none when they lie in too few cells.
size_t MotionEstimator::Trust(const std::vector<double>& errors, double limit) {
    constexpr double Haste = 0.2;        // of the trust that is still to win or to lose, per frame
    constexpr double LeastTrust = 0.05;  // so that a scene of nothing else is followed in the end
    PerCell agreeing{};
    size_t agree = 0;
    auto error = errors.begin();
    for (Corner& corner : corners_) {
        const bool agrees = corner.isFound && *error < limit;
        error += corner.isFound ? 1 : 0;
        agree += agrees ? 1 : 0;
        agreeing[corner.cell] += agrees ? 1 : 0;
        corner.trust += Haste * ((agrees ? 1 : LeastTrust) - corner.trust);
    }
    std::vector<cv::Point> cells;
    for (size_t cell = 0; cell < CellCount; cell++) {
        if (agreeing[cell] > 0) {
            cells.emplace_back(static_cast<int>(cell % CellColumns), static_cast<int>(cell / CellColumns));
        }
    }
    const cv::Rect reach = cv::boundingRect(cells);
    return reach.width < MinColumns && reach.height < MinRows ? 0 : agree;
}

/// Takes the pose over, `chance` pixels off where its corners err alone, unless the camera stands: what the
/// fit tells no better than chance would is no motion, and where there was none for long much less is.
void MotionEstimator::MoveTo(const FramePose& pose, double chance) {
    constexpr double Alike = 4;    // corners in one block of a codec err alike
    constexpr int Long = 5;        // frames; a hand does not rest as long
    constexpr double Much = 0.15;  // shrunken pixels
    if (Distance(pose, pose_, key_.size() * factor_) > (stood_ >= Long ? Much * factor_ : Alike * chance)) {
        pose_ = pose;
        stood_ = 0;
    } else {
        stood_++;
    }
}

}  // namespace desk
