// chanlink-device: a simulated device on the library's DeviceServer.
// docs/DEVICE.md describes its options, channel file and rules.
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <sstream>

#include "ChannelTable.h"
#include "DeviceOptions.h"
#include "chanlink/capture/CaptureTransport.h"
#include "chanlink/flow/FunctionReceiver.h"
#include "chanlink/server/DeviceServer.h"

namespace {

using Clock = LiveChannel::Clock;

volatile std::sig_atomic_t stopSignal = 0;
int wakeDescriptor = -1;

extern "C" void onStopSignal(int signal) {
    stopSignal = signal;
    // The server's poll may be waiting; a byte on its wake descriptor ends
    // the wait. write() is safe in a signal handler; errno is kept.
    const int savedErrno = errno;
    const char byte = 1;
    if (wakeDescriptor >= 0) {
        [[maybe_unused]] const ssize_t written = ::write(wakeDescriptor, &byte, 1);
    }
    errno = savedErrno;
}

void installSignalHandlers() {
    struct sigaction action {};
    action.sa_handler = onStopSignal;
    sigemptyset(&action.sa_mask);
    ::sigaction(SIGINT, &action, nullptr);
    ::sigaction(SIGTERM, &action, nullptr);
}

void say(const std::string& line) {
    std::cerr << "chanlink-device: " << line << std::endl;
}

std::optional<std::vector<ChannelSpec>> loadChannels(const DeviceOptions& options) {
    std::string error;
    if (options.channelsFile.empty()) {
        std::istringstream text(ChannelTable::defaultText());
        return ChannelTable::parse(text, error);
    }
    std::ifstream file(options.channelsFile);
    if (!file) {
        say(options.channelsFile + ": cannot be opened");
        return std::nullopt;
    }
    auto channels = ChannelTable::parse(file, error);
    if (!channels) {
        say(options.channelsFile + ":" + error);
    }
    return channels;
}

// Time until the earliest live channel is due, rounded up; -1 for none.
std::chrono::milliseconds untilNextChange(const std::vector<LiveChannel>& live,
                                          Clock::time_point now) {
    Clock::time_point next = Clock::time_point::max();
    for (const LiveChannel& channel : live) {
        next = std::min(next, channel.nextDue());
    }
    if (next == Clock::time_point::max()) {
        return std::chrono::milliseconds(-1);
    }
    if (next <= now) {
        return std::chrono::milliseconds(0);
    }
    return std::chrono::ceil<std::chrono::milliseconds>(next - now);
}

}  // namespace

int main(int argc, char** argv) {
    DeviceOptions options;
    std::string error;
    if (!options.parse(std::vector<std::string>(argv + 1, argv + argc), error)) {
        say(error);
        std::cerr << "Try 'chanlink-device --help'." << std::endl;
        return 2;
    }
    if (options.help) {
        std::cout << DeviceOptions::usage();
        return 0;
    }
    if (options.version) {
        std::cout << "chanlink-device " << CHANLINK_VERSION << "\n";
        return 0;
    }
    const auto channels = loadChannels(options);
    if (!channels) {
        return 2;
    }
    if (options.printChannels) {
        std::cout << ChannelTable::format(*channels);
        return 0;
    }

    auto store = std::make_shared<MemoryChannelStore>();
    std::vector<LiveChannel> live = ChannelTable::install(*channels, *store);
    DeviceSettings settings;
    settings.username = options.user;
    settings.password = options.password;
    settings.maxLoggedIn = options.maxClients;
    DeviceServer server(store, settings);
    server.setEventReceiver(
        makeReceiver<DeviceEvent>([](const DeviceEvent& event) { say(event.describe()); }));
    if (!options.captureFile.empty()) {
        auto capture = PcapWriter::open(options.captureFile, error);
        if (!capture) {
            say(error);
            return 2;
        }
        capture->setErrorHandler(say);
        server.setAcceptWrapper(
            [capture, credentials = options.captureCredentials](
                std::shared_ptr<Transport> accepted) -> std::shared_ptr<Transport> {
                return std::make_shared<CaptureTransport>(std::move(accepted), capture,
                                                          CaptureStream::Side::Server, credentials);
            });
    }

    installSignalHandlers();
    wakeDescriptor = server.getWakeDescriptor();
    if (!server.listen(options.port, options.host)) {
        say("cannot listen on port " + options.port +
            (options.host.empty() ? std::string() : " of " + options.host));
        return 1;
    }
    std::cout << "port " << server.getListeningService() << std::endl;
    say("listening on port " + server.getListeningService() + " of " +
        (options.host.empty() ? std::string("every local address") : options.host) + ", " +
        std::to_string(channels->size()) + " channels, up to " +
        std::to_string(options.maxClients) + " logged-in clients");

    const Clock::time_point start = Clock::now();
    for (LiveChannel& channel : live) {
        channel.start(start);
    }
    while (stopSignal == 0) {
        const Clock::time_point now = Clock::now();
        for (LiveChannel& channel : live) {
            channel.advance(now, *store);
        }
        server.poll(untilNextChange(live, Clock::now()));
    }
    server.shutdown();
    say(std::string("stopped by ") + (stopSignal == SIGINT ? "SIGINT" : "SIGTERM"));
    return 0;
}
