// What a broken or hostile device can do to a client, over in-memory pairs:
// a frame that never ends is cut off at the undecoded bound (and the
// reconnecting client starts over on a fresh connection), and every pushed
// value reaches a push receiver without a second decoder.
#include <gtest/gtest.h>

#include "chanlink/client/ClientSessionBuilder.h"
#include "chanlink/client/ReconnectingClient.h"
#include "chanlink/messages/GetRequest.h"
#include "chanlink/messages/GetResponse.h"
#include "chanlink/messages/LogPushRequest.h"
#include "chanlink/messages/ReasonCode.h"
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

struct Connection {
    explicit Connection(std::shared_ptr<ManualClock> clock) {
        auto pair = testing_support::makeTransportPair();
        client = pair.first;
        peer = std::make_unique<ScriptedPeer>(pair.second);
        peer->channels = {{3, {0x33}}, {7, {0x77}}};
        client->onTick = [this, clock] {
            clock->advance(1ms);
            peer->serve();
            // Once on, the device opens a frame announcing 2 GiB after its first
            // answer and feeds it forever.
            if (endless && !peer->received.empty() && peer->unsentBytes() == 0) {
                peer->sendBytes(opened ? Bytes(4096, 0x00) : Bytes{0xFF, 0xFC, 0xFC, 0xFC, 0x7F});
                opened = true;
            }
        };
    }
    std::shared_ptr<MemoryTransport> client;
    std::unique_ptr<ScriptedPeer> peer;
    bool endless = false;
    bool opened = false;
};

}  // namespace

TEST(HostileDevice, AnEndlessFrameClosesTheConnectionAtTheBoundWithMemoryHeldBelowIt) {
    auto clock = std::make_shared<ManualClock>();
    Connection c(clock);
    auto session =
        ClientSessionBuilder().setTransport(c.client).setUsername("u").setPassword("p").build();
    SessionWaiter waiter(clock);
    waiter.setMaxUndecodedBytes(Limit);
    ASSERT_TRUE(session->blockingLogin(1s, waiter)->loggedIn());
    c.peer->handlers[GetRequest::Code] = [](const Message&) {};
    c.endless = true;

    std::size_t peak = 0;
    waiter.setStopCheck([&] {
        peak = std::max(peak, session->getIncomingEndPoint()->undecodedBytes());
        return false;
    });
    const auto outcome = session->blockingGet(3, 10s, waiter);
    ASSERT_TRUE(outcome.has_value());
    EXPECT_EQ(outcome->getReasonCode(), ReasonCode::ConnectionLost);
    EXPECT_TRUE(c.client->closed);
    EXPECT_LE(peak, Limit);
    EXPECT_EQ(session->getIncomingEndPoint()->undecodedBytes(), 0u);
    EXPECT_EQ(SessionWaiter::describeFrameTooLarge(16 * 1024 * 1024),
              "the device sent a frame larger than 16 MiB; connection closed");
}

TEST(HostileDevice, TheReconnectingClientStartsOverAndAPushReceiverHearsEveryChannel) {
    std::vector<std::unique_ptr<Connection>> made;
    auto clock = std::make_shared<ManualClock>();
    ReconnectingClient client(
        [&]() -> std::shared_ptr<Transport> {
            made.push_back(std::make_unique<Connection>(clock));
            made.back()->endless = made.size() == 1;  // only the first device misbehaves
            return made.back()->client;
        },
        "u", "p", clock);
    client.setMaxUndecodedBytes(Limit);
    auto pushed = std::make_shared<RecordingReceiver<GetOutcome>>();
    client.addPushReceiver(pushed);
    client.start();
    // The first connection logs in and is then dropped; the second one serves.
    for (int i = 0;
         i < 10000 && (made.size() < 2 || client.getState() != ReconnectingClient::Ready); ++i) {
        client.waitForActivity(10ms);
        client.tick();
    }
    ASSERT_EQ(made.size(), 2u);
    ASSERT_EQ(client.getState(), ReconnectingClient::Ready);
    EXPECT_TRUE(made[0]->client->closed);
    EXPECT_NE(client.getLastDropReason().find("larger than 64 KiB"), std::string::npos);

    ScriptedPeer& device = *made.back()->peer;
    client.tick();
    ASSERT_FALSE(device.received.empty());
    EXPECT_TRUE(LogPushRequest(device.received.back()).getValue());
    device.send(
        GetResponse::newInstance({std::make_shared<ChannelValue>(3, Bytes{}, Bytes{0x01}),
                                  std::make_shared<ChannelValue>(9, Bytes{}, Bytes{0x02})}));
    client.tick();
    ASSERT_EQ(pushed->received().size(), 2u);
    EXPECT_EQ(pushed->received()[1].getChannelId(), 9u);

    client.removePushReceiver(pushed);
    client.tick();  // written now, read by the device in the next tick
    client.tick();
    EXPECT_FALSE(LogPushRequest(device.received.back()).getValue());
}
