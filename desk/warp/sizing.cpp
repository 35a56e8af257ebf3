#include "desk/warp/sizing.h"

#include <fmt/format.h>

#include <cmath>
#include <limits>

#include "desk/base/usage_error.h"

namespace desk {
namespace {

/// What the node makes of one direction: the output widened by the margin, both rounded down to even numbers.
int Widened(int output, float margin) {
    const auto even = [](int pixels) { return pixels - pixels % 2; };
    return even(output) + even(static_cast<int>(static_cast<float>(output) * margin));
}

float MarginFor(const char* direction, int input, int output) {
    if (input % 2 != 0 || input < output) {
        throw UsageError(
            fmt::format("the clip is {} pixels {}, and no margin makes the node ask for that with an output "
                        "of {}; expected an even number, and no less than the output's",
                        input, direction, output));
    }
    float margin = static_cast<float>(input - output) / static_cast<float>(output);
    while (Widened(output, margin) < input) {
        margin = std::nextafter(margin, std::numeric_limits<float>::max());
    }
    return margin;
}

}  // namespace

Margin MarginFor(cv::Size input, cv::Size output) {
    return {MarginFor("wide", input.width, output.width), MarginFor("high", input.height, output.height)};
}

cv::Size InputFor(cv::Size output, Margin margin) {
    return {Widened(output.width, margin.horizontal), Widened(output.height, margin.vertical)};
}

}  // namespace desk
