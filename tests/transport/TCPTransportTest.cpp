#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <vector>

#include "SocketFaults.h"
#include "chanlink/transport/TCPClientTransport.h"
#include "chanlink/transport/TCPServerTransportBuilder.h"
#include "support/TcpPair.h"

using testing_support::eventually;
using testing_support::TcpPair;
using States = ConnectionOutcome::ConnectionStates;

namespace {

class StateLog : public Receiver<ConnectionOutcome> {
public:
    void receive(const ConnectionOutcome& outcome) override { states.push_back(outcome.state); }
    std::vector<States> states;
};

std::string readSome(TCPTransport& transport, std::size_t wanted) {
    std::string received;
    eventually([&] {
        char buffer[256];
        const int n = transport.read(buffer, sizeof buffer);
        received.append(buffer, static_cast<std::size_t>(n > 0 ? n : 0));
        return received.size() >= wanted;
    });
    return received;
}

}  // namespace

TEST(TCPServerTransportBuilder, ServesIPv4AndIPv6ClientsBothWays) {
    for (const std::string host : {"127.0.0.1", "::1"}) {
        auto clientLog = std::make_shared<StateLog>();
        TcpPair c(host, clientLog);
        ASSERT_TRUE(c.server) << host;
        EXPECT_NE(std::stoi(c.listener.getListeningService()), 0);
        EXPECT_EQ(c.listener.accept(0, 0), nullptr);  // nothing pending: null at once
        EXPECT_EQ(c.server->state(), ConnectionOutcome::Connected);
        EXPECT_GT(c.server->getSocket(), 0);
        // Each change reported once, ending in Connected.
        ASSERT_FALSE(clientLog->states.empty());
        EXPECT_EQ(clientLog->states.back(), ConnectionOutcome::Connected);
        EXPECT_LE(clientLog->states.size(), 2u);

        const int socketBefore = c.client->getSocket();
        c.client->connect();  // already connected: no new attempt, no report
        EXPECT_EQ(c.client->getSocket(), socketBefore);
        EXPECT_LE(clientLog->states.size(), 2u);

        EXPECT_EQ(c.client->write("ping", 4), 4);
        EXPECT_EQ(readSome(*c.server, 4), "ping");
        EXPECT_EQ(c.server->write("pong!", 5), 5);
        EXPECT_EQ(readSome(*c.client, 5), "pong!");
    }
}

TEST(TCPClientTransport, WriteCompletesAPendingConnectAndSendsInTheSameCall) {
    TCPServerTransportBuilder listener("0", "::1");
    ASSERT_TRUE(listener.isListening());
    auto log = std::make_shared<StateLog>();
    TCPClientTransport client("::1", listener.getListeningService(), log);
    client.connect();
    // Never ticked: only write drives the connect to completion.
    ASSERT_TRUE(eventually([&] { return client.write("x", 1) == 1; }));
    EXPECT_EQ(log->states.back(), ConnectionOutcome::Connected);
    std::shared_ptr<TCPTransport> server;
    ASSERT_TRUE(eventually([&] { return (server = listener.accept(0, 1000)) != nullptr; }));
    EXPECT_EQ(readSome(*server, 1), "x");
}

TEST(TCPTransport, PeerClosingIsReportedExactlyOnce) {
    auto clientLog = std::make_shared<StateLog>();
    TcpPair c("127.0.0.1", clientLog);
    ASSERT_TRUE(c.server);
    auto serverLog = std::make_shared<StateLog>();
    c.server->setReceiver(serverLog);
    EXPECT_TRUE(serverLog->states.empty());  // setting a receiver reports nothing

    c.client.reset();  // destruction closes and reports
    EXPECT_EQ(clientLog->states.back(), ConnectionOutcome::Closed);

    char buffer[16];
    ASSERT_TRUE(eventually([&] {
        EXPECT_EQ(c.server->read(buffer, sizeof buffer), 0);
        return c.server->state() == ConnectionOutcome::Closed;
    }));
    EXPECT_EQ(c.server->getSocket(), -1);
    EXPECT_EQ(c.server->read(buffer, sizeof buffer), 0);
    EXPECT_EQ(c.server->write("x", 1), 0);
    c.server->close();
    EXPECT_EQ(serverLog->states, std::vector<States>{ConnectionOutcome::Closed});
}

TEST(TCPClientTransport, RefusedAndUnresolvableConnectionsFail) {
    std::string closedPort;
    {
        TCPServerTransportBuilder listener("0", "");
        closedPort = listener.getListeningService();
    }
    auto log = std::make_shared<StateLog>();
    TCPClientTransport refused("127.0.0.1", closedPort, log);
    EXPECT_EQ(refused.blockingConnect(), ConnectionOutcome::ConnectionFailed);
    EXPECT_EQ(refused.getSocket(), -1);
    EXPECT_EQ(log->states.back(), ConnectionOutcome::ConnectionFailed);
    refused.close();  // from ConnectionFailed, closing is still reported
    EXPECT_EQ(log->states.back(), ConnectionOutcome::Closed);

    // A label longer than 63 characters: the resolver rejects the name itself,
    // so the test sends no query anywhere.
    auto unresolvedLog = std::make_shared<StateLog>();
    TCPClientTransport unresolvable(std::string(70, 'x') + ".invalid", "80", unresolvedLog);
    unresolvable.connect();
    unresolvable.connect();  // still failed: the repeat is not reported
    EXPECT_EQ(unresolvedLog->states, std::vector<States>{ConnectionOutcome::ConnectionFailed});
    char buffer[4];
    EXPECT_EQ(unresolvable.read(buffer, sizeof buffer), 0);
    EXPECT_EQ(unresolvable.write(buffer, sizeof buffer), 0);
}

TEST(TCPTransport, AFullSocketTakesNothingWithoutBlockingAndLosesNothing) {
    TcpPair c;
    ASSERT_TRUE(c.server);

    std::vector<char> chunk(64 * 1024);
    std::size_t accepted = 0;
    int last = -1;
    for (int i = 0; i < 4096 && last != 0; ++i) {  // bounded: at most 256 MiB
        for (std::size_t j = 0; j < chunk.size(); ++j) {
            chunk[j] = static_cast<char>((accepted + j) % 251);
        }
        last = c.client->write(chunk.data(), static_cast<int>(chunk.size()));
        accepted += static_cast<std::size_t>(last);
    }
    ASSERT_EQ(last, 0) << "the peer never stopped taking bytes";
    EXPECT_EQ(c.client->state(), ConnectionOutcome::Connected);

    std::size_t received = 0;
    bool intact = true;
    ASSERT_TRUE(eventually(
        [&] {
            char buffer[65536];
            const int n = c.server->read(buffer, sizeof buffer);
            for (int k = 0; k < n; ++k) {
                intact &=
                    buffer[k] == static_cast<char>((received + static_cast<std::size_t>(k)) % 251);
            }
            received += static_cast<std::size_t>(n);
            return received == accepted;
        },
        std::chrono::milliseconds(20000)));
    EXPECT_TRUE(intact);
}

TEST(TCPServerTransportBuilder, APortInUseFailsToBindAndNeverAccepts) {
    TCPServerTransportBuilder first("0", "");
    ASSERT_TRUE(first.isListening());
    testing::internal::CaptureStderr();
    TCPServerTransportBuilder second(first.getListeningService(), "");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Cannot bind listening socket.\n");
    EXPECT_FALSE(second.isListening());
    EXPECT_EQ(second.accept(0, 0), nullptr);
    EXPECT_EQ(second.accept(-1, 0), nullptr);
    EXPECT_EQ(second.getListeningService(), "");

    testing::internal::CaptureStderr();
    TCPServerTransportBuilder unresolved("no-such-service-name", "");
    EXPECT_EQ(testing::internal::GetCapturedStderr().rfind("Cannot getaddrinfo: ", 0), 0u);
    EXPECT_EQ(unresolved.accept(0, 0), nullptr);
}

TEST(TCPTransport, RareSocketErrorsFollowTheirOwnRules) {
    TcpPair c;
    ASSERT_TRUE(c.server);
    auto log = std::make_shared<StateLog>();
    c.server->setReceiver(log);
    char buffer[8];

    // recv: EINPROGRESS is taken like EAGAIN, the connection stays.
    socket_faults::failNextRecv(c.server->getSocket(), EINPROGRESS);
    EXPECT_EQ(c.server->read(buffer, sizeof buffer), 0);
    EXPECT_EQ(c.server->state(), ConnectionOutcome::Connected);
    socket_faults::failNextSend(c.server->getSocket(), EAGAIN);
    EXPECT_EQ(c.server->write("x", 1), 0);
    EXPECT_EQ(c.server->state(), ConnectionOutcome::Connected);
    EXPECT_TRUE(log->states.empty());

    // send: only EAGAIN is harmless; EINPROGRESS closes.
    socket_faults::failNextSend(c.server->getSocket(), EINPROGRESS);
    EXPECT_EQ(c.server->write("x", 1), 0);
    EXPECT_EQ(log->states, std::vector<States>{ConnectionOutcome::Closed});

    socket_faults::failNextRecv(c.client->getSocket(), ECONNRESET);
    EXPECT_EQ(c.client->read(buffer, sizeof buffer), 0);
    EXPECT_EQ(c.client->state(), ConnectionOutcome::Closed);
    socket_faults::clear();

    // Nonsense lengths never reach the socket.
    TcpPair d("::1");
    ASSERT_TRUE(d.server);
    EXPECT_EQ(d.server->read(buffer, 0), 0);
    EXPECT_EQ(d.server->read(buffer, -5), 0);
    EXPECT_EQ(d.server->write(buffer, -5), 0);
    EXPECT_EQ(d.server->read(nullptr, 8), 0);
    EXPECT_EQ(d.server->state(), ConnectionOutcome::Connected);
}
