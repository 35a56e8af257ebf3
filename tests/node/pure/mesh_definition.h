#pragma once

#include <cmath>
#include <string>
#include <vector>

#include "node/dewarp/gpu/gpumesh.h"

/// The mesh's arithmetic by its definition, step by step and independent of how the compiler arranges the
/// mesh's own. Every single-precision operation is done in double and rounded once, which gives the
/// single-precision result: the double holds sums, products and quotients of two floats closely enough.
namespace mesh_definition {

/// Forces one rounding to single precision, whatever the compiler would like to keep.
inline double Round(double value) {
    volatile float rounded = static_cast<float>(value);
    return static_cast<double>(rounded);
}

/// Where vertex `index` of an axis with so many lies within the picture, from 0 to 1.
inline float Fraction(int index, int vertices) {
    return static_cast<float>(Round(static_cast<double>(index) / (vertices - 1)));
}

/// A vertex's clip coordinate; sizes of input and output in pixels.
inline float Position(int index, int vertices, int in, int out) {
    const double fraction = static_cast<double>(Fraction(index, vertices));
    const double doubled = Round(2.0 * Round(Round(-0.5 / in) + fraction));
    return static_cast<float>(Round(Round(static_cast<double>(in) / out) * Round(-1.0 + doubled)));
}

/// A vertex's texture coordinate from its value in the grid.
inline float Sampled(float grid, int in) {
    const double centre = Round(Round(in - 1.0) / 2.0);
    return static_cast<float>(0.0 + Round(Round(static_cast<double>(grid) + centre) / in));
}

/// All bits, unless both are no numbers.
inline bool IsSame(float a, float b) {
    return (std::isnan(a) && std::isnan(b)) || (a == b && std::signbit(a) == std::signbit(b));
}

/// Computes the whole mesh and compares it. `grid` has one more point at each side than the mesh has
/// vertices. Returns what differs, or nothing. The arrays are of exact size, so that any step outside of them
/// is seen.
inline std::string Difference(const std::vector<float>& grid, const DewarpMeshSizes& sizes, bool isGridUsed) {
    const int vertices[] = {sizes.numVerticesX, sizes.numVerticesY};
    const int in[] = {sizes.inImageWidth, sizes.inImageHeight};
    const int out[] = {sizes.outImageWidth, sizes.outImageHeight};
    const size_t count = size_t{2} * static_cast<size_t>(vertices[0]) * static_cast<size_t>(vertices[1]);
    std::vector<float> positions(count);
    std::vector<float> texCoordinates(count);
    UpdateMesh(positions.data(), texCoordinates.data(), grid.data(), sizes, isGridUsed);
    for (size_t i = 0; i < count; ++i) {
        const size_t axis = i % 2;
        const int at[] = {static_cast<int>(i) / 2 % vertices[0], static_cast<int>(i) / 2 / vertices[0]};
        const int point = (at[1] + 1) * (vertices[0] + 2) + at[0] + 1;
        const float value = grid[2 * static_cast<size_t>(point) + axis];
        const float sampled = isGridUsed ? Sampled(value, in[axis]) : Fraction(at[axis], vertices[axis]);
        if (!IsSame(positions[i], Position(at[axis], vertices[axis], in[axis], out[axis]))) {
            return "a vertex lies elsewhere, number " + std::to_string(i);
        }
        if (!IsSame(texCoordinates[i], sampled)) {
            return "a texture coordinate differs, number " + std::to_string(i);
        }
    }
    return "";
}

}  // namespace mesh_definition
