#pragma once

#include <CLI/CLI.hpp>

#include "desk/options/options.h"
#include "desk/run/replay.h"

namespace desk {

// Each adds its subcommand, which sets `chosen` when it is the one that was named.
void AddStabilise(CLI::App& app, ChosenCommand& chosen);
void AddReplay(CLI::App& app, ChosenCommand& chosen);
void AddInspect(CLI::App& app, ChosenCommand& chosen);
void AddVerify(CLI::App& app, ChosenCommand& chosen);
void AddDiff(CLI::App& app, ChosenCommand& chosen);
void AddSynth(CLI::App& app, ChosenCommand& chosen);

/// Adds CLIP, --grids, --first-request and what every run through the node takes. `options` outlives the
/// parsing.
void AddReplayOptions(CLI::App& command, ReplayOptions& options);

}  // namespace desk
