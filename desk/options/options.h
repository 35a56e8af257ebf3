#pragma once

#include <functional>
#include <string>

#include "desk/run/settings.h"

namespace CLI {
class App;
}

namespace desk {

/// What the command line asks for; returns the exit code. Set by the subcommand that was named.
using ChosenCommand = std::function<int()>;

/// Adds a subcommand with its example, which is shown below the help.
CLI::App& AddCommand(CLI::App& app, const std::string& name, const std::string& description,
                     const std::string& example);

/// Adds the common options to a subcommand. `options` outlives the parsing.
void AddCommonOptions(CLI::App& command, CommonOptions& options);

/// Adds the options of how frames are driven through the node, likewise.
void AddNodeOptions(CLI::App& command, RunOptions& options);

/// Adds -o, which the command needs, and the options of what is recorded, likewise.
void AddRecordingOptions(CLI::App& command, RunOptions& options);

}  // namespace desk
