#pragma once

#include <optional>
#include <ostream>

#include "BridgeConfig.h"

// The command line of chanlink-bridge (docs/BRIDGE.md): a configuration
// file, overrides of its broker settings, and devices given directly.
namespace BridgeOptions {

// The configuration to run with; or nothing with exitCode set: 0 after
// --help or --version (printed to out), 2 after an error (one line, printed
// to err).
std::optional<BridgeConfig> parse(int argc, const char* const* argv, std::ostream& out,
                                  std::ostream& err, int& exitCode);

}  // namespace BridgeOptions
