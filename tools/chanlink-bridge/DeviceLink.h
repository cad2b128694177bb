#pragma once

#include <poll.h>

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "BridgeConfig.h"
#include "chanlink/client/ReconnectingClient.h"
#include "chanlink/processing/ChannelCache.h"

// One device of the bridge: a ReconnectingClient that subscribes, takes
// pushes and polls as configured, and hands every change of a channel (and,
// after each reconnect, every current value once) to the publisher as a
// ready topic and payload. It keeps the latest payload of every channel, so
// that all of them can be published again after the broker returns.
class DeviceLink {
public:
    using Clock = std::chrono::steady_clock;
    // topic below the prefix ("plc1/7"), payload, retained.
    using Publish = std::function<void(const std::string&, const std::string&, bool)>;
    using Log = std::function<void(const std::string&)>;

    // Sets waiting for this device beyond which new ones are refused.
    static constexpr std::size_t MaxWaitingSets = 1000;

    DeviceLink(DeviceConfig config, Publish publish, Log log);
    // Stops the client first: what it reports while stopping reaches a
    // whole object.
    ~DeviceLink();
    DeviceLink(const DeviceLink&) = delete;
    DeviceLink& operator=(const DeviceLink&) = delete;

    const std::string& getName() const { return config.name; }
    void start(Clock::time_point now);
    void stop();

    pollfd getPollDescriptor() const { return client.getPollDescriptor(); }
    // Until the client's next attempt or attempt limit, or the next poll;
    // 0 when a tick has queued work to send.
    std::chrono::milliseconds getTimeUntilDue(Clock::time_point now) const;
    void tick(Clock::time_point now);

    // Writes the channel; result gets the payload for /set/result.
    void set(unsigned int channelId, const std::vector<unsigned char>& data,
             std::function<void(const std::string&)> result);
    // The status and every latest value again (after the broker returns).
    void publishAll();

private:
    void onState(ReconnectingClient::State state);
    void onChange(const ChannelCache::Change& change);
    // Whether a value of the channel is taken: known channels, configured
    // ones, and new ones until config.maxChannels are kept.
    bool keeps(unsigned int channelId);
    void freshCache();
    void requestOnce(unsigned int channelId);

    DeviceConfig config;
    Publish publish;
    Log log;
    ReconnectingClient client;
    // Replaced after every reconnect, so that the first value of each
    // channel is published again even when it did not change.
    std::shared_ptr<ChannelCache> cache;
    std::shared_ptr<Receiver<ChannelCache::Change>> changeReceiver;
    std::map<unsigned int, std::string> latest;  // payload by channel
    std::set<unsigned int> requested;            // gets not answered yet
    bool online = false;
    bool statusPublished = false;
    bool workQueued = false;
    bool loginRefused = false;
    bool boundReported = false;
    std::size_t waitingSets = 0;
    Clock::time_point nextPoll{};
};
