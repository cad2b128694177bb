// The transports: the loop-back's capacity, and the TCP transports at their
// sockets (states as reported, bytes both ways, the rule for each error).
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>

#include <atomic>
#include <cerrno>
#include <string>
#include <vector>

#include "chanlink/chanlink.h"
#include "support/Bytes.h"
#include "support/TcpPair.h"

using testing_support::bytes;
using testing_support::Bytes;
using testing_support::eventually;
using testing_support::TcpPair;
using States = std::vector<ConnectionOutcome::ConnectionStates>;

namespace {

// recv, send, connect and listen as defined below take precedence over the C
// library's: the next call on an armed descriptor (or any, for AnySocket)
// fails with the armed errno, for error paths that real sockets do not
// produce on demand.
enum Call { Recv, Send, Connect, Listen };
constexpr int AnySocket = -2;
std::atomic<int> armed[4] = {-1, -1, -1, -1};
std::atomic<int> armedError[4];

void failNext(Call call, int descriptor, int error) {
    armedError[call] = error;
    armed[call] = descriptor;
}

bool failsNow(Call call, int descriptor) {
    int expected = armed[call];
    if (descriptor < 0 || (expected != descriptor && expected != AnySocket) ||
        !armed[call].compare_exchange_strong(expected, -1)) {
        return false;
    }
    errno = armedError[call];
    return true;
}

struct StateLog : Receiver<ConnectionOutcome> {
    void receive(const ConnectionOutcome& outcome) override { states.push_back(outcome.state); }
    States states;
};

std::string readSome(Transport& transport, std::size_t wanted) {
    std::string received;
    eventually([&] {
        char buffer[256];
        received.append(buffer, static_cast<std::size_t>(transport.read(buffer, sizeof buffer)));
        return received.size() >= wanted;
    });
    return received;
}

}  // namespace

extern "C" ssize_t recv(int descriptor, void* buffer, size_t length, int flags) {
    static const auto real =
        reinterpret_cast<ssize_t (*)(int, void*, size_t, int)>(::dlsym(RTLD_NEXT, "recv"));
    return failsNow(Recv, descriptor) ? -1 : real(descriptor, buffer, length, flags);
}

extern "C" ssize_t send(int descriptor, const void* buffer, size_t length, int flags) {
    static const auto real =
        reinterpret_cast<ssize_t (*)(int, const void*, size_t, int)>(::dlsym(RTLD_NEXT, "send"));
    return failsNow(Send, descriptor) ? -1 : real(descriptor, buffer, length, flags);
}

extern "C" int connect(int descriptor, const sockaddr* address, socklen_t length) {
    static const auto real =
        reinterpret_cast<int (*)(int, const sockaddr*, socklen_t)>(::dlsym(RTLD_NEXT, "connect"));
    return failsNow(Connect, descriptor) ? -1 : real(descriptor, address, length);
}

extern "C" int listen(int descriptor, int backlog) {
    static const auto real = reinterpret_cast<int (*)(int, int)>(::dlsym(RTLD_NEXT, "listen"));
    return failsNow(Listen, descriptor) ? -1 : real(descriptor, backlog);
}

TEST(LoopBackTransport, TakesUpToItsCapacityAndGivesBackInOrder) {
    LoopBackTransport transport(10);
    WriteTransport& writer = transport;  // the second base, as endpoints hold it
    const Bytes data = bytes("01 02 03 04 05 06 07 08 09 0A 0B 0C");
    Bytes out(16, 0xEE);
    EXPECT_EQ(writer.write(data.data(), 6), 6);
    EXPECT_EQ(writer.write(data.data() + 6, 6), 4);
    EXPECT_EQ(writer.write(data.data(), 6), 0);  // full
    EXPECT_EQ(transport.read(out.data(), 3), 3);
    EXPECT_EQ(transport.write(data.data() + 10, 2), 2);  // reading made room
    for (const int length : {0, -1}) {
        EXPECT_EQ(transport.write(data.data(), length), 0);
    }
    EXPECT_EQ(transport.write(nullptr, 3), 0);
    EXPECT_EQ(transport.read(out.data(), 0), 0);
    EXPECT_EQ(transport.read(nullptr, 3), 0);
    EXPECT_EQ(transport.read(out.data() + 3, -1), 9);  // a negative length asks for everything
    EXPECT_EQ(transport.read(out.data(), 16), 0);
    EXPECT_EQ(out, bytes("01 02 03 04 05 06 07 08 09 0A 0B 0C EE EE EE EE"));
    for (const int capacity : {0, -1}) {
        EXPECT_EQ(LoopBackTransport(capacity).write(data.data(), 2), 0) << capacity;
    }
    EXPECT_FALSE(TransportPoll::of(transport).hasSocket);  // nothing to wait on, ever
}

TEST(TCPServerTransportBuilder, ServesIPv4AndIPv6ClientsBothWays) {
    for (const std::string host : {"127.0.0.1", "::1"}) {
        auto clientLog = std::make_shared<StateLog>();
        TcpPair c(host, clientLog);
        ASSERT_TRUE(c.server) << host;
        EXPECT_NE(std::stoi(c.listener.getListeningService()), 0);
        EXPECT_EQ(c.listener.accept(0, 0), nullptr);  // nothing pending: null at once
        EXPECT_EQ(c.server->state(), ConnectionOutcome::Connected);
        EXPECT_GT(c.server->getSocket(), 0);
        EXPECT_EQ(TransportPoll::of(*c.server).entry(false).events, POLLIN);
        // Each change reported once, ending in Connected; connecting again
        // while connected makes no new attempt and no report.
        const int socketBefore = c.client->getSocket();
        c.client->connect();
        EXPECT_EQ(c.client->getSocket(), socketBefore);
        ASSERT_FALSE(clientLog->states.empty());
        EXPECT_EQ(clientLog->states.back(), ConnectionOutcome::Connected);
        EXPECT_LE(clientLog->states.size(), 2u);

        EXPECT_EQ(c.client->write("ping", 4), 4);
        EXPECT_EQ(readSome(*c.server, 4), "ping");
        EXPECT_EQ(c.server->write("pong!", 5), 5);
        EXPECT_EQ(readSome(*c.client, 5), "pong!");
    }
}

TEST(TCPClientTransport, AReadOrWriteCompletesAPendingConnectAndMovesBytesInTheSameCall) {
    TCPServerTransportBuilder listener("0", "::1");
    auto log = std::make_shared<StateLog>();
    TCPClientTransport writer("::1", listener.getListeningService(), log);
    writer.connect();
    if (writer.state() == ConnectionOutcome::Connecting) {  // waits to be writable
        EXPECT_EQ(TransportPoll::of(writer).entry(false).events, POLLOUT);
    }
    // Never ticked: only write drives the connect to completion.
    ASSERT_TRUE(eventually([&] { return writer.write("x", 1) == 1; }));
    EXPECT_EQ(log->states.back(), ConnectionOutcome::Connected);
    std::shared_ptr<TCPTransport> server;
    ASSERT_TRUE(eventually([&] { return (server = listener.accept(0, 1000)) != nullptr; }));
    EXPECT_EQ(readSome(*server, 1), "x");

    TCPClientTransport reader("::1", listener.getListeningService(), nullptr);
    reader.connect();
    ASSERT_TRUE(eventually([&] { return (server = listener.accept(0, 1000)) != nullptr; }));
    server->write("y", 1);
    pollfd readable{reader.getSocket(), POLLIN, 0};
    ASSERT_EQ(::poll(&readable, 1, 5000), 1);
    char buffer[4];
    EXPECT_EQ(reader.read(buffer, sizeof buffer), 1);
}

TEST(TCPTransport, PeerClosingIsReportedExactlyOnce) {
    auto clientLog = std::make_shared<StateLog>();
    TcpPair c("127.0.0.1", clientLog);
    ASSERT_TRUE(c.server);
    auto serverLog = std::make_shared<StateLog>();
    c.server->setReceiver(serverLog);  // reports nothing yet
    c.client.reset();                  // destruction closes and reports
    EXPECT_EQ(clientLog->states.back(), ConnectionOutcome::Closed);

    char buffer[16];
    ASSERT_TRUE(eventually([&] {
        EXPECT_EQ(c.server->read(buffer, sizeof buffer), 0);
        return c.server->state() == ConnectionOutcome::Closed;
    }));
    EXPECT_EQ(c.server->getSocket(), -1);
    EXPECT_EQ(TransportPoll::of(*c.server).entry(true).fd, -1);
    EXPECT_EQ(c.server->read(buffer, sizeof buffer), 0);
    EXPECT_EQ(c.server->write("x", 1), 0);
    c.server->close();
    EXPECT_EQ(serverLog->states, States{ConnectionOutcome::Closed});
}

TEST(TCPClientTransport, RefusedAndUnresolvableConnectionsFail) {
    std::string closedPort = TCPServerTransportBuilder("0", "").getListeningService();
    auto log = std::make_shared<StateLog>();
    TCPClientTransport refused("127.0.0.1", closedPort, log);
    EXPECT_EQ(refused.blockingConnect(), ConnectionOutcome::ConnectionFailed);
    EXPECT_EQ(refused.getSocket(), -1);
    EXPECT_EQ(log->states.back(), ConnectionOutcome::ConnectionFailed);
    refused.close();  // from ConnectionFailed, closing is still reported
    EXPECT_EQ(log->states.back(), ConnectionOutcome::Closed);

    failNext(Connect, AnySocket, ENETUNREACH);  // a connect that fails at once
    TCPClientTransport unreachable("127.0.0.1", closedPort, nullptr);
    EXPECT_EQ(unreachable.blockingConnect(), ConnectionOutcome::ConnectionFailed);
    EXPECT_EQ(unreachable.getSocket(), -1);

    // A label longer than 63 characters: the resolver rejects the name itself,
    // so the test sends no query anywhere.
    auto unresolvedLog = std::make_shared<StateLog>();
    TCPClientTransport unresolvable(std::string(70, 'x') + ".invalid", "80", unresolvedLog);
    unresolvable.connect();
    unresolvable.connect();  // still failed: the repeat is not reported
    EXPECT_EQ(unresolvedLog->states, States{ConnectionOutcome::ConnectionFailed});
    char buffer[4];
    EXPECT_EQ(unresolvable.read(buffer, sizeof buffer), 0);
    EXPECT_EQ(unresolvable.write(buffer, sizeof buffer), 0);
}

TEST(TCPTransport, AFullSocketTakesNothingWithoutBlockingAndLosesNothing) {
    TcpPair c;
    ASSERT_TRUE(c.server);
    std::vector<char> sent;
    std::vector<char> chunk(64 * 1024);
    for (int last = -1, i = 0; last != 0; ++i) {
        ASSERT_LT(i, 4096) << "the peer never stopped taking bytes";  // at most 256 MiB
        for (std::size_t j = 0; j < chunk.size(); ++j) {
            chunk[j] = static_cast<char>((sent.size() + j) % 251);
        }
        last = c.client->write(chunk.data(), static_cast<int>(chunk.size()));
        sent.insert(sent.end(), chunk.begin(), chunk.begin() + last);
    }
    EXPECT_EQ(c.client->state(), ConnectionOutcome::Connected);
    std::vector<char> received;
    ASSERT_TRUE(eventually(
        [&] {
            char buffer[65536];
            received.insert(received.end(), buffer, buffer + c.server->read(buffer, sizeof buffer));
            return received.size() >= sent.size();
        },
        std::chrono::milliseconds(20000)));
    EXPECT_TRUE(received == sent);
}

TEST(TCPServerTransportBuilder, ASetUpThatFailsSaysWhyAndNeverAccepts) {
    TCPServerTransportBuilder first("0", "");
    const std::string inUse = first.getListeningService();
    const std::pair<std::string, std::string> failures[] = {
        {inUse, "Cannot bind listening socket.\n"},
        {"no-such-service-name", "Cannot getaddrinfo: "},
        {"0", "Cannot listen.\n"},  // listen fails below
    };
    for (const auto& [service, message] : failures) {
        if (service == "0") {
            failNext(Listen, AnySocket, EADDRINUSE);
        }
        testing::internal::CaptureStderr();
        TCPServerTransportBuilder builder(service, "");
        EXPECT_EQ(testing::internal::GetCapturedStderr().rfind(message, 0), 0u) << message;
        EXPECT_FALSE(builder.isListening());
        EXPECT_EQ(builder.accept(0, 0), nullptr);
        EXPECT_EQ(builder.getListeningService(), "");
    }
    armed[Listen] = -1;
}

TEST(TCPTransport, RareSocketErrorsFollowTheirOwnRules) {
    TcpPair c;
    ASSERT_TRUE(c.server);
    auto log = std::make_shared<StateLog>();
    c.server->setReceiver(log);
    char buffer[8];
    // Nonsense lengths never reach the socket.
    EXPECT_EQ(c.server->read(buffer, 0), 0);
    EXPECT_EQ(c.server->read(buffer, -5), 0);
    EXPECT_EQ(c.server->write(buffer, -5), 0);
    EXPECT_EQ(c.server->read(nullptr, 8), 0);

    // recv: EINPROGRESS is taken like EAGAIN, the connection stays.
    failNext(Recv, c.server->getSocket(), EINPROGRESS);
    EXPECT_EQ(c.server->read(buffer, sizeof buffer), 0);
    failNext(Send, c.server->getSocket(), EAGAIN);
    EXPECT_EQ(c.server->write("x", 1), 0);
    EXPECT_TRUE(log->states.empty());
    EXPECT_EQ(c.server->state(), ConnectionOutcome::Connected);

    // send: only EAGAIN is harmless; EINPROGRESS closes.
    failNext(Send, c.server->getSocket(), EINPROGRESS);
    EXPECT_EQ(c.server->write("x", 1), 0);
    EXPECT_EQ(log->states, States{ConnectionOutcome::Closed});

    failNext(Recv, c.client->getSocket(), ECONNRESET);
    EXPECT_EQ(c.client->read(buffer, sizeof buffer), 0);
    EXPECT_EQ(c.client->state(), ConnectionOutcome::Closed);
}
