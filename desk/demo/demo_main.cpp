#include <fmt/format.h>
#include <unistd.h>

#include <cstdio>
#include <exception>
#include <opencv2/imgcodecs.hpp>
#include <optional>
#include <stdexcept>

#include "desk/demo/demo_options.h"
#include "desk/demo/gl_info.h"
#include "desk/demo/report.h"
#include "desk/demo/result_folder.h"
#include "desk/demo/variant_run.h"

namespace desk {
namespace {

const char* FolderOf(Variant variant) {
    return variant == Variant::LookAhead ? "lookahead" : "realtime";
}

cv::Mat ReadPhoto(const std::filesystem::path& file) {
    const cv::Mat photo = cv::imread(file.string(), cv::IMREAD_COLOR);
    if (photo.empty()) {
        throw std::runtime_error(fmt::format(
            "{} cannot be read as a picture; pass one with --photo (the default photo is in Debian's "
            "lomiri-wallpapers-16.04)",
            file.string()));
    }
    return photo;
}

/// One line that counts up on a terminal; a line for every quarter elsewhere.
void ShowProgress(Variant variant, int done, int all) {
    const bool terminal = isatty(STDERR_FILENO) == 1;
    const bool quarter = done * 4 / all != (done - 1) * 4 / all;
    if (terminal || quarter) {
        fmt::print(stderr, "{}{}: frame {} of {}{}", terminal ? "\r" : "", NameOf(variant), done, all,
                   terminal && done < all ? "" : "\n");
    }
}

void PrintSummary(Variant variant, const VariantResult& result) {
    fmt::print(
        "{}: motion {:.2f} -> {:.3f} px RMS, PSNR luma {:.2f} dB, chroma {:.2f} dB, node call {:.1f} ms "
        "(p95 {:.1f}), {} findings\n",
        NameOf(variant), result.motionBefore, result.motionAfter, result.lumaPsnr, result.chromaPsnr,
        result.nodeCall.p50, result.nodeCall.p95, result.findings.size());
}

/// Returns whether every variant kept its limits.
bool RunDemo(const DemoOptions& options) {
    const cv::Mat photo = ReadPhoto(options.photo.file);
    const std::string renderer = DescribeGl(DEMO_SYSTEM_LIBRARY_DIR).renderer;
    bool kept = true;
    for (const Variant variant : {Variant::RealTime, Variant::LookAhead}) {
        ResultFolder folder(options.out / FolderOf(variant));
        const auto progress = [&](int done) { ShowProgress(variant, done, options.frames); };
        VariantResult result = RunVariant(options, variant, photo, folder.Work(), progress);
        result.renderer = renderer;
        WriteReport(folder.Work() / "report.json", options, variant, result);
        folder.Publish();
        PrintSummary(variant, result);
        for (const std::string& missed : MissedLimits(result)) {
            fmt::print(stderr, "dewarp-demo: {}: {}\n", NameOf(variant), missed);
            kept = false;
        }
    }
    fmt::print("Look at before_after.jpg, shaky.mp4, stabilised.mp4 and report.json in {} and {}\n",
               (options.out / FolderOf(Variant::RealTime)).string(),
               (options.out / FolderOf(Variant::LookAhead)).string());
    return kept;
}

}  // namespace
}  // namespace desk

int main(int argc, char** argv) {
    try {
        int exitStatus = 0;
        const std::optional<desk::DemoOptions> options = desk::ReadDemoOptions(argc, argv, exitStatus);
        if (options) {
            exitStatus = desk::RunDemo(*options) ? 0 : 1;
        }
        return exitStatus;
    } catch (const std::exception& error) {
        fmt::print(stderr, "dewarp-demo: {}\n", error.what());
        return 1;
    }
}
