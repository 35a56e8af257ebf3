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
        for (uint32_t i = 0; i < (buffer.Width() + 1) / 2 * 2; ++i) {
            const uint32_t column = i / 2;
            visit(buffer.Chroma()[j * buffer.Stride() + i], 1 + i % 2, 2.0 * column + 0.5, 2.0 * j + 0.5);
        }
    }
}

}  // namespace

void Paint(desk::GrallocBuffer& buffer, const Scene& scene) {
    ForEachSample(buffer, [&scene](uint8_t& byte, uint32_t component, double x, double y) {
        byte = static_cast<uint8_t>(std::lround(scene(x, y)[component]));
    });
}

std::string Compare(desk::GrallocBuffer& buffer, const Scene& scene, double tolerance) {
    std::string mismatches;
    unsigned count = 0;
    ForEachSample(buffer, [&](uint8_t& byte, uint32_t component, double x, double y) {
        const double expected = scene(x, y)[component];
        if (std::abs(byte - expected) > tolerance && ++count <= 10) {
            constexpr const char* names[] = {"Y", "Cb", "Cr"};
            mismatches +=
                fmt::format("{} at ({}, {}): {} instead of {:.2f}\n", names[component], x, y, byte, expected);
        }
    });
    return mismatches;
}
