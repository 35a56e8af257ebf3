#include "tests/desk/support/tool_fixture.h"

#include <cmath>
#include <cstdlib>
#include <fstream>
#include <opencv2/core/utility.hpp>
#include <sstream>
#include <stdexcept>

#include "desk/dump/dump_line.h"

#ifdef __SANITIZE_THREAD__
namespace {
// The picture library is not built with the sanitizer, which misses how its threads wait for one another.
const bool isOnOneThread = (cv::setNumThreads(1), true);
}  // namespace
#endif

ToolTest::ToolTest() {
    std::string name = (std::filesystem::temp_directory_path() / "dewarp_tool_XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) {
        throw std::runtime_error("no temporary folder can be made");
    }
    folder_ = name;
}

ToolTest::~ToolTest() {
    std::error_code nothingLeft;
    std::filesystem::remove_all(folder_, nothingLeft);
}

std::filesystem::path ToolTest::Write(const std::string& name, const std::string& text) const {
    const std::filesystem::path file = folder_ / name;
    std::ofstream(file, std::ios::binary) << text;
    return file;
}

std::string ToolTest::Read(const std::filesystem::path& file) {
    std::ostringstream text;
    text << std::ifstream(file, std::ios::binary).rdbuf();
    return text.str();
}

IPEICAGridTransform ShiftGrid(int inputWidth, int inputHeight, float x, float y) {
    IPEICAGridTransform grid{};
    grid.gridTransformEnable = 1;
    grid.dumpValue0 = static_cast<uint32_t>(inputWidth);
    grid.dumpValue1 = static_cast<uint32_t>(inputHeight);
    GridPoint* point = grid.gridTransformArray;
    for (int row = -1; row < 26; row++) {
        for (int column = -1; column < 34; column++) {
            const float u = static_cast<float>(column) / 32.0F - 0.5F;
            const float v = static_cast<float>(row) / 24.0F - 0.5F;
            *point++ = {static_cast<float>(inputWidth) * u + x, static_cast<float>(inputHeight) * v + y};
        }
    }
    return grid;
}

std::string GridLine(uint64_t requestId, const IPEICAGridTransform& grid) {
    std::ostringstream line;
    desk::WriteDumpLine(line, desk::DumpKind::Grid, desk::ToDumpLine(requestId, grid));
    return line.str();
}

std::vector<std::string> CleanLines(int count) {
    std::vector<std::string> lines;
    for (int i = 0; i < count; i++) {
        const auto sway = static_cast<float>(5 * std::sin(0.4 * i));
        lines.push_back(GridLine(static_cast<uint64_t>(i) + 1, ShiftGrid(400, 300, sway, sway / 2)));
    }
    return lines;
}
