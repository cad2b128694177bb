// Devices that misbehave under a client over real TCP on 127.0.0.1: one that
// vanishes in the middle of a frame, one that floods garbage. Both ends run
// in this thread; every wait is bounded.
#include <gtest/gtest.h>

#include <random>

#include "chanlink/client/ClientSessionBuilder.h"
#include "chanlink/client/ReconnectingClient.h"
#include "chanlink/messages/GetRequest.h"
#include "chanlink/messages/GetResponse.h"
#include "chanlink/messages/ReasonCode.h"
#include "chanlink/messages/SetRequest.h"
#include "chanlink/transport/TCPClientTransport.h"
#include "chanlink/transport/TCPServerTransportBuilder.h"
#include "chanlink/wire/Encoder.h"
#include "support/Eventually.h"
#include "support/ManualClock.h"
#include "support/RecordingReceiver.h"
#include "support/ScriptedPeer.h"
#include "support/ScriptedTcpDevice.h"

using testing_support::eventually;
using testing_support::ManualClock;
using testing_support::RecordingReceiver;
using testing_support::ScriptedPeer;
using testing_support::ScriptedTcpDevice;
using Bytes = std::vector<unsigned char>;
using States = std::vector<ConnectionOutcome::ConnectionStates>;

namespace {

// A logged-in session whose device is a scripted peer on the accepted end.
struct Connected {
    Connected() {
        transport->connect();
        eventually([&] {
            transport->tick();
            accepted = accepted ? accepted : listener.accept(0, 1000);
            return accepted != nullptr;
        });
        device = std::make_unique<ScriptedPeer>(accepted);
        device->channels = {{10, {0x01}}, {11, {0x02}}};
        session->initiateLogin();
        until([&] { return session->getLoginState().loggedIn(); });
    }
    template <typename Condition>
    bool until(Condition condition) {
        return eventually([&] {
            session->tick();
            if (accepted->state() == ConnectionOutcome::Connected) {
                device->serve();
            }
            return condition();
        });
    }
    // The transport's reported states from Connected on (Connecting may
    // come first or not, as the connect happens).
    States states() const {
        States seen;
        for (const ConnectionOutcome& outcome : outcomes->received()) {
            if (!seen.empty() || outcome.getState() == ConnectionOutcome::Connected) {
                seen.push_back(outcome.getState());
            }
        }
        return seen;
    }

    TCPServerTransportBuilder listener{"0", ""};
    std::shared_ptr<RecordingReceiver<ConnectionOutcome>> outcomes =
        std::make_shared<RecordingReceiver<ConnectionOutcome>>();
    std::shared_ptr<TCPClientTransport> transport =
        std::make_shared<TCPClientTransport>("127.0.0.1", listener.getListeningService(), outcomes);
    std::shared_ptr<ClientSession> session =
        ClientSessionBuilder().setTransport(transport).setUsername("u").setPassword("p").build();
    std::shared_ptr<TCPTransport> accepted;
    std::unique_ptr<ScriptedPeer> device;
};

// A value of the channel, framed, with its last three bytes cut off.
Bytes frameCutShort(unsigned int channelId, const Bytes& data) {
    Bytes frame;
    Encoder().injectFrame(
        GetResponse::newInstance({std::make_shared<ChannelValue>(channelId, Bytes{}, data)})
            ->write(),
        frame);
    frame.resize(frame.size() - 3);
    return frame;
}

}  // namespace

TEST(DeviceVanishes, ASessionSeesClosedOnceAndNothingOfTheFrameCutShort) {
    Connected c;
    ASSERT_TRUE(c.session->getLoginState().loggedIn());
    auto values = std::make_shared<RecordingReceiver<GetOutcome>>();
    c.session->addSubscription(10, values);
    ASSERT_TRUE(c.until([&] { return values->count() == 1; }));

    // A get and a set that the device takes and never answers; then half a
    // value of the subscribed channel, and the device is gone.
    c.device->handlers[GetRequest::Code] = [](const Message&) {};
    c.device->handlers[SetRequest::Code] = [](const Message&) {};
    auto got = std::make_shared<RecordingReceiver<GetOutcome>>();
    auto set = std::make_shared<RecordingReceiver<SetOutcome>>();
    c.session->requestChannel(11, got);
    c.session->setChannel(10, {0x05}, set);
    ASSERT_TRUE(c.until([&] { return c.device->received.size() == 4; }));
    c.device->sendBytes(frameCutShort(10, {0x07}));
    ASSERT_EQ(c.device->unsentBytes(), 0u);
    c.accepted->close();

    ASSERT_TRUE(c.until([&] { return c.transport->state() == ConnectionOutcome::Closed; }));
    // A closed session ticks and takes requests harmlessly; nothing arrives.
    auto late = std::make_shared<RecordingReceiver<SetOutcome>>();
    c.session->setChannel(11, {0x06}, late);
    c.session->requestChannel(10, got);
    for (int i = 0; i < 50; ++i) {
        c.session->tick();
    }
    EXPECT_EQ(c.states(), (States{ConnectionOutcome::Connected, ConnectionOutcome::Closed}));
    EXPECT_EQ(values->count(), 1u);
    EXPECT_EQ(got->count(), 0u);
    EXPECT_EQ(set->count(), 0u);
    // reset() answers the sets the connection took with it, in call order.
    c.session->reset();
    EXPECT_EQ(set->received(), (std::vector<SetOutcome>{SetOutcome(10, 131)}));
    EXPECT_EQ(late->received(), (std::vector<SetOutcome>{SetOutcome(11, 131)}));
}

TEST(DeviceVanishes, AReconnectingClientStartsTheNextSessionCleanAndRenewsItsSubscription) {
    ScriptedTcpDevice device;
    device.channels = {{10, {0x01}}};
    auto clock = std::make_shared<ManualClock>();
    ReconnectingClient client("127.0.0.1", device.port(), "u", "p", clock);
    auto values = std::make_shared<RecordingReceiver<GetOutcome>>();
    client.addSubscription(10, values);
    const auto until = [&](auto condition) {
        return eventually([&] {
            client.tick();
            device.serve();
            return condition();
        });
    };
    client.start();
    ASSERT_TRUE(until([&] { return values->count() == 1; }));

    device.peer()->sendBytes(frameCutShort(10, {0x07}));
    device.stop();
    ASSERT_TRUE(until([&] { return client.getState() == ReconnectingClient::WaitingToReconnect; }));

    device.channels[10] = {0x08};
    device.restart();
    clock->advance(client.getRetryDelay());
    ASSERT_TRUE(until([&] { return values->count() == 2; }));
    // The first bytes of the new connection are read as a frame of their
    // own: the half frame of the old one is gone with its session.
    EXPECT_EQ(values->received()[1].getData(), Bytes{0x08});
    EXPECT_EQ(device.peer()->opcodes(), (std::vector<OpCode>{9, 3}));
}

TEST(DeviceFloods, ASessionSurvivesGarbageAndStillGetsEveryAnswer) {
    Connected c;
    std::mt19937 random(5);
    Bytes garbage(64 * 1024);
    for (int round = 0; round < 4; ++round) {
        for (unsigned char& byte : garbage) {
            byte = static_cast<unsigned char>(random());
        }
        garbage.back() = 0xFE;  // ends any frame the garbage left open
        c.device->sendBytes(garbage);
        ASSERT_TRUE(c.until([&] {
            c.device->sendBytes({});
            return c.device->unsentBytes() == 0;
        }));

        auto got = std::make_shared<RecordingReceiver<GetOutcome>>();
        auto set = std::make_shared<RecordingReceiver<SetOutcome>>();
        const Bytes value{static_cast<unsigned char>(round)};
        c.session->setChannel(10, value, set);
        c.session->requestChannel(10, got);
        ASSERT_TRUE(c.until([&] { return set->count() == 1 && got->count() == 1; }));
        EXPECT_EQ(set->received()[0], SetOutcome(10, 255));
        EXPECT_EQ(got->received()[0].getData(), value);
    }
    EXPECT_EQ(c.states(), States{ConnectionOutcome::Connected});
}
