#include <fmt/format.h>

#include <exception>

#include "desk/base/usage_error.h"
#include "desk/cli/commands.h"
#include "desk/run/exit_code.h"
#include "desk/run/progress.h"

namespace desk {
namespace {

using AddCommandTo = void (*)(CLI::App&, ChosenCommand&);
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
    ChosenCommand chosen;
    for (const AddCommandTo add : Commands) {
        add(app, chosen);
    }
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? Done : WrongUse;
    }
    RequireOutputs(*app.get_subcommands().front());
    CatchInterrupts();
    return chosen();
}

int Fail(ExitCode code, const std::exception& error) {
    fmt::print(stderr, "dewarp-desk: {}\n", error.what());
    return code;
}

}  // namespace
}  // namespace desk

int main(int argc, char** argv) {
    try {
        return desk::Run(argc, argv);
    } catch (const desk::UsageError& error) {
        return desk::Fail(desk::WrongUse, error);
    } catch (const std::exception& error) {
        return desk::Fail(desk::WrongEnvironment, error);
    }
}
