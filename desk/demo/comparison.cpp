#include "desk/demo/comparison.h"

#include <fmt/format.h>

#include <opencv2/imgcodecs.hpp>
#include <stdexcept>
#include <string>

namespace desk {

Comparison::Comparison(const DemoOptions& options, const std::filesystem::path& folder)
    : options_(options),
      folder_(folder),
      shakyClip_(folder / "shaky.mp4", options.output, options.framesPerSecond),
      steadyClip_(folder / "stabilised.mp4", options.output, options.framesPerSecond) {}

void Comparison::Add(const Nv12& input, const Nv12& output, const Nv12& ideal) {
    const cv::Point corner((input.luma.cols - options_.output.width) / 2,
                           (input.luma.rows - options_.output.height) / 2);
    const cv::Rect centre(corner, options_.output);
    const cv::Mat shaky = ReadNv12(input)(centre);
    const cv::Mat steady = ReadNv12(output);
    shakyClip_.Add(shaky);
    steadyClip_.Add(steady);
    shakyExposure_.Add(shaky);
    steadyExposure_.Add(steady);
    shakyMotion_.Add(input.luma(centre));
    steadyMotion_.Add(output.luma);
    luma_.Add(output.luma, ideal.luma);
    chroma_.Add(output.chroma, ideal.chroma);
}

void Comparison::Finish(VariantResult& result) {
    shakyClip_.Finish();
    steadyClip_.Finish();
    result.motionBefore = shakyMotion_.Rms();
    result.motionAfter = steadyMotion_.Rms();
    result.lumaPsnr = luma_.All();
    result.lumaPsnrWorst = luma_.Worst();
    result.chromaPsnr = chroma_.All();
    result.chromaPsnrWorst = chroma_.Worst();
    WriteBeforeAfter(result);
}

void Comparison::WriteBeforeAfter(const VariantResult& result) const {
    const auto caption = [this](const char* when, double motion) {
        return fmt::format("{}: {} frames laid over one another, motion {:.2f} px RMS", when, options_.frames,
                           motion);
    };
    const std::string credit =
        fmt::format("Photo {} by {}, licence {}; cropped, scaled and moved along a simulated hand shake",
                    options_.photo.file.filename().string(), options_.photo.author, options_.photo.licence);
    const cv::Mat picture =
        BeforeAfter({shakyExposure_.Mean(), caption("before", result.motionBefore)},
                    {steadyExposure_.Mean(), caption("after", result.motionAfter)}, credit);
    const std::filesystem::path file = folder_ / "before_after.jpg";
    if (!cv::imwrite(file.string(), picture, {cv::IMWRITE_JPEG_QUALITY, 90})) {
        throw std::runtime_error(fmt::format("{} cannot be written", file.string()));
    }
}

}  // namespace desk
