// chanlink-device: a simulated device on the library's DeviceServer.
// docs/DEVICE.md describes its options, channel file and rules.
#include <algorithm>
#include <fstream>
#include <iostream>
#include <sstream>

#include "ChannelTable.h"
#include "DeviceOptions.h"
#include "StopSignal.h"
#include "ToolCommandLine.h"
#include "ToolSecrets.h"
#include "chanlink/capture/CaptureTransport.h"
#include "chanlink/client/SessionWaiter.h"
#include "chanlink/flow/FunctionReceiver.h"
#include "chanlink/server/DeviceServer.h"
#ifdef CHANLINK_WITH_TLS
#include "chanlink/tls.h"
#endif

namespace {

using Clock = LiveChannel::Clock;

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
    return std::chrono::ceil<std::chrono::milliseconds>(std::max(next, now) - now);
}

}  // namespace

int main(int argc, char** argv) {
    tool::protectSecrets();
    DeviceOptions options;
    CLI::App app({}, "chanlink-device");
    app.set_version_flag("--version", std::string("chanlink-device ") + CHANLINK_VERSION);
    options.addTo(app);
    const std::vector<std::string> arguments(argv + (argc > 0 ? 1 : 0), argv + argc);
    if (const auto exitCode = tool::parseCommandLine(app, arguments, std::cout, std::cerr)) {
        return *exitCode;
    }
    // Others could read --password even when the file's password wins.
    if (tool::hasOption(arguments, "--password")) {
        say("warning: other users of this machine can read --password; use --password-file or "
            "CHANLINK_DEVICE_PASSWORD");
    }
    std::string error;  // why a step below cannot go on
    if (!options.passwordFile.empty() &&
        !tool::readPasswordFile(options.passwordFile, options.password, error)) {
        say(error);
        return tool::UsageStatus;
    }
    const auto channels = loadChannels(options);
    if (!channels) {
        return tool::UsageStatus;
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
    settings.loginTimeout = options.loginTimeout;
    settings.maxPending = options.maxPending;
    std::string transport;  // empty for plain TCP
#ifdef CHANLINK_WITH_TLS
    if (!options.tlsCertificate.empty()) {
        const auto context = TLSContext::forServer(
            {options.tlsCertificate, options.tlsKey, options.tlsClientCa}, error);
        if (!context) {
            say(error);
            return tool::UsageStatus;
        }
        settings.wrapConnection = TLSServerTransport::wrapper(context);
        transport = options.tlsClientCa.empty() ? "TLS" : "TLS with client certificates";
    }
#endif
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

    tool::installStopHandlers(server.getWakeDescriptor());
    if (!server.listen(options.port, options.host)) {
        say("cannot listen on port " + options.port +
            (options.host.empty() ? std::string() : " of " + options.host));
        return 1;
    }
    std::cout << "port " << server.getListeningService() << std::endl;
    say("listening on port " + server.getListeningService() + " of " +
        (options.host.empty() ? std::string("every local address") : options.host) +
        (transport.empty() ? std::string() : " over " + transport) + ", " +
        std::to_string(channels->size()) + " channels, up to " +
        std::to_string(options.maxClients) + " logged-in clients");

    const Clock::time_point start = Clock::now();
    for (LiveChannel& channel : live) {
        channel.start(start);
    }
    // The library's tick-and-wait loop, without a time limit: the live
    // channels move on, then the server waits until a client needs it or
    // the next change is due; idle, nothing wakes it.
    const auto advance = [&] {
        const Clock::time_point now = Clock::now();
        for (LiveChannel& channel : live) {
            channel.advance(now, *store);
        }
    };
    const auto wait = [&](std::chrono::milliseconds remaining) {
        const std::chrono::milliseconds change = untilNextChange(live, Clock::now());
        server.poll(change.count() < 0 ? remaining : std::min(change, remaining));
    };
    SessionWaiter().run(advance, wait, tool::stopRequested, std::chrono::milliseconds::max());
    server.shutdown();
    say(std::string("stopped by ") + tool::stopSignalName());
    return 0;
}
