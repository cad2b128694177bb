// A built session against a scripted device over an in-memory pair: what the
// application's calls put on the wire, in which order, and which outcomes
// they deliver. The device is served between the session's ticks, or, for
// the blocking calls, inside each tick, which moves the clock by 1 ms.
#include <gtest/gtest.h>

#include <functional>

#include "chanlink/messages/ErrorResponse.h"
#include "chanlink/messages/GetRequest.h"
#include "chanlink/messages/LoginResponse.h"
#include "chanlink/messages/SetRequest.h"
#include "chanlink/messages/SetResponse.h"
#include "chanlink/transport/LoopBackTransport.h"
#include "support/PairedSession.h"

using namespace std::chrono_literals;
using testing_support::PairedSession;
using Strings = std::vector<std::string>;
using Bytes = std::vector<unsigned char>;

namespace {

const std::string Login = "09 09 07 02 03 61 62 78 79 7A";
const std::string Get3 = "00 01 00 03 00 00 00";
const std::string Get7 = "00 01 00 07 00 00 00";
const std::string Sub3 = "03 01 00 03 00 00 00";
const std::string Sub5 = "03 01 00 05 00 00 00";
const std::string PushOn = "04 01";
const std::string PushOff = "04 00";

struct Scenario {
    const char* name;
    std::function<void(PairedSession&)> steps;
    Strings wire;         // requests the device received, in order
    Strings log;          // outcomes delivered, in order
    bool served = false;  // the device serves inside each tick
};

void login(PairedSession& s) {
    s.session->initiateLogin();
    s.rounds(2);
}

const auto quiet = [] { return makeReceiver<GetOutcome>([](const GetOutcome&) {}); };

void note(PairedSession& s, const GetOutcome& o) {
    s.got()->receive(o);
}
void note(PairedSession& s, const SetOutcome& o) {
    s.set()->receive(o);
}
void note(PairedSession& s, const LoginOutcome& o) {
    s.logins()->receive(o);
}

// Logs what a timed call returned and how many ticks it took: "get 3 255 33 in 1".
template <typename Call>
void timed(PairedSession& s, Call call) {
    s.ticks = 0;
    if (const auto result = call()) {
        note(s, *result);
    } else {
        s.log.push_back("none");
    }
    s.log.back() += " in " + std::to_string(s.ticks);
}

const Scenario scenarios[] = {
    {"LoginOutcomesFollowTheDevicesAnswer",
     [](PairedSession& s) {
         const auto logins = s.logins();
         s.session->addLoginOutcomeReceiver(logins);
         s.session->addLoginOutcomeReceiver(logins);  // once only
         for (unsigned char result : {1, 2, 0}) {
             s.device->loginResult = result;
             login(s);
             s.log.push_back(s.session->getLoginState().tooManyConnections() ? "full" : "room");
         }
         s.session->removeLoginOutcomeReceiver(logins);
         login(s);
     },
     {Login, Login, Login, Login},
     {"login Pending", "login Success", "room", "login Pending", "login TooManyConnections", "full",
      "login Pending", "login Failure", "room"}},

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
         const auto all = s.got("all");  // every pushed value, once
         s.session->addPushReceiver(all);
         s.session->addPushReceiver(all);
         s.rounds(2);
         s.device->push(2);
         s.rounds(1);
         s.session->removePushSubscription(1, a);
         s.session->removePushReceiver(all);
         s.rounds(1);
         s.session->removePushSubscription(2, b);
         s.rounds(2);
     },
     {Login, PushOn, PushOff},
     {"b 2 255", "all 2 255"}},

    // A failed login holds new requests again; the next success releases
    // them ahead of the renewals.
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
         s.session->setChannel(3, {0x01}, s.set());
         s.rounds(2);
         s.device->loginResult = 1;
         login(s);
         s.rounds(1);
     },
     {Login, Login, "02 03 00 00 00 01 00 01", Get7, Sub3, Sub5, PushOn},
     {"set 3 255"}},

    // The timed calls return within their timeout plus one tick; a timeout of
    // 0 makes exactly one tick.
    {"ATimedLoginIsEmptyWhenUnansweredInTimeAndALateAnswerStillCounts",
     [](PairedSession& s) {
         // A timed call made from inside a receiver returns too.
         s.session->addLoginOutcomeReceiver(makeReceiver<LoginOutcome>([&s](const LoginOutcome& o) {
             if (o.loggedIn()) {
                 timed(s, [&] { return s.session->blockingGet(3, 1000ms, s.waiter); });
             }
         }));
         timed(s, [&] { return s.session->blockingLogin(1000ms, s.waiter); });
         s.silence(9);
         timed(s, [&] { return s.session->blockingLogin(20ms, s.waiter); });
         note(s, s.session->getLoginState());
         s.device->send(LoginResponse::newInstance(LoginResponse::Success));
         s.session->tick();
         note(s, s.session->getLoginState());
     },
     {Login, Get3, Login, Get3},
     {"get 3 255 33 in 2", "login Success in 2", "none in 20", "login Pending", "get 3 255 33 in 2",
      "login Success"},
     true},

    // A timed-out get stops waiting (a new login asks for nothing) but its
    // request, once made, still leaves.
    {"ATimedOutGetLeavesNoWaitBehind",
     [](PairedSession& s) {
         login(s);
         timed(s, [&] {
             return s.session->blockingGet(3, std::chrono::milliseconds::max(), s.waiter);
         });
         note(s, s.session->blockingGet(7));
         s.silence(GetRequest::Code);
         timed(s, [&] { return s.session->blockingGet(7, 10ms, s.waiter); });
         timed(s, [&] { return s.session->blockingGet(7, 0ms, s.waiter); });
         // In memory there is nothing to wait on: the next tick may have work.
         s.log.push_back("wait " + std::to_string(s.session->waitForActivity(1000ms)));
         login(s);
         s.device->handlers.clear();
         timed(s, [&] { return s.session->blockingGet(7, 1000ms, s.waiter); });
     },
     {Login, Get3, Get7, Get7, Get7, Login, Get7},
     {"get 3 255 33 in 2", "get 7 255 77 07", "none in 10", "none in 1", "wait 1",
      "get 7 255 77 07 in 2"},
     true},

    // A timed-out set still queued is withdrawn; one already sent holds the
    // sets behind it until its late answer.
    {"ATimedOutSetIsWithdrawnIfUnsentAndOtherwiseHoldsTheQueue",
     [](PairedSession& s) {
         login(s);
         timed(s, [&] { return s.session->blockingSet(3, {0x01}, 1000ms, s.waiter); });
         timed(s, [&] { return s.session->blockingSet(3, Bytes(70000), 1000ms, s.waiter); });
         s.silence(SetRequest::Code);
         timed(s, [&] { return s.session->blockingSet(3, {0x02}, 10ms, s.waiter); });
         timed(s, [&] { return s.session->blockingSet(7, {0x03}, 10ms, s.waiter); });
         s.device->handlers.clear();
         s.device->send(SetResponse::newInstance(3));
         timed(s, [&] { return s.session->blockingSet(7, {0x04}, 1000ms, s.waiter); });
     },
     {Login, "02 03 00 00 00 01 00 01", "02 03 00 00 00 01 00 02", "02 07 00 00 00 01 00 04"},
     {"set 3 255 in 2", "set 3 1 in 0", "none in 10", "none in 10", "set 7 255 in 2"},
     true},
};

void PrintTo(const Scenario& scenario, std::ostream* out) {
    *out << scenario.name;
}

class ClientSessionScenario : public testing::TestWithParam<Scenario> {};

}  // namespace

TEST_P(ClientSessionScenario, PutsTheseRequestsOnTheWireAndDeliversTheseOutcomes) {
    PairedSession s("ab", !GetParam().served);
    GetParam().steps(s);
    EXPECT_EQ(s.device->take(), GetParam().wire);
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

// Credentials too long for a request cannot be sent, and a copy has nothing
// to work with: their calls answer at once, without a tick.
TEST(ClientSession, CallsThatCannotSendAnythingAnswerAtOnce) {
    PairedSession longest(std::string(255, 'u'));
    EXPECT_TRUE(longest.session->blockingLogin().loggedIn());
    PairedSession s(std::string(256, 'u'));
    EXPECT_EQ(s.session->blockingLogin().getState(), LoginOutcome::Failure);
    EXPECT_EQ(s.session->getLoginState().getState(), LoginOutcome::Failure);
    EXPECT_EQ(s.session->blockingLogin(20ms, s.waiter).value().getState(), LoginOutcome::Failure);
    ClientSession copy(*s.session);
    copy.tick();
    copy.reset();
    EXPECT_EQ(copy.getTransport(), nullptr);
    EXPECT_FALSE(copy.initiateLogin());
    EXPECT_EQ(copy.blockingLogin().getState(), LoginOutcome::Failure);
    EXPECT_EQ(copy.blockingLogin(10ms).value().getState(), LoginOutcome::Failure);
    EXPECT_EQ(copy.blockingGet(1).getReasonCode(), 131);
    EXPECT_EQ(copy.blockingGet(1, 10ms).value().getReasonCode(), 131);
    EXPECT_EQ(copy.blockingSet(1, {}, 10ms).value().getReasonCode(), 131);
    EXPECT_TRUE(copy.waitForActivity(10ms));
    EXPECT_EQ(copy.getPollDescriptor().fd, -1);
    EXPECT_EQ(s.ticks, 0);
    ClientSubscriptionManager unconnected(nullptr);  // nowhere to send to
    unconnected.addSubscription(1, quiet());
    EXPECT_EQ(unconnected.getSubscriptionList(), std::list<unsigned int>{1});
}
