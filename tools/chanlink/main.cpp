// chanlink: get, set, watch and push channel values of a device from a shell.
// docs/CLI.md describes the commands, the output and the exit codes.
#include <iostream>
#include <string>
#include <vector>

#include "CliCommands.h"
#include "CliOptions.h"
#include "StopSignal.h"
#include "ToolSecrets.h"

int main(int argc, char** argv) {
    tool::protectSecrets();
    const std::vector<std::string> arguments(argv + (argc > 0 ? 1 : 0), argv + argc);
    const cli::ParseResult parsed = cli::parseArguments(arguments, std::cout, std::cerr);
    if (!parsed.options) {
        return parsed.exitCode;
    }
    tool::installStopHandlers();
    return cli::runCommand(*parsed.options, std::cout, std::cerr);
}
