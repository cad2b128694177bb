#include "DeviceLink.h"

#include <algorithm>

#include "BridgePayload.h"
#include "chanlink/client/LoginOutcome.h"
#include "chanlink/flow/FunctionReceiver.h"

DeviceLink::DeviceLink(DeviceConfig config, Publish publish, Log log)
    : config(std::move(config)),
      publish(std::move(publish)),
      log(std::move(log)),
      client(ReconnectingClient::tcpFactory(this->config.host, this->config.port),
             this->config.user, this->config.password) {
    changeReceiver = makeReceiver<ChannelCache::Change>(
        [this](const ChannelCache::Change& change) { onChange(change); });
    freshCache();
    // Every value, whatever brought it, goes through the current cache.
    auto toCache = makeReceiver<GetOutcome>([this](const GetOutcome& outcome) {
        if (!keeps(outcome.getChannelId())) {
            return;
        }
        std::shared_ptr<ChannelCache> current = cache;
        current->receive(outcome);
    });
    for (unsigned int channelId : this->config.channels) {
        client.addSubscription(channelId, toCache);
    }
    if (this->config.push) {
        client.addPushReceiver(toCache);
    }
    client.addStateReceiver(makeReceiver<ReconnectingClient::State>(
        [this](ReconnectingClient::State state) { onState(state); }));
    client.addLoginOutcomeReceiver(makeReceiver<LoginOutcome>([this](const LoginOutcome& outcome) {
        // Said once until a login succeeds again, not at every retry.
        if (outcome.loggedIn()) {
            loginRefused = false;
        } else if (outcome.loginFailed() && !loginRefused) {
            loginRefused = true;
            this->log("device " + this->config.name + ": login refused for user " +
                      this->config.user +
                      (outcome.tooManyConnections() ? " (too many connections)" : ""));
        }
    }));
}

DeviceLink::~DeviceLink() {
    client.stop();
}

void DeviceLink::start(Clock::time_point now) {
    nextPoll = now;
    client.start();
}

void DeviceLink::stop() {
    client.stop();
}

std::chrono::milliseconds DeviceLink::getTimeUntilDue(Clock::time_point now) const {
    if (workQueued) {
        return std::chrono::milliseconds(0);
    }
    std::chrono::milliseconds due = client.getTimeUntilDue();
    if (!config.poll.empty() && online) {
        due = std::min(due, nextPoll <= now
                                ? std::chrono::milliseconds(0)
                                : std::chrono::ceil<std::chrono::milliseconds>(nextPoll - now));
    }
    return due;
}

void DeviceLink::tick(Clock::time_point now) {
    if (online && !config.poll.empty() && now >= nextPoll) {
        nextPoll = now + config.pollInterval;
        for (unsigned int channelId : config.poll) {
            requestOnce(channelId);
        }
    }
    workQueued = false;
    client.tick();
}

void DeviceLink::requestOnce(unsigned int channelId) {
    // A channel that has not answered yet is not asked again, so a slow
    // device never collects a backlog of reads.
    if (!requested.insert(channelId).second) {
        return;
    }
    workQueued = true;
    client.requestChannel(channelId,
                          makeReceiver<GetOutcome>([this, channelId](const GetOutcome& outcome) {
                              requested.erase(channelId);
                              std::shared_ptr<ChannelCache> current = cache;
                              current->receive(outcome);
                          }));
}

void DeviceLink::set(unsigned int channelId, const std::vector<unsigned char>& data,
                     std::function<void(const std::string&)> result) {
    if (waitingSets >= MaxWaitingSets) {
        result(BridgePayload::setRejected("too many sets wait for this device"));
        return;
    }
    ++waitingSets;
    workQueued = true;
    client.setChannel(
        channelId, data, makeReceiver<SetOutcome>([this, result](const SetOutcome& outcome) {
            --waitingSets;
            result(outcome.getSuccess() ? BridgePayload::setSucceeded()
                                        : BridgePayload::setRefused(outcome.getReasonCode()));
        }));
}

void DeviceLink::publishAll() {
    if (statusPublished) {
        publish(config.name + "/status", online ? "online" : "offline", true);
    }
    for (const auto& [channelId, payload] : latest) {
        publish(config.name + "/" + std::to_string(channelId), payload, true);
    }
}

void DeviceLink::onState(ReconnectingClient::State state) {
    const bool nowOnline = state == ReconnectingClient::Ready;
    if (state == ReconnectingClient::Connecting || state == ReconnectingClient::LoggingIn ||
        (nowOnline == online && statusPublished)) {
        return;
    }
    online = nowOnline;
    statusPublished = true;
    log("device " + config.name + " (" + config.host + ":" + config.port +
        "): " + (online ? "online" : "offline") +
        (client.getLastDropReason().empty() || online ? "" : ", " + client.getLastDropReason()));
    publish(config.name + "/status", online ? "online" : "offline", true);
    if (!online) {
        requested.clear();
        return;
    }
    // Subscriptions bring their current values by themselves; channels known
    // only from pushes or polls are read once, so each is published again.
    freshCache();
    for (const auto& entry : latest) {
        if (std::find(config.channels.begin(), config.channels.end(), entry.first) ==
            config.channels.end()) {
            requestOnce(entry.first);
        }
    }
    nextPoll = Clock::now();
}

bool DeviceLink::keeps(unsigned int channelId) {
    const auto listed = [channelId](const std::vector<unsigned int>& ids) {
        return std::find(ids.begin(), ids.end(), channelId) != ids.end();
    };
    if (latest.size() < config.maxChannels || latest.count(channelId) != 0 ||
        listed(config.channels) || listed(config.poll)) {
        return true;
    }
    if (!boundReported) {
        boundReported = true;
        log("device " + config.name + ": channel limit (" + std::to_string(config.maxChannels) +
            ") reached; values of further channels are dropped");
    }
    return false;
}

void DeviceLink::freshCache() {
    if (cache) {
        cache->removeReceiver(changeReceiver);
    }
    cache = std::make_shared<ChannelCache>();
    cache->addReceiver(changeReceiver);
}

void DeviceLink::onChange(const ChannelCache::Change& change) {
    const ChannelValue& value = *change.second;
    std::string payload = BridgePayload::value(value, std::chrono::system_clock::now());
    const std::string topic = config.name + "/" + std::to_string(value.getChannelId());
    latest[value.getChannelId()] = payload;
    publish(topic, payload, true);
}
