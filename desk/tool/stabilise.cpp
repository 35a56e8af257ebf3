#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <memory>

#include "desk/tool/clip_reader.h"
#include "desk/tool/commands.h"
#include "desk/tool/errors.h"
#include "desk/tool/motion_estimator.h"
#include "desk/tool/pipeline.h"
#include "desk/tool/progress.h"
#include "desk/tool/run_output.h"
#include "desk/tool/smoother.h"
#include "desk/tool/steady_view.h"

namespace desk {
namespace {

constexpr float UsualMargin = 0.2F;
constexpr int64_t SpareBuffers = 4;

struct StabiliseOptions {
    CommonOptions common;
    std::filesystem::path clip;
    std::filesystem::path out;
    int64_t window = 30;
};

struct Sizing {
    cv::Size output;
    Margin margin;
};

/// Without --size no pixel of the clip is scaled: the output is what the margin leaves of it.
Sizing ChooseSizing(const CommonOptions& options, cv::Size clip) {
    const Margin margin = options.margin.value_or(Margin{UsualMargin, UsualMargin});
    if (options.size) {
        return {*options.size, margin};
    }
    const auto left = [](int pixels, float fraction) {
        return std::max(2,
                        2 * static_cast<int>(std::lround(static_cast<float>(pixels / 2) / (1 + fraction))));
    };
    const cv::Size even = clip / 2 * 2;
    const cv::Size output(left(clip.width, margin.horizontal), left(clip.height, margin.vertical));
    return {output, MarginFor(even, output)};
}

/// One clip on its way: every frame is read and its motion estimated, and `window` frames later it is shown
/// from where the steady camera then looks.
class Stabiliser {
public:
    Stabiliser(const StabiliseOptions& options, ClipReader& reader, RunResults& results)
        : window_(options.common.variant == Variant::LookAhead ? options.window : 0),
          first_(options.common.frames.first),
          reader_(reader),
          results_(results),
          sizing_(ChooseSizing(options.common, reader.Format().size)),
          pipeline_(options.common, sizing_.output, sizing_.margin, window_ + SpareBuffers, results),
          path_(2 * window_ + SpareBuffers),
          view_(path_, pipeline_.InputSize(), pipeline_.OutputSize()),
          smoother_(options.common.variant, window_, path_, view_) {}

    cv::Size OutputSize() const {
        return pipeline_.OutputSize();
    }

    /// Takes the next frame in. False at the clip's end.
    bool Read() {
        Nv12 picture = pipeline_.Input(path_.Frames());
        {
            const StageTimer timer(results_, "read");
            if (!reader_.Read(picture)) {
                return false;
            }
        }
        const StageTimer timer(results_, "estimate");
        path_.Add(motion_.Add(picture.luma));
        return true;
    }

    bool HasWholeWindow() const {
        return path_.Frames() - shown_ > window_;
    }
    bool HasFrame() const {
        return path_.Frames() > shown_;
    }

    /// Gives the next frame out.
    void Show(RunOutput& output) {
        const CameraPlace steady = smoother_.Next();
        const IPEICAGridTransform grid = view_.Grid(shown_, steady);
        const auto requestId = static_cast<uint64_t>(first_ + shown_ + 1);
        const Nv12 shown = pipeline_.Render(shown_, requestId, grid);
        FrameRecord& record = results_.frames.back();
        record.frame += first_;
        record.before = path_.At(shown_);
        record.after = steady;
        output.Add(pipeline_.Input(shown_), shown);
        shown_++;
    }

    int64_t Shown() const {
        return shown_;
    }
    void Finish() {
        pipeline_.Finish();
    }

private:
    int64_t window_;
    int64_t first_;
    int64_t shown_ = 0;
    ClipReader& reader_;
    RunResults& results_;
    Sizing sizing_;
    Pipeline pipeline_;
    MotionEstimator motion_;
    CameraPath path_;
    SteadyView view_;
    Smoother smoother_;
};

int RunStabilise(const StabiliseOptions& options) {
    RunResults results;
    results.command = "stabilise";
    results.clip = options.clip.string();
    ClipReader reader(options.clip, options.common.frames);
    Stabiliser stabiliser(options, reader, results);
    ClipFormat format = reader.Format();
    format.size = stabiliser.OutputSize();
    RunOutput output(options.common, options.out, format, results);
    Progress progress(options.common.progress, reader.ExpectedFrames());
    const auto show = [&] {
        stabiliser.Show(output);
        progress.Step(stabiliser.Shown());
    };
    while (!Interrupted() && stabiliser.Read()) {
        if (stabiliser.HasWholeWindow()) {
            show();
        }
    }
    while (stabiliser.HasFrame()) {
        show();
    }
    progress.Finish(stabiliser.Shown());
    stabiliser.Finish();
    output.Finish();
    return FinishedCode(results);
}

}  // namespace

void AddStabilise(CLI::App& app, ChosenCommand& chosen) {
    CLI::App& command =
        AddCommand(app, "stabilise", "Steadies a clip through the node.",
                   "dewarp-desk stabilise walk.mp4 -o steady.mp4 --variant lookahead --compare");
    const auto options = std::make_shared<StabiliseOptions>();
    command.add_option("CLIP", options->clip, "any clip that FFmpeg reads, or a folder of pictures")
        ->required();
    command.add_option("-o,--out", options->out, "clip to write: .mp4, .mkv, .y4m, or a folder")->required();
    command.add_option("--window", options->window, "frames that the look-ahead node sees ahead")
        ->check(CLI::Range(1, 300))
        ->capture_default_str();
    AddCommonOptions(command, options->common);
    command.callback([&chosen, options] { chosen = [options] { return RunStabilise(*options); }; });
}

}  // namespace desk
