// The simplest chanlink client: log in to a device and read a few channels.
//
//   read_channels HOST PORT USER PASSWORD CHANNEL...
//
// Every wait has a deadline, so a silent device cannot hang the program.
#include <chanlink/chanlink.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>

namespace {

using Clock = std::chrono::steady_clock;

// Ticks the session until done() is true or the deadline passes.
template <typename Done>
bool tickUntil(ClientSession& session, Clock::time_point deadline, Done done) {
    while (!done()) {
        if (Clock::now() > deadline) {
            return false;
        }
        session.tick();
    }
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 6) {
        std::fprintf(stderr, "usage: %s HOST PORT USER PASSWORD CHANNEL...\n", argv[0]);
        return 2;
    }
    const auto deadline = Clock::now() + std::chrono::seconds(5);

    // A TCP transport, and a session on it. The session drives the connect.
    auto transport = std::make_shared<TCPClientTransport>(argv[1], argv[2], nullptr);
    transport->connect();
    auto session = ClientSessionBuilder()
                       .setTransport(transport)
                       .setUsername(argv[3])
                       .setPassword(argv[4])
                       .build();

    // Log in. Requests made before the login succeeds wait for it.
    const auto connectionLost = [&] {
        return transport->state() == ConnectionOutcome::ConnectionFailed ||
               transport->state() == ConnectionOutcome::Closed;
    };
    session->initiateLogin();
    tickUntil(*session, deadline,
              [&] { return !session->getLoginState().loginPending() || connectionLost(); });
    if (connectionLost()) {
        std::fprintf(stderr, "cannot connect to %s:%s\n", argv[1], argv[2]);
        return 1;
    }
    if (session->getLoginState().loginPending()) {
        std::fprintf(stderr, "no answer from %s:%s\n", argv[1], argv[2]);
        return 1;
    }
    if (!session->getLoginState().loggedIn()) {
        std::fprintf(stderr, "login refused (%s)\n",
                     LoginOutcome::name(session->getLoginState().getState()));
        return 1;
    }

    // Ask for every channel at once; each answer arrives as a GetOutcome.
    std::map<unsigned int, GetOutcome> answers;
    for (int i = 5; i < argc; ++i) {
        const auto channel = static_cast<unsigned int>(std::strtoul(argv[i], nullptr, 0));
        session->requestChannel(channel, makeReceiver<GetOutcome>([&answers](const GetOutcome& o) {
                                    answers.emplace(o.getChannelId(), o);
                                }));
    }
    const std::size_t wanted = static_cast<std::size_t>(argc - 5);
    const bool complete = tickUntil(*session, deadline, [&] { return answers.size() >= wanted; });

    for (const auto& [channel, outcome] : answers) {
        if (!outcome.getSuccess()) {
            std::printf("channel %u: refused, reason %u\n", channel, outcome.getReasonCode());
            continue;
        }
        std::printf("channel %u:", channel);
        for (unsigned char byte : outcome.getData()) {
            std::printf(" %02X", byte);
        }
        std::printf("\n");
    }
    if (!complete) {
        std::fprintf(stderr, "timed out waiting for %zu channel(s)\n", wanted - answers.size());
        return 1;
    }
    return 0;
}
