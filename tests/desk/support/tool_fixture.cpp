#include "tests/desk/support/tool_fixture.h"

#include <cmath>
#include <cstdlib>
#include <fstream>
#include <opencv2/core/utility.hpp>
#include <sstream>
#include <stdexcept>

#include "desk/dump/dump_line.h"
#include "desk/warp/warp_map.h"

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
    return desk::MakeGrid({inputWidth, inputHeight}, [&](cv::Point2d q) {
        return q + cv::Point2d(static_cast<double>(x), static_cast<double>(y));
    });
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
