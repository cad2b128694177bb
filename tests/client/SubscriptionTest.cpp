#include <gtest/gtest.h>

#include "chanlink/client/ClientPushSubscriptionManager.h"
#include "chanlink/client/ClientSubscriptionManager.h"
#include "support/RecordingReceiver.h"
#include "support/SentMessages.h"

using testing_support::RecordingReceiver;
using testing_support::SentMessages;
using Outcomes = RecordingReceiver<GetOutcome>;
using Strings = std::vector<std::string>;

TEST(ClientSubscriptionManager, SubscribesOnTheFirstReceiverAndUnsubscribesAfterTheLast) {
    auto sent = std::make_shared<SentMessages>();
    ClientSubscriptionManager manager(sent);
    auto a = std::make_shared<Outcomes>();
    auto b = std::make_shared<Outcomes>();
    manager.addSubscription(5, nullptr);
    manager.addSubscription(5, a);
    manager.addSubscription(5, b);
    EXPECT_EQ(sent->take(), Strings{"03 01 00 05 00 00 00"});

    manager.receive(GetOutcome(5, {}, {0x01}, 255));
    manager.receive(GetOutcome(6, {}, {0x01}, 255));  // not subscribed: dropped
    EXPECT_EQ(a->count(), 1u);
    EXPECT_EQ(b->count(), 1u);

    manager.removeSubscription(5, a);
    manager.removeSubscription(6, a);
    EXPECT_TRUE(sent->take().empty());
    manager.removeSubscription(5, b);
    EXPECT_EQ(sent->take(), Strings{"03 01 00 05 00 00 00"});  // alike on the wire
    EXPECT_TRUE(manager.getSubscriptionList().empty());
}

TEST(ClientSubscriptionManager, RenewsEverySubscriptionAfterEachSuccessfulLogin) {
    auto sent = std::make_shared<SentMessages>();
    ClientSubscriptionManager manager(sent);
    for (unsigned int channel : {9u, 3u, 5u}) {
        manager.addSubscription(channel, std::make_shared<Outcomes>());
    }
    sent->take();
    manager.receive(LoginOutcome(LoginOutcome::Failure));
    EXPECT_TRUE(sent->take().empty());
    EXPECT_EQ(manager.getSubscriptionList(), (std::list<unsigned int>{3, 5, 9}));
    manager.receive(LoginOutcome(LoginOutcome::Success));
    EXPECT_EQ(sent->take(),
              (Strings{"03 01 00 03 00 00 00", "03 01 00 05 00 00 00", "03 01 00 09 00 00 00"}));
}

TEST(ClientPushSubscriptionManager, SwitchesThePushOnForTheFirstAndOffAfterTheLast) {
    auto sent = std::make_shared<SentMessages>();
    ClientPushSubscriptionManager manager(sent);
    manager.receive(LoginOutcome(LoginOutcome::Success));
    EXPECT_TRUE(sent->take().empty());  // nothing subscribed: nothing to renew

    auto a = std::make_shared<Outcomes>();
    auto b = std::make_shared<Outcomes>();
    manager.addSubscription(1, a);
    manager.addSubscription(2, b);
    EXPECT_EQ(sent->take(), Strings{"04 01"});
    manager.receive(GetOutcome(2, {}, {0x07}, 255));
    EXPECT_EQ(a->count(), 0u);
    EXPECT_EQ(b->count(), 1u);

    manager.receive(LoginOutcome(LoginOutcome::TooManyConnections));
    manager.receive(LoginOutcome(LoginOutcome::Success));
    EXPECT_EQ(sent->take(), Strings{"04 01"});

    manager.removeSubscription(1, a);
    EXPECT_TRUE(sent->take().empty());
    manager.removeSubscription(2, b);
    EXPECT_EQ(sent->take(), Strings{"04 00"});
    EXPECT_TRUE(manager.getSubscriptionList().empty());
}
