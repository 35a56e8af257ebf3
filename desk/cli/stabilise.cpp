#include <algorithm>
#include <cmath>
#include <optional>

#include "desk/base/usage_error.h"
#include "desk/cli/commands.h"
#include "desk/motion/motion_estimator.h"
#include "desk/motion/steady_camera.h"
#include "desk/output/say.h"
#include "desk/run/memory.h"

namespace desk {
namespace {

struct StabiliseOptions : RunOptions {
    StabiliseOptions() {
        variant = Variant::LookAhead;  // a clip's frames that are still to come are known
        orientation = Orientation::Upright;
    }

    std::optional<size_t> window;  ///< frames that the look-ahead node sees ahead
    std::optional<cv::Size> size;  ///< of the output, pixels
    std::optional<Margin> margin;  ///< fractions of the output
    std::string zoom = "none";     ///< or "fill"
};

/// Without --size no pixel of the clip is scaled: the output is what the margin leaves of it. To fill the
/// clip's size the frames are scaled up to the input that the node then asks for, and not by its grid: the
/// scaler's filter is longer than the two samples that a GPU reads each way.
NodeSizing ChooseSizing(const StabiliseOptions& options, cv::Size clip) {
    constexpr float UsualMargin = 0.2F;
    const Margin margin = options.margin.value_or(Margin{UsualMargin, UsualMargin});
    if (options.size || options.zoom == "fill") {
        return {options.size.value_or(clip / 2 * 2), margin};
    }
    const auto left = [](int pixels, float fraction) {
        const int pairs = pixels / 2;
        return 2 * std::max(1, static_cast<int>(std::lround(static_cast<float>(pairs) / (1 + fraction))));
    };
    const cv::Size output(left(clip.width, margin.horizontal), left(clip.height, margin.vertical));
    return {output, MarginFor(clip / 2 * 2, output)};
}

CameraResult ResultOf(const FramePose& pose, const FramePose& last) {
    return {pose.shift.real(), pose.shift.imag(), pose.turn.imag(), pose.turn.real(),
            std::abs(pose.shift - last.shift)};
}

/// The window that is usual, or one as long as the memory allows, which is then told.
size_t WindowThatFits(const StabiliseOptions& options, cv::Size input) {
    constexpr int64_t UsualWindow = 30;
    const int64_t most = HeldFramesThatFit(input, options.inFlight);
    if (most < 1 || most >= UsualWindow) {
        return UsualWindow;
    }
    Say(stderr, "dewarp-desk: the memory is short for a window of {} frames of {} x {}; it is {}",
        UsualWindow, input.width, input.height, most);
    return static_cast<size_t>(most);
}

/// Every frame is read and its motion estimated, and `window` frames later it is shown from where the steady
/// camera then looks.
int RunStabilise(const StabiliseOptions& options) {
    if (options.window && options.variant != Variant::LookAhead) {
        throw UsageError("--window is of the look-ahead node; expected no --variant realtime with it");
    }
    CatchInterrupts();
    ClipReader reader = options.Open(options.clip);
    const NodeSizing sizing = ChooseSizing(options, reader.Format().size);
    const cv::Size input = InputFor(sizing.output, sizing.margin);
    const size_t window = options.variant != Variant::LookAhead ? 0
                          : options.window                      ? *options.window
                                                                : WindowThatFits(options, input);
    Pipeline pipeline("stabilise", options, reader, sizing, window);
    MotionEstimator motion;
    SteadyCamera camera(options.variant, static_cast<int64_t>(window), input, sizing.output);
    std::optional<SteadyCamera::View> last;
    const auto show = [&] {
        const SteadyCamera::View view = camera.Next();
        last = last.value_or(view);
        pipeline.Show(static_cast<uint64_t>(pipeline.Next() + 1), view.grid,
                      {{ResultOf(view.shaky, last->shaky), ResultOf(view.steady, last->steady)}});
        last = view;
    };
    while (pipeline.Read()) {
        {
            const StageTimer timer(pipeline.Results(), Stage::Estimate);
            camera.Add(motion.Add(pipeline.Newest().luma));
        }
        if (pipeline.Held() > window) {
            show();
        }
    }
    while (pipeline.Held() > 0 && !Interrupted()) {
        show();
    }
    return pipeline.Finish();
}

}  // namespace

void AddStabilise(CLI::App& app, int& status) {
    auto [command, options] = AddCommand<StabiliseOptions>(
        app, "stabilise", "Steadies a clip through the node.",
        "dewarp-desk stabilise walk.mp4 -o steady.mp4 --zoom fill --compare both.mp4", status, RunStabilise);
    command
        .add_option("CLIP", options.clip, "any clip that FFmpeg reads, a folder of pictures, or - for stdin")
        ->required()
        ->group(Inputs);
    command.add_option("--window", options.window, "frames that the look-ahead node sees ahead [30]")
        ->check(CLI::Range(1, 300));
    AddSize(command, options.size);
    command.add_option("--zoom", options.zoom, "fill: the steady picture gets the size of the clip's")
        ->check(CLI::IsMember({"none", "fill"}))
        ->capture_default_str()
        ->excludes("--size");
    AddMargin(command, options.margin);
    AddNodeOptions(command, options);
    AddRecordingOptions(command, options);
}

}  // namespace desk
