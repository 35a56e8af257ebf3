#include <fmt/format.h>

#include <fstream>
#include <memory>
#include <opencv2/imgcodecs.hpp>
#include <optional>

#include "desk/base/usage_error.h"
#include "desk/cli/commands.h"
#include "desk/clip/clip_reader.h"
#include "desk/clip/clip_writer.h"
#include "desk/dump/dump_line.h"
#include "desk/output/output.h"
#include "desk/run/exit_code.h"
#include "desk/run/progress.h"
#include "desk/synth/scene.h"
#include "desk/synth/shaky_camera.h"
#include "desk/warp/sizing.h"
#include "desk/warp/warp_map.h"

namespace desk {
namespace {

struct SynthOptions {
    std::filesystem::path photo;
    FrameRange frames;  ///< of a clip
    double framesPerSecond = 30;
    std::optional<cv::Size> size;  ///< of the output, pixels
    std::optional<Margin> margin;  ///< fractions of the output
    Shake shake;
    int length = 96;
    std::filesystem::path out;
    std::filesystem::path grids;
    std::filesystem::path truth;
    ProgressKind progress = ProgressKind::Auto;
    bool overwrite = false;
};

/// What the cameras look at: a photograph, or a clip whose every frame is one.
class World {
public:
    explicit World(const SynthOptions& options)
        : photo_(cv::imread(options.photo.string(), cv::IMREAD_COLOR)) {
        format_.rateNumerator = static_cast<int>(options.framesPerSecond * 1000);
        format_.rateDenominator = 1000;
        if (photo_.empty()) {
            clip_ = std::make_unique<ClipReader>(options.photo, options.frames);
            format_ = clip_->Format();
        }
    }

    /// Of a clip with frames of this size.
    ClipFormat Format(cv::Size size = {}) const {
        ClipFormat format = format_;
        format.size = size;
        return format;
    }

    /// The next picture, 8-bit BGR; empty at the clip's end.
    cv::Mat Next() {
        if (clip_ == nullptr) {
            return photo_;
        }
        Nv12 picture(clip_->Format().size / 2 * 2);
        return clip_->Read(picture) ? ReadNv12(picture) : cv::Mat();
    }
    bool StandsStill() const {
        return clip_ == nullptr;
    }

private:
    cv::Mat photo_;
    std::unique_ptr<ClipReader> clip_;
    ClipFormat format_;
};

int RunSynth(const SynthOptions& options) {
    const cv::Size output = options.size.value_or(cv::Size(1920, 1080));
    const cv::Size input = InputFor(output, options.margin.value_or(Margin{0.2F, 0.2F}));
    World world(options);
    const ShakyCamera camera(options.shake, input, output.height, world.Format().FramesPerSecond());
    camera.RequireRoom(output);
    Output grids(options.grids, Output::Kind::File, options.overwrite);
    ClipWriter shaky(options.out, world.Format(input), options.overwrite);
    ClipWriter truth(options.truth, world.Format(output), options.overwrite);
    std::ofstream lines(grids.Work(), std::ios::binary);
    Progress progress(options.progress, options.length);
    std::optional<Scene> scene;
    Nv12 frame(input);
    Nv12 ideal(output);
    cv::Mat recorded;
    int done = 0;
    for (; done < options.length && !Interrupted(); done++) {
        if (!scene || !world.StandsStill()) {
            const cv::Mat picture = world.Next();
            if (picture.empty()) {
                break;
            }
            scene.emplace(picture, input, camera.Reach(input));
            WriteNv12(scene->Still(output), ideal);
        }
        scene->Record([&](double row) { return camera.RowPose(done, row); }, recorded);
        WriteNv12(recorded, frame);
        shaky.Add(frame);
        truth.Add(ideal);
        WriteGridLine(lines, static_cast<uint64_t>(done) + 1,
                      MakeGrid(input, [&](cv::Point2d q) { return camera.FrameOf(done, q); }));
        progress.Step(done + 1);
    }
    progress.Finish(done);
    if (InterruptedAtOnce(done)) {
        return WasInterrupted;
    }
    lines.close();
    if (!lines) {
        throw std::runtime_error(
            fmt::format("{} cannot be written: {}", options.grids.string(), ReasonText(errno)));
    }
    shaky.Complete();
    truth.Complete();
    shaky.Publish();
    truth.Publish();
    grids.Publish();
    return Interrupted() ? WasInterrupted : Done;
}

void AddShakeOptions(CLI::App& command, SynthOptions& options) {
    command.add_option("--seed", options.shake.seed, "number that picks the hand shake")
        ->capture_default_str();
    command.add_option("--length", options.length, "frames to make")
        ->check(CLI::Range(1, 1000000))
        ->capture_default_str();
    command.add_option("--fps", options.framesPerSecond, "frames per second, when PHOTO is no clip")
        ->check(CLI::Range(1.0, 1000.0))
        ->capture_default_str();
    command
        .add_option("--shake", options.shake.strength,
                    "strength of the shake; 1 is a hand that tries to hold still")
        ->check(CLI::Range(0.0, 10.0))
        ->capture_default_str();
    command
        .add_option("--rolling-shutter", options.shake.readout,
                    "share of the frame interval in which the camera reads its rows, one after the other")
        ->check(CLI::Range(0.0, 1.0))
        ->capture_default_str();
}

}  // namespace

void AddSynth(CLI::App& app, ChosenCommand& chosen) {
    CLI::App& command = AddCommand(
        app, "synth",
        "Makes a shaky clip, the grids that steady it, and the clip of a camera that stands still.",
        "dewarp-desk synth photo.jpg -o shaky.mkv --grids grids.txt --truth truth.mkv --size 1280x720 "
        "--length 120");
    const auto options = std::make_shared<SynthOptions>();
    command.add_option("PHOTO", options->photo, "photograph to film, or a clip")->required()->group(Inputs);
    AddFrames(command, options->frames);
    AddSize(command, options->size);
    AddMargin(command, options->margin);
    AddShakeOptions(command, *options);
    AddOutput(command, "-o,--out", Makes::Clip, options->out, "the shaky clip, as large as the node's input")
        ->required();
    AddOutput(command, "--grids", Makes::File, options->grids, "the grids, as a grid dump")->required();
    AddOutput(command, "--truth", Makes::Clip, options->truth,
              "the steady clip, as large as the node's output")
        ->required();
    AddProgress(command, options->progress);
    AddOverwrite(command, options->overwrite);
    command.callback([&chosen, options] { chosen = [options] { return RunSynth(*options); }; });
}

}  // namespace desk
