// The reconnecting client against scripted devices on 127.0.0.1 that are
// stopped and started again on the same port under it. Time is a clock the
// test moves; every wait on the network is bounded.
#include <gtest/gtest.h>

#include <algorithm>

#include "chanlink/client/ReconnectingClient.h"
#include "chanlink/flow/FunctionReceiver.h"
#include "chanlink/messages/GetRequest.h"
#include "chanlink/messages/ReasonCode.h"
#include "chanlink/messages/SetRequest.h"
#include "support/Eventually.h"
#include "support/ManualClock.h"
#include "support/RecordingReceiver.h"
#include "support/ScriptedTcpDevice.h"

using namespace std::chrono_literals;
using testing_support::eventually;
using testing_support::ManualClock;
using testing_support::RecordingReceiver;
using testing_support::ScriptedTcpDevice;
using Bytes = std::vector<unsigned char>;
using Codes = std::vector<OpCode>;
using States = std::vector<ReconnectingClient::State>;

namespace {

struct Fixture {
    Fixture() {
        device.channels = {{10, {0x01}}, {11, {0x02}}};
        client.addStateReceiver(states);
        client.addLoginOutcomeReceiver(logins);
    }
    // One round of both ends, until condition holds (bounded).
    template <typename Condition>
    bool until(Condition condition) {
        return eventually([&] {
            client.tick();
            device.serve();
            return condition();
        });
    }
    int count(ReconnectingClient::State state) const {
        const auto& seen = states->received();
        return static_cast<int>(std::count(seen.begin(), seen.end(), state));
    }
    static void silence(ScriptedTcpDevice& device, OpCode code) {
        device.peer()->handlers[code] = [](const Message&) {};
    }

    ScriptedTcpDevice device;
    std::shared_ptr<ManualClock> clock = std::make_shared<ManualClock>();
    ReconnectingClient client{"127.0.0.1", device.port(), "u", "p", clock};
    std::shared_ptr<RecordingReceiver<ReconnectingClient::State>> states =
        std::make_shared<RecordingReceiver<ReconnectingClient::State>>();
    std::shared_ptr<RecordingReceiver<LoginOutcome>> logins =
        std::make_shared<RecordingReceiver<LoginOutcome>>();
};

}  // namespace

TEST(ReconnectingClient, SubscriptionsDeliverAgainAfterTheDeviceRestarts) {
    Fixture f;
    ASSERT_TRUE(f.device.listening());
    auto values = std::make_shared<RecordingReceiver<GetOutcome>>();
    auto pushed = std::make_shared<RecordingReceiver<GetOutcome>>();
    auto also = std::make_shared<RecordingReceiver<GetOutcome>>();
    f.client.addSubscription(10, values);
    f.client.addSubscription(10, also);
    f.client.addPushSubscription(11, pushed);
    EXPECT_EQ(f.client.getState(), ReconnectingClient::Stopped);
    f.client.start();
    ASSERT_TRUE(f.until([&] { return values->count() >= 1; }));
    EXPECT_EQ(f.client.getState(), ReconnectingClient::Ready);
    EXPECT_EQ(f.device.peer()->opcodes(), (Codes{9, 3, 4}));  // each renewal asked once
    f.device.peer()->push(11);
    ASSERT_TRUE(f.until([&] { return pushed->count() == 1; }));

    // A get and a set that the device takes and never answers.
    Fixture::silence(f.device, GetRequest::Code);
    Fixture::silence(f.device, SetRequest::Code);
    auto got = std::make_shared<RecordingReceiver<GetOutcome>>();
    auto set = std::make_shared<RecordingReceiver<SetOutcome>>();
    f.client.requestChannel(11, got);
    f.client.setChannel(10, {0x05}, set);
    ASSERT_TRUE(f.until([&] { return f.device.peer()->received.size() == 5; }));
    EXPECT_EQ(f.client.outstanding(), 2u);

    // A frame cut short by the device's end is gone with its connection.
    f.device.peer()->sendBytes({0xFF, 0x10, 0x00, 0x00, 0x00, 0x0B, 0x01, 0x00, 0x0A});
    f.device.stop();
    ASSERT_TRUE(f.until([&] { return f.client.getState() != ReconnectingClient::Ready; }));
    EXPECT_EQ(f.client.getState(), ReconnectingClient::WaitingToReconnect);
    EXPECT_EQ(got->received(), std::vector<GetOutcome>{GetOutcome(11, ReasonCode::ConnectionLost)});
    EXPECT_EQ(set->received(), std::vector<SetOutcome>{SetOutcome(10, ReasonCode::ConnectionLost)});
    EXPECT_EQ(f.client.outstanding(), 0u);
    EXPECT_EQ(f.client.getSession(), nullptr);
    EXPECT_EQ(f.client.getRetryDelay(), 100ms);

    // Without a connection, requests are answered on the next tick.
    auto away = std::make_shared<RecordingReceiver<GetOutcome>>();
    f.client.requestChannel(10, away);
    f.client.tick();
    EXPECT_EQ(away->received(), std::vector<GetOutcome>{GetOutcome(10, ReasonCode::NotConnected)});
    EXPECT_EQ(f.client.blockingSet(10, {0x01}, 1000ms), SetOutcome(10, ReasonCode::NotConnected));

    f.device.channels[10] = {0x07};
    f.device.restart();
    ASSERT_TRUE(f.device.listening());
    f.clock->advance(99ms);
    f.client.tick();
    EXPECT_EQ(f.client.getState(), ReconnectingClient::WaitingToReconnect);  // not yet due
    f.clock->advance(1ms);
    ASSERT_TRUE(f.until([&] { return values->received().back().getData() == Bytes{0x07}; }));
    EXPECT_EQ(f.device.connections(), 2u);
    EXPECT_EQ(f.device.peer()->opcodes(), (Codes{9, 3, 4}));
    f.device.peer()->push(11);
    ASSERT_TRUE(f.until([&] { return pushed->count() == 2; }));
    EXPECT_EQ(f.states->received(),
              (States{ReconnectingClient::Connecting, ReconnectingClient::LoggingIn,
                      ReconnectingClient::Ready, ReconnectingClient::WaitingToReconnect,
                      ReconnectingClient::Connecting, ReconnectingClient::LoggingIn,
                      ReconnectingClient::Ready}));

    // Only removing a channel's last receiver unsubscribes on the device.
    f.client.removeSubscription(10, values);
    f.client.removeSubscription(12, values);  // never subscribed
    f.client.removePushSubscription(11, pushed);
    ASSERT_TRUE(f.until([&] { return f.device.peer()->received.size() == 4; }));
    f.client.removeSubscription(10, also);
    ASSERT_TRUE(f.until([&] { return f.device.peer()->received.size() == 5; }));
    EXPECT_EQ(f.device.peer()->opcodes(), (Codes{9, 3, 4, 4, 3}));
}

TEST(ReconnectingClient, BacksOffExponentiallyUpToTheMaximumAndStartsOverAfterALastingLogin) {
    Fixture f;
    f.device.stop();  // nothing listens: every connect is refused
    f.client.setBackOff(100ms, 1000ms);
    f.client.start();
    for (const auto delay : {100ms, 200ms, 400ms, 800ms, 1000ms, 1000ms}) {
        ASSERT_TRUE(
            f.until([&] { return f.client.getState() == ReconnectingClient::WaitingToReconnect; }));
        EXPECT_EQ(f.client.getRetryDelay(), delay);
        EXPECT_EQ(f.client.getTimeUntilDue(), delay);
        const int attempts = f.count(ReconnectingClient::Connecting);
        f.clock->advance(delay - 1ms);
        f.client.tick();
        EXPECT_EQ(f.count(ReconnectingClient::Connecting), attempts);
        EXPECT_EQ(f.client.getPollDescriptor().fd, -1);
        const auto before = f.clock->waited;
        EXPECT_TRUE(f.client.waitForActivity(5000ms));  // the attempt is due first
        EXPECT_EQ(f.clock->waited - before, 1ms);
        f.client.tick();
        EXPECT_EQ(f.count(ReconnectingClient::Connecting), attempts + 1);
    }
    EXPECT_EQ(f.client.getFailedAttempts(), 6u);

    f.device.restart();
    ASSERT_TRUE(
        f.until([&] { return f.client.getState() == ReconnectingClient::WaitingToReconnect; }));
    f.clock->advance(f.client.getRetryDelay());
    ASSERT_TRUE(f.until([&] { return f.client.getState() == ReconnectingClient::Ready; }));
    EXPECT_EQ(f.client.getTimeUntilDue(), std::chrono::milliseconds::max());
    f.clock->advance(1000ms);  // up for the longest back-off: a success
    f.device.stop();
    ASSERT_TRUE(
        f.until([&] { return f.client.getState() == ReconnectingClient::WaitingToReconnect; }));
    EXPECT_EQ(f.client.getRetryDelay(), 100ms);
}

TEST(ReconnectingClient, GivesUpOnUnansweredAndRefusedLoginsAndAnswersWhatWaited) {
    Fixture f;
    f.device.handlers[9] = [](const Message&) {};  // logins go unanswered
    f.client.setAttemptTimeout(2000ms);
    f.client.start();
    ASSERT_TRUE(f.until([&] {
        return f.client.getState() == ReconnectingClient::LoggingIn && f.device.peer() &&
               f.device.peer()->received.size() == 1;
    }));
    auto got = std::make_shared<RecordingReceiver<GetOutcome>>();
    f.client.requestChannel(10, got);  // held until a login that never comes
    f.clock->advance(1999ms);
    f.client.tick();
    EXPECT_EQ(f.client.getState(), ReconnectingClient::LoggingIn);
    f.clock->advance(1ms);
    f.client.tick();
    EXPECT_EQ(f.client.getState(), ReconnectingClient::WaitingToReconnect);
    EXPECT_EQ(got->received(), std::vector<GetOutcome>{GetOutcome(10, ReasonCode::ConnectionLost)});

    f.device.handlers.clear();
    f.device.loginResult = 0;  // refused
    f.clock->advance(f.client.getRetryDelay());
    ASSERT_TRUE(f.until([&] { return f.client.getFailedAttempts() == 2; }));
    EXPECT_EQ(f.client.getState(), ReconnectingClient::WaitingToReconnect);
    EXPECT_EQ(f.logins->received().back().getState(), LoginOutcome::Failure);

    // stop() answers what waits and makes no further attempts.
    auto set = std::make_shared<RecordingReceiver<SetOutcome>>();
    f.client.setChannel(10, {0x01}, set);
    f.client.stop();
    EXPECT_EQ(set->received(), std::vector<SetOutcome>{SetOutcome(10, ReasonCode::NotConnected)});
    EXPECT_EQ(f.client.getState(), ReconnectingClient::Stopped);
    f.clock->advance(10000ms);
    f.client.tick();
    EXPECT_EQ(f.client.getState(), ReconnectingClient::Stopped);
    EXPECT_FALSE(f.client.waitUntilReady(1000ms));

    // Credentials that no login request can carry: stopped, not retried.
    f.device.loginResult = 1;
    ReconnectingClient unusable("127.0.0.1", f.device.port(), std::string(256, 'u'), "p", f.clock);
    unusable.setBackOff(1ms, std::chrono::milliseconds::max());
    unusable.start();
    ASSERT_TRUE(eventually([&] {
        unusable.tick();
        f.device.serve();
        return unusable.getState() == ReconnectingClient::Stopped;
    }));
}

TEST(ReconnectingClient, TimedCallsAnswerOrGiveUpWithinTheirTimeLeavingNothingBehind) {
    Fixture f;
    f.client.start();
    f.clock->onWait = [&] { f.device.serve(); };
    f.clock->pollLimit = 5000ms;  // ends as soon as the answer is there
    ASSERT_TRUE(f.client.waitUntilReady(5000ms));
    EXPECT_EQ(f.client.blockingGet(10, 5000ms)->getData(), Bytes{0x01});
    EXPECT_EQ(f.client.blockingSet(10, {0x09}, 5000ms), SetOutcome(10, 255));

    Fixture::silence(f.device, GetRequest::Code);
    Fixture::silence(f.device, SetRequest::Code);
    f.clock->pollLimit = 0ms;
    for (int i = 0; i < 10; ++i) {
        EXPECT_FALSE(f.client.blockingGet(11, 1000ms).has_value());
        EXPECT_FALSE(f.client.blockingSet(11, {0x01}, 1000ms).has_value());
    }
    EXPECT_EQ(f.client.outstanding(), 0u);

    // The client's own wait: the silent socket, up to the timeout.
    const auto before = f.clock->waited;
    EXPECT_FALSE(f.client.waitForActivity(3000ms));
    EXPECT_EQ(f.clock->waited - before, 3000ms);
    EXPECT_EQ(f.client.getPollDescriptor().fd, f.client.getSession()->getPollDescriptor().fd);
    EXPECT_GE(f.client.getPollDescriptor().fd, 0);
}

TEST(ReconnectingClient, AReceiverMayStopTheClientWhileItIsBeingTicked) {
    Fixture f;
    auto got = std::make_shared<RecordingReceiver<GetOutcome>>();
    f.client.addSubscription(10, makeReceiver<GetOutcome>([&](const GetOutcome&) {
                                 f.client.requestChannel(11, got);
                                 f.client.stop();
                             }));
    f.client.addStateReceiver(
        makeReceiver<ReconnectingClient::State>([&](ReconnectingClient::State state) {
            if (state == ReconnectingClient::Ready) {
                f.client.addSubscription(11, got);  // registering from a state report
            }
        }));
    f.client.start();
    ASSERT_TRUE(f.until([&] { return f.client.getState() == ReconnectingClient::Stopped; }));
    EXPECT_EQ(got->received().back(), GetOutcome(11, ReasonCode::ConnectionLost));
    EXPECT_EQ(f.client.getSession(), nullptr);
}
