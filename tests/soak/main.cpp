// chanlink_soak: many clients against one running device, for a bounded
// time, all in this one thread, driven by poll(). Client i uses channels
// FIRST + i*PER .. FIRST + i*PER + PER-1, which must be read-write, 4 bytes
// each, and used by no one else. scripts/soak.sh starts a chanlink-device
// with such a table and runs this program against it.
//
// Passes (exit 0) when every set was acknowledged, every read-back equalled
// the value set, every value set came back through the subscription in
// order, and the resident memory of this process (and of the device, with
// --device-pid) grew by no more than the limit between the end of the
// warm-up and the end of the run. Exit 1 otherwise, 2 on bad usage.
//
// Usage: chanlink_soak --port PORT [--host 127.0.0.1] [--clients 50]
//            [--seconds 60] [--warmup SECONDS] [--channels-per-client 4]
//            [--first-channel 1000] [--user admin] [--password secret]
//            [--device-pid PID] [--rss-limit-kb 2048]
#include <poll.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "SoakClient.h"

namespace {

using Clock = std::chrono::steady_clock;

// Resident set size of a process in kB, from /proc; -1 when unreadable.
long residentKb(const std::string& pid) {
    std::ifstream status("/proc/" + pid + "/status");
    std::string key;
    while (status >> key) {
        if (key == "VmRSS:") {
            long kb = -1;
            status >> kb;
            return kb;
        }
        status.ignore(1 << 16, '\n');
    }
    return -1;
}

struct Options {
    std::map<std::string, std::string> values = {{"host", "127.0.0.1"},
                                                 {"port", ""},
                                                 {"clients", "50"},
                                                 {"seconds", "60"},
                                                 {"warmup", ""},
                                                 {"channels-per-client", "4"},
                                                 {"first-channel", "1000"},
                                                 {"user", "admin"},
                                                 {"password", "secret"},
                                                 {"device-pid", ""},
                                                 {"rss-limit-kb", "2048"}};

    bool parse(int argc, char** argv) {
        for (int i = 1; i + 1 < argc; i += 2) {
            const std::string name = argv[i];
            if (name.compare(0, 2, "--") != 0 || values.count(name.substr(2)) == 0) {
                return false;
            }
            values[name.substr(2)] = argv[i + 1];
        }
        return argc % 2 == 1 && !values["port"].empty();
    }
    unsigned long number(const std::string& name) { return std::stoul(values[name]); }
};

// Polls every session and ticks those with something to do, until done()
// holds or the deadline passes; whether done() held.
template <typename Done>
bool run(std::vector<std::unique_ptr<SoakClient>>& clients, Clock::time_point deadline, Done done) {
    std::vector<pollfd> descriptors(clients.size());
    while (!done()) {
        if (Clock::now() >= deadline) {
            return false;
        }
        for (std::size_t i = 0; i < clients.size(); ++i) {
            descriptors[i] = clients[i]->getPollDescriptor();
        }
        ::poll(descriptors.data(), descriptors.size(), 20);
        for (std::size_t i = 0; i < clients.size(); ++i) {
            // No descriptor (not connected yet): tick on the loop's schedule.
            if (descriptors[i].fd < 0 || descriptors[i].revents != 0) {
                clients[i]->tick();
            }
        }
    }
    return true;
}

template <typename Predicate>
bool all(const std::vector<std::unique_ptr<SoakClient>>& clients, Predicate predicate) {
    for (const auto& client : clients) {
        if (!predicate(*client)) {
            return false;
        }
    }
    return true;
}

const SoakClient* firstFailed(const std::vector<std::unique_ptr<SoakClient>>& clients) {
    for (const auto& client : clients) {
        if (client->failed()) {
            return client.get();
        }
    }
    return nullptr;
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    unsigned long clientCount = 0;
    unsigned long seconds = 0;
    unsigned long warmup = 0;
    unsigned long perClient = 0;
    unsigned long first = 0;
    long limitKb = 0;
    try {
        if (!options.parse(argc, argv)) {
            throw std::invalid_argument("usage");
        }
        clientCount = options.number("clients");
        seconds = options.number("seconds");
        perClient = options.number("channels-per-client");
        first = options.number("first-channel");
        limitKb = static_cast<long>(options.number("rss-limit-kb"));
        // Long enough for buffers and allocator pools to reach their size.
        warmup = options.values["warmup"].empty() ? (seconds >= 20 ? 5 : seconds / 4)
                                                  : options.number("warmup");
    } catch (const std::exception&) {
        std::fprintf(stderr,
                     "usage: chanlink_soak --port PORT [--clients N] [--seconds S] ...\n"
                     "(see the comment at the top of tests/soak/main.cpp)\n");
        return 2;
    }
    const std::string devicePid = options.values["device-pid"];
    std::printf("soak: %lu clients x %lu channels, %lu s (%lu s warm-up) against %s:%s\n",
                clientCount, perClient, seconds, warmup, options.values["host"].c_str(),
                options.values["port"].c_str());

    std::vector<std::unique_ptr<SoakClient>> clients;
    for (unsigned long i = 0; i < clientCount; ++i) {
        std::vector<unsigned int> channels;
        for (unsigned long j = 0; j < perClient; ++j) {
            channels.push_back(static_cast<unsigned int>(first + i * perClient + j));
        }
        clients.push_back(std::make_unique<SoakClient>(
            static_cast<unsigned int>(i), options.values["host"], options.values["port"],
            options.values["user"], options.values["password"], channels));
        clients.back()->start();
    }
    const auto anyFailed = [&] { return firstFailed(clients) != nullptr; };

    const Clock::time_point begin = Clock::now();
    run(clients, begin + std::chrono::seconds(10), [&] {
        return anyFailed() || all(clients, [](const SoakClient& c) { return c.loggedIn(); });
    });
    run(clients, begin + std::chrono::seconds(warmup), anyFailed);
    const long clientStart = residentKb("self");
    const long deviceStart = devicePid.empty() ? -1 : residentKb(devicePid);

    run(clients, begin + std::chrono::seconds(seconds), anyFailed);
    for (auto& client : clients) {
        client->finish();
    }
    const bool settled = run(clients, Clock::now() + std::chrono::seconds(10), [&] {
        return anyFailed() || all(clients, [](const SoakClient& c) { return c.settled(); });
    });
    const long clientEnd = residentKb("self");
    const long deviceEnd = devicePid.empty() ? -1 : residentKb(devicePid);
    const double elapsed = std::chrono::duration<double>(Clock::now() - begin).count();

    SoakClient::Counts total;
    for (const auto& client : clients) {
        total.sets += client->getCounts().sets;
        total.acknowledged += client->getCounts().acknowledged;
        total.readBacks += client->getCounts().readBacks;
        total.pushed += client->getCounts().pushed;
    }
    std::printf(
        "soak: sets %llu (%.0f/s), acknowledged %llu, read back equal %llu, "
        "seen through subscriptions %llu\n",
        static_cast<unsigned long long>(total.sets), total.sets / elapsed,
        static_cast<unsigned long long>(total.acknowledged),
        static_cast<unsigned long long>(total.readBacks),
        static_cast<unsigned long long>(total.pushed));
    std::printf("soak: RSS clients %ld kB -> %ld kB (%+ld kB)", clientStart, clientEnd,
                clientEnd - clientStart);
    if (!devicePid.empty()) {
        std::printf(", device %ld kB -> %ld kB (%+ld kB)", deviceStart, deviceEnd,
                    deviceEnd - deviceStart);
    }
    std::printf("; limit %+ld kB each\n", limitKb);

    std::vector<std::string> faults;
    if (const SoakClient* failed = firstFailed(clients)) {
        faults.push_back(failed->getFailure());
    } else if (!settled) {
        faults.push_back("requests still under way 10 s after the end");
    }
    if (total.sets == 0 || total.acknowledged != total.sets || total.readBacks != total.sets ||
        total.pushed != total.sets) {
        faults.push_back("not every set was acknowledged, read back and seen");
    }
    if (clientStart < 0 || clientEnd - clientStart > limitKb) {
        faults.push_back("the clients' memory grew beyond the limit");
    }
    if (!devicePid.empty() &&
        (deviceStart < 0 || deviceEnd < 0 || deviceEnd - deviceStart > limitKb)) {
        faults.push_back("the device's memory grew beyond the limit (or the device is gone)");
    }
    for (const std::string& fault : faults) {
        std::printf("soak: FAILED: %s\n", fault.c_str());
    }
    if (faults.empty()) {
        std::printf("soak: passed\n");
    }
    return faults.empty() ? 0 : 1;
}
