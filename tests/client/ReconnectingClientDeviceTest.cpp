// The reconnecting client against the library's own device server on
// 127.0.0.1, stopped and started again on the same port under it. Both run in
// this thread; the device is polled without waiting, every wait is bounded.
#include <gtest/gtest.h>

#include "chanlink/client/ReconnectingClient.h"
#include "chanlink/messages/ReasonCode.h"
#include "chanlink/server/DeviceServer.h"
#include "chanlink/server/MemoryChannelStore.h"
#include "support/Eventually.h"
#include "support/ManualClock.h"
#include "support/RecordingReceiver.h"

using namespace std::chrono_literals;
using testing_support::eventually;
using testing_support::ManualClock;
using testing_support::RecordingReceiver;
using Bytes = std::vector<unsigned char>;

TEST(ReconnectingClientWithDevice, SubscriptionsDeliverAgainAfterTheDeviceServerRestarts) {
    auto store = std::make_shared<MemoryChannelStore>();
    store->addChannel(1, {0, 0, 0, 0}, false);
    store->addChannel(2, {0x10}, true);
    DeviceSettings settings;
    settings.username = "admin";
    settings.password = "secret";
    auto device = std::make_unique<DeviceServer>(store, settings);
    ASSERT_TRUE(device->listen("0", "127.0.0.1"));
    const std::string port = device->getListeningService();

    auto clock = std::make_shared<ManualClock>();
    ReconnectingClient client("127.0.0.1", port, "admin", "secret", clock);
    auto values = std::make_shared<RecordingReceiver<GetOutcome>>();
    auto pushed = std::make_shared<RecordingReceiver<GetOutcome>>();
    client.addSubscription(1, values);
    client.addPushSubscription(2, pushed);
    const auto until = [&](auto condition) {
        return eventually([&] {
            client.tick();
            if (device) {
                device->poll(0ms);
            }
            return condition();
        });
    };
    const auto lastValue = [](const RecordingReceiver<GetOutcome>& receiver) {
        return receiver.count() == 0 ? Bytes{} : receiver.received().back().getData();
    };

    client.start();
    ASSERT_TRUE(until([&] { return lastValue(*values) == Bytes{0, 0, 0, 0}; }));
    EXPECT_EQ(client.getState(), ReconnectingClient::Ready);
    store->update(2, {0x20});
    ASSERT_TRUE(until([&] { return lastValue(*pushed) == Bytes{0x20}; }));

    device.reset();  // the device goes away
    ASSERT_TRUE(until([&] { return client.getState() == ReconnectingClient::WaitingToReconnect; }));
    store->update(1, {1, 2, 3, 4});  // changed while the client was away

    device = std::make_unique<DeviceServer>(store, settings);
    ASSERT_TRUE(device->listen(port, "127.0.0.1"));  // back on the same port
    clock->advance(client.getRetryDelay());
    ASSERT_TRUE(until([&] { return lastValue(*values) == Bytes{1, 2, 3, 4}; }));
    EXPECT_EQ(client.getState(), ReconnectingClient::Ready);
    store->update(1, {5, 6, 7, 8});
    store->update(2, {0x30});
    ASSERT_TRUE(until([&] {
        return lastValue(*values) == Bytes{5, 6, 7, 8} && lastValue(*pushed) == Bytes{0x30};
    }));

    // The timed calls on the new connection, with the device's refusals by name.
    clock->onWait = [&] { device->poll(0ms); };
    clock->pollLimit = 5000ms;  // ends as soon as the answer is there
    EXPECT_EQ(client.blockingSet(1, {9, 9, 9, 9}, 5000ms), SetOutcome(1, 255));
    EXPECT_EQ(client.blockingSet(2, {0x01}, 5000ms), SetOutcome(2, ReasonCode::ReadOnlyChannel));
    const auto unknown = client.blockingGet(99, 5000ms);
    ASSERT_TRUE(unknown.has_value());
    EXPECT_STREQ(ReasonCode::name(unknown->getReasonCode()), "UnknownChannel");
    EXPECT_EQ(client.blockingGet(1, 5000ms)->getData(), (Bytes{9, 9, 9, 9}));
}
