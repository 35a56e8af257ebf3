#include "desk/warp/warp_grid.h"

namespace desk {

IPEICAGridTransform MakeGrid(cv::Size input, const std::function<cv::Point2d(cv::Point2d)>& inputOf) {
    IPEICAGridTransform grid{};
    grid.gridTransformEnable = 1;
    grid.dumpValue0 = static_cast<uint32_t>(input.width);
    grid.dumpValue1 = static_cast<uint32_t>(input.height);
    GridPoint* point = grid.gridTransformArray;
    for (int row = -1; row < GridRows - 1; row++) {
        for (int column = -1; column < GridColumns - 1; column++) {
            // The mesh spans the input's size about the output's centre and lies half a texel to the upper
            // left; a grid value g samples the input at index position g - 1/2 from its centre.
            const cv::Point2d q(input.width * (static_cast<double>(column) / CellColumns - 0.5) - 0.5,
                                input.height * (static_cast<double>(row) / CellRows - 0.5) - 0.5);
            const cv::Point2d p = inputOf(q);
            *point++ = {static_cast<float>(p.x + 0.5), static_cast<float>(p.y + 0.5)};
        }
    }
    return grid;
}

}  // namespace desk
