#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "desk/demo/call_times.h"
#include "desk/demo/demo_options.h"

namespace desk {

/// What one variant's run came to.
struct VariantResult {
    cv::Size input;
    cv::Size output;
    Alignment inputAlignment{};   ///< of the luma plane
    Alignment outputAlignment{};  ///< of the luma plane
    double motionBefore = 0;      ///< pixels RMS between consecutive pictures
    double motionAfter = 0;
    double lumaPsnr = 0;  ///< dB over all pictures
    double lumaPsnrWorst = 0;
    double chromaPsnr = 0;
    double chromaPsnrWorst = 0;
    CallTimes nodeCall;
    std::vector<std::string> findings;  ///< the contract's
    std::string renderer;               ///< of the GL; empty when not known
};

/// One sentence for each limit that the result misses.
std::vector<std::string> MissedLimits(const VariantResult& result);

/// Writes the result as JSON. Throws std::runtime_error.
void WriteReport(const std::filesystem::path& file, const DemoOptions& options, Variant variant,
                 const VariantResult& result);

}  // namespace desk
