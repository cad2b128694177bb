// What a broken or hostile device can do to a client, over in-memory pairs:
// each attack leaves the client's memory bounded and ends, where it must, in
// an outcome that names its cause; the reconnecting client backs off from a
// device that keeps doing it and works with an honest one afterwards; every
// pushed value reaches a push receiver without a second decoder.
#include <gtest/gtest.h>

#include <algorithm>

#include "chanlink/client/ClientSessionBuilder.h"
#include "chanlink/client/ReconnectingClient.h"
#include "chanlink/messages/GetRequest.h"
#include "chanlink/messages/LogPushRequest.h"
#include "chanlink/messages/ReasonCode.h"
#include "chanlink/processing/LatestValueQueue.h"
#include "support/ManualClock.h"
#include "support/RecordingReceiver.h"
#include "support/ScriptedPeer.h"
#include "support/TransportPair.h"

using namespace std::chrono_literals;
using testing_support::ManualClock;
using testing_support::MemoryTransport;
using testing_support::RecordingReceiver;
using testing_support::ScriptedPeer;
using Bytes = std::vector<unsigned char>;

namespace {

constexpr std::size_t Limit = 64 * 1024;
constexpr std::size_t QueueLimit = 16;
constexpr std::size_t OneRead = 1024;

enum class Attack {
    EndlessFrame,  // opens a frame announcing 2 GiB and feeds it forever
    PushFlood,     // pushes values as fast as the 4 KiB "socket buffer" takes them
    StopsReading,  // reads nothing more, so the client's requests pile up
};

struct Connection {
    Connection(std::shared_ptr<ManualClock> clock, Attack attack) : attack(attack) {
        auto pair = testing_support::makeTransportPair(4096);
        client = pair.first;
        peer = std::make_unique<ScriptedPeer>(pair.second);
        peer->channels = {{3, {0x33}}, {7, {0x77}}};
        if (attack == Attack::EndlessFrame) {
            peer->handlers[GetRequest::Code] = [](const Message&) {};  // kept inside the frame
        }
        client->onTick = [this, clock] {
            clock->advance(1ms);
            // Once armed, the attack starts after the first request (the login).
            const bool attacking = armed && !peer->received.empty();
            if (!attacking || this->attack != Attack::StopsReading) {
                peer->serve();
            }
            if (attacking && this->attack == Attack::EndlessFrame && peer->unsentBytes() == 0) {
                peer->sendBytes(opened ? Bytes(4096, 0x00) : Bytes{0xFF, 0xFC, 0xFC, 0xFC, 0x7F});
                opened = true;
            }
            for (unsigned char n = 0;
                 attacking && this->attack == Attack::PushFlood && peer->unsentBytes() == 0; ++n) {
                peer->channels[8 + n % 2] = {n};
                peer->push(8 + n % 2);
            }
            // What the session holds once this tick has read, before the bounds are checked.
            if (session) {
                peakUndecoded =
                    std::max(peakUndecoded, session->getIncomingEndPoint()->undecodedBytes() +
                                                std::min(client->readable(), OneRead));
                peakQueued = std::max(peakQueued, session->getOutgoingEndPoint()->queuedMessages());
            }
        };
    }
    Attack attack;
    std::shared_ptr<MemoryTransport> client;
    std::unique_ptr<ScriptedPeer> peer;
    std::shared_ptr<ClientSession> session;
    bool armed = false;
    bool opened = false;
    std::size_t peakUndecoded = 0;
    std::size_t peakQueued = 0;
};

struct Row {
    const char* name;
    Attack attack;
    unsigned char outcome;  // of the repeated timed get of channel 3
};

class HostileDevice : public testing::TestWithParam<Row> {};

}  // namespace

TEST_P(HostileDevice, MemoryStaysBoundedAndTheOutcomeNamesTheCause) {
    auto clock = std::make_shared<ManualClock>();
    Connection c(clock, GetParam().attack);
    c.session =
        ClientSessionBuilder().setTransport(c.client).setUsername("u").setPassword("p").build();
    SessionWaiter waiter(clock);
    waiter.setMaxUndecodedBytes(Limit);
    waiter.setMaxQueuedRequests(QueueLimit);
    ASSERT_TRUE(c.session->blockingLogin(1s, waiter)->loggedIn());
    auto pushed = std::make_shared<LatestValueQueue>(64);
    c.session->addPushReceiver(pushed);
    c.armed = true;

    std::optional<GetOutcome> outcome;
    for (int i = 0; i < 2000 && !outcome; ++i) {
        outcome = c.session->blockingGet(3, 5ms, waiter);
    }
    ASSERT_TRUE(outcome.has_value());
    EXPECT_EQ(outcome->getReasonCode(), GetParam().outcome);
    EXPECT_LE(c.peakUndecoded, Limit + OneRead);
    EXPECT_LE(c.peakQueued, QueueLimit + 1);  // one more than checked: the last call's
    EXPECT_LE(pushed->size(), 64u);
    EXPECT_EQ(c.client->closed, !outcome->getSuccess());
    EXPECT_EQ(SessionWaiter::closingReason(waiter.lastResult()).value_or(ReasonCode::Success),
              GetParam().outcome);
    // Only the flood outran the application, whose queue kept the newest values.
    EXPECT_EQ(pushed->dropped() > 0, GetParam().attack == Attack::PushFlood);
}

INSTANTIATE_TEST_SUITE_P(
    Table, HostileDevice,
    testing::Values(Row{"EndlessFrame", Attack::EndlessFrame, ReasonCode::FrameTooLarge},
                    Row{"PushFlood", Attack::PushFlood, ReasonCode::Success},
                    Row{"StopsReading", Attack::StopsReading, ReasonCode::DeviceNotReading}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(HostileDeviceReconnecting, BacksOffToTheMaximumThenAPushReceiverIsRenewed) {
    std::vector<std::unique_ptr<Connection>> made;
    auto clock = std::make_shared<ManualClock>();
    ReconnectingClient client(
        [&]() -> std::shared_ptr<Transport> {
            made.push_back(std::make_unique<Connection>(clock, Attack::EndlessFrame));
            made.back()->armed = made.size() <= 4;  // the first four devices misbehave
            return made.back()->client;
        },
        "u", "p", clock);
    client.setMaxUndecodedBytes(Limit);
    client.setBackOff(100ms, 400ms);
    auto pushed = std::make_shared<RecordingReceiver<GetOutcome>>();
    auto got = std::make_shared<RecordingReceiver<GetOutcome>>();
    client.addPushReceiver(pushed);
    client.requestChannel(3, got);  // leaves after the first login, never answered
    client.start();
    for (int i = 0;
         i < 10000 && (made.size() < 5 || client.getState() != ReconnectingClient::Ready); ++i) {
        client.waitForActivity(10ms);
        client.tick();
    }
    ASSERT_EQ(made.size(), 5u);
    ASSERT_EQ(client.getState(), ReconnectingClient::Ready);
    // Each drop came soon after a login, so each counted as a failure: 100,
    // 200, 400, 400 ms.
    EXPECT_EQ(client.getFailedAttempts(), 4u);
    EXPECT_EQ(client.getRetryDelay(), 400ms);
    EXPECT_EQ(got->received(), std::vector<GetOutcome>{GetOutcome(3, ReasonCode::FrameTooLarge)});
    EXPECT_NE(client.getLastDropReason().find("larger than 64 KiB"), std::string::npos);

    ScriptedPeer& device = *made.back()->peer;
    client.tick();
    ASSERT_FALSE(device.received.empty());
    EXPECT_TRUE(LogPushRequest(device.received.back()).getValue());
    device.push(7);
    client.tick();
    EXPECT_EQ(pushed->count(), 1u);

    client.removePushReceiver(pushed);
    client.tick();  // written now, read by the device in the next tick
    client.tick();
    EXPECT_FALSE(LogPushRequest(device.received.back()).getValue());
}
