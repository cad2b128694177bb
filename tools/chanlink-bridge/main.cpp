// chanlink-bridge: chanlink devices on an MQTT broker.
// docs/BRIDGE.md describes the options, the configuration file and the topics.
#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <iostream>

#include "Bridge.h"
#include "BridgeOptions.h"
#include "StopSignal.h"
#include "ToolSecrets.h"

namespace {

// A pipe whose read end wakes the bridge's poll when a stop signal comes;
// -1 when there is none (the poll then wakes at its next due time).
int installStopHandlers() {
    ::signal(SIGPIPE, SIG_IGN);
    int ends[2];
    if (::pipe(ends) != 0) {
        tool::installStopHandlers();
        return -1;
    }
    for (int end : ends) {
        ::fcntl(end, F_SETFL, ::fcntl(end, F_GETFL) | O_NONBLOCK);
        ::fcntl(end, F_SETFD, FD_CLOEXEC);
    }
    tool::installStopHandlers(ends[1]);
    return ends[0];
}

}  // namespace

int main(int argc, char** argv) {
    tool::protectSecrets();
    int exitCode = 0;
    auto config = BridgeOptions::parse(argc, argv, std::cout, std::cerr, exitCode);
    if (!config) {
        return exitCode;
    }
    const int wakeRead = installStopHandlers();
    Bridge bridge(std::move(*config), [](const std::string& line) {
        std::cerr << "chanlink-bridge: " << line << std::endl;
    });
    const int result = bridge.run(wakeRead, [] { return tool::stopRequested(); });
    if (tool::stopRequested()) {
        std::cerr << "chanlink-bridge: stopped by " << tool::stopSignalName() << std::endl;
    }
    return result;
}
