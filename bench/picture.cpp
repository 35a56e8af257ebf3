#include "bench/picture.h"

#include <algorithm>
#include <cmath>

namespace bench {
namespace {

uint8_t Wave(double x, double y, double phase) {
    const double value =
        std::sin(x / 9.0 + phase) * std::cos(y / 7.0) + 0.5 * std::sin((x + 2.0 * y) / 31.0 + phase);
    return static_cast<uint8_t>(std::lround(128.0 + 60.0 * value));
}

/// Sum of squared differences and number of samples of one plane's middle.
void AddPlane(const std::vector<uint8_t>& a, const std::vector<uint8_t>& b, int rowBytes, double& sum,
              double& count) {
    const int rows = static_cast<int>(a.size()) / rowBytes;
    for (int row = rows / 8; row < rows - rows / 8; ++row) {
        for (int column = rowBytes / 8; column < rowBytes - rowBytes / 8; ++column) {
            const auto at =
                static_cast<size_t>(row) * static_cast<size_t>(rowBytes) + static_cast<size_t>(column);
            const double difference = static_cast<double>(a[at]) - static_cast<double>(b[at]);
            sum += difference * difference;
            count += 1.0;
        }
    }
}

}  // namespace

Picture MakeScene(int width, int height) {
    Picture picture(width, height);
    auto luma = picture.luma.begin();
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            *luma++ = Wave(x, y, 0.0);
        }
    }
    auto chroma = picture.chroma.begin();
    for (int y = 0; y < height / 2; ++y) {
        for (int x = 0; x < width / 2; ++x) {
            *chroma++ = Wave(x, y, 1.0);
            *chroma++ = Wave(x, y, 2.0);
        }
    }
    return picture;
}

IPEICAGridTransform MakeGrid(const Shake& shake, int width, int height) {
    IPEICAGridTransform grid = {};
    grid.gridTransformEnable = 1;
    const double c = shake.zoom * std::cos(shake.angle);
    const double s = shake.zoom * std::sin(shake.angle);
    GridPoint* point = grid.gridTransformArray;
    for (int row = -1; row <= MeshRows; ++row) {
        for (int column = -1; column <= MeshColumns; ++column) {
            const double x = width * (static_cast<double>(column) / (MeshColumns - 1) - 0.5);
            const double y = height * (static_cast<double>(row) / (MeshRows - 1) - 0.5);
            *point++ = {static_cast<float>(c * x + s * y + shake.shiftX),
                        static_cast<float>(c * y - s * x + shake.shiftY)};
        }
    }
    return grid;
}

double Psnr(const Picture& a, const Picture& b) {
    constexpr double Equal = 99.0;
    double sum = 0.0;
    double count = 0.0;
    AddPlane(a.luma, b.luma, a.width, sum, count);
    AddPlane(a.chroma, b.chroma, a.width, sum, count);
    return sum == 0.0 ? Equal : std::min(Equal, 10.0 * std::log10(255.0 * 255.0 * count / sum));
}

}  // namespace bench
