#include <algorithm>
#include <cmath>
#include <optional>

#include "desk/base/usage_error.h"
#include "desk/cli/commands.h"
#include "desk/motion/motion_estimator.h"
#include "desk/motion/steady_camera.h"

namespace desk {
namespace {

struct StabiliseOptions : RunOptions {
    StabiliseOptions() {
        orientation = Orientation::Upright;
    }

    std::optional<size_t> window;  ///< frames that the look-ahead node sees ahead
    std::optional<cv::Size> size;  ///< of the output, pixels
    std::optional<Margin> margin;  ///< fractions of the output
};

/// Without --size no pixel of the clip is scaled: the output is what the margin leaves of it.
NodeSizing ChooseSizing(const StabiliseOptions& options, cv::Size clip) {
    constexpr float UsualMargin = 0.2F;
    const Margin margin = options.margin.value_or(Margin{UsualMargin, UsualMargin});
    if (options.size) {
        return {*options.size, margin};
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

/// Every frame is read and its motion estimated, and `window` frames later it is shown from where the steady
/// camera then looks.
int RunStabilise(const StabiliseOptions& options) {
    constexpr size_t UsualWindow = 30;
    if (options.window && options.variant != Variant::LookAhead) {
        throw UsageError("--window is of the look-ahead node; expected --variant lookahead with it");
    }
    const size_t window = options.variant == Variant::LookAhead ? options.window.value_or(UsualWindow) : 0;
    ClipReader reader = options.Open(options.clip);
    const NodeSizing sizing = ChooseSizing(options, reader.Format().size);
    Pipeline pipeline("stabilise", options, reader, sizing, window);
    MotionEstimator motion;
    SteadyCamera camera(options.variant, static_cast<int64_t>(window), InputFor(sizing.output, sizing.margin),
                        sizing.output);
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
        "dewarp-desk stabilise walk.mp4 -o steady.mp4 --variant lookahead --compare", status, RunStabilise);
    command
        .add_option("CLIP", options.clip, "any clip that FFmpeg reads, a folder of pictures, or - for stdin")
        ->required()
        ->group(Inputs);
    command
        .add_option("--window", options.window,
                    "frames that the look-ahead node sees ahead, with --variant lookahead [30]")
        ->check(CLI::Range(1, 300));
    AddSize(command, options.size);
    AddMargin(command, options.margin);
    AddNodeOptions(command, options);
    AddRecordingOptions(command, options);
}

}  // namespace desk
