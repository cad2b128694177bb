// The timed blocking calls over an in-memory pair, with a clock that moves one
// millisecond per tick: they return within their timeout plus one tick
// whatever the device does, and leave nothing behind when they time out.
#include <gtest/gtest.h>

#include "chanlink/messages/GetRequest.h"
#include "chanlink/messages/LoginResponse.h"
#include "chanlink/messages/SetRequest.h"
#include "chanlink/messages/SetResponse.h"
#include "support/PairedSession.h"

using namespace std::chrono_literals;
using Timed = testing_support::PairedSession;
using Bytes = std::vector<unsigned char>;
using Codes = std::vector<OpCode>;

namespace {

int requestsOf(const Timed& t, OpCode code) {
    int n = 0;
    for (OpCode sent : t.device->opcodes()) {
        n += sent == code ? 1 : 0;
    }
    return n;
}

}  // namespace

TEST(TimedBlockingLogin, AnswersOrTimesOutLeavingTheLoginPending) {
    Timed answered;
    const auto outcome = answered.session->blockingLogin(1000ms, answered.waiter);
    ASSERT_TRUE(outcome.has_value());
    EXPECT_TRUE(outcome->loggedIn());

    Timed silent;
    silent.silence(9);
    EXPECT_FALSE(silent.session->blockingLogin(20ms, silent.waiter).has_value());
    EXPECT_LE(silent.ticks, 21);
    EXPECT_TRUE(silent.session->getLoginState().loginPending());
    silent.device->send(LoginResponse::newInstance(LoginResponse::Success));
    silent.session->tick();  // a late answer still counts
    EXPECT_TRUE(silent.session->getLoginState().loggedIn());

    Timed unbuildable(std::string(256, 'u'));
    EXPECT_EQ(unbuildable.session->blockingLogin(20ms, unbuildable.waiter)->getState(),
              LoginOutcome::Failure);
    EXPECT_EQ(unbuildable.ticks, 0);
}

TEST(TimedBlockingGet, ReturnsTheValueOrNothingWithinItsTimeAndLeavesNoWaitBehind) {
    Timed t;
    ASSERT_TRUE(t.session->blockingLogin(1000ms, t.waiter)->loggedIn());
    const auto value = t.session->blockingGet(3, std::chrono::milliseconds::max(), t.waiter);
    ASSERT_TRUE(value.has_value());
    EXPECT_EQ(value->getData(), Bytes{0x33});

    t.silence(GetRequest::Code);
    for (int i = 0; i < 20; ++i) {
        t.ticks = 0;
        EXPECT_FALSE(t.session->blockingGet(7, 10ms, t.waiter).has_value());
        EXPECT_LE(t.ticks, 11);  // the timeout plus one tick
    }
    t.ticks = 0;
    EXPECT_FALSE(t.session->blockingGet(7, 0ms, t.waiter).has_value());
    EXPECT_EQ(t.ticks, 1);
    t.session->tick();  // the device reads the last request
    EXPECT_EQ(requestsOf(t, GetRequest::Code), 22);

    // Nothing waits for 7 any more: a new login asks for nothing, and a late
    // answer for it reaches nobody.
    t.device->received.clear();
    ASSERT_TRUE(t.session->blockingLogin(1000ms, t.waiter)->loggedIn());
    t.session->tick();
    EXPECT_EQ(t.device->opcodes(), Codes{9});
    t.device->push(7);
    t.session->tick();

    t.device->handlers.clear();
    const auto later = t.session->blockingGet(7, 1000ms, t.waiter);
    ASSERT_TRUE(later.has_value());
    EXPECT_EQ(later->getData(), (Bytes{0x77, 0x07}));
}

TEST(TimedBlockingSet, ATimedOutSetIsWithdrawnIfUnsentAndOtherwiseStillHoldsTheQueue) {
    Timed t;
    ASSERT_TRUE(t.session->blockingLogin(1000ms, t.waiter)->loggedIn());
    EXPECT_EQ(t.session->blockingSet(3, {0x01}, 1000ms, t.waiter), SetOutcome(3, 255));
    EXPECT_EQ(t.session->blockingSet(3, Bytes(70000, 0), 1000ms, t.waiter), SetOutcome(3, 1));

    std::vector<unsigned int> unanswered;
    t.device->handlers[SetRequest::Code] = [&](const Message& request) {
        unanswered.push_back(static_cast<const SetRequest&>(request).getChannelId());
    };
    t.ticks = 0;
    EXPECT_FALSE(
        t.session->blockingSet(3, {0x02}, 10ms, t.waiter).has_value());  // sent, unanswered
    EXPECT_FALSE(
        t.session->blockingSet(7, {0x03}, 10ms, t.waiter).has_value());  // queued behind it
    EXPECT_LE(t.ticks, 22);
    EXPECT_EQ(unanswered, std::vector<unsigned int>{3});

    // The late answer ends the first set; the withdrawn one never leaves.
    t.device->handlers.clear();
    t.device->send(SetResponse::newInstance(3));
    EXPECT_EQ(t.session->blockingSet(7, {0x04}, 1000ms, t.waiter), SetOutcome(7, 255));
    EXPECT_EQ(t.device->channels[7], Bytes{0x04});
    EXPECT_EQ(requestsOf(t, SetRequest::Code), 3);
}

TEST(TimedBlockingCalls, ACopiedSessionAnswersAtOnce) {
    Timed t;
    ClientSession copy(*t.session);
    EXPECT_EQ(copy.blockingLogin(10ms)->getState(), LoginOutcome::Failure);
    EXPECT_EQ(copy.blockingGet(1, 10ms)->getReasonCode(), 131);
    EXPECT_EQ(copy.blockingSet(1, {}, 10ms)->getReasonCode(), 131);
    EXPECT_TRUE(copy.waitForActivity(10ms));
    EXPECT_EQ(copy.getPollDescriptor().fd, -1);
}

TEST(TimedBlockingCalls, ReturnWhenMadeFromInsideAReceiver) {
    Timed t;
    std::optional<GetOutcome> fromReceiver;
    t.session->addLoginOutcomeReceiver(makeReceiver<LoginOutcome>([&](const LoginOutcome& outcome) {
        if (outcome.loggedIn()) {
            fromReceiver = t.session->blockingGet(3, 1000ms, t.waiter);
        }
    }));
    ASSERT_TRUE(t.session->blockingLogin(1000ms, t.waiter)->loggedIn());
    ASSERT_TRUE(fromReceiver.has_value());
    EXPECT_EQ(fromReceiver->getData(), Bytes{0x33});
}
