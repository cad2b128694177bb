#pragma once

#include <ostream>

#include "CliOptions.h"

namespace cli {

// Runs the command of options (get, set, watch or push) against the device:
// results go to out, one line each, and every failure as one line starting
// "chanlink: " to err. Returns the exit code (CliExitCode.h). options must
// hold a password.
int runCommand(const Options& options, std::ostream& out, std::ostream& err);

}  // namespace cli
