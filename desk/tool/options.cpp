#include "desk/tool/options.h"

#include <fmt/format.h>

#include <map>
#include <sstream>
#include <system_error>

#include "desk/tool/errors.h"

namespace desk {
namespace {

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
        throw CLI::ValidationError(
            "--size", "expected WxH with even numbers of pixels, such as 1920x1080, got " + text);
    }
    return size;
}

Margin ReadMargin(const std::string& text) {
    Margin margin{};
    const bool both = text.find(',') != std::string::npos;
    const bool read = ReadPair(both ? text : text + "," + text, ',', margin.horizontal, margin.vertical);
    const auto fits = [](float fraction) { return fraction >= 0 && fraction <= 1; };
    if (!read || !fits(margin.horizontal) || !fits(margin.vertical)) {
        throw CLI::ValidationError("--margin",
                                   "expected H or H,V with fractions from 0 to 1, such as 0.2, got " + text);
    }
    return margin;
}

FrameRange ReadFrames(const std::string& text) {
    FrameRange range;
    const size_t colon = text.find(':');
    const std::string first = text.substr(0, colon);
    const std::string end = colon == std::string::npos ? "" : text.substr(colon + 1);
    const auto read = [](const std::string& number, int64_t& value) {
        return number.empty() || CLI::detail::lexical_cast(number, value);
    };
    if (colon == std::string::npos || !read(first, range.first) || !read(end, range.end) || range.first < 0 ||
        range.end <= range.first) {
        throw CLI::ValidationError(
            "--frames",
            "expected A:B, the frames A to B - 1 counted from 0, such as 0:100, 50: or :10, got " + text);
    }
    return range;
}

/// An option whose text is read by `read` into `value`.
template <typename Value, typename Read>
CLI::Option* AddText(CLI::App& command, const std::string& name, const std::string& description, Value& value,
                     const Read& read) {
    return command.add_option_function<std::string>(
        name, [&value, read](const std::string& text) { value = read(text); }, description);
}

template <typename Value>
CLI::Option* AddChoice(CLI::App& command, const std::string& name, const std::string& description,
                       Value& value, const std::map<std::string, Value>& choices) {
    return command.add_option(name, value, description)
        ->transform(CLI::Transformer(choices, CLI::ignore_case).description(""))
        ->check(CLI::CheckedTransformer(choices, CLI::ignore_case).description(""));
}

}  // namespace

CLI::App& AddCommand(CLI::App& app, const std::string& name, const std::string& description,
                     const std::string& example) {
    CLI::App& command = *app.add_subcommand(name, description);
    command.footer("Example:\n  " + example);
    return command;
}

void AddCommonOptions(CLI::App& command, CommonOptions& options) {
    AddChoice<Variant>(command, "--variant", "realtime or lookahead: which node [realtime]", options.variant,
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
        command, "--log-level", "none, error, warning, info, verbose: of the node's log [warning]",
        options.luxBits,
        {{"none", 0}, {"error", 1}, {"warning", 1 | 2}, {"info", 1 | 2 | 8}, {"verbose", 1 | 2 | 8 | 32}});
    AddChoice<ProgressKind>(command, "--progress",
                            "auto, bar, pipe or none: how progress is shown on stderr [auto]",
                            options.progress,
                            {{"auto", ProgressKind::Auto},
                             {"bar", ProgressKind::Bar},
                             {"pipe", ProgressKind::Pipe},
                             {"none", ProgressKind::None}});
    command.add_flag("-y,--overwrite", options.overwrite, "replace what exists");
}

void RequireFree(const std::filesystem::path& place, bool overwrite) {
    std::error_code unknown;
    if (!overwrite && std::filesystem::exists(place, unknown)) {
        throw UsageError(fmt::format("{} exists; -y replaces it", place.string()));
    }
}

}  // namespace desk
