#pragma once

#include <poll.h>

#include <chrono>
#include <cstddef>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "BridgeConfig.h"

struct mosquitto;
struct mosquitto_message;

// The bridge's one connection to the MQTT broker, over libmosquitto's
// external-loop API: the application polls getPollDescriptor() with its own
// descriptors and calls handle() afterwards; no thread of libmosquitto's.
//
// It reconnects by itself with a back-off (250 ms doubling to 5 s), renews
// its subscriptions after every connect, and never lets messages pile up:
// while the broker is away, or while more than MaxUnacknowledged messages
// wait for the broker's acknowledgement, each new message replaces the
// waiting one of the same topic, so at most one message per topic waits
// (and at most MaxWaitingTopics topics).
class BrokerLink {
public:
    using Log = std::function<void(const std::string&)>;
    using Clock = std::chrono::steady_clock;

    static constexpr std::size_t MaxUnacknowledged = 1000;
    static constexpr std::size_t MaxWaitingTopics = 100000;

    // lastWillTopic gets "offline" (retained) from the broker when the
    // connection ends without a clean disconnect.
    BrokerLink(BrokerConfig config, std::string lastWillTopic, Log log);
    ~BrokerLink();
    BrokerLink(const BrokerLink&) = delete;
    BrokerLink& operator=(const BrokerLink&) = delete;

    // After each successful connect, before anything waiting is sent.
    void setConnectedHandler(std::function<void()> handler) { onConnected = std::move(handler); }
    // Every message received on a subscription: topic, payload, and whether
    // the broker kept it retained from before the subscription.
    using MessageHandler = std::function<void(const std::string&, const std::string&, bool)>;
    void setMessageHandler(MessageHandler handler) { onMessage = std::move(handler); }

    // Sets up libmosquitto and starts the first connect; false with error
    // set when the set-up itself fails (bad CA file, out of memory).
    bool start(std::string& error);
    // Kept for every later connect too.
    void subscribe(const std::string& pattern);
    void publish(const std::string& topic, const std::string& payload, bool retain);

    // The broker socket and its events; fd -1 while there is none.
    pollfd getPollDescriptor() const;
    // How long the loop may wait before calling handle() without activity.
    std::chrono::milliseconds getTimeUntilDue(Clock::time_point now) const;
    // Reads, writes, keep-alive and reconnects, as the events and time ask.
    void handle(short revents, Clock::time_point now);

    bool isConnected() const { return connected; }
    // Nothing waits to be sent or acknowledged.
    bool isDrained() const;
    // Ends the connection cleanly (no last will) and makes no more attempts.
    void disconnect();

private:
    struct Waiting {
        std::string payload;
        bool retain;
    };

    static void connectCallback(mosquitto* handle, void* self, int result);
    static void disconnectCallback(mosquitto* handle, void* self, int result);
    static void publishCallback(mosquitto* handle, void* self, int messageId);
    static void messageCallback(mosquitto* handle, void* self, const mosquitto_message* message);

    // A new libmosquitto handle with every option set.
    bool setUp(std::string& error);
    bool hasSocket() const;
    void connect(Clock::time_point now);
    void lost(const std::string& why, Clock::time_point now);
    void send(const std::string& topic, const std::string& payload, bool retain);
    void sendWaiting();

    BrokerConfig config;
    std::string lastWillTopic;
    Log log;
    std::function<void()> onConnected;
    MessageHandler onMessage;

    mosquitto* handle_ = nullptr;
    bool connected = false;
    bool attempting = false;  // a connect is under way
    bool stopped = false;
    bool used = false;  // the handle has connected before
    bool reportedLoss = false;
    std::size_t unacknowledged = 0;
    std::vector<std::string> subscriptions;
    std::map<std::string, Waiting> waiting;
    std::size_t droppedTopics = 0;
    std::chrono::milliseconds backOff{250};
    Clock::time_point retryAt{};
    Clock::time_point attemptDeadline{};
    Clock::time_point nextMisc{};
};
