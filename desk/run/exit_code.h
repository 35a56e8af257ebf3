#pragma once

namespace desk {

/// What the program's exit status says. Interrupted is what a shell reports for SIGINT.
enum ExitCode { Done = 0, CheckFailed = 1, WrongUse = 2, WrongEnvironment = 3, WasInterrupted = 130 };

}  // namespace desk
