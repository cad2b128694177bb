// A built session end to end, against a scripted device on an in-memory
// transport pair. The device serves inside the client's own tick (the
// transport's tick hook), so the blocking calls work without threads.
#include <gtest/gtest.h>

#include "chanlink/client/ClientSessionBuilder.h"
#include "chanlink/messages/ErrorResponse.h"
#include "chanlink/messages/GetRequest.h"
#include "chanlink/messages/LoginResponse.h"
#include "chanlink/transport/LoopBackTransport.h"
#include "support/RecordingReceiver.h"
#include "support/ScriptedPeer.h"
#include "support/TransportPair.h"

using testing_support::makeTransportPair;
using testing_support::RecordingReceiver;
using testing_support::ScriptedPeer;
using Bytes = std::vector<unsigned char>;
using Codes = std::vector<OpCode>;

namespace {

struct Connected {
    explicit Connected(bool serveOnTick = true) {
        auto [client, device] = makeTransportPair();
        transport = client;
        peer = std::make_unique<ScriptedPeer>(device);
        peer->channels = {{3, {0x33}}, {7, {0x77, 0x07}}};
        if (serveOnTick) {
            client->onTick = [this] { peer->serve(); };
        }
        session = ClientSessionBuilder()
                      .setTransport(transport)
                      .setUsername("ab")
                      .setPassword("xyz")
                      .build();
    }
    void ticks(int n) {
        for (int i = 0; i < n; ++i) {
            session->tick();
        }
    }
    std::shared_ptr<testing_support::MemoryTransport> transport;
    std::unique_ptr<ScriptedPeer> peer;
    std::shared_ptr<ClientSession> session;
};

}  // namespace

TEST(ClientSessionBuilder, BuildsOnlyWithTransportUsernameAndPassword) {
    ClientSessionBuilder builder;
    EXPECT_EQ(builder.build(), nullptr);
    builder.setTransport(std::make_shared<LoopBackTransport>(64)).setUsername("u");
    EXPECT_EQ(builder.build(), nullptr);
    builder.setPassword("");
    const auto first = builder.build();
    const auto second = builder.build();
    ASSERT_NE(first, nullptr);
    ASSERT_NE(second, nullptr);
    EXPECT_NE(first, second);
    EXPECT_EQ(first->getTransport(), second->getTransport());
}

TEST(ClientSession, LoginOutcomesFollowTheDevicesAnswer) {
    for (const auto& [result, expected] :
         {std::pair{1, LoginOutcome::Success}, std::pair{0, LoginOutcome::Failure},
          std::pair{2, LoginOutcome::TooManyConnections}}) {
        Connected c;
        c.peer->loginResult = static_cast<unsigned char>(result);
        auto outcomes = std::make_shared<RecordingReceiver<LoginOutcome>>();
        c.session->addLoginOutcomeReceiver(outcomes);
        c.session->addLoginOutcomeReceiver(outcomes);  // once only
        EXPECT_EQ(c.session->blockingLogin().getState(), expected);
        EXPECT_EQ(c.session->getLoginState().getState(), expected);
        ASSERT_EQ(outcomes->count(), 2u);
        EXPECT_TRUE(outcomes->received()[0].loginPending());
        EXPECT_EQ(c.peer->received.at(0),
                  (Bytes{0x09, 0x09, 0x07, 0x02, 0x03, 'a', 'b', 'x', 'y', 'z'}));
    }
}

TEST(ClientSession, BlockingLoginWithoutABuildableRequestFailsWithoutTicking) {
    auto [client, device] = makeTransportPair();
    int ticks = 0;
    client->onTick = [&] { ++ticks; };
    auto session = ClientSessionBuilder()
                       .setTransport(client)
                       .setUsername(std::string(256, 'u'))
                       .setPassword("p")
                       .build();
    EXPECT_EQ(session->blockingLogin().getState(), LoginOutcome::Failure);
    EXPECT_EQ(ticks, 0);
}

TEST(ClientSession, AGetBeforeLoginLeavesOnlyAfterTheLoginResponse) {
    Connected c(false);
    auto got = std::make_shared<RecordingReceiver<GetOutcome>>();
    c.session->requestChannel(7, got);
    c.session->initiateLogin();
    c.ticks(1);
    c.peer->serve();
    EXPECT_EQ(c.peer->opcodes(), Codes{9});  // only the login went out
    c.ticks(1);                              // reads the login response, releases the get
    c.peer->serve();
    // The held request and the renewal made on login: asked twice, answered once.
    EXPECT_EQ(c.peer->opcodes(), (Codes{9, 0, 0}));
    c.ticks(1);
    ASSERT_EQ(got->count(), 1u);
    EXPECT_EQ(got->received()[0], GetOutcome(7, {}, {0x77, 0x07}, 255));
}

TEST(ClientSession, BlockingGetReturnsTheValueOrTheDevicesRefusal) {
    Connected c;
    auto errors = std::make_shared<RecordingReceiver<ErrorResponse>>();
    c.session->addErrorResponseReceiver(errors);
    ASSERT_TRUE(c.session->blockingLogin().loggedIn());

    const GetOutcome value = c.session->blockingGet(3);
    EXPECT_TRUE(value.getSuccess());
    EXPECT_EQ(value.getData(), Bytes{0x33});

    c.peer->handlers[GetRequest::Code] = [&](const Message&) {
        c.peer->send(ErrorResponse::newInstance(GetRequest::Code, 4, 99));
    };
    const GetOutcome refused = c.session->blockingGet(99);
    EXPECT_FALSE(refused.getSuccess());
    EXPECT_EQ(refused.getReasonCode(), 4);
    ASSERT_EQ(errors->count(), 1u);  // the application hears of it too
    EXPECT_EQ(errors->received()[0].getChannelId(), 99u);
}

TEST(ClientSession, SetsLeaveInOrderOneAtATime) {
    Connected c;
    ASSERT_TRUE(c.session->blockingLogin().loggedIn());
    auto outcomes = std::make_shared<RecordingReceiver<SetOutcome>>();
    c.session->setChannel(3, {0x01}, outcomes);
    c.session->setChannel(42, {0x02}, outcomes);  // unknown to the device
    c.session->setChannel(3, {0x03}, outcomes);
    for (int i = 0; i < 10 && outcomes->count() < 3; ++i) {
        c.ticks(1);
    }
    EXPECT_EQ(outcomes->received(),
              (std::vector<SetOutcome>{SetOutcome(3, 255), SetOutcome(42, 9), SetOutcome(3, 255)}));
    EXPECT_EQ(c.peer->channels[3], Bytes{0x03});
}

TEST(ClientSession, SubscriptionsAreRenewedAfterASecondLogin) {
    Connected c;
    auto values = std::make_shared<RecordingReceiver<GetOutcome>>();
    c.session->addSubscription(3, values);
    ASSERT_TRUE(c.session->blockingLogin().loggedIn());
    c.ticks(2);
    const std::size_t afterFirst = values->count();
    EXPECT_GE(afterFirst, 1u);  // the device answers each subscription with the value

    c.peer->received.clear();
    ASSERT_TRUE(c.session->blockingLogin().loggedIn());
    c.ticks(2);
    EXPECT_EQ(c.peer->opcodes(), (Codes{9, 3}));
    EXPECT_GT(values->count(), afterFirst);

    c.session->removeSubscription(3, values);
    c.ticks(2);
    const std::size_t removed = values->count();
    c.peer->push(3);
    c.ticks(2);
    EXPECT_EQ(values->count(), removed);  // no longer delivered
}

TEST(ClientSession, ResetDiscardsSetsAndUnsentBytesButKeepsTheLogin) {
    Connected c(false);
    c.session->initiateLogin();
    c.ticks(1);
    c.peer->serve();
    c.ticks(1);
    ASSERT_TRUE(c.session->getLoginState().loggedIn());

    auto outcomes = std::make_shared<RecordingReceiver<SetOutcome>>();
    c.session->setChannel(3, {0x01}, outcomes);  // in flight, never answered
    c.session->setChannel(3, {0x02}, outcomes);
    c.session->reset();
    EXPECT_EQ(outcomes->received(),
              (std::vector<SetOutcome>{SetOutcome(3, 131), SetOutcome(3, 131)}));
    EXPECT_TRUE(c.session->getLoginState().loggedIn());
    c.ticks(1);
    c.peer->received.clear();
    c.peer->serve();
    EXPECT_TRUE(c.peer->received.empty());  // the queued request was dropped too
}

TEST(ClientSession, ACopyIsEmptyAndInert) {
    Connected c;
    const ClientSession copy(*c.session);
    EXPECT_EQ(copy.getTransport(), nullptr);
    ClientSession inert(copy);
    inert.tick();
    inert.reset();
    EXPECT_FALSE(inert.initiateLogin());
    EXPECT_EQ(inert.blockingLogin().getState(), LoginOutcome::Failure);
    EXPECT_FALSE(inert.blockingGet(1).getSuccess());
    EXPECT_NE(c.session->getTransport(), nullptr);
}
