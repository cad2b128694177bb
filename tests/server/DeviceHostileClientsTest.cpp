// The device's back-off against a password guesser, on a manual clock so
// that the test waits for no real time, up to its cap, with an honest client
// served meanwhile. The login timeout and the limit on connections without a
// login are shown against the real device process over TLS
// (tests/tools/tools_integration.sh, scenario cli.hostile).
#include <gtest/gtest.h>

#include "DeviceHarness.h"
#include "support/ManualClock.h"

using std::chrono::milliseconds;
using testing_support::DeviceHarness;
using testing_support::ManualClock;

TEST(DeviceHostileClients, FailedLoginsAreAnsweredLaterEachTimeThenClosed) {
    DeviceHarness device;
    device.settings.maxLoginDelay = milliseconds(300);
    device.start();
    auto clock = std::make_shared<ManualClock>();
    device.server->setClock(clock);
    const auto advance = [&](milliseconds step) {
        clock->advance(step);
        device.server->poll(milliseconds(0));
    };
    auto guesser = device.connect();
    ASSERT_TRUE(guesser);
    const auto held = [&](unsigned int id = 1) {
        const auto connection = device.server->findConnection(id);
        return connection && connection->holdingLogin();
    };

    // 100, 200, then the cap of 300 ms set above.
    const milliseconds delays[] = {milliseconds(0), milliseconds(100), milliseconds(200),
                                   milliseconds(300), milliseconds(300)};
    for (int attempt = 0; attempt < 5; ++attempt) {
        SCOPED_TRACE(attempt);
        guesser->send(LoginRequest::newInstance("admin", "guess"));
        if (delays[attempt].count() > 0) {
            ASSERT_TRUE(device.pumpUntil(held, {guesser.get()}));
            EXPECT_EQ(device.server->findConnection(1)->nextTimer(),
                      clock->now() + delays[attempt]);
            advance(delays[attempt] - milliseconds(1));
            EXPECT_TRUE(held());
            EXPECT_EQ(guesser->received.size(), 0u);
            if (attempt == 2) {  // the hold keeps nobody else waiting
                EXPECT_TRUE(device.loggedIn());
            }
            advance(milliseconds(1));
        }
        if (attempt < 4) {
            ASSERT_TRUE(
                device.pumpUntil([&] { return guesser->received.size() == 1; }, {guesser.get()}));
            EXPECT_EQ(guesser->take(), std::vector<std::string>{"0F 00"});
        }
    }
    EXPECT_TRUE(device.pumpUntil([&] { return guesser->closed(); }, {guesser.get()}));
    EXPECT_EQ(device.events->received().back().describe(),
              "connection 1: dropped after 5 failed logins");

    // A held connection whose peer resets goes at once, not when the hold
    // ends (the clock stands still here): poll would report it again and again.
    auto leaver = device.connect();
    leaver->send(LoginRequest::newInstance("admin", "guess"));
    leaver->send(LoginRequest::newInstance("admin", "guess"));
    ASSERT_TRUE(device.pumpUntil([&] { return held(3); }, {leaver.get()}));
    testing_support::resetOnClose(*leaver);
    leaver->tcp->close();
    EXPECT_TRUE(device.pumpUntil([&] { return !device.server->findConnection(3); }, {}));
}
