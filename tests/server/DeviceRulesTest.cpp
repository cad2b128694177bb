// The device's answer to every kind of request, checked frame by frame over
// TCP on 127.0.0.1.
#include <gtest/gtest.h>

#include "DeviceHarness.h"
#include "chanlink/chanlink.h"

using testing_support::DeviceHarness;
using testing_support::payloadHex;
using Strings = std::vector<std::string>;

namespace {

std::string error(OpCode opcode, unsigned char reason, unsigned int channelId = 0) {
    return payloadHex(ErrorResponse::newInstance(opcode, reason, channelId));
}

// A GetResponse of {channel, data} pairs.
std::string values(const std::vector<std::pair<unsigned int, std::vector<unsigned char>>>& list) {
    std::vector<std::shared_ptr<const ChannelValue>> shared;
    for (const auto& [id, data] : list) {
        shared.push_back(std::make_shared<ChannelValue>(id, std::vector<unsigned char>{}, data));
    }
    return payloadHex(GetResponse::newInstance(shared));
}

}  // namespace

// Before a login, every request is refused (that a refused login changes
// nothing is the device_connection fuzz target's).
TEST(DeviceRules, RequestsBeforeLoginAreRefusedAsNotLoggedIn) {
    DeviceHarness device;
    auto client = device.connect();
    ASSERT_TRUE(client);
    const std::pair<std::shared_ptr<const Message>, Strings> rows[] = {
        {GetRequest::newInstance({1, 99}),
         {error(0, ReasonCode::NotLoggedIn, 1), error(0, ReasonCode::NotLoggedIn, 99)}},
        {SetRequest::newInstance(1, {1, 2, 3, 4}), {error(2, ReasonCode::NotLoggedIn, 1)}},
        {SubscriptionRequest::newInstance({1}), {error(3, ReasonCode::NotLoggedIn)}},
        {LogPushRequest::newInstance(true), {error(4, ReasonCode::NotLoggedIn)}},
        {LoginRequest::newInstance("root", "secret"), {"0F 00"}},   // only admin's password
        {LoginRequest::newInstance("admin", "secreX"), {"0F 00"}},  // every byte compared
    };
    for (const auto& [request, answers] : rows) {
        EXPECT_EQ(device.exchange(*client, request, answers.size()), answers);
    }
}

TEST(DeviceRules, GetsAndSetsAreAnsweredByTheirRules) {
    DeviceHarness device;
    auto client = device.loggedIn();
    ASSERT_TRUE(client);
    const std::pair<std::shared_ptr<const Message>, Strings> rows[] = {
        // The known channels in one response, in request order; then each
        // unknown one.
        {GetRequest::newInstance({2, 7, 1, 2, 8}),
         {values({{2, {0x10}}, {1, {0, 0, 0, 0}}, {2, {0x10}}}),
          error(0, ReasonCode::UnknownChannel, 7), error(0, ReasonCode::UnknownChannel, 8)}},
        {GetRequest::newInstance({9}), {error(0, ReasonCode::UnknownChannel, 9)}},
        {SetRequest::newInstance(1, {1, 2, 3, 4}), {payloadHex(SetResponse::newInstance(1))}},
        // A refused set: the first fault, read-only before the size.
        {SetRequest::newInstance(5, {1}), {error(2, ReasonCode::UnknownChannel, 5)}},
        {SetRequest::newInstance(2, {0x11, 0x12}), {error(2, ReasonCode::ReadOnlyChannel, 2)}},
        {SetRequest::newInstance(1, {1, 2, 3}), {error(2, ReasonCode::WrongDataSize, 1)}},
        {GetRequest::newInstance({1, 2}), {values({{1, {1, 2, 3, 4}}, {2, {0x10}}})}},
    };
    for (const auto& [request, answers] : rows) {
        EXPECT_EQ(device.exchange(*client, request), answers);
    }
}

TEST(DeviceRules, EveryOpcode3RequestSubscribesIdempotentlyAndPushesCurrentValues) {
    DeviceHarness device;
    auto client = device.loggedIn();
    ASSERT_TRUE(client);

    const Strings subscribed{payloadHex(SubscriptionResponse::newInstance({1, 42})),
                             values({{1, {0, 0, 0, 0}}})};
    EXPECT_EQ(device.exchange(*client, SubscriptionRequest::newInstance({1, 42})), subscribed);
    // The same again, as a client sends after a login: no second subscription.
    EXPECT_EQ(device.exchange(*client, SubscriptionRequest::newInstance({1, 42})), subscribed);
    // An unsubscription has the same bytes, so it is one more subscription.
    EXPECT_EQ(device.exchange(*client, UnsubscriptionRequest::newInstance({1, 42})), subscribed);

    ASSERT_TRUE(device.store->update(1, {9, 9, 9, 9}));
    ASSERT_TRUE(device.store->update(2, {0x20}));  // not subscribed
    EXPECT_EQ(device.exchange(*client, nullptr), Strings{values({{1, {9, 9, 9, 9}}})});

    // A set by the subscriber itself: the set response first, then the change.
    EXPECT_EQ(device.exchange(*client, SetRequest::newInstance(1, {5, 5, 5, 5})),
              (Strings{payloadHex(SetResponse::newInstance(1)), values({{1, {5, 5, 5, 5}}})}));
}

TEST(DeviceRules, LogPushSendsEveryChangeWhileOnAndALoginEndsItAndSubscriptions) {
    DeviceHarness device;
    auto client = device.loggedIn();
    ASSERT_TRUE(client);

    EXPECT_EQ(device.exchange(*client, LogPushRequest::newInstance(true)), Strings{});
    device.store->update(2, {0x01});
    device.store->update(1, {1, 0, 0, 0});
    EXPECT_EQ(
        device.exchange(*client, SubscriptionRequest::newInstance({1})),
        (Strings{values({{2, {0x01}}}), values({{1, {1, 0, 0, 0}}}),
                 payloadHex(SubscriptionResponse::newInstance({1})), values({{1, {1, 0, 0, 0}}})}));
    // Subscribed and log push on: one push per change, not two.
    device.store->update(1, {2, 0, 0, 0});
    EXPECT_EQ(device.exchange(*client, LogPushRequest::newInstance(false)),
              Strings{values({{1, {2, 0, 0, 0}}})});

    device.store->update(2, {0x02});
    device.store->update(1, {3, 0, 0, 0});
    EXPECT_EQ(device.exchange(*client, nullptr), Strings{values({{1, {3, 0, 0, 0}}})});

    device.exchange(*client, LogPushRequest::newInstance(true));
    ASSERT_EQ(device.login(*client), "0F 01");
    device.store->update(1, {7, 0, 0, 0});
    device.store->update(2, {0x07});
    EXPECT_EQ(device.exchange(*client, nullptr), Strings{});
}

TEST(DeviceRules, LoginsBeyondTheLimitAreRefusedUntilASlotIsFree) {
    DeviceHarness device(2);
    auto first = device.connect();
    auto second = device.connect();
    auto third = device.connect();
    ASSERT_TRUE(first && second && third);

    EXPECT_EQ(device.login(*first), "0F 01");
    EXPECT_EQ(device.events->received().back().describe(), "connection 1: logged in as admin");
    EXPECT_EQ(device.login(*second), "0F 01");
    EXPECT_EQ(device.login(*third), "0F 02");
    // Credentials come first; a name from the wire is logged escaped.
    EXPECT_EQ(device.login(*third, "a d\nmin~\x7F\\", "bad"), "0F 00");
    EXPECT_EQ(device.events->received().back().describe(),
              "connection 3: login refused (wrong credentials) for a d\\x0Amin~\\x7F\\x5C");
    // A logged-in connection logging in again keeps its place.
    EXPECT_EQ(device.login(*second), "0F 01");
    EXPECT_EQ(device.server->loggedInCount(), 2u);

    first->tcp->close();
    ASSERT_TRUE(
        device.pumpUntil([&] { return device.server->connectionCount() == 2; }, {third.get()}));
    EXPECT_EQ(device.login(*third), "0F 01");
    EXPECT_EQ(device.countEvents(DeviceEvent::Closed), 1u);
    EXPECT_EQ(device.countEvents(DeviceEvent::LoginRefused), 2u);
}
