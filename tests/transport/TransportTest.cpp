// The transports: the loop-back's capacity, and the TCP transports at their
// sockets (states as reported, the rule for each error).
#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <string>
#include <tuple>
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

// recv, send, connect, listen and setsockopt as defined below take precedence over the C
// library's: the next call on an armed descriptor (or any, for AnySocket)
// fails with the armed errno, for error paths that real sockets do not
// produce on demand.
enum Call { Recv, Send, Connect, Listen, SetOption };
constexpr int AnySocket = -2;
std::atomic<int> armed[5] = {-1, -1, -1, -1, -1};
std::atomic<int> armedError[5];

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

// The C library's own function, which the definitions below hide.
template <typename Function>
Function next(const char* name) {
    return reinterpret_cast<Function>(::dlsym(RTLD_NEXT, name));
}

struct StateLog : Receiver<ConnectionOutcome> {
    void receive(const ConnectionOutcome& outcome) override { states.push_back(outcome.state); }
    States states;
};

}  // namespace

extern "C" ssize_t recv(int fd, void* buffer, size_t length, int flags) {
    return failsNow(Recv, fd) ? -1 : next<decltype(&recv)>("recv")(fd, buffer, length, flags);
}

extern "C" ssize_t send(int fd, const void* buffer, size_t length, int flags) {
    return failsNow(Send, fd) ? -1 : next<decltype(&send)>("send")(fd, buffer, length, flags);
}

extern "C" int connect(int fd, const sockaddr* address, socklen_t length) {
    return failsNow(Connect, fd) ? -1 : next<decltype(&connect)>("connect")(fd, address, length);
}

extern "C" int listen(int fd, int backlog) {
    return failsNow(Listen, fd) ? -1 : next<decltype(&listen)>("listen")(fd, backlog);
}

// Only the IPv6 options fail: the address reuse before them is set as usual.
extern "C" int setsockopt(int fd, int level, int name, const void* value, socklen_t length) {
    return level == IPPROTO_IPV6 && failsNow(SetOption, fd)
               ? -1
               : next<decltype(&setsockopt)>("setsockopt")(fd, level, name, value, length);
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
        EXPECT_EQ(c.listener.accept(0, 0), nullptr);  // nothing pending: null at once
        EXPECT_EQ(c.server->state(), ConnectionOutcome::Connected);
        EXPECT_EQ(TransportPoll::of(*c.server).entry(false).events, POLLIN);
        // Each change reported once, ending in Connected; connecting again
        // while connected makes no new attempt and no report.
        const int socketBefore = c.client->getSocket();
        c.client->connect();
        EXPECT_EQ(c.client->getSocket(), socketBefore);
        ASSERT_FALSE(clientLog->states.empty());
        EXPECT_EQ(clientLog->states.back(), ConnectionOutcome::Connected);
        EXPECT_LE(clientLog->states.size(), 2u);
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
    char buffer[4];
    ASSERT_TRUE(eventually([&] { return server->read(buffer, sizeof buffer) == 1; }));
    EXPECT_EQ(buffer[0], 'x');

    TCPClientTransport reader("::1", listener.getListeningService(), nullptr);
    reader.connect();
    ASSERT_TRUE(eventually([&] { return (server = listener.accept(0, 1000)) != nullptr; }));
    server->write("y", 1);
    pollfd readable{reader.getSocket(), POLLIN, 0};
    ASSERT_EQ(::poll(&readable, 1, 5000), 1);
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
    EXPECT_NE(ConnectionOutcome(c.server->state()), ConnectionOutcome::Closed);  // not yet read

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

TEST(TCPServerTransportBuilder, ASetUpThatFailsSaysWhyAndNeverAccepts) {
    TCPServerTransportBuilder first("0", "");
    const std::string inUse = first.getListeningService();
    constexpr int None = -1;
    const std::tuple<std::string, std::string, int> failures[] = {
        {inUse, "Cannot bind listening socket.\n", None},
        {"no-such-service-name", "Cannot getaddrinfo: ", None},
        {"0", "Cannot listen.\n", Listen},
        {"0", "Cannot set IPv6v6only socket option.\n", SetOption},
    };
    for (const auto& [service, message, failing] : failures) {
        if (failing != None) {
            failNext(static_cast<Call>(failing), AnySocket, EADDRINUSE);
        }
        testing::internal::CaptureStderr();
        TCPServerTransportBuilder builder(service, "");
        EXPECT_EQ(testing::internal::GetCapturedStderr().rfind(message, 0), 0u) << message;
        EXPECT_FALSE(builder.isListening());
        EXPECT_EQ(builder.accept(0, 0), nullptr);
        EXPECT_EQ(builder.getListeningService(), "");
    }
    armed[Listen] = armed[SetOption] = -1;

    // Descriptor 0 is never taken for a listener: one that got it (standard
    // input closed) is not listening, accepts nothing, and its end leaves the
    // descriptor open.
    const int input = ::dup(0);
    ::close(0);
    auto zero = std::make_unique<TCPServerTransportBuilder>("0", "::1");
    EXPECT_FALSE(zero->isListening());
    TCPClientTransport client("::1", zero->getListeningService(), nullptr);
    client.connect();
    EXPECT_EQ(zero->accept(0, 100000), nullptr);  // with a connection waiting
    zero.reset();
    EXPECT_NE(::fcntl(0, F_GETFD), -1);
    ::dup2(input, 0);
    ::close(input);
}

// Nonsense lengths never reach the socket. recv takes EINPROGRESS like
// EAGAIN and send only EAGAIN: the connection stays; anything else closes it.
TEST(TCPTransport, RareSocketErrorsFollowTheirOwnRules) {
    using Closed = bool;
    const std::tuple<Call, int, Closed> cases[] = {{Recv, EINPROGRESS, false},
                                                   {Send, EAGAIN, false},
                                                   {Send, EINPROGRESS, true},
                                                   {Recv, ECONNRESET, true}};
    char buffer[8];
    for (const auto& [call, error, closed] : cases) {
        TcpPair pair;
        ASSERT_TRUE(pair.server);
        auto log = std::make_shared<StateLog>();
        pair.server->setReceiver(log);
        for (const int length : {0, -5}) {
            EXPECT_EQ(pair.server->read(buffer, length) + pair.server->write(buffer, length), 0);
        }
        EXPECT_EQ(pair.server->read(nullptr, 8), 0);
        failNext(call, pair.server->getSocket(), error);
        EXPECT_EQ(call == Recv ? pair.server->read(buffer, 8) : pair.server->write("x", 1), 0);
        EXPECT_EQ(log->states, closed ? States{ConnectionOutcome::Closed} : States{}) << error;
    }
}
