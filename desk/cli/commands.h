#pragma once

#include <CLI/CLI.hpp>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "desk/options/options.h"
#include "desk/run/pipeline.h"

namespace desk {

// Each adds its subcommand, which runs when it is the one that was named and leaves the program's exit code
// in `status`.
void AddStabilise(CLI::App& app, int& status);
void AddReplay(CLI::App& app, int& status);
void AddInspect(CLI::App& app, int& status);
void AddVerify(CLI::App& app, int& status);
void AddDiff(CLI::App& app, int& status);
void AddSynth(CLI::App& app, int& status);

/// Adds a subcommand with -y and its example, which is shown below the help, and has it call `run` with its
/// options when everything on the command line is in order. Returns the subcommand and the options, which it
/// owns and which are still to be added to it.
template <typename Options, typename Run>
std::pair<CLI::App&, Options&> AddCommand(CLI::App& app, const std::string& name,
                                          const std::string& description, const std::string& example,
                                          int& status, Run run) {
    CLI::App& command = *app.add_subcommand(name, description);
    command.footer("Example:\n  " + example);
    const auto options = std::make_shared<Options>();
    command.add_flag("-y,--overwrite", options->overwrite, "replace what exists");
    command.callback([&command, &status, options, run] {
        RequireOutputs(command);
        status = run(*options);
    });
    return {command, *options};
}

}  // namespace desk
