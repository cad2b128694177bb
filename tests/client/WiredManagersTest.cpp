// The managers connected as a client session connects them: every request
// but the login waits in a closed valve in front of the outgoing queue, and
// login outcomes reach the get, subscription and push managers before the
// valve controller. The checks are on the order requests reach the queue.
#include <gtest/gtest.h>

#include "chanlink/client/ClientGetManager.h"
#include "chanlink/client/ClientLoginManager.h"
#include "chanlink/client/ClientPushSubscriptionManager.h"
#include "chanlink/client/ClientSetManager.h"
#include "chanlink/client/ClientSubscriptionManager.h"
#include "chanlink/client/LoginValveController.h"
#include "chanlink/messages/LoginResponse.h"
#include "support/RecordingReceiver.h"
#include "support/SentMessages.h"

using testing_support::RecordingReceiver;
using testing_support::SentMessages;
using Strings = std::vector<std::string>;

namespace {

const LoginResponse& loginResponse(LoginResponse::Result result) {
    static std::shared_ptr<const Message> keep[3];
    keep[result] = LoginResponse::newInstance(result);
    return dynamic_cast<const LoginResponse&>(*keep[result]);
}

struct Wired {
    Wired() {
        loginOutcomes->addReceiver(getManager);
        loginOutcomes->addReceiver(subscriptionManager);
        loginOutcomes->addReceiver(pushManager);
        loginOutcomes->addReceiver(std::make_shared<LoginValveController>(valve));
        getOutcomes->addReceiver(getManager);
        getOutcomes->addReceiver(subscriptionManager);
        getOutcomes->addReceiver(pushManager);
    }
    std::shared_ptr<SentMessages> queue = std::make_shared<SentMessages>();
    std::shared_ptr<Valve<std::shared_ptr<const Message>>> valve =
        std::make_shared<Valve<std::shared_ptr<const Message>>>(queue, false);
    std::shared_ptr<ClientGetManager> getManager = std::make_shared<ClientGetManager>(valve);
    std::shared_ptr<ClientSetManager> setManager = std::make_shared<ClientSetManager>(valve);
    std::shared_ptr<ClientSubscriptionManager> subscriptionManager =
        std::make_shared<ClientSubscriptionManager>(valve);
    std::shared_ptr<ClientPushSubscriptionManager> pushManager =
        std::make_shared<ClientPushSubscriptionManager>(valve);
    std::shared_ptr<Dispatcher<LoginOutcome>> loginOutcomes =
        std::make_shared<Dispatcher<LoginOutcome>>();
    std::shared_ptr<ClientLoginManager> loginManager =
        std::make_shared<ClientLoginManager>(queue, "ab", "xyz", loginOutcomes);
    std::shared_ptr<Dispatcher<GetOutcome>> getOutcomes =
        std::make_shared<Dispatcher<GetOutcome>>();
};

const std::string Login = "09 09 07 02 03 61 62 78 79 7A";
const std::string Get7 = "00 01 00 07 00 00 00";
const std::string Subscribe3 = "03 01 00 03 00 00 00";
const std::string Set1 = "02 01 00 00 00 01 00 AA";
const std::string PushOn = "04 01";

}  // namespace

TEST(WiredManagers, OnlyTheLoginLeavesBeforeSuccessThenEverythingInOneOrderedBurst) {
    Wired w;
    auto got = std::make_shared<RecordingReceiver<GetOutcome>>();
    w.getManager->requestChannel(7, got);
    w.subscriptionManager->addSubscription(3, std::make_shared<RecordingReceiver<GetOutcome>>());
    w.setManager->setChannel(1, {0xAA}, nullptr);
    w.pushManager->addSubscription(4, std::make_shared<RecordingReceiver<GetOutcome>>());
    EXPECT_TRUE(w.queue->take().empty());

    w.loginManager->initiateLogin();
    EXPECT_EQ(w.queue->take(), Strings{Login});

    // A refusal keeps everything held.
    w.loginManager->receive(loginResponse(LoginResponse::TooManyConnections));
    EXPECT_TRUE(w.queue->take().empty());

    // Success: the held requests, then the renewals made while the valve was
    // still closed (so a get made before login goes out twice), in one burst.
    w.loginManager->receive(loginResponse(LoginResponse::Success));
    EXPECT_EQ(w.queue->take(), (Strings{Get7, Subscribe3, Set1, PushOn, Get7, Subscribe3, PushOn}));

    // The first answer ends the get; the second finds nobody waiting.
    w.getOutcomes->receive(GetOutcome(7, {}, {0x01}, 255));
    w.getOutcomes->receive(GetOutcome(7, {}, {0x01}, 255));
    EXPECT_EQ(got->count(), 1u);

    // Open now: requests pass at once. A failed login closes the valve again
    // and holds, a new success releases and renews.
    w.setManager->receive(SetOutcome(1, 255));
    w.getManager->requestChannel(8, nullptr);
    EXPECT_EQ(w.queue->take(), Strings{"00 01 00 08 00 00 00"});
    w.loginManager->receive(loginResponse(LoginResponse::Failure));
    w.setManager->setChannel(2, {0xBB}, nullptr);
    EXPECT_TRUE(w.queue->take().empty());
    w.loginManager->receive(loginResponse(LoginResponse::Success));
    EXPECT_EQ(w.queue->take(),
              (Strings{"02 02 00 00 00 01 00 BB", "00 01 00 08 00 00 00", Subscribe3, PushOn}));
}
