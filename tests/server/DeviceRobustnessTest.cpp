// Bad peers and odd connections: each is dropped at its limit or served,
// without disturbing the other connections (garbage and half frames while
// another client is served are the device_connection fuzz target's).
#include <fcntl.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "DeviceHarness.h"
#include "chanlink/messages/SetRequest.h"
#include "chanlink/messages/SubscriptionRequest.h"
#include "chanlink/wire/Encoder.h"
#include "support/Bytes.h"
#include "support/TransportPair.h"

using testing_support::DeviceHarness;
using testing_support::hex;
using testing_support::resetOnClose;
using Bytes = std::vector<unsigned char>;
using Strings = std::vector<std::string>;

namespace {

const std::string Value1 = "0B 01 00 01 00 00 00 04 00 00 00 00 00 00 00";

Bytes frames(const std::vector<std::shared_ptr<const Message>>& messages) {
    Bytes out;
    for (const auto& message : messages) {
        Encoder().injectFrame(message->write(), out);
    }
    return out;
}

}  // namespace

TEST(DeviceRobustness, AnEndlessFrameIsDroppedAtTheInputLimit) {
    DeviceHarness device;
    device.settings.maxInputBytes = 8192;
    device.start();
    auto good = device.loggedIn();
    auto flood = device.connect();
    ASSERT_TRUE(good && flood);

    // A start marker and then never an end marker: nothing to decode, ever.
    // Exactly the limit is still kept.
    Bytes chunk(8192, 0x41);
    chunk[0] = 0xFF;
    flood->sendBytes(chunk);
    ASSERT_TRUE(device.pumpUntil(
        [&] {
            const auto connection = device.server->findConnection(2);
            return !connection || connection->undecodedBytes() == 8192;
        },
        {}));
    ASSERT_EQ(device.countEvents(DeviceEvent::Dropped), 0u);
    chunk[0] = 0x41;
    ASSERT_TRUE(device.pumpUntil(
        [&] {
            if (!flood->closed()) {
                flood->sendBytes(chunk);
            }
            return device.countEvents(DeviceEvent::Dropped) == 1;
        },
        {}));
    EXPECT_LE(device.server->connectionCount(), 1u);
    EXPECT_NE(device.events->received().back().describe().find("without a complete frame"),
              std::string::npos);
    EXPECT_EQ(device.exchange(*good, GetRequest::newInstance({1})), Strings{Value1});
}

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

    const Bytes request = frames(
        {LoginRequest::newInstance("admin", "secret"), SubscriptionRequest::newInstance({3})});
    ASSERT_EQ(sleeperEnd->write(request.data(), static_cast<int>(request.size())),
              static_cast<int>(request.size()));
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
    good->take();
    EXPECT_EQ(device.exchange(*good, GetRequest::newInstance({1})), Strings{Value1});
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
    Bytes half = frames({GetRequest::newInstance({1, 2})});
    half.resize(half.size() / 2);
    gone->sendBytes(half);
    ASSERT_TRUE(device.pumpUntil(
        [&] { return device.server->findConnection(2)->undecodedBytes() > 0; }, {}));
    resetOnClose(*gone);
    gone->close();
    device.store->update(1, {1, 2, 3, 4});

    ASSERT_TRUE(device.pumpUntil([&] { return device.server->connectionCount() == 1; }, {}));
    EXPECT_EQ(device.countEvents(DeviceEvent::Closed), 1u);
    EXPECT_EQ(device.countEvents(DeviceEvent::Dropped), 0u);
    EXPECT_EQ(device.server->loggedInCount(), 1u);
    EXPECT_EQ(device.exchange(*good, nullptr),
              Strings{"0B 01 00 01 00 00 00 04 00 00 00 01 02 03 04"});
    EXPECT_EQ(device.exchange(*good, SetRequest::newInstance(1, {5, 6, 7, 8})).size(), 2u);
}

TEST(DeviceRobustness, AnIdlePollWaitsAndTheWakeDescriptorEndsItAtOnce) {
    DeviceHarness device;
    const int wake = device.server->getWakeDescriptor();
    using Clock = std::chrono::steady_clock;

    auto begin = Clock::now();
    device.server->poll(std::chrono::milliseconds(50));
    EXPECT_GE(Clock::now() - begin, std::chrono::milliseconds(45));

    const char byte = 1;
    ASSERT_EQ(::write(device.server->getWakeDescriptor(), &byte, 1), 1);
    begin = Clock::now();
    device.server->poll(std::chrono::seconds(20));
    EXPECT_LT(Clock::now() - begin, std::chrono::seconds(10));
    device.server.reset();
    EXPECT_EQ(::fcntl(wake, F_GETFD), -1);  // closed with the server
}

// Over IPv4 and IPv6 on a listener of every address, and over a transport
// without a socket, which no poll reports ready: it is served all the same.
TEST(DeviceRobustness, ClientsAreServedOverIPv4IPv6AndAdoptedTransports) {
    DeviceHarness device(4, "");
    auto v4 = device.connect("127.0.0.1");
    auto v6 = device.connect("::1");
    ASSERT_TRUE(v4 && v6);
    EXPECT_EQ(device.login(*v4), "0F 01");
    EXPECT_EQ(device.login(*v6), "0F 01");
    EXPECT_EQ(
        device.events->received()[0].describe().rfind("connection 1: opened from 127.0.0.1:", 0),
        0u);
    EXPECT_EQ(device.events->received()[1].describe().rfind("connection 2: opened from [::1]:", 0),
              0u);

    const auto ends = testing_support::makeTransportPair();
    device.server->adopt(ends.second);
    const Bytes login = frames({LoginRequest::newInstance("admin", "secret")});
    ends.first->write(login.data(), static_cast<int>(login.size()));
    EXPECT_TRUE(device.pumpUntil([&] { return ends.first->readable() == 8; }, {}));
    Bytes answer(8);
    ends.first->read(answer.data(), 8);
    EXPECT_EQ(hex(answer), "FF 02 00 00 00 0F 01 FE");
}
