// Faults on one connection that must leave the device serving the others: a
// client reset in the middle of a frame while the device still owes it data,
// and a client flooding garbage while another works.
#include <sys/socket.h>

#include <gtest/gtest.h>

#include <random>

#include "DeviceHarness.h"
#include "chanlink/messages/SetRequest.h"
#include "chanlink/messages/SubscriptionRequest.h"
#include "chanlink/wire/Encoder.h"
#include "support/Bytes.h"

using testing_support::DeviceHarness;
using testing_support::hex;
using Bytes = std::vector<unsigned char>;
using Strings = std::vector<std::string>;

TEST(DeviceFaults, AClientResetInsideAFrameWhileOwedAChangeDisturbsNoOne) {
    DeviceHarness device;
    auto good = device.connect();
    auto gone = device.connect();
    ASSERT_TRUE(good && gone);
    ASSERT_EQ(device.login(*good), "0F 01");
    ASSERT_EQ(device.login(*gone), "0F 01");
    // The subscription response and the current value, on each.
    ASSERT_EQ(device.exchange(*good, SubscriptionRequest::newInstance({1})).size(), 2u);
    ASSERT_EQ(device.exchange(*gone, SubscriptionRequest::newInstance({1})).size(), 2u);

    // Half a request in; then a reset instead of an orderly close, and a
    // change owed to it, so that the device's next write meets a socket the
    // peer has reset.
    Bytes half;
    Encoder().injectFrame(GetRequest::newInstance({1, 2})->write(), half);
    half.resize(half.size() / 2);
    gone->sendBytes(half);
    ASSERT_TRUE(device.pumpUntil(
        [&] { return device.server->findConnection(2)->undecodedBytes() > 0; }, {}));
    const linger reset{1, 0};
    ASSERT_EQ(
        ::setsockopt(gone->transport->getSocket(), SOL_SOCKET, SO_LINGER, &reset, sizeof reset), 0);
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

TEST(DeviceFaults, AFloodOfGarbageIsReadWhileAnotherClientIsServed) {
    DeviceHarness device;
    auto good = device.connect();
    auto flood = device.connect();
    ASSERT_TRUE(good && flood);
    ASSERT_EQ(device.login(*good), "0F 01");

    // The device reads a bounded amount per connection and poll, so the good
    // client's set and get are answered while garbage keeps arriving.
    std::mt19937 random(3);
    Bytes garbage(64 * 1024);
    for (unsigned char round = 0; round < 8; ++round) {
        for (unsigned char& byte : garbage) {
            byte = static_cast<unsigned char>(random());
        }
        flood->sendBytes(garbage);
        EXPECT_EQ(device.exchange(*good, SetRequest::newInstance(1, {round, 0, 0, 0})),
                  Strings{"0C 01 00 00 00"});
        EXPECT_EQ(device.exchange(*good, GetRequest::newInstance({1})),
                  Strings{"0B 01 00 01 00 00 00 04 00 00 00 " + hex({round}) + " 00 00 00"});
        // Random bytes close their candidate frames often: little is held.
        EXPECT_LT(device.server->findConnection(2)->undecodedBytes(), 16u * 1024);
    }

    // Once it has read it all, the flooder's next request is answered as
    // on any connection that has not logged in.
    flood->sendBytes({0xFE});
    flood->send(GetRequest::newInstance({7}));
    ASSERT_TRUE(device.pumpUntil(
        [&] {
            return !flood->received.empty() && flood->received.back() == "1F 00 10 07 00 00 00";
        },
        {flood.get()}));
    EXPECT_EQ(device.server->connectionCount(), 2u);
    EXPECT_EQ(device.countEvents(DeviceEvent::Dropped), 0u);
}
