// Bad peers: endless frames and clients that never read, dropped at their
// limits without disturbing the other connections (garbage and half frames
// on one connection are the device_connection fuzz target's).
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "DeviceHarness.h"
#include "chanlink/messages/GetResponse.h"
#include "chanlink/messages/SubscriptionRequest.h"
#include "chanlink/wire/Encoder.h"
#include "support/Bytes.h"

using testing_support::bytes;
using testing_support::DeviceHarness;
using testing_support::RawClient;
using Strings = std::vector<std::string>;

namespace {

const std::string Value1 = "0B 01 00 01 00 00 00 04 00 00 00 00 00 00 00";

}  // namespace

TEST(DeviceRobustness, AnEndlessFrameIsDroppedAtTheInputLimit) {
    DeviceHarness device;
    device.settings.maxInputBytes = 8192;
    device.start();
    auto good = device.connect();
    auto flood = device.connect();
    ASSERT_TRUE(good && flood);
    ASSERT_EQ(device.login(*good), "0F 01");

    // A start marker and then never an end marker: nothing to decode, ever.
    // Exactly the limit is still kept.
    std::vector<unsigned char> chunk(8192, 0x41);
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
    auto good = device.connect();
    ASSERT_TRUE(good);
    ASSERT_EQ(device.login(*good), "0F 01");

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

    std::vector<unsigned char> request;
    Encoder().injectFrame(LoginRequest::newInstance("admin", "secret")->write(), request);
    Encoder().injectFrame(SubscriptionRequest::newInstance({3})->write(), request);
    ASSERT_EQ(sleeperEnd->write(request.data(), static_cast<int>(request.size())),
              static_cast<int>(request.size()));
    device.store->addChannel(3, std::vector<unsigned char>(1000), false);
    ASSERT_TRUE(device.pumpUntil(
        [&] { return device.server->findConnection(sleeper)->subscribedTo(3); }, {}));

    std::vector<unsigned char> data(1000);
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

TEST(DeviceRobustness, AnIdlePollWaitsAndTheWakeDescriptorEndsItAtOnce) {
    DeviceHarness device;
    using Clock = std::chrono::steady_clock;

    auto begin = Clock::now();
    device.server->poll(std::chrono::milliseconds(50));
    EXPECT_GE(Clock::now() - begin, std::chrono::milliseconds(45));

    const char byte = 1;
    ASSERT_EQ(::write(device.server->getWakeDescriptor(), &byte, 1), 1);
    begin = Clock::now();
    device.server->poll(std::chrono::seconds(20));
    EXPECT_LT(Clock::now() - begin, std::chrono::seconds(10));
}

TEST(DeviceRobustness, AListenerOnEveryAddressServesIPv4AndIPv6) {
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
}
