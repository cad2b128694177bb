// What a broken or hostile device can do to a session, over an in-memory pair
// with a 4 KiB "socket buffer" each way: each attack leaves the client's
// memory bounded and ends, where it must, in an outcome that names its cause.
// (The reconnecting client's answer to it is in ReconnectingClientTest.)
#include <gtest/gtest.h>

#include <algorithm>

#include "chanlink/client/ClientSessionBuilder.h"
#include "chanlink/messages/GetRequest.h"
#include "chanlink/messages/ReasonCode.h"
#include "chanlink/processing/LatestValueQueue.h"
#include "support/ManualClock.h"
#include "support/ScriptedPeer.h"
#include "support/TransportPair.h"

using namespace std::chrono_literals;
using Bytes = std::vector<unsigned char>;

namespace {

constexpr std::size_t Limit = 64 * 1024;
constexpr std::size_t QueueLimit = 16;
constexpr std::size_t OneRead = 1024;

enum class Attack {
    EndlessFrame,  // opens a frame announcing 2 GiB and feeds it forever
    PushFlood,     // pushes values as fast as the transport takes them
    StopsReading,  // reads nothing more, so the client's requests pile up
};

struct Row {
    const char* name;
    Attack attack;
    unsigned char outcome;  // of the repeated timed get of channel 3
};

class HostileDevice : public testing::TestWithParam<Row> {};

}  // namespace

TEST_P(HostileDevice, MemoryStaysBoundedAndTheOutcomeNamesTheCause) {
    const Attack attack = GetParam().attack;
    auto clock = std::make_shared<testing_support::ManualClock>();
    const auto pair = testing_support::makeTransportPair(4096);
    const auto client = pair.first;
    testing_support::ScriptedPeer peer(pair.second);
    peer.channels = {{3, {0x33}}};
    if (attack == Attack::EndlessFrame) {
        peer.handlers[GetRequest::Code] = [](const Message&) {};  // kept inside the frame
    }
    auto session =
        ClientSessionBuilder().setTransport(client).setUsername("u").setPassword("p").build();
    bool armed = false, opened = false;
    std::size_t peakUndecoded = 0, peakQueued = 0;
    client->onTick = [&] {
        clock->advance(1ms);
        // Once armed, the attack starts after the first request (the login).
        const bool attacking = armed && !peer.received.empty();
        if (!attacking || attack != Attack::StopsReading) {
            peer.serve();
        }
        if (attacking && attack == Attack::EndlessFrame && peer.unsentBytes() == 0) {
            peer.sendBytes(opened ? Bytes(4096, 0x00) : Bytes{0xFF, 0xFC, 0xFC, 0xFC, 0x7F});
            opened = true;
        }
        for (unsigned char n = 0;
             attacking && attack == Attack::PushFlood && peer.unsentBytes() == 0; ++n) {
            peer.channels[8 + n % 2] = {n};
            peer.push(8 + n % 2);
        }
        // What the session holds once this tick has read, before the bounds are checked.
        peakUndecoded = std::max(peakUndecoded, session->getIncomingEndPoint()->undecodedBytes() +
                                                    std::min(client->readable(), OneRead));
        peakQueued = std::max(peakQueued, session->getOutgoingEndPoint()->queuedMessages());
    };
    SessionWaiter waiter(clock);
    waiter.setMaxUndecodedBytes(Limit);
    waiter.setMaxQueuedRequests(QueueLimit);
    ASSERT_TRUE(session->blockingLogin(1s, waiter).value().loggedIn());
    auto pushed = std::make_shared<LatestValueQueue>(64);
    session->addPushReceiver(pushed);
    armed = true;

    std::optional<GetOutcome> outcome;
    for (int i = 0; i < 2000 && !outcome; ++i) {
        outcome = session->blockingGet(3, 5ms, waiter);
    }
    ASSERT_TRUE(outcome.has_value());
    EXPECT_EQ(outcome->getReasonCode(), GetParam().outcome);
    EXPECT_LE(peakUndecoded, Limit + OneRead);
    EXPECT_LE(peakQueued, QueueLimit + 1);  // one more than checked: the last call's
    EXPECT_EQ(peakQueued == QueueLimit + 1, attack == Attack::StopsReading);  // and not one less
    EXPECT_LE(pushed->size(), 64u);
    EXPECT_EQ(client->closed, !outcome->getSuccess());
    EXPECT_EQ(SessionWaiter::closingReason(waiter.lastResult()).value_or(ReasonCode::Success),
              GetParam().outcome);
    // Only the flood outran the application, whose queue kept the newest values.
    EXPECT_EQ(pushed->dropped() > 0, attack == Attack::PushFlood);
}

INSTANTIATE_TEST_SUITE_P(
    Table, HostileDevice,
    testing::Values(Row{"EndlessFrame", Attack::EndlessFrame, ReasonCode::FrameTooLarge},
                    Row{"PushFlood", Attack::PushFlood, ReasonCode::Success},
                    Row{"StopsReading", Attack::StopsReading, ReasonCode::DeviceNotReading}),
    [](const auto& info) { return std::string(info.param.name); });

// The untimed calls keep the plain tick loop's meaning, bounds included: a
// frame larger than any default limit is read through to the answer behind it.
TEST(HostileDevice, UntimedCallsReadPastAFrameOverTheDefaultLimit) {
    const auto pair = testing_support::makeTransportPair();
    testing_support::ScriptedPeer peer(pair.second);
    peer.channels = {{3, {0x33}}};
    std::size_t junkLeft = 0;  // sent a MiB a tick, so the client holds it undecoded
    pair.first->onTick = [&] {
        peer.serve();
        if (junkLeft > 0 && peer.unsentBytes() == 0) {
            const std::size_t piece = std::min<std::size_t>(junkLeft, 1 << 20);
            peer.sendBytes(Bytes(piece, 0x00));
            if ((junkLeft -= piece) == 0) {
                peer.sendBytes({0xFE});
                peer.push(3);
            }
        }
    };
    auto session =
        ClientSessionBuilder().setTransport(pair.first).setUsername("u").setPassword("p").build();
    ASSERT_TRUE(session->blockingLogin().loggedIn());
    peer.handlers[GetRequest::Code] = [&](const Message&) {
        peer.sendBytes({0xFF});
        junkLeft = SessionWaiter::DefaultMaxUndecodedBytes + 4096;  // past it by a few reads
    };
    const GetOutcome outcome = session->blockingGet(3);
    EXPECT_EQ(outcome.getData(), Bytes{0x33});
    EXPECT_FALSE(pair.first->closed);
}
