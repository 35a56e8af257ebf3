#include "desk/options/options.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <sstream>

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

cv::Size ReadSize(const std::string& text) {
    cv::Size size;
    const auto fits = [](int pixels) { return pixels >= 2 && pixels <= 65536 && pixels % 2 == 0; };
    if (!ReadPair(text, 'x', size.width, size.height) || !fits(size.width) || !fits(size.height)) {
        Refuse("--size", "WxH with even numbers of pixels, such as 1920x1080", text);
    }
    return size;
}

Margin ReadMargin(const std::string& text) {
    Margin margin{};
    const bool isBoth = text.find(',') != std::string::npos;
    const auto fits = [](float fraction) { return fraction >= 0 && fraction <= 1; };
    if (!ReadPair(isBoth ? text : text + "," + text, ',', margin.horizontal, margin.vertical) ||
        !fits(margin.horizontal) || !fits(margin.vertical)) {
        Refuse("--margin", "H or H,V with fractions from 0 to 1, such as 0.2", text);
    }
    return margin;
}

FrameRange ReadFrames(const std::string& text) {
    FrameRange range;
    const std::string open = text.empty() || text.front() == ':' ? "0" + text : text;
    const std::string closed = open.back() == ':' ? open + std::to_string(range.end) : open;
    if (!ReadPair(closed, ':', range.first, range.end) || range.first < 0 || range.end <= range.first) {
        Refuse("--frames", "A:B, the frames A to B - 1 counted from 0, such as 0:100, 50: or :10", text);
    }
    return range;
}

/// An option whose text is read by `read` into `value`.
template <typename Value, typename Read>
void AddText(CLI::App& command, const std::string& name, const std::string& description, Value& value,
             const Read& read) {
    command.add_option_function<std::string>(
        name, [&value, read](const std::string& text) { value = read(text); }, description);
}

template <typename Value>
using Choices = std::vector<std::pair<std::string, Value>>;

/// The description ends in the choices.
template <typename Value>
void AddChoice(CLI::App& command, const std::string& name, const std::string& description, Value& value,
               const Choices<Value>& choices) {
    std::string names;
    for (const auto& choice : choices) {
        names += (names.empty() ? "" : ", ") + choice.first;
    }
    AddText(command, name, description + names, value, [=](const std::string& text) {
        for (const auto& choice : choices) {
            if (choice.first == text) {
                return choice.second;
            }
        }
        Refuse(name, "one of " + names, text);
    });
}

}  // namespace

CLI::App& AddCommand(CLI::App& app, const std::string& name, const std::string& description,
                     const std::string& example) {
    CLI::App& command = *app.add_subcommand(name, description);
    command.footer("Example:\n  " + example);
    return command;
}

void AddCommonOptions(CLI::App& command, CommonOptions& options) {
    AddChoice<Variant>(command, "--variant", "which node [realtime]: ", options.variant,
                       {{"realtime", Variant::RealTime}, {"lookahead", Variant::LookAhead}});
    AddText(command, "--size", "WxH: output size in pixels, both even", options.size, ReadSize);
    AddText(command, "--margin", "H[,V]: fractions of the output by which the input is larger",
            options.margin, ReadMargin);
    AddText(command, "--frames", "A:B: only the frames A to B - 1, counted from 0", options.frames,
            ReadFrames);
    command.add_option("--dump-dir", options.dumpDir, "folder for the node's dump files; switches them on");
    command.add_option("--json", options.json, "file for the results, - for stdout");
    command.add_option("--report", options.report, "folder for a report as HTML and JSON");
    command.add_flag("--compare", options.compare, "write before and after side by side");
    // The host takes a set of bits; a level names all that are at least as grave.
    AddChoice<uint32_t>(
        command, "--log-level", "of the node's log [warning]: ", options.luxBits,
        {{"none", 0}, {"error", 1}, {"warning", 1 | 2}, {"info", 1 | 2 | 8}, {"verbose", 1 | 2 | 8 | 32}});
    AddChoice<ProgressKind>(command, "--progress",
                            "how progress is shown on stderr [auto]: ", options.progress,
                            {{"auto", ProgressKind::Auto},
                             {"bar", ProgressKind::Bar},
                             {"pipe", ProgressKind::Pipe},
                             {"none", ProgressKind::None}});
    command.add_flag("-y,--overwrite", options.overwrite, "replace what exists");
}

void AddNodeOptions(CLI::App& command, RunOptions& options) {
    constexpr size_t Most = 16;
    command
        .add_option("--in-flight", options.inFlight,
                    "requests in the node at a time, each on a thread of its own")
        ->check(CLI::Range(size_t{1}, Most))
        ->capture_default_str();
    AddChoice<OnDamage>(command, "--damaged",
                        "what damage in the clip does to the run [stop]: ", options.onDamage,
                        {{"stop", OnDamage::Stop}, {"skip", OnDamage::Skip}});
}

void AddRecordingOptions(CLI::App& command, RunOptions& options) {
    command.add_option("-o,--out", options.out, "clip to write: .mp4, .mkv, .y4m, or a folder")->required();
    command.add_option("--before", options.before, "clip to write of what is seen without the node");
    auto* const truth = command.add_option("--truth", options.truth,
                                           "clip of the output as it should be, to measure the PSNR");
    command.add_option("--max-motion", options.maxMotion,
                       "pixels RMS that the output may move between frames");
    command.add_option("--min-psnr", options.minPsnr, "dB that the output's luma must reach against --truth")
        ->needs(truth);
    command.add_option("--credit", options.credit, "line under the report's picture before and after");
}

}  // namespace desk
