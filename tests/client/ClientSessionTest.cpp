// A built session against a scripted device over an in-memory pair: what the
// application's calls put on the wire, in which order, and which outcomes
// they deliver. The device is served between the session's ticks.
#include <gtest/gtest.h>

#include <functional>

#include "chanlink/messages/ErrorResponse.h"
#include "chanlink/messages/GetRequest.h"
#include "chanlink/messages/SetRequest.h"
#include "chanlink/messages/SetResponse.h"
#include "chanlink/transport/LoopBackTransport.h"
#include "support/PairedSession.h"

using testing_support::PairedSession;
using Strings = std::vector<std::string>;

namespace {

const std::string Login = "09 09 07 02 03 61 62 78 79 7A";
const std::string Get7 = "00 01 00 07 00 00 00";
const std::string Sub3 = "03 01 00 03 00 00 00";
const std::string Sub5 = "03 01 00 05 00 00 00";
const std::string PushOn = "04 01";
const std::string PushOff = "04 00";

struct Scenario {
    const char* name;
    std::function<void(PairedSession&)> steps;
    Strings wire;  // requests the device received, in order
    Strings log;   // outcomes delivered, in order
};

void login(PairedSession& s) {
    s.session->initiateLogin();
    s.rounds(2);
}

const auto quiet = [] { return makeReceiver<GetOutcome>([](const GetOutcome&) {}); };

const Scenario scenarios[] = {
    {"LoginOutcomesFollowTheDevicesAnswer",
     [](PairedSession& s) {
         const auto logins = s.logins();
         s.session->addLoginOutcomeReceiver(logins);
         s.session->addLoginOutcomeReceiver(logins);  // once only
         for (unsigned char result : {1, 2, 0}) {
             s.device->loginResult = result;
             login(s);
         }
         s.session->removeLoginOutcomeReceiver(logins);
         login(s);
     },
     {Login, Login, Login, Login},
     {"login Pending", "login Success", "login Pending", "login TooManyConnections",
      "login Pending", "login Failure"}},

    {"RequestsWaitForTheLoginThenLeaveWithTheirRenewalsInOneBurst",
     [](PairedSession& s) {
         s.device->loginResult = 2;
         s.session->requestChannel(7, s.got());
         s.session->addSubscription(3, s.got("sub"));
         s.session->setChannel(3, {0xAA}, s.set());
         s.session->addPushSubscription(4, quiet());
         login(s);  // refused: everything stays held
         s.device->loginResult = 1;
         login(s);
         s.rounds(2);
     },
     {Login, Login, Get7, Sub3, "02 03 00 00 00 01 00 AA", PushOn, Get7, Sub3, PushOn},
     {"get 7 255 77 07", "sub 3 255 33", "set 3 255", "sub 3 255 AA"}},

    {"AFailedLoginHoldsRequestsAgainUntilTheNextSuccess",
     [](PairedSession& s) {
         login(s);
         s.device->loginResult = 0;
         login(s);
         s.session->setChannel(3, {0x01}, s.set());
         s.rounds(2);
         s.device->loginResult = 1;
         login(s);
         s.rounds(1);
     },
     {Login, Login, Login, "02 03 00 00 00 01 00 01"},
     {"set 3 255"}},

    {"SetsLeaveOneAtATimeAndAnswersAreMatchedByChannel",
     [](PairedSession& s) {
         login(s);
         s.silence(SetRequest::Code);
         s.session->setChannel(3, {0x01}, s.set());
         s.session->setChannel(42, {0x02}, s.set());  // unknown to the device
         s.session->setChannel(3, std::vector<unsigned char>(70000), s.set());  // too large
         s.session->setChannel(7, {0x03}, s.set());
         s.rounds(2);
         s.device->send(SetResponse::newInstance(42));  // not the one in flight
         s.rounds(2);
         s.device->handlers.clear();
         s.device->send(SetResponse::newInstance(3));
         s.rounds(4);
         s.session->setChannel(3, {0x04}, nullptr);  // a failed set leaves the next to this call
         s.rounds(4);
     },
     {Login, "02 03 00 00 00 01 00 01", "02 2A 00 00 00 01 00 02", "02 07 00 00 00 01 00 03",
      "02 03 00 00 00 01 00 04"},
     {"set 3 255", "set 42 9", "set 3 1", "set 7 255"}},

    {"ResetAnswersEverySetWith131AndDropsQueuedRequestsButKeepsTheLogin",
     [](PairedSession& s) {
         login(s);
         s.silence(SetRequest::Code);
         s.session->setChannel(3, {0x01}, s.set());
         s.rounds(1);
         s.session->setChannel(3, {0x02}, s.set());
         s.session->requestChannel(3, s.got());
         s.session->reset();
         s.rounds(2);
         s.session->requestChannel(7, s.got());
         s.rounds(2);
     },
     {Login, "02 03 00 00 00 01 00 01", Get7},
     {"set 3 131", "set 3 131", "get 7 255 77 07"}},

    {"GetsAreNeverBatchedAndEachWaitingReceiverHearsTheFirstOutcomeOnce",
     [](PairedSession& s) {
         s.session->addErrorResponseReceiver(
             makeReceiver<ErrorResponse>([&s](const ErrorResponse& e) {
                 s.log.push_back("error " + std::to_string(e.getChannelId()));
             }));
         login(s);
         auto a = s.got("a");
         s.session->requestChannel(7, a);
         s.session->requestChannel(7, s.got("b"));
         s.session->requestChannel(7, a);  // already waiting
         s.session->requestChannel(99, s.got());
         s.rounds(3);
     },
     {Login, Get7, Get7, Get7, "00 01 00 63 00 00 00"},
     {"a 7 255 77 07", "b 7 255 77 07", "get 99 7", "error 99"}},

    {"TheFirstSubscriberSubscribesAndTheLastUnsubscribes",
     [](PairedSession& s) {
         s.device->channels[5] = {0x01};
         login(s);
         auto a = s.got("a");
         auto b = s.got("b");
         s.session->addSubscription(5, nullptr);
         s.session->addSubscription(5, a);
         s.session->addSubscription(5, b);
         s.rounds(2);
         s.device->push(6);  // not subscribed
         s.session->removeSubscription(5, a);
         s.session->removeSubscription(6, b);
         s.rounds(2);
         s.session->removeSubscription(5, b);
         s.rounds(2);
         s.device->push(5);
         s.rounds(2);
     },
     {Login, Sub5, Sub5},
     {"a 5 255 01", "b 5 255 01"}},

    {"PushSubscriptionsSwitchThePushOnForTheFirstAndOffAfterTheLast",
     [](PairedSession& s) {
         login(s);
         auto a = s.got("a");
         auto b = s.got("b");
         s.session->removePushSubscription(1, a);  // nothing to remove: nothing sent
         s.session->addPushSubscription(1, a);
         s.session->addPushSubscription(2, b);
         s.rounds(2);
         s.device->push(2);
         s.rounds(1);
         s.session->removePushSubscription(1, a);
         s.rounds(1);
         s.session->removePushSubscription(2, b);
         s.rounds(2);
     },
     {Login, PushOn, PushOff},
     {"b 2 255"}},

    {"EverySuccessfulLoginRenewsPendingGetsAndSubscriptionsInChannelOrder",
     [](PairedSession& s) {
         login(s);
         s.silence(GetRequest::Code);
         s.session->requestChannel(7, quiet());
         s.session->addSubscription(5, quiet());
         s.session->addSubscription(3, quiet());
         s.session->addPushSubscription(4, quiet());
         s.rounds(2);
         s.device->received.clear();
         s.device->loginResult = 0;
         login(s);
         s.device->loginResult = 1;
         login(s);
         s.rounds(1);
     },
     {Login, Login, Get7, Sub3, Sub5, PushOn},
     {}},
};

void PrintTo(const Scenario& scenario, std::ostream* out) {
    *out << scenario.name;
}

class ClientSessionScenario : public testing::TestWithParam<Scenario> {};

}  // namespace

TEST_P(ClientSessionScenario, PutsTheseRequestsOnTheWireAndDeliversTheseOutcomes) {
    PairedSession s("ab", true);
    GetParam().steps(s);
    EXPECT_EQ(s.wire(), GetParam().wire);
    EXPECT_EQ(s.log, GetParam().log);
}

INSTANTIATE_TEST_SUITE_P(Table, ClientSessionScenario, testing::ValuesIn(scenarios),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(ClientSessionBuilder, BuildsOnlyWithTransportUsernameAndPassword) {
    ClientSessionBuilder builder;
    EXPECT_EQ(builder.build(), nullptr);
    builder.setTransport(std::make_shared<LoopBackTransport>(64)).setUsername("u");
    EXPECT_EQ(builder.build(), nullptr);
    builder.setPassword("");
    const auto first = builder.build();
    ASSERT_NE(first, nullptr);
    EXPECT_NE(first, builder.build());
}

TEST(ClientSession, CredentialsTooLongForARequestFailTheLoginWithoutSending) {
    PairedSession longest(std::string(255, 'u'));
    EXPECT_TRUE(longest.session->blockingLogin().loggedIn());
    PairedSession tooLong(std::string(256, 'u'));
    EXPECT_EQ(tooLong.session->blockingLogin().getState(), LoginOutcome::Failure);
    EXPECT_EQ(tooLong.ticks, 0);
}

TEST(ClientSession, ACopyIsEmptyAndInert) {
    PairedSession s;
    ClientSession copy(*s.session);
    EXPECT_EQ(copy.getTransport(), nullptr);
    copy.tick();
    copy.reset();
    EXPECT_FALSE(copy.initiateLogin());
    EXPECT_EQ(copy.blockingLogin().getState(), LoginOutcome::Failure);
    EXPECT_EQ(copy.blockingGet(1).getReasonCode(), 131);
    EXPECT_NE(s.session->getTransport(), nullptr);
}
