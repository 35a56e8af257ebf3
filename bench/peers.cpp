#include "bench/peers.h"

extern "C" {
#include <vid.stab/libvidstab.h>
}

#include <algorithm>
#include <cmath>
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
    PlaneMap(int width, int height, int planeStep)
        : step(planeStep),
          across(width, step, MeshColumns),
          down(height, step, MeshRows),
          x(height, width, CV_32F),
          y(height, width, CV_32F) {}

    void Fill(const IPEICAGridTransform& grid) {
        const float scale = 1.0F / static_cast<float>(step);
        const auto centre = [this](int samples) { return static_cast<float>(step * samples - 1) / 2.0F; };
        for (int row = 0; row < x.rows; ++row) {
            const GridPoint* upper = grid.gridTransformArray + (down.cell[size_t(row)] + 1) * GridColumns + 1;
            const GridPoint* lower = upper + GridColumns;
            const float f = down.fraction[size_t(row)];
            float lineX[MeshColumns];
            float lineY[MeshColumns];
            for (int c = 0; c < MeshColumns; ++c) {
                lineX[c] = (upper[c].x + f * (lower[c].x - upper[c].x) + centre(x.cols)) * scale - 0.5F;
                lineY[c] = (upper[c].y + f * (lower[c].y - upper[c].y) + centre(x.rows)) * scale - 0.5F;
            }
            FillRow(lineX, x.ptr<float>(row));
            FillRow(lineY, y.ptr<float>(row));
        }
    }
    /// Cell by cell, so that the compiler can take several samples at once.
    void FillRow(const float* line, float* values) const {
        for (int i = 0; i < x.cols;) {
            const int cell = across.cell[size_t(i)];
            const float first = line[cell];
            const float slope = line[cell + 1] - first;
            const auto end = std::upper_bound(across.cell.begin() + i, across.cell.end(), cell);
            for (const auto last = static_cast<int>(end - across.cell.begin()); i < last; ++i) {
                values[i] = first + slope * across.fraction[size_t(i)];
            }
        }
    }

    int step;
    Axis across;
    Axis down;
    cv::Mat x;
    cv::Mat y;
};

cv::Mat View(const std::vector<uint8_t>& pixels, int width, int height, int type) {
    return {height, width, type, const_cast<uint8_t*>(pixels.data())};
}

}  // namespace

struct OpenCvRemap::State {
    PlaneMap luma;
    PlaneMap chroma;
};

OpenCvRemap::OpenCvRemap(int width, int height)
    : state_(new State{{width, height, 1}, {width / 2, height / 2, 2}}) {}

OpenCvRemap::~OpenCvRemap() = default;

void OpenCvRemap::Frame(const Picture& input, const IPEICAGridTransform& grid, Picture& output) {
    const auto warp = [&grid](PlaneMap& map, const cv::Mat& from, cv::Mat to) {
        map.Fill(grid);
        cv::remap(from, to, map.x, map.y, cv::INTER_LINEAR, cv::BORDER_REPLICATE);
    };
    const int w = input.width;
    const int h = input.height;
    warp(state_->luma, View(input.luma, w, h, CV_8UC1), View(output.luma, w, h, CV_8UC1));
    warp(state_->chroma, View(input.chroma, w / 2, h / 2, CV_8UC2),
         View(output.chroma, w / 2, h / 2, CV_8UC2));
}

std::vector<float> OpenCvRemap::LumaMap(const IPEICAGridTransform& grid) {
    PlaneMap& map = state_->luma;
    map.Fill(grid);
    std::vector<float> all(map.x.begin<float>(), map.x.end<float>());
    all.insert(all.end(), map.y.begin<float>(), map.y.end<float>());
    return all;
}

struct VidStab::State {
    VSTransformData data = {};
    VSFrame source = {};
    VSFrame target = {};
};

VidStab::VidStab(int width, int height) : state_(new State) {
    VSFrameInfo info;
    VSTransformConfig config = vsTransformGetDefaultConfig("bench");
    config.interpolType = VS_BiLinear;
    if (vsFrameInfoInit(&info, width, height, PF_YUV420P) == 0 ||
        vsTransformDataInit(&state_->data, &config, &info, &info) != VS_OK) {
        throw std::runtime_error("expected vidstab to take the picture size, got a refusal");
    }
    vsFrameAllocate(&state_->source, &info);
    vsFrameAllocate(&state_->target, &info);
}

VidStab::~VidStab() {
    vsFrameFree(&state_->source);
    vsFrameFree(&state_->target);
    vsTransformDataCleanup(&state_->data);
}

void VidStab::Frame(const Picture& input, const Shake& shake, Picture& output) {
    State& s = *state_;
    std::copy(input.luma.begin(), input.luma.end(), s.source.data[0]);
    for (size_t i = 0; i < input.chroma.size() / 2; ++i) {
        s.source.data[1][i] = input.chroma[2 * i];
        s.source.data[2][i] = input.chroma[2 * i + 1];
    }
    // It turns about the pixel at half the size, one further than the mesh's centre, and counts the shift
    // and the angle the other way round.
    const double c = shake.zoom * std::cos(shake.angle);
    const double sine = shake.zoom * std::sin(shake.angle);
    VSTransform transform = {};
    transform.x = -(shake.shiftX + c + sine - 1.0);
    transform.y = -(shake.shiftY + c - sine - 1.0);
    transform.alpha = -shake.angle;
    transform.zoom = 100.0 * (1.0 - shake.zoom);
    vsTransformPrepare(&s.data, &s.source, &s.target);
    vsDoTransform(&s.data, transform);
    vsTransformFinish(&s.data);
    std::copy_n(s.target.data[0], output.luma.size(), output.luma.begin());
    for (size_t i = 0; i < output.chroma.size() / 2; ++i) {
        output.chroma[2 * i] = s.target.data[1][i];
        output.chroma[2 * i + 1] = s.target.data[2][i];
    }
}

}  // namespace bench
