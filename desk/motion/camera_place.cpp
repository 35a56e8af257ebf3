#include "desk/motion/camera_place.h"

#include <opencv2/core.hpp>

namespace desk {
namespace {

constexpr Position I(0, 1);
constexpr int Unknowns = 9;
using Row = cv::Vec<double, Unknowns>;

/// How a pair, in frame heights, hangs on scale * cos(roll), scale * sin(roll), the two parts of the shift,
/// of its slope and of its bend, and on the roll's slope.
Row RealRow(Position p) {
    const double y = p.imag();
    return {p.real(), -y, 1, 0, y, 0, y * y, 0, -y * y};
}
Row ImaginaryRow(Position p) {
    const double y = p.imag();
    return {y, p.real(), 0, 1, 0, y, 0, y * y, y * p.real()};
}

// What keeps an unknown that the pairs do not tell at zero: the square of the error of one pair over that of
// what the unknown usually is. Scale, roll and shift are left free.
constexpr double Inertia[Unknowns] = {0, 0, 0, 0, 1e-4, 1e-4, 1e-2, 1e-2, 1e-2};

}  // namespace

Position SceneOf(const CameraPlace& place, Position frame) {
    const double y = frame.imag();
    return std::exp(place.turn) * frame + place.shift + y * (place.shiftPerRow + y * place.shiftBend) +
           I * (place.rollPerRow * y) * frame;
}

Position FrameOf(const CameraPlace& place, Position scene) {
    // Down the rows the place changes little, so every round makes the error many times smaller.
    constexpr int Rounds = 5;
    const Position back = std::exp(-place.turn);
    Position frame = back * (scene - place.shift);
    for (int round = 0; round < Rounds; round++) {
        frame -= back * (SceneOf(place, frame) - scene);
    }
    return frame;
}

CameraPlace FitPlace(const std::vector<Position>& frame, const std::vector<Position>& scene,
                     const std::vector<double>& weights, double height) {
    cv::Matx<double, Unknowns, Unknowns> normal = cv::Matx<double, Unknowns, Unknowns>::zeros();
    Row right = Row::all(0);
    for (int i = 0; i < Unknowns; i++) {
        normal(i, i) = Inertia[i];
    }
    for (size_t i = 0; i < frame.size(); i++) {
        const Position p = frame[i] / height;
        const Position target = scene[i] / height;
        const Row rows[] = {RealRow(p), ImaginaryRow(p)};
        const double values[] = {target.real(), target.imag()};
        for (int part = 0; part < 2; part++) {
            normal += weights[i] * rows[part] * rows[part].t();
            right += weights[i] * values[part] * rows[part];
        }
    }
    const Row found = normal.solve(right, cv::DECOMP_SVD);
    CameraPlace place;
    place.turn = std::log(Position(found[0], found[1]));
    place.shift = height * Position(found[2], found[3]);
    place.shiftPerRow = Position(found[4], found[5]);
    place.shiftBend = Position(found[6], found[7]) / height;
    place.rollPerRow = found[8] / height;
    return place;
}

CameraPlace operator+(const CameraPlace& a, const CameraPlace& b) {
    return {a.turn + b.turn, a.shift + b.shift, a.shiftPerRow + b.shiftPerRow, a.shiftBend + b.shiftBend,
            a.rollPerRow + b.rollPerRow};
}

CameraPlace operator*(double weight, const CameraPlace& place) {
    return {weight * place.turn, weight * place.shift, weight * place.shiftPerRow, weight * place.shiftBend,
            weight * place.rollPerRow};
}

}  // namespace desk
