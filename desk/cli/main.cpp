#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <clocale>
#include <csignal>
#include <cstdio>
#include <exception>
#include <new>
#include <numeric>
#include <stdexcept>
#include <vector>

#include "desk/base/usage_error.h"
#include "desk/cli/commands.h"
#include "desk/output/output.h"
#include "desk/output/say.h"
#include "desk/run/node_library.h"

namespace desk {
namespace {

using AddCommandTo = void (*)(CLI::App&, int&);
constexpr AddCommandTo Commands[] = {AddStabilise, AddReplay, AddInspect, AddVerify, AddDiff, AddSynth};

/// How many letters of a word have to go, come or change to make it the other one.
size_t Distance(const std::string& word, const std::string& other) {
    std::vector<size_t> row(other.size() + 1);
    std::iota(row.begin(), row.end(), size_t{0});
    for (const char letter : word) {
        size_t corner = row[0]++;
        for (size_t i = 0; i < other.size(); i++) {
            const size_t above = row[i + 1];
            row[i + 1] = std::min({above + 1, row[i] + 1, corner + (letter == other[i] ? 0 : 1)});
            corner = above;
        }
    }
    return row.back();
}

/// What was probably meant by a word that nobody knows: one of which at most a third is different.
std::string Hint(const CLI::App& app, const std::string& unknown) {
    const std::vector<CLI::App*> named = app.get_subcommands();
    std::vector<std::string> known;
    for (const CLI::Option* option : (named.empty() ? app : *named.front()).get_options()) {
        known.push_back(option->get_name());
    }
    for (const CLI::App* command : app.get_subcommands([&](const CLI::App*) { return named.empty(); })) {
        known.push_back(command->get_name());
    }
    const std::string word = unknown.substr(0, unknown.find('='));
    const auto nearest = std::min_element(known.begin(), known.end(), [&](const auto& a, const auto& b) {
        return Distance(word, a) < Distance(word, b);
    });
    return Distance(word, *nearest) <= word.size() / 3 ? fmt::format("; did you mean {}?", *nearest) : "";
}

/// What is wrong with the command line.
std::string Text(const CLI::App& app, const CLI::ParseError& error) {
    const std::vector<std::string> unknown = app.remaining(true);
    const std::string name = unknown.empty() ? "" : unknown.front();
    if (dynamic_cast<const CLI::ExtrasError*>(&error) != nullptr) {
        return error.what() + Hint(app, name);
    }
    if (app.get_subcommands().empty() && dynamic_cast<const CLI::RequiredError*>(&error) != nullptr) {
        return (name.empty() ? "" : fmt::format("{} is no command{}; ", name, Hint(app, name))) +
               "expected a command: stabilise, replay, inspect, verify, diff or synth";
    }
    return error.what() + (name.empty() ? "" : fmt::format("; {} is not expected{}", name, Hint(app, name)));
}

/// What somebody has to know who reports a fault of the program or of a node. Throws as NodeLibrary and
/// OpenHost do.
std::string Version(const std::filesystem::path& named) {
    const std::filesystem::path library = NodeLibrary(named);
    const std::unique_ptr<DeskHost> host = OpenHost(library, "", nullptr, 0);
    std::string gl;
    try {
        const std::unique_ptr<DeskNode> node = host->CreateNode(Variant::RealTime);
        const DeskGlCounters counters = host->Counters().gl.value_or(DeskGlCounters{});
        gl = fmt::format("{}, {}", counters.renderer, counters.version);
    } catch (const NodeError& error) {
        gl = fmt::format("none ({})", error.what());
    }
    const std::string id = BuildId(library);
    return fmt::format("dewarp-desk {}\nnode library {}, build id {}\nGL {}", DEWARP_VERSION,
                       Shown(library.string()), id.empty() ? "none" : id, Shown(gl));
}

int Run(int argc, char** argv) {
    CLI::App app(
        "Runs the dewarp node without a device: on clips, on a device's dump files, on your own grids.",
        "dewarp-desk");
    app.require_subcommand(1);
    int status = Done;
    for (const AddCommandTo add : Commands) {
        add(app, status);
    }
    std::filesystem::path library;
    CLI::Option* const named = AddLibrary(app, library);
    named->needs(app.set_version_flag(
        "--version", [&library] { return Version(library); },
        "the versions of program, node library and GL"));
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() != 0) {
            throw UsageError(Text(app, error));
        }
        app.exit(error);
    }
    // What was told on stdout has to arrive there.
    const bool hasFailed = std::ferror(stdout) != 0;
    if (std::fflush(stdout) != 0 || hasFailed) {
        throw std::runtime_error("stdout cannot be written: " + ReasonText(errno));
    }
    return status;
}

/// Files that the run opens must not get the numbers of streams that its caller closed. Writing to such a
/// stdout has to fail; what goes to such a stderr nobody wants.
void HoldStreams() {
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (fcntl(stream, F_GETFD) == -1) {
            static_cast<void>(open("/dev/null", stream == STDERR_FILENO ? O_WRONLY : O_RDONLY));
        }
    }
}

int Fail(ExitCode code, const std::exception& error) {
    const auto* picture = dynamic_cast<const cv::Exception*>(&error);
    const bool isMemory = dynamic_cast<const std::bad_alloc*>(&error) != nullptr ||
                          (picture != nullptr && picture->code == cv::Error::StsNoMem);
    Say(stderr, "dewarp-desk: {}", isMemory ? "the memory is used up; expected more of it" : error.what());
    return code;
}

}  // namespace
}  // namespace desk

int main(int argc, char** argv) {
    desk::HoldStreams();
    static_cast<void>(std::signal(SIGPIPE, SIG_IGN));  // a reader of stdout that has gone is a failed write
    static_cast<void>(std::setlocale(LC_CTYPE, "C.UTF-8"));  // what Shown takes for a character
    try {
        return desk::Run(argc, argv);
    } catch (const desk::UsageError& error) {
        return desk::Fail(desk::WrongUse, error);
    } catch (const std::exception& error) {
        return desk::Fail(desk::WrongEnvironment, error);
    }
}
