#pragma once

#include <array>
#include <filesystem>
#include <string>

#include "desk/run/settings.h"

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace desk {

/// The group of options, in the help too, that name what a command reads.
constexpr const char* Inputs = "Inputs";

// Each adds an option, or some that belong together, to a subcommand. What is read into outlives the parsing.

/// What a command makes, as its help says. A folder that it puts files into may hold others.
constexpr const char *MakesFile = "FILE", *MakesClip = "CLIP", *MakesFolder = "FOLDER";
/// What follows a dump's name in those of its pictures.
constexpr std::array<const char*, 2> PictureEndings = {"_mesh.svg", "_margin.svg"};
/// The name of something that the command makes.
CLI::Option* AddOutput(CLI::App& command, const std::string& name, const char* kind,
                       std::filesystem::path& place, const std::string& description);
CLI::Option* AddSize(CLI::App& command, std::optional<cv::Size>& size);
CLI::Option* AddMargin(CLI::App& command, std::optional<Margin>& margin);
void AddFrames(CLI::App& command, FrameRange& frames);
void AddProgress(CLI::App& command, ProgressKind& progress);
void AddJson(CLI::App& command, std::filesystem::path& json);
/// A choice between "stop" and "skip".
void AddStopOrSkip(CLI::App& command, const std::string& name, const std::string& description,
                   OnDamage& choice);
CLI::Option* AddLibrary(CLI::App& command, std::filesystem::path& library);
/// --codec and --crf.
void AddEncoding(CLI::App& command, Encoding& encoding);
/// How a clip goes through the node, and where it is told what came of it.
void AddNodeOptions(CLI::App& command, RunOptions& options);
/// -o, which the command needs, and what else is recorded and measured.
void AddRecordingOptions(CLI::App& command, RunOptions& options);

/// Throws UsageError for --fps with a clip, when an output has the name of an input or of another output, is
/// a device, or may not be overwritten, and what Output throws for a file that cannot be made: it is better
/// known before the run than after it.
void RequireOutputs(const CLI::App& command);

}  // namespace desk
