#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <exception>
#include <stdexcept>

#include "desk/base/usage_error.h"
#include "desk/cli/commands.h"
#include "desk/output/output.h"

namespace desk {
namespace {

using AddCommandTo = void (*)(CLI::App&, int&);
constexpr AddCommandTo Commands[] = {AddStabilise, AddReplay, AddInspect, AddVerify, AddDiff, AddSynth};

int Run(int argc, char** argv) {
    CLI::App app(
        "Runs the dewarp node without a device: on clips, on a device's dump files, on your own grids.",
        "dewarp-desk");
    app.require_subcommand(1);
    app.failure_message([](const CLI::App* /*app*/, const CLI::Error& error) {
        const bool isNothingNamed = dynamic_cast<const CLI::RequiredError*>(&error) != nullptr &&
                                    std::string(error.what()).find("subcommand") != std::string::npos;
        return fmt::format("dewarp-desk: {}\n",
                           isNothingNamed
                               ? "expected a command: stabilise, replay, inspect, verify, diff or synth"
                               : error.what());
    });
    int status = Done;
    for (const AddCommandTo add : Commands) {
        add(app, status);
    }
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? Done : WrongUse;
    }
    // What was told on stdout has to arrive there.
    if (std::fflush(stdout) != 0) {
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
    static_cast<void>(std::fputs(fmt::format("dewarp-desk: {}\n", error.what()).c_str(), stderr));
    return code;
}

}  // namespace
}  // namespace desk

int main(int argc, char** argv) {
    desk::HoldStreams();
    try {
        return desk::Run(argc, argv);
    } catch (const desk::UsageError& error) {
        return desk::Fail(desk::WrongUse, error);
    } catch (const std::exception& error) {
        return desk::Fail(desk::WrongEnvironment, error);
    }
}
