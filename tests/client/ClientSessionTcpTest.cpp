// A built session over real TCP on 127.0.0.1, against a scripted device on
// the accepted connection. Both ends run in this thread; every wait is bounded.
#include <gtest/gtest.h>

#include "chanlink/client/ClientSessionBuilder.h"
#include "chanlink/transport/TCPClientTransport.h"
#include "chanlink/transport/TCPServerTransportBuilder.h"
#include "support/Eventually.h"
#include "support/RecordingReceiver.h"
#include "support/ScriptedPeer.h"

using testing_support::eventually;
using testing_support::RecordingReceiver;
using testing_support::ScriptedPeer;
using Bytes = std::vector<unsigned char>;

TEST(ClientSessionOverTcp, LogsInGetsSetsAndReceivesPushes) {
    TCPServerTransportBuilder listener("0", "");
    ASSERT_TRUE(listener.isListening());
    auto transport =
        std::make_shared<TCPClientTransport>("127.0.0.1", listener.getListeningService(), nullptr);
    transport->connect();
    std::shared_ptr<TCPTransport> accepted;
    ASSERT_TRUE(eventually([&] {
        transport->tick();
        return (accepted = accepted ? accepted : listener.accept(0, 1000)) != nullptr;
    }));
    ScriptedPeer device(accepted);
    device.channels = {{10, {0x01}}, {11, {0xAA, 0xBB}}};

    auto session =
        ClientSessionBuilder().setTransport(transport).setUsername("u").setPassword("p").build();
    const auto both = [&] {
        session->tick();
        device.serve();
    };

    auto logins = std::make_shared<RecordingReceiver<LoginOutcome>>();
    session->addLoginOutcomeReceiver(logins);
    session->initiateLogin();
    ASSERT_TRUE(eventually([&] {
        both();
        return session->getLoginState().loggedIn();
    }));

    auto got = std::make_shared<RecordingReceiver<GetOutcome>>();
    session->requestChannel(11, got);
    auto set = std::make_shared<RecordingReceiver<SetOutcome>>();
    session->setChannel(10, {0x05}, set);
    auto pushed = std::make_shared<RecordingReceiver<GetOutcome>>();
    session->addSubscription(10, pushed);
    ASSERT_TRUE(eventually([&] {
        both();
        return got->count() == 1 && set->count() == 1 && pushed->count() >= 1;
    }));
    EXPECT_EQ(got->received()[0].getData(), (Bytes{0xAA, 0xBB}));
    EXPECT_TRUE(set->received()[0].getSuccess());
    EXPECT_EQ(pushed->received().back().getData(), Bytes{0x05});

    device.channels[10] = {0x06};
    device.push(10);
    ASSERT_TRUE(eventually([&] {
        both();
        return pushed->received().back().getData() == Bytes{0x06};
    }));
    EXPECT_EQ(transport->state(), ConnectionOutcome::Connected);
}
