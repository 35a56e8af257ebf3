#include "desk/options/options.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <sstream>
#include <utility>
#include <vector>

#include "desk/base/usage_error.h"
#include "desk/output/output.h"
#include "desk/report/page.h"

namespace desk {
namespace {

[[noreturn]] void Refuse(const std::string& option, const std::string& expected, const std::string& got) {
    throw CLI::ValidationError(option, fmt::format("expected {}, got {}", expected, got));
}

/// Two values with the separator between them, and nothing else.
template <typename Value>
bool ReadPair(const std::string& text, char separator, Value& first, Value& second) {
    std::istringstream in(text);
    char between = 0;
    return in >> first >> between >> second && between == separator && in.peek() == EOF;
}

/// A value by its name. The help says which it is without the option.
template <typename Value>
void AddChoice(CLI::App& command, const std::string& name, const std::string& description, Value& value,
               const std::vector<std::pair<std::string, Value>>& choices) {
    const auto usual = std::find_if(choices.begin(), choices.end(),
                                    [&value](const auto& choice) { return choice.second == value; });
    command.add_option(name, value, description)
        ->type_name("NAME")
        ->default_str(usual->first)
        ->transform(CLI::Transformer(choices).description(""))
        ->transform(CLI::IsMember(choices));  // the first of the two to look at a name
}

// What the help calls outputs tells RequireOutputs what they are.
constexpr const char* Outputs = "Outputs";
const std::vector<std::string> Stdout = {"-"};

/// What a command makes in the folder that the option names.
std::vector<std::filesystem::path> FilesIn(const CLI::Option& option, const CLI::App& command) {
    std::vector<std::string> names(ReportFiles.begin(), ReportFiles.end());
    if (option.check_lname("dump-dir")) {
        names = {"Warp*.txt"};  // the node's own, of which the whole names are not known before
    } else if (option.check_lname("pictures")) {
        names.clear();
        for (const std::filesystem::path dump : command.get_option("DUMP")->results()) {
            for (const char* ending : PictureEndings) {
                names.push_back(dump.stem().string() + ending);
            }
        }
    }
    std::vector<std::filesystem::path> files;
    for (const std::string& name : names) {
        files.push_back(std::filesystem::path(option.results().back()) / name);
    }
    return files;
}

}  // namespace

CLI::Option* AddOutput(CLI::App& command, const std::string& name, const char* kind,
                       std::filesystem::path& place, const std::string& description) {
    return command.add_option(name, place, description)->group(Outputs)->type_name(kind);
}

CLI::Option* AddSize(CLI::App& command, std::optional<cv::Size>& size) {
    const auto read = [&size](const std::string& text) {
        const auto fits = [](int pixels) { return pixels >= 2 && pixels <= 65536 && pixels % 2 == 0; };
        auto& [width, height] = size.emplace();
        if (!ReadPair(text, 'x', width, height) || !fits(width) || !fits(height)) {
            Refuse("--size", "WxH with even numbers of pixels, such as 1920x1080", text);
        }
    };
    return command.add_option_function<std::string>("--size", read, "WxH: output size in pixels, both even");
}

CLI::Option* AddMargin(CLI::App& command, std::optional<Margin>& margin) {
    const auto read = [&margin](const std::string& text) {
        const auto fits = [](float fraction) { return fraction >= 0 && fraction <= 1; };
        const bool isBoth = text.find(',') != std::string::npos;
        auto& [horizontal, vertical] = margin.emplace();
        if (!ReadPair(isBoth ? text : text + "," + text, ',', horizontal, vertical) || !fits(horizontal) ||
            !fits(vertical)) {
            Refuse("--margin", "H or H,V with fractions from 0 to 1, such as 0.2", text);
        }
    };
    return command.add_option_function<std::string>(
        "--margin", read, "H[,V]: fractions of the output by which the input is larger");
}

void AddFrames(CLI::App& command, FrameRange& frames) {
    const auto read = [&frames](const std::string& text) {
        const std::string open = text.empty() || text.front() == ':' ? "0" + text : text;
        const std::string closed = open.back() == ':' ? open + std::to_string(FrameRange().end) : open;
        if (!ReadPair(closed, ':', frames.first, frames.end) || frames.first < 0 ||
            frames.end <= frames.first) {
            Refuse("--frames", "A:B, the frames A to B - 1 counted from 0, such as 0:100, 50: or :10", text);
        }
    };
    command.add_option_function<std::string>("--frames", read,
                                             "A:B: only the frames A to B - 1, counted from 0");
}

void AddProgress(CLI::App& command, ProgressKind& progress) {
    AddChoice(command, "--progress", "how progress is shown on stderr", progress,
              {{"auto", ProgressKind::Auto},
               {"bar", ProgressKind::Bar},
               {"pipe", ProgressKind::Pipe},
               {"none", ProgressKind::None}});
}

void AddJson(CLI::App& command, std::filesystem::path& json) {
    AddOutput(command, "--json", MakesFile, json, "the results; - for stdout");
}

CLI::Option* AddLibrary(CLI::App& command, std::filesystem::path& library) {
    return command.add_option("--library", library, "another node library than the one beside the program")
        ->group(Inputs);
}

void AddStopOrSkip(CLI::App& command, const std::string& name, const std::string& description,
                   OnDamage& choice) {
    AddChoice<OnDamage>(command, name, description, choice,
                        {{"stop", OnDamage::Stop}, {"skip", OnDamage::Skip}});
}

void AddEncoding(CLI::App& command, Encoding& encoding) {
    command.add_option("--codec", encoding.codec,
                       "encoder of the clips written, such as libx265 [by their name]");
    command.add_option("--crf", encoding.crf, "the encoder's constant quality, lower is better")
        ->check(CLI::Range(0, 63));
}

void AddNodeOptions(CLI::App& command, RunOptions& options) {
    AddChoice<Variant>(command, "--variant", "which node", options.variant,
                       {{"realtime", Variant::RealTime}, {"lookahead", Variant::LookAhead}});
    constexpr size_t Most = 16;
    command
        .add_option("--in-flight", options.inFlight,
                    "requests in the node at a time, each on a thread of its own")
        ->check(CLI::Range(size_t{1}, Most))
        ->capture_default_str();
    AddStopOrSkip(command, "--damaged", "what damage in the clip does to the run", options.onDamage);
    AddLibrary(command, options.library);
    // The host takes a set of bits; a level names all that are at least as grave.
    AddChoice<uint32_t>(
        command, "--log-level", "of the node's log", options.luxBits,
        {{"none", 0}, {"error", 1}, {"warning", 1 | 2}, {"info", 1 | 2 | 8}, {"verbose", 1 | 2 | 8 | 32}});
    AddFrames(command, options.frames);
    command.add_option("--fps", options.folderRate, "frames per second of a folder of pictures [30]")
        ->check(CLI::Range(0.01, 1000.0));
    AddOutput(command, "--dump-dir", MakesFolder, options.dumpDir,
              "for the node's dump files; switches them on");
    AddJson(command, options.json);
    AddOutput(command, "--report", MakesFolder, options.report, "for a report as HTML and JSON");
    AddProgress(command, options.progress);
}

void AddRecordingOptions(CLI::App& command, RunOptions& options) {
    AddOutput(command, "-o,--out", MakesClip, options.out,
              "the output: .mp4, .mov, .mkv, .webm, .y4m, a folder, or - for y4m on stdout")
        ->required();
    AddEncoding(command, options.encoding);
    AddOutput(command, "--before", MakesClip, options.before, "what is seen without the node");
    AddOutput(command, "--compare", MakesClip, options.compare, "before and after side by side");
    auto* const truth =
        command
            .add_option("--truth", options.truth, "clip of the output as it should be, to measure the PSNR")
            ->group(Inputs);
    command.add_option("--max-motion", options.maxMotion,
                       "pixels RMS that the output may move between frames");
    command.add_option("--min-psnr", options.minPsnr, "dB that the output's luma must reach against --truth")
        ->needs(truth);
    command.add_option("--credit", options.credit, "line under the report's picture before and after");
}

void RequireOutputs(const CLI::App& command) {
    const bool overwrite = command.count("--overwrite") > 0;
    std::vector<std::filesystem::path> inputs;
    std::vector<std::filesystem::path> outputs;
    std::vector<std::filesystem::path> tried;  // of them
    size_t onStdout = 0;
    for (const CLI::Option* option : command.get_options()) {
        const std::vector<std::string> names = option->results();
        const std::string kind = option->get_type_name();
        if (option->get_group() == Inputs) {
            inputs.insert(inputs.end(), names.begin(), names.end());
        } else if (option->get_group() == Outputs && names == Stdout) {
            onStdout++;
        } else if (option->get_group() == Outputs && !names.empty()) {
            const std::filesystem::path place = names.back();
            const bool isFolder = kind == MakesFolder;
            RequireFree(place, true);  // what it is; whether it may go is of no account if it is read, too
            const std::vector<std::filesystem::path> made =
                isFolder ? FilesIn(*option, command) : std::vector{place};
            outputs.insert(outputs.end(), made.begin(), made.end());
            if (isFolder ? std::filesystem::is_directory(place) : kind == MakesFile) {
                tried.insert(tried.end(), made.begin(), made.end());
            }
        }
    }
    const CLI::Option* clip = command.get_option_no_throw("CLIP");
    if (clip != nullptr && command.count("--fps") > 0 &&
        !std::filesystem::is_directory(clip->as<std::string>())) {
        throw UsageError(clip->as<std::string>() + " is no folder of pictures; expected no --fps with it");
    }
    if (overwrite && onStdout == 0 && outputs.empty()) {
        throw UsageError("-y replaces outputs; expected one with it");
    }
    if (onStdout > 1) {
        throw UsageError("stdout is named for two outputs; expected - for one of them");
    }
    RequireApart(inputs, outputs);
    for (const std::filesystem::path& output : outputs) {
        RequireFree(output, overwrite);
    }
    for (const std::filesystem::path& file : tried) {
        const Output trial(file, Output::Kind::File, overwrite);
    }
}

}  // namespace desk
