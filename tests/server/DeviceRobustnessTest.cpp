// Bad peers and odd connections: each is dropped at its limit or served,
// without disturbing the other connections (garbage, half frames and the
// input limit while another client is served are the device_connection fuzz
// target's).
#include <fcntl.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "DeviceHarness.h"
#include "support/Bytes.h"
#include "support/Frames.h"
#include "support/TransportPair.h"

using testing_support::DeviceHarness;
using testing_support::framed;
using testing_support::hex;
using testing_support::resetOnClose;
using Bytes = std::vector<unsigned char>;
using Strings = std::vector<std::string>;

TEST(DeviceRobustness, AClientThatNeverReadsIsDroppedAtTheBacklogLimit) {
    DeviceHarness device;
    device.settings.maxBacklogBytes = 256 * 1024;
    device.start();
    auto good = device.loggedIn();
    ASSERT_TRUE(good);

    // The sleeper's end is a local socket pair with small buffers, adopted as
    // if accepted, so the backlog builds up quickly and deterministically.
    int ends[2];
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
    const int small = 4096;
    ::setsockopt(ends[0], SOL_SOCKET, SO_SNDBUF, &small, sizeof small);
    ::setsockopt(ends[1], SOL_SOCKET, SO_RCVBUF, &small, sizeof small);
    ::fcntl(ends[0], F_SETFL, ::fcntl(ends[0], F_GETFL, 0) | O_NONBLOCK);
    auto sleeperEnd = TCPTransport::createShared(
        new TCPTransport(ends[1], ConnectionOutcome::Connected, nullptr));
    const unsigned int sleeper = device.server->adopt(TCPTransport::createShared(
        new TCPTransport(ends[0], ConnectionOutcome::Connected, nullptr)));

    for (const Bytes& request : {framed(LoginRequest::newInstance("admin", "secret")),
                                 framed(SubscriptionRequest::newInstance({3}))}) {
        ASSERT_EQ(sleeperEnd->write(request.data(), static_cast<int>(request.size())),
                  static_cast<int>(request.size()));
    }
    device.store->addChannel(3, Bytes(1000), false);
    ASSERT_TRUE(device.pumpUntil(
        [&] { return device.server->findConnection(sleeper)->subscribedTo(3); }, {}));

    Bytes data(1000);
    ASSERT_TRUE(device.pumpUntil(
        [&] {
            ++data[0];
            device.store->update(3, data);
            return device.countEvents(DeviceEvent::Dropped) == 1;
        },
        {good.get()}));
    EXPECT_EQ(device.server->connectionCount(), 1u);
    EXPECT_NE(device.events->received().back().describe().find("unread"), std::string::npos);
}

TEST(DeviceRobustness, AClientResetInsideAFrameWhileOwedAChangeDisturbsNoOne) {
    DeviceHarness device;
    auto good = device.loggedIn();
    auto gone = device.loggedIn();
    ASSERT_TRUE(good && gone);
    // The subscription response and the current value, on each.
    ASSERT_EQ(device.exchange(*good, SubscriptionRequest::newInstance({1})).size(), 2u);
    ASSERT_EQ(device.exchange(*gone, SubscriptionRequest::newInstance({1})).size(), 2u);

    // Half a request in; then a reset instead of an orderly close, and a
    // change owed to it, so that the device's next write meets a socket the
    // peer has reset.
    Bytes half = framed(GetRequest::newInstance({1, 2}));
    half.resize(half.size() / 2);
    gone->sendBytes(half);
    ASSERT_TRUE(device.pumpUntil(
        [&] { return device.server->findConnection(2)->undecodedBytes() > 0; }, {}));
    resetOnClose(*gone);
    gone->tcp->close();
    device.store->update(1, {1, 2, 3, 4});

    ASSERT_TRUE(device.pumpUntil([&] { return device.server->connectionCount() == 1; }, {}));
    EXPECT_EQ(device.countEvents(DeviceEvent::Closed), 1u);
    EXPECT_EQ(device.countEvents(DeviceEvent::Dropped), 0u);
    EXPECT_EQ(device.server->loggedInCount(), 1u);
    EXPECT_EQ(device.exchange(*good, nullptr),
              Strings{"0B 01 00 01 00 00 00 04 00 00 00 01 02 03 04"});
}

TEST(DeviceRobustness, AnIdlePollWaitsAndTheWakeDescriptorEndsItAtOnce) {
    DeviceHarness device;
    const int wake = device.server->getWakeDescriptor();
    using Clock = std::chrono::steady_clock;

    const char byte = 1;
    ASSERT_EQ(::write(device.server->getWakeDescriptor(), &byte, 1), 1);
    auto begin = Clock::now();
    device.server->poll(std::chrono::seconds(20));
    EXPECT_LT(Clock::now() - begin, std::chrono::seconds(10));
    // The wake was taken: the next idle poll waits its whole time.
    begin = Clock::now();
    device.server->poll(std::chrono::milliseconds(50));
    EXPECT_GE(Clock::now() - begin, std::chrono::milliseconds(45));
    device.server.reset();
    EXPECT_EQ(::fcntl(wake, F_GETFD), -1);  // closed with the server
}

// A transport without a socket, which no poll reports ready, is served all
// the same, and at once.
TEST(DeviceRobustness, AnAdoptedTransportWithoutASocketIsServedAtOnce) {
    DeviceHarness device;
    const auto ends = testing_support::makeTransportPair();
    device.server->adopt(ends.second);
    const Bytes login = framed(LoginRequest::newInstance("admin", "secret"));
    ends.first->write(login.data(), static_cast<int>(login.size()));
    const auto begin = std::chrono::steady_clock::now();
    device.server->poll(std::chrono::seconds(10));
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(5));
    Bytes answer(8);
    ASSERT_EQ(ends.first->read(answer.data(), 8), 8);
    EXPECT_EQ(hex(answer), "FF 02 00 00 00 0F 01 FE");
}
