// The device's defences against clients that never log in, guess passwords
// or crowd it out, on a manual clock so that no test waits for real time.
#include <gtest/gtest.h>

#include "DeviceHarness.h"
#include "support/ManualClock.h"

using std::chrono::milliseconds;
using testing_support::DeviceHarness;
using testing_support::ManualClock;
using testing_support::RawClient;

namespace {

const std::string Refused = "0F 00";
const std::string Accepted = "0F 01";

struct HostileHarness : DeviceHarness {
    explicit HostileHarness(std::size_t maxPending = 64) {
        settings.maxPending = maxPending;
        settings.maxLoginDelay = milliseconds(300);
        start();
        server->setClock(clock);
    }
    void advance(milliseconds step) {
        clock->advance(step);
        server->poll(milliseconds(0));
    }
    std::string lastDrop() const {
        for (auto it = events->received().rbegin(); it != events->received().rend(); ++it) {
            if (it->getKind() == DeviceEvent::Dropped) {
                return it->describe();
            }
        }
        return "";
    }
    std::shared_ptr<ManualClock> clock = std::make_shared<ManualClock>();
};

}  // namespace

TEST(DeviceHostileClients, ConnectionWithoutLoginIsDroppedAtTheTimeout) {
    HostileHarness device;
    auto idle = device.connect();
    auto honest = device.connect();
    ASSERT_TRUE(idle && honest);
    ASSERT_EQ(device.login(*honest), Accepted);

    device.advance(milliseconds(9999));
    EXPECT_EQ(device.server->connectionCount(), 2u);
    device.advance(milliseconds(1));
    EXPECT_TRUE(device.pumpUntil([&] { return idle->closed(); }, {idle.get()}));
    EXPECT_EQ(device.server->connectionCount(), 1u);
    EXPECT_EQ(device.lastDrop(), "connection 1: dropped without a login within 10000 ms");
}

TEST(DeviceHostileClients, FailedLoginsAreAnsweredLaterEachTimeThenClosed) {
    HostileHarness device;
    auto guesser = device.connect();
    auto honest = device.connect();
    ASSERT_TRUE(guesser && honest);
    const auto held = [&] { return device.server->findConnection(1)->holdingLogin(); };

    // 100, 200, then the cap of 300 ms set above.
    const milliseconds delays[] = {milliseconds(0), milliseconds(100), milliseconds(200),
                                   milliseconds(300), milliseconds(300)};
    for (int attempt = 0; attempt < 5; ++attempt) {
        SCOPED_TRACE(attempt);
        guesser->send(LoginRequest::newInstance("admin", "guess"));
        if (delays[attempt].count() > 0) {
            ASSERT_TRUE(device.pumpUntil(held, {guesser.get()}));
            if (attempt == 2) {
                // Others are answered at once meanwhile.
                EXPECT_EQ(device.login(*honest), Accepted);
            }
            device.advance(delays[attempt] - milliseconds(1));
            EXPECT_TRUE(held());
            EXPECT_EQ(guesser->receivedCount(), 0u);
            device.advance(milliseconds(1));
        }
        if (attempt < 4) {
            ASSERT_TRUE(
                device.pumpUntil([&] { return guesser->receivedCount() == 1; }, {guesser.get()}));
            EXPECT_EQ(guesser->take(), std::vector<std::string>{Refused});
        }
    }
    EXPECT_TRUE(device.pumpUntil([&] { return guesser->closed(); }, {guesser.get()}));
    EXPECT_EQ(device.lastDrop(), "connection 1: dropped after 5 failed logins");
}

TEST(DeviceHostileClients, ConnectionsBeyondMaxPendingAreDroppedAtOnce) {
    HostileHarness device(2);
    auto first = device.connect();
    auto second = device.connect();
    ASSERT_TRUE(first && second);
    RawClient third("127.0.0.1", device.server->getListeningService());
    EXPECT_TRUE(device.pumpUntil([&] { return third.closed(); }, {&third}));
    EXPECT_EQ(device.lastDrop(),
              "connection 3: dropped at once: 2 connections without a login (limit 2)");

    ASSERT_EQ(device.login(*first), Accepted);
    auto fourth = device.connect();
    ASSERT_TRUE(fourth);
    EXPECT_EQ(device.login(*fourth), Accepted);
}
