// Real client sessions against the device: what an application sees.
#include <gtest/gtest.h>

#include "DeviceHarness.h"
#include "chanlink/client/ClientSessionBuilder.h"
#include "chanlink/flow/FunctionReceiver.h"
#include "chanlink/messages/ReasonCode.h"
#include "chanlink/processing/ChannelCache.h"
#include "chanlink/server/LiveChannel.h"

using testing_support::DeviceHarness;
using testing_support::eventually;
using testing_support::RecordingReceiver;
using Bytes = std::vector<unsigned char>;

namespace {

struct Client {
    Client(DeviceHarness& device, const std::string& host, const std::string& password)
        : transport(std::make_shared<TCPClientTransport>(host, device.server->getListeningService(),
                                                         nullptr)) {
        transport->connect();
        session = ClientSessionBuilder()
                      .setTransport(transport)
                      .setUsername("admin")
                      .setPassword(password)
                      .build();
    }
    std::shared_ptr<TCPClientTransport> transport;
    std::shared_ptr<ClientSession> session;
};

// Ticks the device and every session until done() holds.
template <typename Done>
bool serve(DeviceHarness& device, std::vector<Client*> clients, Done done) {
    return eventually([&] {
        device.server->poll(std::chrono::milliseconds(0));
        for (Client* client : clients) {
            client->session->tick();
        }
        return done();
    });
}

}  // namespace

TEST(DeviceWithClientSessions, TwoClientsSeeEachOthersSetsThroughSubscriptions) {
    DeviceHarness device;
    Client a(device, "127.0.0.1", "secret");
    Client b(device, "127.0.0.1", "secret");
    auto seenByA = std::make_shared<RecordingReceiver<GetOutcome>>();
    auto seenByB = std::make_shared<RecordingReceiver<GetOutcome>>();
    // a subscribes before its login, so the device hears it twice.
    a.session->addSubscription(1, seenByA);
    a.session->initiateLogin();
    b.session->initiateLogin();
    ASSERT_TRUE(serve(device, {&a, &b}, [&] {
        return a.session->getLoginState().loggedIn() && b.session->getLoginState().loggedIn();
    }));
    b.session->addSubscription(1, seenByB);

    auto setByA = std::make_shared<RecordingReceiver<SetOutcome>>();
    ASSERT_TRUE(serve(device, {&a, &b}, [&] { return seenByB->count() >= 1; }));
    a.session->setChannel(1, {1, 2, 3, 4}, setByA);
    ASSERT_TRUE(serve(device, {&a, &b}, [&] {
        return setByA->count() == 1 && !seenByB->received().empty() &&
               seenByB->received().back().getData() == Bytes{1, 2, 3, 4};
    }));
    EXPECT_TRUE(setByA->received()[0].getSuccess());

    auto setByB = std::make_shared<RecordingReceiver<SetOutcome>>();
    b.session->setChannel(1, {5, 6, 7, 8}, setByB);
    ASSERT_TRUE(serve(device, {&a, &b}, [&] {
        return setByB->count() == 1 && seenByA->received().back().getData() == Bytes{5, 6, 7, 8};
    }));
    for (const GetOutcome& outcome : seenByA->received()) {
        EXPECT_TRUE(outcome.getSuccess());
        EXPECT_EQ(outcome.getChannelId(), 1u);
    }

    // A refused set reaches the application with the device's reason.
    auto refused = std::make_shared<RecordingReceiver<SetOutcome>>();
    b.session->setChannel(2, {0}, refused);
    ASSERT_TRUE(serve(device, {&a, &b}, [&] { return refused->count() == 1; }));
    EXPECT_EQ(refused->received()[0].getReasonCode(), ReasonCode::ReadOnlyChannel);
}

TEST(DeviceWithClientSessions, LiveChangesReachACacheUntilTheSubscriptionIsRemoved) {
    DeviceHarness device;
    Client client(device, "127.0.0.1", "secret");
    auto cache = std::make_shared<ChannelCache>();
    std::vector<Bytes> changes;
    cache->addReceiver(
        makeReceiver<ChannelCache::Change>([&changes](const ChannelCache::Change& change) {
            changes.push_back(change.second->getData());
        }));
    client.session->addSubscription(2, cache);
    client.session->initiateLogin();
    ASSERT_TRUE(serve(device, {&client}, [&] { return changes.size() == 1; }));
    EXPECT_EQ(changes[0], Bytes{0x10});

    // Channel 2 toggles bits 0 and 1 in turn, every 100 ms of the test's clock.
    LiveChannel live(2, LiveChannel::Toggle, std::chrono::milliseconds(100), 2);
    const auto t0 = LiveChannel::Clock::time_point();
    live.start(t0);
    for (int step = 1; step <= 3; ++step) {
        ASSERT_TRUE(live.advance(t0 + std::chrono::milliseconds(100 * step), *device.store));
        ASSERT_TRUE(serve(device, {&client}, [&] { return changes.size() == 1u + step; }));
    }
    EXPECT_EQ(changes, (std::vector<Bytes>{{0x10}, {0x11}, {0x13}, {0x12}}));

    // The removal reaches the device as one more subscription, so the device
    // keeps pushing; the client no longer delivers the channel.
    client.session->removeSubscription(2, cache);
    ASSERT_TRUE(live.advance(t0 + std::chrono::milliseconds(400), *device.store));
    auto got = std::make_shared<RecordingReceiver<GetOutcome>>();
    client.session->requestChannel(1, got);
    ASSERT_TRUE(serve(device, {&client}, [&] { return got->count() == 1; }));
    EXPECT_EQ(changes.size(), 4u);
    EXPECT_TRUE(device.server->findConnection(1)->subscribedTo(2));
}
