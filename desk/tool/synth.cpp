#include <fmt/format.h>

#include <fstream>
#include <memory>
#include <opencv2/imgcodecs.hpp>

#include "desk/demo/hand_shake.h"
#include "desk/demo/scene.h"
#include "desk/demo/shaky_camera.h"
#include "desk/demo/warp_grid.h"
#include "desk/tool/clip_reader.h"
#include "desk/tool/clip_writer.h"
#include "desk/tool/commands.h"
#include "desk/tool/dump_file.h"
#include "desk/tool/errors.h"
#include "desk/tool/output_place.h"
#include "desk/tool/pipeline.h"
#include "desk/tool/progress.h"
#include "desk/tool/run_output.h"

namespace desk {
namespace {

struct SynthOptions {
    CommonOptions common;
    std::filesystem::path photo;
    std::filesystem::path out;
    std::filesystem::path grids;
    std::filesystem::path truth;
    uint32_t seed = 1;
    int length = 96;
    double framesPerSecond = 30;
    double shake = 1;
    double readout = ShakyCamera::UsualReadout;
};

/// What the cameras look at: a photograph, or a clip whose every frame is one.
class World {
public:
    explicit World(const SynthOptions& options)
        : photo_(cv::imread(options.photo.string(), cv::IMREAD_COLOR)) {
        format_.rateNumerator = static_cast<int>(options.framesPerSecond * 1000);
        format_.rateDenominator = 1000;
        if (photo_.empty()) {
            clip_ = std::make_unique<ClipReader>(options.photo, options.common.frames);
            format_ = clip_->Format();
        }
    }

    const ClipFormat& Format() const {
        return format_;
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

/// The three things that are made, in step; they appear together.
class Recording {
public:
    Recording(const SynthOptions& options, const ClipFormat& shaky, const ClipFormat& ideal)
        : grids_(options.grids, OutputPlace::Kind::File, options.common.overwrite),
          shaky_(options.out, shaky, options.common.overwrite),
          truth_(options.truth, ideal, options.common.overwrite),
          lines_(grids_.Work(), std::ios::binary) {}

    void Add(uint64_t requestId, const Nv12& frame, const Nv12& ideal, const IPEICAGridTransform& grid) {
        shaky_.Add(frame);
        truth_.Add(ideal);
        WriteDumpLine(lines_, DumpKind::Grid, ToDumpLine(requestId, grid));
    }

    void Finish() {
        lines_.close();
        if (!lines_) {
            throw std::runtime_error(fmt::format("{} cannot be written", grids_.Place().string()));
        }
        shaky_.Finish();
        truth_.Finish();
        grids_.Publish();
    }

private:
    OutputPlace grids_;
    ClipWriter shaky_;
    ClipWriter truth_;
    std::ofstream lines_;
};

int RunSynth(const SynthOptions& options) {
    const cv::Size output = options.common.size.value_or(cv::Size(1920, 1080));
    const cv::Size input = InputFor(output, options.common.margin.value_or(Margin{0.2F, 0.2F}));
    const HandShake shake(options.seed, output.height, options.shake);
    try {
        ShakyCamera::RequireRoom(input, output, shake.Bound());
    } catch (const std::runtime_error& error) {
        throw UsageError(error.what());
    }
    World world(options);
    ClipFormat shakyFormat = world.Format();
    ClipFormat idealFormat = world.Format();
    shakyFormat.size = input;
    idealFormat.size = output;
    const ShakyCamera camera(shake, input, shakyFormat.FramesPerSecond(), options.readout);
    Recording recording(options, shakyFormat, idealFormat);
    Progress progress(options.common.progress, options.length);
    std::unique_ptr<Scene> scene;
    Nv12 frame(input);
    Nv12 ideal(output);
    cv::Mat recorded;
    int done = 0;
    for (; done < options.length && !Interrupted(); done++) {
        if (scene == nullptr || !world.StandsStill()) {
            const cv::Mat picture = world.Next();
            if (picture.empty()) {
                break;
            }
            scene = std::make_unique<Scene>(picture, input, shake.Bound());
            WriteNv12(scene->Still(output), ideal);
        }
        scene->Record(camera, done, recorded);
        WriteNv12(recorded, frame);
        recording.Add(static_cast<uint64_t>(done) + 1, frame, ideal, MakeWarpGrid(camera, done));
        progress.Step(done + 1);
    }
    progress.Finish(done);
    recording.Finish();
    return Interrupted() ? WasInterrupted : Done;
}

void AddShakeOptions(CLI::App& command, SynthOptions& options) {
    command.add_option("--seed", options.seed, "number that picks the hand shake")->capture_default_str();
    command.add_option("--length", options.length, "frames to make")
        ->check(CLI::Range(1, 1000000))
        ->capture_default_str();
    command.add_option("--fps", options.framesPerSecond, "frames per second, when PHOTO is no clip")
        ->check(CLI::Range(1.0, 1000.0))
        ->capture_default_str();
    command
        .add_option("--shake", options.shake, "strength of the shake; 1 is a hand that tries to hold still")
        ->check(CLI::Range(0.0, 10.0))
        ->capture_default_str();
    command
        .add_option("--rolling-shutter", options.readout,
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
    command.add_option("PHOTO", options->photo, "photograph to film, or a clip")->required();
    command.add_option("-o,--out", options->out, "the shaky clip, as large as the node's input")->required();
    command.add_option("--grids", options->grids, "the grids, as a grid dump")->required();
    command.add_option("--truth", options->truth, "the steady clip, as large as the node's output")
        ->required();
    AddShakeOptions(command, *options);
    AddCommonOptions(command, options->common);
    command.callback([&chosen, options] { chosen = [options] { return RunSynth(*options); }; });
}

}  // namespace desk
