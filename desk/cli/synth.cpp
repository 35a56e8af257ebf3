#include <fmt/format.h>

#include <fstream>
#include <opencv2/imgcodecs.hpp>
#include <optional>

#include "desk/base/usage_error.h"
#include "desk/cli/commands.h"
#include "desk/clip/clip_reader.h"
#include "desk/clip/clip_writer.h"
#include "desk/dump/dump_file.h"
#include "desk/output/output.h"
#include "desk/synth/scene.h"
#include "desk/synth/shaky_camera.h"
#include "desk/warp/sizing.h"
#include "desk/warp/warp_map.h"

namespace desk {
namespace {

struct SynthOptions {
    std::filesystem::path photo;
    FrameRange frames;                      ///< of a clip
    std::optional<double> framesPerSecond;  ///< of what is filmed of a photograph
    std::optional<cv::Size> size;           ///< of the output, pixels
    std::optional<Margin> margin;           ///< fractions of the output
    Shake shake;
    int length = 96;
    std::filesystem::path out;
    std::filesystem::path grids;
    std::filesystem::path truth;
    Encoding encoding;
    ProgressKind progress = ProgressKind::Auto;
    bool overwrite = false;
};

/// What the cameras look at: a photograph, or a clip whose every frame is one.
class World {
public:
    explicit World(const SynthOptions& options)
        : photo_(options.photo == StdStream ? cv::Mat()
                                            : cv::imread(options.photo.string(), cv::IMREAD_COLOR)) {
        const double rate = options.framesPerSecond.value_or(ClipReader::UsualRate);
        if (photo_.empty()) {
            clip_.emplace(options.photo, options.frames, OnDamage::Stop, Orientation::Upright, rate);
            format_ = clip_->Format();
            picture_ = Nv12(format_.size / 2 * 2);
            clip_->TellLosses(picture_.luma.size());
            if (options.framesPerSecond && !std::filesystem::is_directory(options.photo)) {
                throw UsageError(options.photo.string() +
                                 " is a clip and has a rate of its own; expected no --fps with it");
            }
        } else if (options.frames.first > 0 || options.frames.end != FrameRange().end) {
            throw UsageError(options.photo.string() + " is a photograph; expected no --frames with it");
        } else {
            format_.rate = av_d2q(rate, 1000);
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
        if (!clip_) {
            return photo_;
        }
        return clip_->Read(picture_) ? ReadNv12(picture_) : cv::Mat();
    }
    /// Null of a photograph.
    ClipReader* Clip() {
        return clip_ ? &*clip_ : nullptr;
    }

private:
    cv::Mat photo_;
    std::optional<ClipReader> clip_;  ///< none of a photograph
    Nv12 picture_{cv::Size()};        ///< of the clip
    ClipFormat format_;
};

int RunSynth(const SynthOptions& options) {
    CatchInterrupts();
    const cv::Size output = options.size.value_or(cv::Size(1920, 1080));
    const cv::Size input = InputFor(output, options.margin.value_or(Margin{0.2F, 0.2F}));
    World world(options);
    const ShakyCamera camera(options.shake, input, output.height, av_q2d(world.Format().rate));
    camera.RequireRoom(output);
    Output grids(options.grids, Output::Kind::File, options.overwrite);
    ClipWriter shaky(options.out, world.Format(input), options.overwrite, options.encoding, world.Clip());
    ClipWriter truth(options.truth, world.Format(output), options.overwrite, options.encoding, world.Clip());
    std::ofstream lines(grids.Work(), std::ios::binary);
    Progress progress(options.progress, options.length);
    std::optional<Scene> scene;
    Nv12 frame(input);
    Nv12 ideal(output);
    cv::Mat recorded;
    int done = 0;
    for (; done < options.length && !Interrupted(); done++) {
        if (!scene || world.Clip() != nullptr) {
            const cv::Mat picture = world.Next();
            if (picture.empty()) {
                break;
            }
            scene.emplace(picture, input, camera.Reach(input));
            WriteNv12(scene->Still(output), ideal);
        }
        scene->Record([&](double row) { return camera.RowPose(done, row); }, recorded);
        WriteNv12(recorded, frame);
        std::optional<FrameTime> time;
        if (ClipReader* clip = world.Clip(); clip != nullptr) {
            time = clip->Time();
            for (const auto& packet : clip->TakeOthers()) {
                shaky.Take(*packet);
                truth.Take(*packet);
            }
        }
        shaky.Add(frame, time);
        truth.Add(ideal, time);
        WriteGridLine(lines, static_cast<uint64_t>(done) + 1,
                      MakeGrid(input, [&](cv::Point2d q) { return camera.FrameOf(done, q); }));
        progress.Step(done + 1);
    }
    if (!progress.End(done)) {
        return WasInterrupted;
    }
    lines.close();
    if (!lines) {
        throw std::runtime_error(
            fmt::format("{} cannot be written: {}", options.grids.string(), ReasonText(errno)));
    }
    const bool isCutOff = Interrupted() || done == options.length;
    shaky.Complete(isCutOff);
    truth.Complete(isCutOff);
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
    command
        .add_option("--fps", options.framesPerSecond,
                    "frames per second, when PHOTO is no clip or a folder [30]")
        ->check(CLI::Range(1.0, 1000.0));
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

void AddSynth(CLI::App& app, int& status) {
    auto [command, options] = AddCommand<SynthOptions>(
        app, "synth",
        "Makes a shaky clip, the grids that steady it, and the clip of a camera that stands still.",
        "dewarp-desk synth photo.jpg -o shaky.mkv --grids grids.txt --truth truth.mkv --size 1280x720 "
        "--length 120",
        status, RunSynth);
    command.add_option("PHOTO", options.photo, "photograph to film, or a clip")->required()->group(Inputs);
    AddFrames(command, options.frames);
    AddSize(command, options.size);
    AddMargin(command, options.margin);
    AddShakeOptions(command, options);
    AddOutput(command, "-o,--out", MakesClip, options.out, "the shaky clip, as large as the node's input")
        ->required();
    AddOutput(command, "--grids", MakesFile, options.grids, "the grids, as a grid dump")->required();
    AddOutput(command, "--truth", MakesClip, options.truth, "the steady clip, as large as the node's output")
        ->required();
    AddEncoding(command, options.encoding);
    AddProgress(command, options.progress);
}

}  // namespace desk
