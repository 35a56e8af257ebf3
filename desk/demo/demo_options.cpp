#include "desk/demo/demo_options.h"

#include <CLI/CLI.hpp>
#include <sstream>

namespace desk {
namespace {

// Sharp detail everywhere, and large enough for a 1080p output.
const PhotoSource DefaultPhoto = {"/usr/share/backgrounds/life_by_Aitzol_Berasategi.jpg", "Aitzol Berasategi",
                                  "CC-BY-4.0"};

/// Two numbers with the separator between them, and nothing else.
template <typename Number>
bool ReadPair(const std::string& text, char separator, Number& first, Number& second) {
    std::istringstream in(text);
    char between = 0;
    return in >> first >> between >> second && between == separator && in.peek() == EOF;
}

cv::Size ReadSize(const std::string& text) {
    cv::Size size;
    const bool read = ReadPair(text, 'x', size.width, size.height);
    const auto fits = [](int pixels) { return pixels >= 320 && pixels <= 7680 && pixels % 2 == 0; };
    if (!read || !fits(size.width) || !fits(size.height)) {
        throw CLI::ValidationError(
            "--size", "expected WxH with even numbers from 320 to 7680, such as 1920x1080, got " + text);
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

PhotoSource ReadPhoto(const std::string& file, const std::string& credit) {
    if (file.empty() && credit.empty()) {
        return DefaultPhoto;
    }
    if (file.empty()) {
        throw CLI::ValidationError("--credit", "is for the photo given by --photo, and there is none");
    }
    if (credit.empty()) {
        return {file, "unknown", "unknown"};
    }
    const size_t comma = credit.rfind(", ");
    if (comma == std::string::npos) {
        throw CLI::ValidationError("--credit", "expected \"AUTHOR, LICENCE\", got " + credit);
    }
    return {file, credit.substr(0, comma), credit.substr(comma + 2)};
}

/// The command line's texts, as given.
struct Arguments {
    std::string photo;
    std::string credit;
    std::string out = "out/demo";
    std::string size = "1920x1080";
    std::string margin = "0.2";
    int frames = 96;
    uint32_t seed = 1;
    double framesPerSecond = 30;
};

void Declare(CLI::App& app, Arguments& arguments) {
    app.add_option("--photo", arguments.photo,
                   "photograph to film (default: " + DefaultPhoto.file.string() + ")");
    app.add_option("--credit", arguments.credit, "\"AUTHOR, LICENCE\" of the photograph given by --photo");
    app.add_option("--out", arguments.out, "folder for clips, pictures, dumps and reports")
        ->capture_default_str()
        ->take_last();  // scripts/demo.sh names its own, and lets its caller name another
    app.add_option("--size", arguments.size, "output size WxH in pixels")->capture_default_str();
    app.add_option("--margin", arguments.margin,
                   "H[,V]: fractions of the output by which the input is larger")
        ->capture_default_str();
    app.add_option("--frames", arguments.frames, "pictures of each clip")
        ->check(CLI::Range(2, 100000))
        ->capture_default_str();
    app.add_option("--seed", arguments.seed, "number that picks the hand shake")->capture_default_str();
    app.add_option("--fps", arguments.framesPerSecond, "pictures per second")
        ->check(CLI::Range(10.0, 240.0))
        ->capture_default_str();
}

}  // namespace

std::optional<DemoOptions> ReadDemoOptions(int argc, char** argv, int& exitStatus) {
    CLI::App app(
        "Shakes a photograph as a hand would, lets the dewarp node steady the clip, and measures both.");
    Arguments arguments;
    Declare(app, arguments);
    try {
        app.parse(argc, argv);
        return DemoOptions{ReadPhoto(arguments.photo, arguments.credit),
                           arguments.out,
                           ReadSize(arguments.size),
                           ReadMargin(arguments.margin),
                           arguments.frames,
                           arguments.seed,
                           arguments.framesPerSecond};
    } catch (const CLI::ParseError& error) {
        exitStatus = app.exit(error);
        return std::nullopt;
    }
}

}  // namespace desk
