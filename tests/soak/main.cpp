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
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

namespace {

long residentKb(const std::string& pid) {
    std::ifstream statm("/proc/" + pid + "/statm");  // sizes in pages: total, then resident
    long pages = -1;                                 // stays so when the process is gone
    statm >> pages >> pages;
    return pages < 0 ? -1 : pages * (::sysconf(_SC_PAGESIZE) / 1024);
}

struct Client {
    std::shared_ptr<TCPClientTransport> transport;
    std::shared_ptr<ClientSession> session;
    std::vector<unsigned int> channels;
    unsigned int channel = 0;
    std::vector<unsigned char> value;
    // How often the subscription showed value: twice, as the device's push
    // and as the read-back, the second maybe a tick after the read-back.
    int seen = 0;
    bool busy = false;  // the set or its read-back is under way
    unsigned long long sets = 0, done = 0;
    std::string failure;

    void fail(const std::string& why) {
        if (failure.empty()) {
            failure = "channel " + std::to_string(channel) + ": " + why;
        }
    }

    bool roundOver() const { return !busy && (sets == 0 || seen >= 2); }
    void check() {
        if (!busy && sets > 0 && seen != 2) {
            fail("the subscription showed the value " + std::to_string(seen) + " times");
        }
    }
    // After checking the round before: sets a new value, and reads it back
    // once the set is acknowledged.
    void next() {
        check();
        busy = failure.empty();
        if (!busy) {
            return;
        }
        seen = 0;
        channel = channels[sets % channels.size()];
        const auto n = static_cast<unsigned int>(++sets);
        value = {static_cast<unsigned char>(n), static_cast<unsigned char>(n >> 8),
                 static_cast<unsigned char>(n >> 16), static_cast<unsigned char>(channel)};
        session->setChannel(channel, value, makeReceiver<SetOutcome>([this](const SetOutcome& s) {
                                if (!s.getSuccess() || s.getChannelId() != channel) {
                                    return fail(std::string("set refused: ") +
                                                ReasonCode::describe(s.getReasonCode()));
                                }
                                session->requestChannel(
                                    channel, makeReceiver<GetOutcome>([this](const GetOutcome& g) {
                                        if (g.getData() != value) {
                                            return fail("read back another value");
                                        }
                                        ++done;
                                        busy = false;
                                    }));
                            }));
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
        c.transport = std::make_shared<TCPClientTransport>("127.0.0.1", port, nullptr);
        c.session = ClientSessionBuilder()
                        .setTransport(c.transport)
                        .setUsername("admin")
                        .setPassword("secret")
                        .build();
        c.session->addErrorResponseReceiver(
            makeReceiver<ErrorResponse>([&c](const ErrorResponse&) { c.fail("error response"); }));
        auto pushed = makeReceiver<GetOutcome>([&c](const GetOutcome& o) {
            c.seen += o.getChannelId() == c.channel && o.getData() == c.value;
        });
        for (unsigned long j = 0; j < perClient; ++j) {
            c.channels.push_back(static_cast<unsigned int>(first + i * perClient + j));
            c.session->addSubscription(c.channels.back(), pushed);
        }
        c.transport->connect();
        c.session->initiateLogin();
    }

    // Every client ticks when its socket has work (or has none yet).
    SessionWaiter waiter;
    std::vector<pollfd> fds(count, pollfd{-1, 0, 0});
    bool finishing = false;
    const auto tick = [&] {
        for (unsigned long i = 0; i < count; ++i) {
            Client& c = clients[i];
            if (fds[i].fd < 0 || fds[i].revents != 0) {
                c.session->tick();
            }
            if (c.transport->state() >= ConnectionOutcome::ConnectionFailed) {
                c.fail("connection lost");
            } else if (!finishing && c.failure.empty() && c.roundOver() &&
                       c.session->getLoginState().loggedIn()) {
                c.next();
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
        return std::any_of(clients.begin(), clients.end(),
                           [](const Client& c) { return !c.failure.empty(); });
    };
    const unsigned long warmup = seconds >= 20 ? 5 : seconds / 4;
    waiter.run(tick, wait, failed, std::chrono::seconds(warmup));
    const long clientStart = residentKb("self"), deviceStart = residentKb(devicePid);
    waiter.run(tick, wait, failed, std::chrono::seconds(seconds - warmup));
    finishing = true;  // the last round may still be under way
    const auto settled = [&] {
        return std::all_of(clients.begin(), clients.end(),
                           [](const Client& c) { return c.roundOver() || !c.failure.empty(); });
    };
    const bool ended =
        waiter.run(tick, wait, settled, std::chrono::seconds(10)) == SessionWaiter::Result::Done;
    const long clientEnd = residentKb("self"), deviceEnd = residentKb(devicePid);

    unsigned long long sets = 0, done = 0;
    std::string failure;
    for (Client& c : clients) {
        c.check();
        sets += c.sets;
        done += c.done;
        failure = failure.empty() ? c.failure : failure;
    }
    if (failure.empty() && (!ended || done == 0)) {
        failure = ended ? "no set went through" : "rounds still under way 10 s after the end";
    }
    std::printf(
        "soak: %llu sets, %llu acknowledged, read back and pushed; RSS clients %ld -> %ld kB, "
        "device %ld -> %ld kB (limit %+ld kB)\n",
        sets, done, clientStart, clientEnd, deviceStart, deviceEnd, limitKb);
    if (failure.empty() && (clientEnd - clientStart > limitKb || deviceStart < 0 || deviceEnd < 0 ||
                            deviceEnd - deviceStart > limitKb)) {
        failure = "memory grew beyond the limit (or the device is gone)";
    }
    std::printf("soak: %s%s\n", failure.empty() ? "passed" : "FAILED: ", failure.c_str());
    return failure.empty() ? 0 : 1;
}
