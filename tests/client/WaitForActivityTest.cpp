// Waiting between ticks: on the socket over TCP (127.0.0.1), not at all over
// an in-memory transport. Real waits here end as soon as the socket is ready
// and are bounded; the long ones run on a clock that the test moves.
#include <gtest/gtest.h>

#include "chanlink/client/ClientSessionBuilder.h"
#include "chanlink/transport/TCPClientTransport.h"
#include "chanlink/transport/TCPServerTransportBuilder.h"
#include "support/Eventually.h"
#include "support/ManualClock.h"
#include "support/ScriptedPeer.h"
#include "support/TransportPair.h"

using namespace std::chrono_literals;
using testing_support::eventually;
using testing_support::ManualClock;
using testing_support::ScriptedPeer;

TEST(WaitForActivity, OverTcpWaitsOnTheSocketForWhatTheNextTickNeeds) {
    TCPServerTransportBuilder listener("0", "");
    ASSERT_TRUE(listener.isListening());
    auto transport =
        std::make_shared<TCPClientTransport>("127.0.0.1", listener.getListeningService(), nullptr);
    auto session =
        ClientSessionBuilder().setTransport(transport).setUsername("u").setPassword("p").build();
    auto clock = std::make_shared<ManualClock>();
    const SessionWaiter waiter(clock);

    EXPECT_EQ(session->getPollDescriptor().fd, -1);  // not connected: nothing to watch
    transport->connect();
    if (transport->state() == ConnectionOutcome::Connecting) {
        EXPECT_EQ(session->getPollDescriptor().fd, transport->getSocket());
        EXPECT_EQ(session->getPollDescriptor().events, POLLOUT);
    }
    std::shared_ptr<TCPTransport> accepted;
    ASSERT_TRUE(eventually([&] {
        session->tick();
        accepted = accepted ? accepted : listener.accept(0, 1000);
        return accepted && transport->state() == ConnectionOutcome::Connected;
    }));
    EXPECT_EQ(session->getPollDescriptor().fd, transport->getSocket());
    EXPECT_EQ(session->getPollDescriptor().events, POLLIN);

    // A silent device: the whole timeout is one wait on the socket, no spinning.
    EXPECT_FALSE(session->blockingLogin(5000ms, waiter).has_value());
    EXPECT_EQ(clock->waited, 5000ms);
    EXPECT_EQ(clock->waits, 1);

    // An answer wakes a real wait as soon as it arrives.
    ScriptedPeer device(accepted);
    ASSERT_EQ(device.serve(), 1);
    EXPECT_TRUE(session->waitForActivity(5000ms));
    session->tick();
    EXPECT_TRUE(session->getLoginState().loggedIn());

    // The device goes away: the hang-up wakes the wait, and a closed
    // connection leaves nothing to watch, so the time is waited out.
    accepted->close();
    EXPECT_TRUE(session->waitForActivity(5000ms));
    session->tick();
    EXPECT_EQ(transport->state(), ConnectionOutcome::Closed);
    EXPECT_EQ(session->getPollDescriptor().fd, -1);
    EXPECT_FALSE(waiter.waitForActivity(*session, 250ms));
    EXPECT_EQ(clock->waited, 5250ms);
    EXPECT_FALSE(session->blockingGet(1, 100ms, waiter).has_value());
    EXPECT_EQ(clock->waited, 5350ms);
}

TEST(WaitForActivity, AnInMemoryTransportIsTickedWithoutWaiting) {
    auto [client, device] = testing_support::makeTransportPair();
    auto session =
        ClientSessionBuilder().setTransport(client).setUsername("u").setPassword("p").build();
    auto clock = std::make_shared<ManualClock>();
    EXPECT_EQ(session->getPollDescriptor().fd, -1);
    EXPECT_TRUE(SessionWaiter(clock).waitForActivity(*session, 1000ms));
    EXPECT_EQ(clock->waits, 0);
}
