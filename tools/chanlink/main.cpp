// chanlink: get, set, watch and push channel values of a device from a shell.
// docs/CLI.md describes the commands, the output and the exit codes.
#include <cstdlib>
#include <iostream>
#include <string>
#include <vector>

#include "CliCommands.h"
#include "CliConnection.h"
#include "CliExitCode.h"
#include "CliOptions.h"

#ifndef CHANLINK_VERSION
#define CHANLINK_VERSION "unknown"
#endif

int main(int argc, char** argv) {
    const std::vector<std::string> arguments(argv + (argc > 0 ? 1 : 0), argv + argc);
    cli::ParseResult parsed = cli::parseArguments(arguments);
    if (!parsed.options) {
        std::cerr << "chanlink: " << parsed.error << " (see chanlink --help)\n";
        return cli::ExitCode::UsageError;
    }
    cli::Options& options = *parsed.options;
    if (options.command == cli::Options::Command::Help) {
        std::cout << cli::usageText();
        return cli::ExitCode::Success;
    }
    if (options.command == cli::Options::Command::Version) {
        std::cout << "chanlink " << CHANLINK_VERSION << '\n';
        return cli::ExitCode::Success;
    }
    // The environment keeps a password off the command line, where other
    // users could read it; the fallback is the device simulator's default.
    if (!options.password) {
        const char* fromEnvironment = std::getenv("CHANLINK_PASSWORD");
        options.password = fromEnvironment != nullptr ? fromEnvironment : "secret";
    }
    cli::installStopHandlers();
    return cli::runCommand(options, std::cout, std::cerr);
}
