// The reconnecting client over TCP against the library's own device server on
// 127.0.0.1, which goes away under it: waits are on the socket, and the
// hang-up wakes them. (Coming back after a restart over real sockets is
// TLSTest's.) Both ends run in this thread and every wait is bounded; long waits run on a
// clock the test moves. (ReconnectingClientTest has the client's rules in
// detail, in memory.)
#include <gtest/gtest.h>

#include "chanlink/client/ReconnectingClient.h"
#include "chanlink/server/DeviceServer.h"
#include "chanlink/server/MemoryChannelStore.h"
#include "support/Eventually.h"
#include "support/ManualClock.h"
#include "support/RecordingReceiver.h"

using namespace std::chrono_literals;
using Bytes = std::vector<unsigned char>;

TEST(ReconnectingClientWithDevice, WaitsOnTheSocketUntilTheDeviceGoesAway) {
    auto store = std::make_shared<MemoryChannelStore>();
    store->addChannel(1, {0, 0, 0, 0}, false);
    store->addChannel(2, {0x10}, true);
    DeviceSettings settings;
    settings.username = "admin";
    settings.password = "secret";
    auto device = std::make_unique<DeviceServer>(store, settings);
    ASSERT_TRUE(device->listen("0", "127.0.0.1"));

    auto clock = std::make_shared<testing_support::ManualClock>();
    ReconnectingClient client("127.0.0.1", device->getListeningService(), "admin", "secret", clock);
    auto values = std::make_shared<testing_support::RecordingReceiver<GetOutcome>>();
    auto pushed = std::make_shared<testing_support::RecordingReceiver<GetOutcome>>();
    client.addSubscription(1, values);
    client.addPushSubscription(2, pushed);
    const auto last = [](const auto& receiver) {
        return receiver->count() == 0 ? Bytes{} : receiver->received().back().getData();
    };
    // Ticks both ends until the latest values are these.
    const auto until = [&](const Bytes& value, const Bytes& push) {
        return testing_support::eventually([&] {
            client.tick();
            device->poll(0ms);
            return last(values) == value && (push.empty() || last(pushed) == push);
        });
    };

    EXPECT_EQ(client.getPollDescriptor().fd, -1);  // nothing to watch yet
    client.start();
    ASSERT_TRUE(until({0, 0, 0, 0}, {}));
    EXPECT_GE(client.getPollDescriptor().fd, 0);
    EXPECT_EQ(client.getPollDescriptor().events, POLLIN);
    // A silent device: the whole timeout is one wait on the socket.
    const int waits = clock->waits;
    EXPECT_FALSE(client.waitForActivity(3000ms));
    EXPECT_EQ(clock->waited, 3000ms);
    EXPECT_EQ(clock->waits, waits + 1);

    // Timed calls end as soon as the answer wakes the wait.
    clock->onWait = [&] { device->poll(0ms); };
    clock->pollLimit = 5000ms;
    EXPECT_EQ(client.blockingSet(1, {9, 9, 9, 9}, 5000ms), SetOutcome(1, 255));
    EXPECT_EQ(client.blockingGet(1, 5000ms).value().getData(), (Bytes{9, 9, 9, 9}));
    store->update(2, {0x20});
    ASSERT_TRUE(until({9, 9, 9, 9}, {0x20}));

    // The device goes away: the hang-up wakes the wait.
    const std::shared_ptr<ClientSession> dropped = client.getSession();
    clock->onWait = nullptr;
    device.reset();
    EXPECT_TRUE(client.waitForActivity(5000ms));
    ASSERT_TRUE(testing_support::eventually([&] {
        client.tick();
        return client.getState() == ReconnectingClient::WaitingToReconnect;
    }));
    // A closed connection leaves nothing to watch: a wait lasts its timeout.
    EXPECT_EQ(client.getPollDescriptor().fd, -1);
    EXPECT_EQ(dropped->getPollDescriptor().fd, -1);
    const auto before = clock->waited;
    EXPECT_FALSE(SessionWaiter(clock).waitForActivity(*dropped, 250ms));
    EXPECT_EQ(clock->waited - before, 250ms);
}
