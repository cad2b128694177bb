// chanlink-bridge: chanlink devices on an MQTT broker.
// docs/BRIDGE.md describes the options, the configuration file and the topics.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <iostream>

#include "Bridge.h"
#include "BridgeOptions.h"

namespace {

volatile std::sig_atomic_t stopSignal = 0;
int wakeWrite = -1;

extern "C" void onStopSignal(int signal) {
    stopSignal = signal;
    const int savedErrno = errno;
    const char byte = 1;
    [[maybe_unused]] const ssize_t written = ::write(wakeWrite, &byte, 1);
    errno = savedErrno;
}

// A pipe whose read end wakes the bridge's poll when a stop signal comes.
int installStopHandlers() {
    int ends[2];
    if (::pipe(ends) != 0) {
        return -1;
    }
    for (int end : ends) {
        ::fcntl(end, F_SETFL, ::fcntl(end, F_GETFL) | O_NONBLOCK);
        ::fcntl(end, F_SETFD, FD_CLOEXEC);
    }
    wakeWrite = ends[1];
    struct sigaction action {};
    action.sa_handler = onStopSignal;
    sigemptyset(&action.sa_mask);
    ::sigaction(SIGINT, &action, nullptr);
    ::sigaction(SIGTERM, &action, nullptr);
    ::signal(SIGPIPE, SIG_IGN);
    return ends[0];
}

}  // namespace

int main(int argc, char** argv) {
    int exitCode = 0;
    auto config = BridgeOptions::parse(argc, argv, std::cout, std::cerr, exitCode);
    if (!config) {
        return exitCode;
    }
    const int wakeRead = installStopHandlers();
    Bridge bridge(std::move(*config), [](const std::string& line) {
        std::cerr << "chanlink-bridge: " << line << std::endl;
    });
    const int result = bridge.run(wakeRead, [] { return stopSignal != 0; });
    if (stopSignal != 0) {
        std::cerr << "chanlink-bridge: stopped by " << (stopSignal == SIGINT ? "SIGINT" : "SIGTERM")
                  << std::endl;
    }
    return result;
}
