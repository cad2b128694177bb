#include <gtest/gtest.h>

#include <tuple>

#include "chanlink/chanlink.h"
#include "support/RecordingReceiver.h"

using testing_support::RecordingReceiver;
using Bytes = std::vector<unsigned char>;

TEST(MemoryChannelStore, EveryWriteIsPublished) {
    MemoryChannelStore store;
    ASSERT_TRUE(store.addChannel(1, {0, 0}, false, "setpoint"));
    ASSERT_TRUE(store.addChannel(2, {7}, true));
    EXPECT_FALSE(store.addChannel(3, Bytes(MemoryChannelStore::MaxChannelSize + 1), false));
    EXPECT_TRUE(store.addChannel(4, Bytes(MemoryChannelStore::MaxChannelSize), false));
    auto changes = std::make_shared<RecordingReceiver<ChannelValue>>();
    store.addChangeReceiver(changes);

    // Refused sets (their reasons are the device's rules): no change.
    EXPECT_EQ(store.setValue(1, {1}), ReasonCode::WrongDataSize);
    EXPECT_EQ(changes->count(), 0u);

    EXPECT_EQ(store.setValue(1, {1, 2}), ReasonCode::Success);
    EXPECT_EQ(store.setValue(1, {1, 2}), ReasonCode::Success);  // same value: still published
    EXPECT_TRUE(store.update(2, {8}));                          // the application may
    EXPECT_FALSE(store.update(2, {8, 8}));
    EXPECT_FALSE(store.update(9, {8}));
    ASSERT_EQ(changes->count(), 3u);
    EXPECT_EQ(changes->received()[2], ChannelValue(2, {}, {8}));
    EXPECT_EQ(*store.getValue(1), ChannelValue(1, {}, {1, 2}));
    EXPECT_EQ(store.channelSize(2), std::optional<std::size_t>(1));
    EXPECT_EQ(std::make_tuple(store.isReadOnly(1), store.isReadOnly(2), store.isReadOnly(9)),
              std::make_tuple(false, true, false));

    store.removeChangeReceiver(changes);
    store.update(2, {9});
    EXPECT_EQ(changes->count(), 3u);
}

TEST(LiveChannel, CounterCountsPeriodsOfTheGivenClockAndCatchesUpInOneChange) {
    MemoryChannelStore store;
    store.addChannel(2, {0xFE, 0x00, 0x00, 0x00}, true);
    auto changes = std::make_shared<RecordingReceiver<ChannelValue>>();
    store.addChangeReceiver(changes);
    LiveChannel counter(2, LiveChannel::Counter, std::chrono::milliseconds(200));
    const auto t0 = LiveChannel::Clock::time_point() + std::chrono::hours(1);

    EXPECT_FALSE(counter.advance(t0, store));  // not started
    EXPECT_EQ(counter.nextDue(), LiveChannel::Clock::time_point::max());
    counter.start(t0);
    EXPECT_EQ(counter.nextDue(), t0 + std::chrono::milliseconds(200));
    EXPECT_FALSE(counter.advance(t0 + std::chrono::milliseconds(199), store));
    EXPECT_TRUE(counter.advance(t0 + std::chrono::milliseconds(200), store));
    EXPECT_EQ(store.getValue(2)->getData(), (Bytes{0xFF, 0, 0, 0}));
    // Three periods late: three counts, one change, and the carry ripples.
    EXPECT_TRUE(counter.advance(t0 + std::chrono::milliseconds(850), store));
    EXPECT_EQ(store.getValue(2)->getData(), (Bytes{0x02, 0x01, 0, 0}));
    EXPECT_EQ(changes->count(), 2u);
    EXPECT_EQ(counter.nextDue(), t0 + std::chrono::milliseconds(1000));

    Bytes top{0xFF, 0xFF};
    LiveChannel::addToCounter(top, 1);
    EXPECT_EQ(top, (Bytes{0, 0}));  // wraps
    Bytes big{0, 0, 0};
    LiveChannel::addToCounter(big, 0x10203);
    EXPECT_EQ(big, (Bytes{0x03, 0x02, 0x01}));
}

TEST(LiveChannel, ToggleTakesTheBitsInTurnAndSkipsBitsBeyondTheData) {
    MemoryChannelStore store;
    store.addChannel(4, {0x00}, true);
    LiveChannel toggle(4, LiveChannel::Toggle, std::chrono::milliseconds(300), 4);
    const auto t0 = LiveChannel::Clock::time_point();
    toggle.start(t0);
    std::vector<int> seen;
    for (int step = 1; step <= 9; ++step) {
        toggle.advance(t0 + std::chrono::milliseconds(300 * step), store);
        seen.push_back(store.getValue(4)->getData()[0]);
    }
    EXPECT_EQ(seen, (std::vector<int>{0x1, 0x3, 0x7, 0xF, 0xE, 0xC, 0x8, 0x0, 0x1}));
    // 2 * 4 steps bring every bit back: a stall of 17 periods is one step.
    toggle.advance(t0 + std::chrono::milliseconds(300 * 26), store);
    EXPECT_EQ(store.getValue(4)->getData()[0], 0x3);

    store.addChannel(5, {0x00}, true);
    LiveChannel wide(5, LiveChannel::Toggle, std::chrono::milliseconds(1), 12);
    wide.start(t0);
    wide.advance(t0 + std::chrono::milliseconds(12), store);  // bits 8..11 do not exist
    EXPECT_EQ(store.getValue(5)->getData(), Bytes{0xFF});
}
