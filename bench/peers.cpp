#include "bench/peers.h"

extern "C" {
#include <vid.stab/libvidstab.h>
}

#include <algorithm>
#include <memory>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <stdexcept>

namespace bench {
namespace {

/// Where the samples of one axis of a plane lie in the mesh.
struct Axis {
    /// `step` is the picture's pixels per sample. Vertex c lies half a pixel before c cells.
    Axis(int samples, int step, int vertices) {
        for (int i = 0; i < samples; ++i) {
            const double at = (step * (i + 0.5) + 0.5) / (step * samples) * (vertices - 1);
            const int first = std::min(static_cast<int>(at), vertices - 2);
            cell.push_back(first);
            fraction.push_back(static_cast<float>(at - first));
        }
    }
    std::vector<int> cell;
    std::vector<float> fraction;
};

/// The map of one plane, made anew for every grid.
struct PlaneMap {
    PlaneMap(cv::Size size, int planeStep)
        : step(planeStep),
          across(size.width, step, MeshColumns),
          down(size.height, step, MeshRows),
          map(size) {}

    void Fill(const IPEICAGridTransform& grid) {
        const float scale = 1.0F / static_cast<float>(step);
        const cv::Point2f centre = cv::Point2f(map.size() * step - cv::Size(1, 1)) / 2;
        const auto inputOf = [](const GridPoint& point) { return cv::Point2f(point.x, point.y); };
        for (int row = 0; row < map.rows; ++row) {
            const GridPoint* upper = grid.gridTransformArray + (down.cell[size_t(row)] + 1) * GridColumns + 1;
            const GridPoint* lower = upper + GridColumns;
            const float f = down.fraction[size_t(row)];
            cv::Point2f line[MeshColumns];
            for (int c = 0; c < MeshColumns; ++c) {
                const cv::Point2f between = inputOf(upper[c]) + f * (inputOf(lower[c]) - inputOf(upper[c]));
                line[c] = (between + centre) * scale - cv::Point2f(0.5F, 0.5F);
            }
            // Cell by cell, so that the compiler can take several samples at once.
            for (int i = 0; i < map.cols;) {
                const int cell = across.cell[size_t(i)];
                const cv::Point2f slope = line[cell + 1] - line[cell];
                const auto end = std::upper_bound(across.cell.begin() + i, across.cell.end(), cell);
                for (const auto last = static_cast<int>(end - across.cell.begin()); i < last; ++i) {
                    map(row, i) = line[cell] + slope * across.fraction[size_t(i)];
                }
            }
        }
    }

    int step;
    Axis across;
    Axis down;
    cv::Mat_<cv::Point2f> map;
};

/// What vidstab keeps for one size of picture.
struct VidStabState {
    VidStabState() = default;
    ~VidStabState() {
        vsFrameFree(&source);
        vsFrameFree(&target);
        vsTransformDataCleanup(&data);
    }
    VidStabState(const VidStabState&) = delete;
    VidStabState& operator=(const VidStabState&) = delete;

    VSTransformData data = {};
    VSFrame source = {};
    VSFrame target = {};
};

}  // namespace

Peer OpenCvRemap(cv::Size size, const desk::CameraPose& pose) {
    return [luma = PlaneMap(size, 1), chroma = PlaneMap(size / 2, 2), grid = MakeGrid(pose, size)](
               const Nv12& input, Nv12& output) mutable {
        luma.Fill(grid);
        chroma.Fill(grid);
        cv::remap(input.luma, output.luma, luma.map, cv::noArray(), cv::INTER_LINEAR, cv::BORDER_REPLICATE);
        cv::remap(input.chroma, output.chroma, chroma.map, cv::noArray(), cv::INTER_LINEAR,
                  cv::BORDER_REPLICATE);
    };
}

Peer VidStab(cv::Size size, const desk::CameraPose& pose) {
    VSFrameInfo info;
    VSTransformConfig config = vsTransformGetDefaultConfig("bench");
    config.interpolType = VS_BiLinear;
    const auto state = std::make_shared<VidStabState>();
    if (vsFrameInfoInit(&info, size.width, size.height, PF_YUV420P) == 0 ||
        vsTransformDataInit(&state->data, &config, &info, &info) != VS_OK) {
        throw std::runtime_error("expected vidstab to take the picture size, got a refusal");
    }
    vsFrameAllocate(&state->source, &info);
    vsFrameAllocate(&state->target, &info);
    // It turns about the pixel at half the size, one further than the mesh's centre, and counts the shift the
    // other way round.
    const cv::Point2d turned = desk::SceneOf({0, 0, pose.roll, pose.scale}, {1, 1});
    VSTransform transform = {};
    transform.x = -(pose.x + turned.x - 1.0);
    transform.y = -(pose.y + turned.y - 1.0);
    transform.alpha = pose.roll;
    transform.zoom = 100.0 * (1.0 - pose.scale);
    return [state, transform](const Nv12& input, Nv12& output) {
        const auto plane = [&input](const VSFrame& frame, int i) {
            return cv::Mat(i == 0 ? input.luma.size() : input.chroma.size(), CV_8UC1, frame.data[i],
                           static_cast<size_t>(frame.linesize[i]));
        };
        input.luma.copyTo(plane(state->source, 0));
        cv::extractChannel(input.chroma, plane(state->source, 1), 0);
        cv::extractChannel(input.chroma, plane(state->source, 2), 1);
        vsTransformPrepare(&state->data, &state->source, &state->target);
        vsDoTransform(&state->data, transform);
        vsTransformFinish(&state->data);
        plane(state->target, 0).copyTo(output.luma);
        cv::insertChannel(plane(state->target, 1), output.chroma, 0);
        cv::insertChannel(plane(state->target, 2), output.chroma, 1);
    };
}

}  // namespace bench
