#pragma once

#include <cstdio>

/// Appends one frame's mesh array as one line of text: "Frame N", then `count` pairs. The pairs overlap, each
/// beginning at the next float and not at the next vertex; readers of the files rely on it.
/// @param data   at least count + 1 floats
/// @param count  at least 1; 0 ends the process
void WriteVerticesAndTexCoordinatesToFile(FILE* file, float* data, unsigned int count, unsigned long frame);
