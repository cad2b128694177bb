// The device's answer to every kind of request, checked frame by frame over
// TCP on 127.0.0.1.
#include <gtest/gtest.h>

#include "DeviceHarness.h"
#include "chanlink/messages/ErrorResponse.h"
#include "chanlink/messages/GetResponse.h"
#include "chanlink/messages/LogPushRequest.h"
#include "chanlink/messages/ReasonCode.h"
#include "chanlink/messages/SetRequest.h"
#include "chanlink/messages/SetResponse.h"
#include "chanlink/messages/SubscriptionRequest.h"
#include "chanlink/messages/SubscriptionResponse.h"
#include "chanlink/messages/UnsubscriptionRequest.h"

using testing_support::DeviceHarness;
using testing_support::payloadHex;
using Strings = std::vector<std::string>;

namespace {

std::string error(OpCode opcode, unsigned char reason, unsigned int channelId = 0) {
    return payloadHex(ErrorResponse::newInstance(opcode, reason, channelId));
}

std::string values(const std::vector<ChannelValue>& list) {
    std::vector<std::shared_ptr<const ChannelValue>> shared;
    for (const ChannelValue& value : list) {
        shared.push_back(std::make_shared<ChannelValue>(value));
    }
    return payloadHex(GetResponse::newInstance(shared));
}

ChannelValue value(unsigned int id, std::vector<unsigned char> data) {
    return ChannelValue(id, {}, std::move(data));
}

}  // namespace

TEST(DeviceRules, RequestsBeforeLoginAreRefusedAsNotLoggedIn) {
    DeviceHarness device;
    auto client = device.connect();
    ASSERT_TRUE(client);

    EXPECT_EQ(
        device.exchange(*client, GetRequest::newInstance({1, 99}), 2),
        (Strings{error(0, ReasonCode::NotLoggedIn, 1), error(0, ReasonCode::NotLoggedIn, 99)}));
    EXPECT_EQ(device.exchange(*client, SetRequest::newInstance(1, {1, 2, 3, 4}), 1),
              Strings{error(2, ReasonCode::NotLoggedIn, 1)});
    EXPECT_EQ(device.exchange(*client, SubscriptionRequest::newInstance({1}), 1),
              Strings{error(3, ReasonCode::NotLoggedIn)});
    EXPECT_EQ(device.exchange(*client, LogPushRequest::newInstance(true), 1),
              Strings{error(4, ReasonCode::NotLoggedIn)});
    EXPECT_EQ(device.store->getValue(1)->getData(), (std::vector<unsigned char>{0, 0, 0, 0}));

    // A refused login leaves the connection as it was: still refused.
    EXPECT_EQ(device.login(*client, "admin", "wrong"), "0F 00");
    EXPECT_EQ(device.login(*client, "root", "secret"), "0F 00");
    EXPECT_EQ(device.exchange(*client, GetRequest::newInstance({2}), 1),
              Strings{error(0, ReasonCode::NotLoggedIn, 2)});
    EXPECT_EQ(device.login(*client), "0F 01");
    EXPECT_EQ(device.exchange(*client, GetRequest::newInstance({2})),
              Strings{values({value(2, {0x10})})});
}

TEST(DeviceRules, GetAnswersKnownChannelsInOneResponseAndEachUnknownOneWithAnError) {
    DeviceHarness device;
    auto client = device.connect();
    ASSERT_TRUE(client);
    ASSERT_EQ(device.login(*client), "0F 01");

    EXPECT_EQ(device.exchange(*client, GetRequest::newInstance({2, 7, 1, 2, 8})),
              (Strings{values({value(2, {0x10}), value(1, {0, 0, 0, 0}), value(2, {0x10})}),
                       error(0, ReasonCode::UnknownChannel, 7),
                       error(0, ReasonCode::UnknownChannel, 8)}));
    EXPECT_EQ(device.exchange(*client, GetRequest::newInstance({9})),
              Strings{error(0, ReasonCode::UnknownChannel, 9)});
}

TEST(DeviceRules, SetWritesOrRefusesWithTheReasonOfEachFault) {
    DeviceHarness device;
    auto client = device.connect();
    ASSERT_TRUE(client);
    ASSERT_EQ(device.login(*client), "0F 01");

    EXPECT_EQ(device.exchange(*client, SetRequest::newInstance(1, {1, 2, 3, 4})),
              Strings{payloadHex(SetResponse::newInstance(1))});
    EXPECT_EQ(device.store->getValue(1)->getData(), (std::vector<unsigned char>{1, 2, 3, 4}));

    EXPECT_EQ(device.exchange(*client, SetRequest::newInstance(5, {1})),
              Strings{error(2, ReasonCode::UnknownChannel, 5)});
    EXPECT_EQ(device.exchange(*client, SetRequest::newInstance(2, {0x11})),
              Strings{error(2, ReasonCode::ReadOnlyChannel, 2)});
    EXPECT_EQ(device.exchange(*client, SetRequest::newInstance(1, {1, 2, 3})),
              Strings{error(2, ReasonCode::WrongDataSize, 1)});
    EXPECT_EQ(device.store->getValue(2)->getData(), std::vector<unsigned char>{0x10});
    EXPECT_EQ(device.store->getValue(1)->getData(), (std::vector<unsigned char>{1, 2, 3, 4}));
}

TEST(DeviceRules, EveryOpcode3RequestSubscribesIdempotentlyAndPushesCurrentValues) {
    DeviceHarness device;
    auto client = device.connect();
    ASSERT_TRUE(client);
    ASSERT_EQ(device.login(*client), "0F 01");

    const Strings subscribed{payloadHex(SubscriptionResponse::newInstance({1, 42})),
                             values({value(1, {0, 0, 0, 0})})};
    EXPECT_EQ(device.exchange(*client, SubscriptionRequest::newInstance({1, 42})), subscribed);
    // The same again, as a client sends after a login: no second subscription.
    EXPECT_EQ(device.exchange(*client, SubscriptionRequest::newInstance({1, 42})), subscribed);
    // An unsubscription has the same bytes, so it is one more subscription.
    EXPECT_EQ(device.exchange(*client, UnsubscriptionRequest::newInstance({1, 42})), subscribed);

    ASSERT_TRUE(device.store->update(1, {9, 9, 9, 9}));
    ASSERT_TRUE(device.store->update(2, {0x20}));  // not subscribed
    EXPECT_EQ(device.exchange(*client, nullptr), Strings{values({value(1, {9, 9, 9, 9})})});

    // A set by the subscriber itself: the set response first, then the change.
    EXPECT_EQ(device.exchange(*client, SetRequest::newInstance(1, {5, 5, 5, 5})),
              (Strings{payloadHex(SetResponse::newInstance(1)), values({value(1, {5, 5, 5, 5})})}));
}

TEST(DeviceRules, LogPushSendsEveryChangeWhileOn) {
    DeviceHarness device;
    auto client = device.connect();
    ASSERT_TRUE(client);
    ASSERT_EQ(device.login(*client), "0F 01");

    EXPECT_EQ(device.exchange(*client, LogPushRequest::newInstance(true)), Strings{});
    device.store->update(2, {0x01});
    device.store->update(1, {1, 0, 0, 0});
    EXPECT_EQ(device.exchange(*client, SubscriptionRequest::newInstance({1})),
              (Strings{values({value(2, {0x01})}), values({value(1, {1, 0, 0, 0})}),
                       payloadHex(SubscriptionResponse::newInstance({1})),
                       values({value(1, {1, 0, 0, 0})})}));
    // Subscribed and log push on: one push per change, not two.
    device.store->update(1, {2, 0, 0, 0});
    EXPECT_EQ(device.exchange(*client, LogPushRequest::newInstance(false)),
              Strings{values({value(1, {2, 0, 0, 0})})});

    device.store->update(2, {0x02});
    device.store->update(1, {3, 0, 0, 0});
    EXPECT_EQ(device.exchange(*client, nullptr), Strings{values({value(1, {3, 0, 0, 0})})});
}

TEST(DeviceRules, ALoginEndsSubscriptionsAndLogPush) {
    DeviceHarness device;
    auto client = device.connect();
    ASSERT_TRUE(client);
    ASSERT_EQ(device.login(*client), "0F 01");
    device.exchange(*client, SubscriptionRequest::newInstance({1}));
    device.exchange(*client, LogPushRequest::newInstance(true));
    ASSERT_TRUE(device.server->findConnection(1)->subscribedTo(1));

    ASSERT_EQ(device.login(*client), "0F 01");
    const auto connection = device.server->findConnection(1);
    EXPECT_FALSE(connection->subscribedTo(1));
    EXPECT_FALSE(connection->logPushOn());
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
    EXPECT_EQ(device.login(*second), "0F 01");
    EXPECT_EQ(device.login(*third), "0F 02");
    EXPECT_EQ(device.login(*third, "admin", "bad"), "0F 00");  // credentials come first
    // A logged-in connection logging in again keeps its place.
    EXPECT_EQ(device.login(*second), "0F 01");
    EXPECT_EQ(device.server->loggedInCount(), 2u);

    first->close();
    ASSERT_TRUE(
        device.pumpUntil([&] { return device.server->connectionCount() == 2; }, {third.get()}));
    EXPECT_EQ(device.login(*third), "0F 01");
    EXPECT_EQ(device.countEvents(DeviceEvent::Closed), 1u);
    EXPECT_EQ(device.countEvents(DeviceEvent::LoginRefused), 2u);
}
