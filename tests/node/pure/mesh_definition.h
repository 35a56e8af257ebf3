#pragma once

#include <cmath>

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

}  // namespace mesh_definition
