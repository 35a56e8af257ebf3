#include "tests/node/pixels/picture.h"

#include <fmt/format.h>

#include <cmath>

namespace {

/// Calls `visit(byte, component, x, y)` for every byte of both planes, with the centre of its sample.
template <typename Visit>
void ForEachSample(desk::GrallocBuffer& buffer, Visit visit) {
    for (uint32_t j = 0; j < buffer.Height(); ++j) {
        for (uint32_t i = 0; i < buffer.Width(); ++i) {
            visit(buffer.Luma()[j * buffer.Stride() + i], 0U, static_cast<double>(i), static_cast<double>(j));
        }
    }
    for (uint32_t j = 0; j < (buffer.Height() + 1) / 2; ++j) {
        for (uint32_t i = 0; i < (buffer.Width() + 1) / 2; ++i) {
            for (uint32_t component = 0; component < 2; ++component) {
                visit(buffer.Chroma()[j * buffer.Stride() + 2 * i + component], component + 1, 2.0 * i + 0.5,
                      2.0 * j + 0.5);
            }
        }
    }
}

}  // namespace

Scene SmoothScene() {
    return [](double x, double y) {
        return std::array<double, 3>{128.0 + 60.0 * std::sin(x / 23.0) + 50.0 * std::cos(y / 29.0),
                                     128.0 + 80.0 * std::sin((x + 2.0 * y) / 71.0),
                                     128.0 + 80.0 * std::cos((2.0 * x - y) / 83.0)};
    };
}

Scene Copy(desk::GrallocBuffer& buffer, uint32_t left, uint32_t top) {
    return [&buffer, left, top](double x, double y) {
        const uint32_t column = static_cast<uint32_t>(std::floor(x)) + left;
        const uint32_t row = static_cast<uint32_t>(std::floor(y)) + top;
        const uint8_t* chroma = buffer.Chroma() + row / 2 * buffer.Stride() + column / 2 * 2;
        return std::array<double, 3>{static_cast<double>(buffer.Luma()[row * buffer.Stride() + column]),
                                     static_cast<double>(chroma[0]), static_cast<double>(chroma[1])};
    };
}

void Paint(desk::GrallocBuffer& buffer, const Scene& scene) {
    ForEachSample(buffer, [&scene](uint8_t& byte, uint32_t component, double x, double y) {
        byte = static_cast<uint8_t>(std::lround(scene(x, y)[component]));
    });
}

std::string Compare(desk::GrallocBuffer& buffer, const Scene& scene, double tolerance, Region without) {
    std::string mismatches;
    unsigned count = 0;
    ForEachSample(buffer, [&](uint8_t& byte, uint32_t component, double x, double y) {
        const bool isInside = x >= without.left && y >= without.top && x < buffer.Width() - without.right &&
                              y < buffer.Height() - without.bottom;
        const double expected = scene(x, y)[component];
        if (isInside && std::abs(byte - expected) > tolerance && ++count <= 10) {
            constexpr const char* names[] = {"Y", "Cb", "Cr"};
            mismatches +=
                fmt::format("{} at ({}, {}): {} instead of {:.2f}\n", names[component], x, y, byte, expected);
        }
    });
    return mismatches;
}
