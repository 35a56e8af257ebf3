#pragma once

#include <cstdio>
#include <memory>
#include <vector>

#include "host/lumnoderequest.h"

/// What a frame costs at the least: the node's GL calls, grid copy and mesh arithmetic, and nothing else.
namespace bench {

/// One frame after the other over the null GL, for one picture size and one buffer per direction.
class Floor {
public:
    Floor(uint32_t width, uint32_t height);
    ~Floor();

    void Frame(const IPEICAGridTransform& grid);

    /// Positions, then texture coordinates of the last frame: two floats for each vertex.
    const float* Mesh() const;

private:
    struct State;
    std::unique_ptr<State> state_;
};

/// The formatting and writing calls of a frame's three dump lines, for the same numbers as the node's.
class DumpCalls {
public:
    DumpCalls() = default;
    ~DumpCalls() {
        static_cast<void>(std::fclose(file_));
    }
    DumpCalls(const DumpCalls&) = delete;
    DumpCalls& operator=(const DumpCalls&) = delete;

    void Frame(const IPEICAGridTransform& grid, const float* mesh);

private:
    FILE* file_ = std::fopen("/dev/null", "a");
    std::vector<char> line_ = std::vector<char>(98304);
};

}  // namespace bench
