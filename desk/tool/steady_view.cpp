#include "desk/tool/steady_view.h"

#include <algorithm>
#include <cmath>

#include "desk/tool/grids/warp_grid.h"

namespace desk {

SteadyView::SteadyView(const CameraPath& path, cv::Size input, cv::Size output)
    : path_(path), input_(input), output_(output) {}

double SteadyView::MarginShare(int64_t frame, const CameraPlace& steady) const {
    double share = 0;
    for (const int x : {-1, 0, 1}) {
        for (const int y : {-1, 0, 1}) {
            const Position output(x * (output_.width - 1) / 2.0, y * (output_.height - 1) / 2.0);
            const Position beyond = FrameOf(path_.At(frame), SceneOf(steady, output)) - output;
            // Against the direction of the corner is towards the middle, and costs no margin.
            const double right = x * beyond.real();
            const double down = y * beyond.imag();
            share = std::max({share, right / std::max((input_.width - output_.width) / 2.0, 0.5),
                              down / std::max((input_.height - output_.height) / 2.0, 0.5)});
        }
    }
    return share;
}

CameraPlace SteadyView::Inside(int64_t frame, const CameraPlace& steady) const {
    const CameraPlace& shaky = path_.At(frame);
    const auto between = [&](double part) { return part * steady + (1 - part) * shaky; };
    if (MarginShare(frame, steady) <= 1) {
        return steady;
    }
    constexpr int Halvings = 12;
    double inside = 0;
    double outside = 1;
    for (int i = 0; i < Halvings; i++) {
        const double middle = (inside + outside) / 2;
        (MarginShare(frame, between(middle)) <= 1 ? inside : outside) = middle;
    }
    return between(inside);
}

IPEICAGridTransform SteadyView::Grid(int64_t frame, const CameraPlace& steady) const {
    return MakeGrid(input_, [&](cv::Point2d q) {
        const Position p = FrameOf(path_.At(frame), SceneOf(steady, {q.x, q.y}));
        return cv::Point2d(p.real(), p.imag());
    });
}

}  // namespace desk
