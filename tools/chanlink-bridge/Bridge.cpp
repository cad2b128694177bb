#include "Bridge.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "BridgePayload.h"
#include "chanlink/client/SessionWaiter.h"

namespace {

// How long a stop waits for the broker to take the offline statuses.
constexpr std::chrono::seconds StopLimit{3};
using Clock = std::chrono::steady_clock;

}  // namespace

Bridge::Bridge(BridgeConfig config, Log log)
    : config(std::move(config)),
      log(std::move(log)),
      prefix(this->config.broker.topicPrefix + "/"),
      broker(this->config.broker, prefix + "bridge/" + this->config.broker.clientId + "/status",
             this->log) {
    for (const DeviceConfig& device : this->config.devices) {
        devices.push_back(std::make_unique<DeviceLink>(
            device,
            [this](const std::string& topic, const std::string& payload, bool retain) {
                publishBelowPrefix(topic, payload, retain);
            },
            this->log));
        byName[device.name] = devices.back().get();
        broker.subscribe(prefix + device.name + "/+/set");
    }
    broker.setConnectedHandler([this] { onConnected(); });
    broker.setMessageHandler([this](const std::string& topic, const std::string& payload,
                                    bool retained) { onMessage(topic, payload, retained); });
}

void Bridge::publishBelowPrefix(const std::string& topic, const std::string& payload, bool retain) {
    broker.publish(prefix + topic, payload, retain && config.broker.retain);
}

void Bridge::onConnected() {
    broker.publish(prefix + "bridge/" + config.broker.clientId + "/status", "online", true);
    for (auto& device : devices) {
        device->publishAll();
    }
}

void Bridge::onMessage(const std::string& topic, const std::string& payload, bool retained) {
    // PREFIX/DEVICE/CHANNEL/set, the only topics subscribed to.
    if (topic.compare(0, prefix.size(), prefix) != 0) {
        return;
    }
    const std::string rest = topic.substr(prefix.size());
    const std::size_t first = rest.find('/');
    const std::size_t second = rest.find('/', first + 1);
    if (first == std::string::npos || second == std::string::npos ||
        rest.compare(second, std::string::npos, "/set") != 0) {
        return;
    }
    auto device = byName.find(rest.substr(0, first));
    if (device == byName.end()) {
        return;
    }
    const std::string resultTopic = topic + "/result";
    const auto reply = [this, resultTopic](const std::string& result) {
        broker.publish(resultTopic, result, false);
    };
    const auto channelId =
        BridgePayload::parseChannelLevel(rest.substr(first + 1, second - first - 1));
    if (!channelId) {
        reply(BridgePayload::setRejected("channel must be a decimal id from 0 to 4294967295"));
        return;
    }
    // A retained set would be applied again at every connect to the broker,
    // long after whoever sent it has moved on.
    if (retained) {
        reply(BridgePayload::setRejected("retained sets are not applied; publish without retain"));
        return;
    }
    std::string error;
    const auto data = BridgePayload::parseSet(payload, error);
    if (!data) {
        reply(BridgePayload::setRejected(error));
        return;
    }
    device->second->set(*channelId, *data, reply);
}

int Bridge::run(int wakeDescriptor, const std::function<bool()>& stopRequested) {
    std::string error;
    if (!broker.start(error)) {
        log(error);
        return 1;
    }
    Clock::time_point now = Clock::now();
    for (auto& device : devices) {
        device->start(now);
    }
    log("bridging " + std::to_string(devices.size()) + " device(s) below " + prefix);

    bool stopping = false;
    bool failed = false;
    Clock::time_point stopDeadline{};
    // The wake descriptor, the broker, then every device, with the events of
    // the last wait.
    std::vector<pollfd> watched(devices.size() + 2);
    const auto tick = [&] {
        now = Clock::now();
        if (watched[0].fd >= 0 && (watched[0].revents & POLLIN) != 0) {
            char drain[64];
            [[maybe_unused]] const ssize_t got = ::read(wakeDescriptor, drain, sizeof drain);
        }
        broker.handle(watched[1].revents, now);
        // After the broker: sets it brought are sent in the same round.
        for (std::size_t i = 0; i < devices.size(); ++i) {
            if (watched[i + 2].revents != 0 || devices[i]->getTimeUntilDue(now).count() == 0) {
                devices[i]->tick(now);
            }
        }
        if (!stopping && stopRequested()) {
            stopping = true;
            stopDeadline = now + StopLimit;
            // Each device reports itself offline as it stops.
            for (auto& device : devices) {
                device->stop();
            }
            broker.publish(prefix + "bridge/" + config.broker.clientId + "/status", "offline",
                           true);
        }
    };
    // Each descriptor waited on for what its next step needs, until the
    // earliest due time of any of them.
    const auto wait = [&](std::chrono::milliseconds limit) {
        now = Clock::now();
        std::chrono::milliseconds timeout = std::min(limit, broker.getTimeUntilDue(now));
        watched[0] = pollfd{stopping ? -1 : wakeDescriptor, POLLIN, 0};
        watched[1] = broker.getPollDescriptor();
        for (std::size_t i = 0; i < devices.size(); ++i) {
            watched[i + 2] = devices[i]->getPollDescriptor();
            timeout = std::min(timeout, devices[i]->getTimeUntilDue(now));
        }
        if (stopping) {
            timeout =
                std::min(timeout, std::chrono::ceil<std::chrono::milliseconds>(stopDeadline - now));
        }
        const int timeoutMs =
            static_cast<int>(std::min<long long>(timeout.count(), 60 * 60 * 1000));
        if (::poll(watched.data(), watched.size(), timeoutMs) < 0 && errno != EINTR) {
            log(std::string("poll failed: ") + std::strerror(errno));
            failed = true;
        }
    };
    // A stop ends once the broker has taken the offline statuses, is gone,
    // or the stop limit has passed.
    const auto done = [&] {
        return failed || (stopping && (broker.isDrained() || !broker.isConnected() ||
                                       Clock::now() >= stopDeadline));
    };
    SessionWaiter().run(tick, wait, done, std::chrono::milliseconds::max());
    if (failed) {
        return 1;
    }
    broker.disconnect();
    return 0;
}
