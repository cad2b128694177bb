// Devices that misbehave under a client over real TCP on 127.0.0.1: one that
// vanishes in the middle of a frame, one that floods garbage (a reconnecting
// client's fresh start after a cut frame is in ReconnectingClientTest). Both ends run
// in this thread; every wait is bounded.
#include <gtest/gtest.h>

#include <random>

#include "chanlink/client/ClientSessionBuilder.h"
#include "chanlink/messages/GetRequest.h"
#include "chanlink/messages/SetRequest.h"
#include "support/RecordingReceiver.h"
#include "support/ScriptedPeer.h"
#include "support/TcpPair.h"

using testing_support::eventually;
using testing_support::RecordingReceiver;
using testing_support::ScriptedPeer;
using testing_support::TcpPair;
using Bytes = std::vector<unsigned char>;
using States = std::vector<ConnectionOutcome::ConnectionStates>;

namespace {

// A logged-in session whose device is a scripted peer on the accepted end.
struct Connected {
    Connected() {
        device->channels = {{10, {0x01}}, {11, {0x02}}};
        session->initiateLogin();
        until([&] { return session->getLoginState().loggedIn(); });
    }
    template <typename Condition>
    bool until(Condition condition) {
        return eventually([&] {
            session->tick();
            if (tcp.server->state() == ConnectionOutcome::Connected) {
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

    std::shared_ptr<RecordingReceiver<ConnectionOutcome>> outcomes =
        std::make_shared<RecordingReceiver<ConnectionOutcome>>();
    TcpPair tcp{"127.0.0.1", outcomes};
    std::shared_ptr<ClientSession> session =
        ClientSessionBuilder().setTransport(tcp.client).setUsername("u").setPassword("p").build();
    std::unique_ptr<ScriptedPeer> device = std::make_unique<ScriptedPeer>(tcp.server);
};

// The start of a value of channel 10 whose frame never ends.
const Bytes FrameCutShort = {0xFF, 0x10, 0x00, 0x00, 0x00, 0x0B, 0x01, 0x00, 0x0A};

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
    c.device->sendBytes(FrameCutShort);
    ASSERT_EQ(c.device->unsentBytes(), 0u);
    c.tcp.server->close();

    ASSERT_TRUE(c.until([&] { return c.tcp.client->state() == ConnectionOutcome::Closed; }));
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

TEST(DeviceFloods, ASessionSurvivesGarbageAndStillGetsEveryAnswer) {
    Connected c;
    std::mt19937 random(5);
    Bytes garbage(64 * 1024);
    for (int round = 0; round < 2; ++round) {
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
