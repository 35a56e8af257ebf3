#pragma once

#include <opencv2/core.hpp>

#include "desk/abi/node_types.h"

namespace desk {

/// What a node is set up for.
struct NodeSizing {
    cv::Size output;  ///< pixels, both even
    Margin margin;
};

/// The sizes between which a grid warps, in pixels; zero when they are not known.
struct WarpSizes {
    cv::Size input;
    cv::Size output;

    bool IsKnown() const {
        return !input.empty() && !output.empty();
    }
};

/// The margin with which the node asks for an input of exactly this size. Throws UsageError when there is
/// none: the input is even, and at least as large as the output.
Margin MarginFor(cv::Size input, cv::Size output);

/// The input that the node asks for: both sizes are even.
cv::Size InputFor(cv::Size output, Margin margin);

}  // namespace desk
