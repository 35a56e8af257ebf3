#include "bench/peers.h"

extern "C" {
#include <vid.stab/libvidstab.h>
}

#include <algorithm>
#include <cmath>
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
          x(size, CV_32F),
          y(size, CV_32F) {}

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

class VidStabTransform {
public:
    explicit VidStabTransform(cv::Size size) {
        VSFrameInfo info;
        VSTransformConfig config = vsTransformGetDefaultConfig("bench");
        config.interpolType = VS_BiLinear;
        if (vsFrameInfoInit(&info, size.width, size.height, PF_YUV420P) == 0 ||
            vsTransformDataInit(&data, &config, &info, &info) != VS_OK) {
            throw std::runtime_error("expected vidstab to take the picture size, got a refusal");
        }
        vsFrameAllocate(&source, &info);
        vsFrameAllocate(&target, &info);
    }
    ~VidStabTransform() {
        vsFrameFree(&source);
        vsFrameFree(&target);
        vsTransformDataCleanup(&data);
    }
    VidStabTransform(const VidStabTransform&) = delete;
    VidStabTransform& operator=(const VidStabTransform&) = delete;

    void Frame(const Nv12& input, const desk::CameraPose& pose, Nv12& output) {
        const auto plane = [&input](const VSFrame& frame, int i) {
            return cv::Mat(i == 0 ? input.luma.size() : input.chroma.size(), CV_8UC1, frame.data[i],
                           static_cast<size_t>(frame.linesize[i]));
        };
        input.luma.copyTo(plane(source, 0));
        cv::extractChannel(input.chroma, plane(source, 1), 0);
        cv::extractChannel(input.chroma, plane(source, 2), 1);
        // It turns about the pixel at half the size, one further than the mesh's centre, and counts the shift
        // the other way round.
        const double c = pose.scale * std::cos(pose.roll);
        const double s = pose.scale * std::sin(pose.roll);
        VSTransform transform = {};
        transform.x = -(pose.x + c - s - 1.0);
        transform.y = -(pose.y + c + s - 1.0);
        transform.alpha = pose.roll;
        transform.zoom = 100.0 * (1.0 - pose.scale);
        vsTransformPrepare(&data, &source, &target);
        vsDoTransform(&data, transform);
        vsTransformFinish(&data);
        plane(target, 0).copyTo(output.luma);
        cv::insertChannel(plane(target, 1), output.chroma, 0);
        cv::insertChannel(plane(target, 2), output.chroma, 1);
    }

private:
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
        cv::remap(input.luma, output.luma, luma.x, luma.y, cv::INTER_LINEAR, cv::BORDER_REPLICATE);
        cv::remap(input.chroma, output.chroma, chroma.x, chroma.y, cv::INTER_LINEAR, cv::BORDER_REPLICATE);
    };
}

Peer VidStab(cv::Size size, const desk::CameraPose& pose) {
    return [vidStab = std::make_shared<VidStabTransform>(size), pose](const Nv12& input, Nv12& output) {
        vidStab->Frame(input, pose, output);
    };
}

}  // namespace bench
