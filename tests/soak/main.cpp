// chanlink_soak PORT CLIENTS SECONDS FIRST_CHANNEL PER_CLIENT DEVICE_PID RSS_LIMIT_KB
//
// Many clients against one running device (scripts/soak.sh starts it), all
// in this one thread. Client i owns channels FIRST + i*PER .. + PER-1 (4
// bytes, read-write) and, round after round, sets one of them to a new
// value, reads it back and checks that its subscription showed the value in
// between. Passes (exit 0) when every set was acknowledged, read back equal
// and seen through the subscription, nothing else arrived, and neither this
// process nor the device grew by more than the limit after the warm-up.
#include <chanlink/chanlink.h>
#include <poll.h>

#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

namespace {

long residentKb(const std::string& pid) {
    std::ifstream status("/proc/" + pid + "/status");
    for (std::string key; status >> key;) {
        if (key == "VmRSS:") {
            long kb = -1;
            status >> kb;
            return kb;
        }
    }
    return -1;
}

struct Client {
    std::shared_ptr<TCPClientTransport> transport;
    std::shared_ptr<ClientSession> session;
    std::vector<unsigned int> channels;
    std::size_t round = 0;
    unsigned int channel = 0, previousChannel = 0;
    std::vector<unsigned char> value, previous;
    // How often the subscription showed the value set and the one before:
    // twice each, as the device's push and as the read-back.
    int seen = 0, seenPrevious = 0;
    bool busy = false, finishing = false;
    unsigned long long sets = 0, done = 0;
    std::string failure;

    void fail(const std::string& why) {
        if (failure.empty()) {
            failure = "channel " + std::to_string(channel) + ": " + why;
        }
    }

    // One round: set, then read back once the set is acknowledged.
    void next() {
        busy = !finishing && failure.empty();
        if (!busy) {
            return;
        }
        previousChannel = channel;
        previous = value;
        seenPrevious = seen;
        seen = 0;
        channel = channels[round % channels.size()];
        const auto n = static_cast<unsigned int>(++round);
        value = {static_cast<unsigned char>(n), static_cast<unsigned char>(n >> 8),
                 static_cast<unsigned char>(n >> 16), static_cast<unsigned char>(channel)};
        ++sets;
        session->setChannel(channel, value, makeReceiver<SetOutcome>([this](const SetOutcome& s) {
                                if (!s.getSuccess() || s.getChannelId() != channel) {
                                    return fail(std::string("set refused: ") +
                                                ReasonCode::describe(s.getReasonCode()));
                                }
                                // Everything about the round before has been delivered by now.
                                if (round > 1 && seenPrevious != 2) {
                                    return fail("the subscription showed the value before " +
                                                std::to_string(seenPrevious) + " times");
                                }
                                session->requestChannel(
                                    channel, makeReceiver<GetOutcome>([this](const GetOutcome& g) {
                                        if (g.getData() != value) {
                                            return fail("read back another value");
                                        }
                                        ++done;
                                        next();
                                    }));
                            }));
    }

    void pushed(const GetOutcome& outcome) {
        if (outcome.getChannelId() == channel && outcome.getData() == value) {
            ++seen;
        } else if (outcome.getChannelId() == previousChannel && outcome.getData() == previous) {
            ++seenPrevious;
        }
    }
};

}  // namespace

int main(int argc, char** argv) {
    if (argc != 8) {
        std::fprintf(stderr, "usage: see the comment at the top of tests/soak/main.cpp\n");
        return 2;
    }
    const std::string port = argv[1], devicePid = argv[6];
    const unsigned long count = std::stoul(argv[2]), seconds = std::stoul(argv[3]);
    const unsigned long first = std::stoul(argv[4]), perClient = std::stoul(argv[5]);
    const long limitKb = std::stol(argv[7]);

    std::vector<Client> clients(count);
    for (unsigned long i = 0; i < count; ++i) {
        Client& c = clients[i];
        for (unsigned long j = 0; j < perClient; ++j) {
            c.channels.push_back(static_cast<unsigned int>(first + i * perClient + j));
        }
        c.transport = std::make_shared<TCPClientTransport>("127.0.0.1", port, nullptr);
        c.session = ClientSessionBuilder()
                        .setTransport(c.transport)
                        .setUsername("admin")
                        .setPassword("secret")
                        .build();
        c.session->addLoginOutcomeReceiver(makeReceiver<LoginOutcome>([&c](const LoginOutcome& o) {
            if (o.loggedIn() && !c.busy) {
                c.next();
            } else if (!o.loggedIn() && !o.loginPending()) {
                c.fail("login refused");
            }
        }));
        c.session->addErrorResponseReceiver(
            makeReceiver<ErrorResponse>([&c](const ErrorResponse&) { c.fail("error response"); }));
        auto pushed = makeReceiver<GetOutcome>([&c](const GetOutcome& o) { c.pushed(o); });
        for (unsigned int id : c.channels) {
            c.session->addSubscription(id, pushed);
        }
        c.transport->connect();
        c.session->initiateLogin();
    }

    // Every client ticks when its socket has work (or has none yet).
    SessionWaiter waiter;
    std::vector<pollfd> fds(count, pollfd{-1, 0, 0});
    const auto tick = [&] {
        for (unsigned long i = 0; i < count; ++i) {
            if (fds[i].fd < 0 || fds[i].revents != 0) {
                clients[i].session->tick();
            }
            if (clients[i].transport->state() >= ConnectionOutcome::ConnectionFailed) {
                clients[i].fail("connection lost");
            }
        }
    };
    const auto wait = [&](std::chrono::milliseconds remaining) {
        for (unsigned long i = 0; i < count; ++i) {
            fds[i] = SessionWaiter::pollDescriptor(*clients[i].session);
        }
        ::poll(fds.data(), fds.size(),
               static_cast<int>(std::min<long long>(remaining.count(), 20)));
    };
    const auto failed = [&] {
        for (const Client& c : clients) {
            if (!c.failure.empty()) {
                return true;
            }
        }
        return false;
    };
    const unsigned long warmup = seconds >= 20 ? 5 : seconds / 4;
    waiter.run(tick, wait, failed, std::chrono::seconds(warmup));
    const long clientStart = residentKb("self"), deviceStart = residentKb(devicePid);
    waiter.run(tick, wait, failed, std::chrono::seconds(seconds - warmup));
    for (Client& c : clients) {
        c.finishing = true;
    }
    const bool settled = waiter.run(
                             tick, wait,
                             [&] {
                                 for (const Client& c : clients) {
                                     // The read-back of the last round may still be on its way: a
                                     // get is answered by the device's push as well.
                                     if ((c.busy || c.seen != 2) && c.failure.empty()) {
                                         return false;
                                     }
                                 }
                                 return true;
                             },
                             std::chrono::seconds(10)) == SessionWaiter::Result::Done;
    const long clientEnd = residentKb("self"), deviceEnd = residentKb(devicePid);

    unsigned long long sets = 0, done = 0;
    std::string failure = settled ? "" : "rounds still under way 10 s after the end";
    for (const Client& c : clients) {
        sets += c.sets;
        done += c.done;
        failure = failure.empty() ? c.failure : failure;
        if (failure.empty() && c.seen != 2) {
            failure = "the last value set was shown " + std::to_string(c.seen) + " times";
        }
    }
    std::printf(
        "soak: %llu sets, %llu acknowledged, read back and pushed; RSS clients %ld -> %ld "
        "kB, device %ld -> %ld kB (limit %+ld kB)\n",
        sets, done, clientStart, clientEnd, deviceStart, deviceEnd, limitKb);
    if (failure.empty() && (done == 0 || done != sets)) {
        failure = "not every set went through";
    }
    if (failure.empty() && (clientEnd - clientStart > limitKb || deviceStart < 0 || deviceEnd < 0 ||
                            deviceEnd - deviceStart > limitKb)) {
        failure = "memory grew beyond the limit (or the device is gone)";
    }
    std::printf("soak: %s%s\n", failure.empty() ? "passed" : "FAILED: ", failure.c_str());
    return failure.empty() ? 0 : 1;
}
