#include "BrokerLink.h"

#include <mosquitto.h>
#include <openssl/ssl.h>

#include <algorithm>

namespace {

constexpr std::chrono::milliseconds InitialBackOff{250};
constexpr std::chrono::milliseconds MaximumBackOff{5000};
// An attempt that has no answer from the broker by then is given up.
constexpr std::chrono::seconds AttemptLimit{10};
// libmosquitto's keep-alive and retry work wants a call about once a second.
constexpr std::chrono::seconds MiscInterval{1};
// Messages one read or write call handles before the loop moves on.
constexpr int PacketsPerCall = 64;

// libmosquitto's texts end in a full stop; log lines do not.
std::string describe(int result) {
    std::string text = mosquitto_strerror(result);
    if (!text.empty() && text.back() == '.') {
        text.pop_back();
    }
    return text;
}

}  // namespace

BrokerLink::BrokerLink(BrokerConfig config, std::string lastWillTopic, Log log)
    : config(std::move(config)), lastWillTopic(std::move(lastWillTopic)), log(std::move(log)) {}

BrokerLink::~BrokerLink() {
    if (handle_ != nullptr) {
        mosquitto_destroy(handle_);
    }
}

bool BrokerLink::start(std::string& error) {
    static const int initialised = mosquitto_lib_init();
    (void)initialised;
    if (!setUp(error)) {
        return false;
    }
    const Clock::time_point now = Clock::now();
    nextMisc = now + MiscInterval;
    connect(now);
    return true;
}

bool BrokerLink::setUp(std::string& error) {
    if (handle_ != nullptr) {
        mosquitto_destroy(handle_);
    }
    handle_ = mosquitto_new(config.clientId.c_str(), true, this);
    if (handle_ == nullptr) {
        error = "cannot create the MQTT client";
        return false;
    }
    mosquitto_int_option(handle_, MOSQ_OPT_SEND_MAXIMUM, 100);
    mosquitto_will_set(handle_, lastWillTopic.c_str(), 7, "offline", config.qos, true);
    if (!config.user.empty()) {
        mosquitto_username_pw_set(handle_, config.user.c_str(),
                                  config.passwordFile.empty() ? nullptr : config.password.c_str());
    }
    if (!config.caFile.empty()) {
        const int result =
            mosquitto_tls_set(handle_, config.caFile.c_str(), nullptr, nullptr, nullptr, nullptr);
        if (result != MOSQ_ERR_SUCCESS) {
            error = config.caFile + ": cannot be used as the broker's CA file (" +
                    describe(result) + ")";
            return false;
        }
    }
    mosquitto_connect_callback_set(handle_, connectCallback);
    mosquitto_disconnect_callback_set(handle_, disconnectCallback);
    mosquitto_publish_callback_set(handle_, publishCallback);
    mosquitto_message_callback_set(handle_, messageCallback);
    used = false;
    return true;
}

void BrokerLink::connect(Clock::time_point now) {
    // libmosquitto keeps the unacknowledged messages of a lost connection and
    // resends them after the next CONNACK, behind whatever the connect
    // handler has just published: an older retained value would win. A fresh
    // handle holds nothing; the connect handler publishes every latest value.
    attempting = true;
    attemptDeadline = now + AttemptLimit;
    std::string error;
    if (used && !setUp(error)) {
        lost(error, now);
        return;
    }
    used = true;
    const int keepAlive = static_cast<int>(std::max<long long>(5, config.keepAlive.count()));
    // Without TLS the connect does not block: the socket joins the poll while
    // it connects. libmosquitto's TLS handshake only runs without blocking
    // inside its own thread, so with TLS the connect waits for the handshake.
    const int result =
        config.caFile.empty()
            ? mosquitto_connect_async(handle_, config.host.c_str(), config.port, keepAlive)
            : mosquitto_connect(handle_, config.host.c_str(), config.port, keepAlive);
    if (result != MOSQ_ERR_SUCCESS) {
        lost("cannot connect: " + describe(result), now);
    }
}

void BrokerLink::lost(const std::string& why, Clock::time_point now) {
    if (stopped || (!connected && !attempting)) {
        return;
    }
    connected = false;
    attempting = false;
    // The handle that holds them is replaced before the next connect.
    unacknowledged = 0;
    if (!reportedLoss) {
        log("broker " + config.host + ":" + std::to_string(config.port) + ": " + why +
            "; retrying, values kept as the latest per channel");
        reportedLoss = true;
    }
    retryAt = now + backOff;
    backOff = std::min(backOff * 2, MaximumBackOff);
}

void BrokerLink::subscribe(const std::string& pattern) {
    subscriptions.push_back(pattern);
    if (connected) {
        mosquitto_subscribe(handle_, nullptr, pattern.c_str(), 1);
    }
}

void BrokerLink::publish(const std::string& topic, const std::string& payload, bool retain) {
    if (connected && waiting.empty() && unacknowledged < MaxUnacknowledged) {
        send(topic, payload, retain);
        return;
    }
    auto found = waiting.find(topic);
    if (found != waiting.end()) {
        found->second = Waiting{payload, retain};
    } else if (waiting.size() < MaxWaitingTopics) {
        waiting.emplace(topic, Waiting{payload, retain});
    } else if (droppedTopics++ == 0) {
        log("more than " + std::to_string(MaxWaitingTopics) +
            " topics wait for the broker; new topics are dropped until it is back");
    }
    sendWaiting();
}

void BrokerLink::send(const std::string& topic, const std::string& payload, bool retain) {
    const int result =
        mosquitto_publish(handle_, nullptr, topic.c_str(), static_cast<int>(payload.size()),
                          payload.data(), config.qos, retain);
    if (result == MOSQ_ERR_SUCCESS) {
        ++unacknowledged;
    } else if (result == MOSQ_ERR_NO_CONN || result == MOSQ_ERR_CONN_LOST) {
        waiting[topic] = Waiting{payload, retain};
    } else {
        log("cannot publish on " + topic + ": " + describe(result));
    }
}

void BrokerLink::sendWaiting() {
    while (connected && !waiting.empty() && unacknowledged < MaxUnacknowledged) {
        auto first = waiting.begin();
        const std::string topic = first->first;
        const Waiting message = std::move(first->second);
        waiting.erase(first);
        send(topic, message.payload, message.retain);
    }
}

pollfd BrokerLink::getPollDescriptor() const {
    pollfd entry{};
    entry.fd = hasSocket() ? mosquitto_socket(handle_) : -1;
    entry.events = POLLIN;
    if (entry.fd >= 0 && mosquitto_want_write(handle_)) {
        entry.events |= POLLOUT;
    }
    return entry;
}

std::chrono::milliseconds BrokerLink::getTimeUntilDue(Clock::time_point now) const {
    Clock::time_point due = Clock::time_point::max();
    if (hasSocket()) {
        due = nextMisc;
    }
    if (attempting) {
        due = std::min(due, attemptDeadline);
    } else if (!connected && !stopped) {
        due = std::min(due, retryAt);
    }
    if (due == Clock::time_point::max()) {
        return std::chrono::milliseconds::max();
    }
    if (due <= now) {
        return std::chrono::milliseconds(0);
    }
    return std::chrono::ceil<std::chrono::milliseconds>(due - now);
}

bool BrokerLink::hasSocket() const {
    return handle_ != nullptr && mosquitto_socket(handle_) >= 0;
}

void BrokerLink::handle(short revents, Clock::time_point now) {
    if (hasSocket() && (revents & (POLLIN | POLLHUP | POLLERR)) != 0) {
        int result = mosquitto_loop_read(handle_, PacketsPerCall);
        // Decrypted bytes can wait inside the TLS object where poll cannot
        // see them.
        for (int round = 0; result == MOSQ_ERR_SUCCESS && round < 16; ++round) {
            auto* tls = static_cast<SSL*>(mosquitto_ssl_get(handle_));
            if (tls == nullptr || SSL_pending(tls) <= 0) {
                break;
            }
            result = mosquitto_loop_read(handle_, PacketsPerCall);
        }
        if (result != MOSQ_ERR_SUCCESS) {
            lost(describe(result), now);
        }
    }
    if (hasSocket() && (revents & POLLOUT) != 0 && mosquitto_want_write(handle_)) {
        const int result = mosquitto_loop_write(handle_, PacketsPerCall);
        if (result != MOSQ_ERR_SUCCESS) {
            lost(describe(result), now);
        }
    }
    if (now >= nextMisc) {
        nextMisc = now + MiscInterval;
        if (hasSocket()) {
            const int result = mosquitto_loop_misc(handle_);
            if (result != MOSQ_ERR_SUCCESS) {
                lost(describe(result), now);
            }
        }
    }
    if (attempting && now >= attemptDeadline) {
        if (handle_ != nullptr) {
            mosquitto_disconnect(handle_);
        }
        lost("no answer within 10 s", now);
    }
    if (!connected && !attempting && !stopped && now >= retryAt) {
        connect(now);
    }
    sendWaiting();
}

bool BrokerLink::isDrained() const {
    return waiting.empty() && unacknowledged == 0 &&
           (handle_ == nullptr || !mosquitto_want_write(handle_));
}

void BrokerLink::disconnect() {
    const bool wasConnected = connected;
    stopped = true;
    connected = false;
    attempting = false;
    if (handle_ != nullptr && wasConnected) {
        mosquitto_disconnect(handle_);
    }
}

void BrokerLink::connectCallback(mosquitto* handle, void* self, int result) {
    auto& link = *static_cast<BrokerLink*>(self);
    if (result != 0) {
        link.log(std::string("broker refused the connection: ") + mosquitto_connack_string(result));
        link.reportedLoss = true;
        return;
    }
    link.connected = true;
    link.attempting = false;
    link.backOff = InitialBackOff;
    link.reportedLoss = false;
    link.unacknowledged = 0;
    link.log("connected to broker " + link.config.host + ":" + std::to_string(link.config.port) +
             " as " + link.config.clientId);
    for (const std::string& pattern : link.subscriptions) {
        mosquitto_subscribe(handle, nullptr, pattern.c_str(), 1);
    }
    if (link.onConnected) {
        link.onConnected();
    }
}

void BrokerLink::disconnectCallback(mosquitto*, void* self, int result) {
    auto& link = *static_cast<BrokerLink*>(self);
    link.lost(result == 0 ? "disconnected" : "connection lost", Clock::now());
}

void BrokerLink::publishCallback(mosquitto*, void* self, int) {
    auto& link = *static_cast<BrokerLink*>(self);
    if (link.unacknowledged > 0) {
        --link.unacknowledged;
    }
}

void BrokerLink::messageCallback(mosquitto*, void* self, const mosquitto_message* message) {
    auto& link = *static_cast<BrokerLink*>(self);
    if (link.onMessage && message->topic != nullptr) {
        const char* bytes = static_cast<const char*>(message->payload);
        link.onMessage(message->topic,
                       bytes == nullptr
                           ? std::string()
                           : std::string(bytes, static_cast<std::size_t>(message->payloadlen)),
                       message->retain);
    }
}
