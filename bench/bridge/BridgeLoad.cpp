// Load for bench/bridge.sh: sets channels 1..N of a chanlink-device, one
// connection per channel, each set carrying the time it was made, and reads
// what chanlink-bridge publishes of them from the broker: updates per second
// and the latency from the set to the subscriber.
//
//   chanlink_bridge_load DEVICE_PORT BROKER_PORT CHANNELS RATE SECONDS
//
// RATE is sets per second per channel; 0 sends each set as soon as the
// previous one is answered. Prints one line of figures.
#include <mosquitto.h>
#include <poll.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "chanlink/chanlink.h"

namespace {

using SystemClock = std::chrono::system_clock;

long long nowNs() {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(
               SystemClock::now().time_since_epoch())
        .count();
}

struct Received {
    std::mutex lock;
    std::condition_variable changed;  // subscribed, or a latency added
    bool subscribed = false;
    std::vector<long long> latencies;  // ns, of values set after start
    long long start = 0;
    long long end = 0;
};

void onSubscribe(mosquitto*, void* context, int, int, const int*) {
    auto& received = *static_cast<Received*>(context);
    std::lock_guard<std::mutex> guard(received.lock);
    received.subscribed = true;
    received.changed.notify_all();
}

// {"data":"<16 hex digits, little-endian ns>",...}: the time of the set.
void onMessage(mosquitto*, void* context, const mosquitto_message* message) {
    const long long arrived = nowNs();
    auto& received = *static_cast<Received*>(context);
    const char* text = static_cast<const char*>(message->payload);
    if (message->payloadlen < 26 || std::strncmp(text, "{\"data\":\"", 9) != 0) {
        return;
    }
    unsigned long long sent = 0;
    for (int i = 7; i >= 0; --i) {
        sent = sent * 256 + std::strtoul(std::string(text + 9 + 2 * i, 2).c_str(), nullptr, 16);
    }
    std::lock_guard<std::mutex> guard(received.lock);
    const long long set = static_cast<long long>(sent);
    if (set >= received.start && set < received.end) {
        received.latencies.push_back(arrived - set);
        received.changed.notify_all();
    }
}

std::vector<unsigned char> timeBytes(long long ns) {
    std::vector<unsigned char> bytes(8);
    for (int i = 0; i < 8; ++i) {
        bytes[static_cast<std::size_t>(i)] = static_cast<unsigned char>(ns >> (8 * i));
    }
    return bytes;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 6) {
        std::fprintf(stderr, "usage: %s DEVICE_PORT BROKER_PORT CHANNELS RATE SECONDS\n", argv[0]);
        return 2;
    }
    const std::string devicePort = argv[1];
    const int brokerPort = std::atoi(argv[2]);
    const unsigned channels = static_cast<unsigned>(std::atoi(argv[3]));
    const double rate = std::atof(argv[4]);
    const double seconds = std::atof(argv[5]);

    Received received;
    mosquitto_lib_init();
    mosquitto* subscriber = mosquitto_new(nullptr, true, &received);
    mosquitto_message_callback_set(subscriber, onMessage);
    mosquitto_subscribe_callback_set(subscriber, onSubscribe);
    if (mosquitto_connect(subscriber, "127.0.0.1", brokerPort, 30) != MOSQ_ERR_SUCCESS ||
        mosquitto_subscribe(subscriber, nullptr, "bench/+/+", 1) != MOSQ_ERR_SUCCESS ||
        mosquitto_loop_start(subscriber) != MOSQ_ERR_SUCCESS) {
        std::fprintf(stderr, "cannot subscribe at the broker\n");
        return 1;
    }

    std::vector<std::unique_ptr<ReconnectingClient>> setters;
    for (unsigned i = 0; i < channels; ++i) {
        setters.push_back(
            std::make_unique<ReconnectingClient>("127.0.0.1", devicePort, "admin", "secret"));
        setters.back()->start();
        if (!setters.back()->waitUntilReady(std::chrono::seconds(5))) {
            std::fprintf(stderr, "setter %u cannot log in\n", i + 1);
            return 1;
        }
    }
    // Counting starts once the broker has confirmed the subscription (and so
    // sent the retained values, which are older than the start anyway).
    {
        std::unique_lock<std::mutex> guard(received.lock);
        if (!received.changed.wait_for(guard, std::chrono::seconds(10),
                                       [&] { return received.subscribed; })) {
            std::fprintf(stderr, "the broker did not confirm the subscription\n");
            return 1;
        }
    }

    const long long periodNs = rate > 0 ? static_cast<long long>(1e9 / rate) : 0;
    std::vector<long long> nextAt(channels);
    std::vector<bool> busy(channels, false);
    unsigned long long sets = 0;
    {
        std::lock_guard<std::mutex> guard(received.lock);
        received.start = nowNs();
        received.end = received.start + static_cast<long long>(seconds * 1e9);
    }
    for (unsigned i = 0; i < channels; ++i) {
        // Spread the channels over one period.
        nextAt[i] = received.start + (periodNs * i) / std::max(1u, channels);
    }
    std::vector<pollfd> watched(channels);
    for (;;) {
        const long long now = nowNs();
        if (now >= received.end) {
            break;
        }
        long long earliest = received.end;
        for (unsigned i = 0; i < channels; ++i) {
            if (!busy[i] && now >= nextAt[i]) {
                busy[i] = true;
                ++sets;
                nextAt[i] = periodNs > 0 ? nextAt[i] + periodNs : now;
                setters[i]->setChannel(
                    i + 1, timeBytes(nowNs()),
                    makeReceiver<SetOutcome>([&busy, i](const SetOutcome&) { busy[i] = false; }));
                setters[i]->tick();
            }
            if (!busy[i]) {
                earliest = std::min(earliest, nextAt[i]);
            }
            watched[i] = setters[i]->getPollDescriptor();
        }
        const long long waitNs = std::max(0LL, earliest - nowNs());
        ::poll(watched.data(), watched.size(), static_cast<int>((waitNs + 999999) / 1000000));
        for (unsigned i = 0; i < channels; ++i) {
            if (watched[i].revents != 0) {
                setters[i]->tick();
            }
        }
    }
    // Answers still owed reach busy, which must outlive them.
    for (auto& setter : setters) {
        setter->stop();
    }
    // Values still on their way: until every set made has come back, 2 s at
    // most (a set not answered before the stop may never be applied).
    {
        std::unique_lock<std::mutex> guard(received.lock);
        received.changed.wait_for(guard, std::chrono::seconds(2),
                                  [&] { return received.latencies.size() >= sets; });
    }
    mosquitto_disconnect(subscriber);
    mosquitto_loop_stop(subscriber, false);

    std::vector<long long> latencies;
    {
        std::lock_guard<std::mutex> guard(received.lock);
        latencies = received.latencies;
    }
    std::sort(latencies.begin(), latencies.end());
    const auto at = [&](double share) {
        return latencies.empty()
                   ? 0.0
                   : latencies[std::min(latencies.size() - 1,
                                        static_cast<std::size_t>(share * latencies.size()))] /
                         1e6;
    };
    std::printf("sets %llu received %zu updates/s %.0f latency-ms median %.2f p99 %.2f max %.2f\n",
                sets, latencies.size(), latencies.size() / seconds, at(0.5), at(0.99),
                latencies.empty() ? 0.0 : latencies.back() / 1e6);
    mosquitto_destroy(subscriber);
    mosquitto_lib_cleanup();
    return 0;
}
