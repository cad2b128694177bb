#include <gtest/gtest.h>

#include "chanlink/chanlink.h"
#include "support/RecordingReceiver.h"

using testing_support::RecordingReceiver;
using Bytes = std::vector<unsigned char>;
using Changes = RecordingReceiver<ChannelCache::Change>;
using Outcomes = RecordingReceiver<GetOutcome>;

namespace {

GetOutcome value(unsigned int channel, Bytes data, Bytes header = {}) {
    return GetOutcome(channel, std::move(header), std::move(data), 255);
}

}  // namespace

TEST(ChannelCache, ReportsOnlyChangesOfDataWithThePreviousValue) {
    ChannelCache cache;
    auto changes = std::make_shared<Changes>();
    cache.addReceiver(changes);
    cache.addReceiver(changes);  // once only
    cache.addReceiver(nullptr);
    EXPECT_EQ(cache.getChannel(5), nullptr);  // makes an empty entry
    EXPECT_TRUE(cache.hasChannel(5));
    EXPECT_FALSE(cache.hasChannel(6));

    cache.receive(value(5, {0x01}, {0xA0}));
    cache.receive(value(5, {0x01}, {0xA0}));  // same: nothing
    cache.receive(value(5, {0x01}, {0xB0}));  // header only: nothing, not stored
    cache.receive(GetOutcome(5, 3));          // failure: ignored
    cache.receive(value(5, {0x02}));
    ASSERT_EQ(changes->count(), 2u);
    EXPECT_EQ(changes->received()[0].first, nullptr);
    EXPECT_EQ(*changes->received()[0].second, ChannelValue(5, {0xA0}, {0x01}));
    EXPECT_EQ(*changes->received()[1].first, ChannelValue(5, {0xA0}, {0x01}));
    EXPECT_EQ(*changes->received()[1].second, ChannelValue(5, {}, {0x02}));
    // The stored value is the reported object, and the old one was not changed.
    EXPECT_EQ(cache.getChannel(5), changes->received()[1].second);
    EXPECT_EQ(changes->received()[0].second->getData(), Bytes{0x01});
}

TEST(LatestValueQueue, PastItsBoundKeepsTheLatestValueOfEachChannelInArrivalOrder) {
    using Values = std::deque<GetOutcome>;
    LatestValueQueue queue(3, 4);  // three values, four bytes
    queue.receive(value(1, {0x01}));
    queue.receive(value(2, {0x02}));
    queue.receive(GetOutcome(2, 3));  // failure: not queued
    queue.receive(value(1, {0x03}));
    queue.receive(value(1, {0x04}));
    EXPECT_EQ(queue.takeAll(), (Values{value(2, {0x02}), value(1, {0x04})}));
    queue.receive(value(3, Bytes(3, 0)));
    queue.putBack({value(3, {0x05}), value(4, {0x06})});  // in front; five bytes
    EXPECT_EQ(queue.takeAll(), (Values{value(4, {0x06}), value(3, Bytes(3, 0))}));
    EXPECT_EQ(queue.dropped(), 3u);
}

TEST(ChannelIdMappingTransform, RenamesMappedChannelsAndPassesTheRestThrough) {
    auto out = std::make_shared<Outcomes>();
    ChannelIdMappingTransform mapping(out);
    mapping.addMapping(5, 105);
    mapping.receive(value(5, {0x01}, {0x0A}));
    mapping.receive(value(6, {0x02}));
    mapping.addMapping(5, 200);
    mapping.receive(GetOutcome(5, 7));
    EXPECT_EQ(out->received(), (std::vector<GetOutcome>{value(105, {0x01}, {0x0A}),
                                                        value(6, {0x02}), GetOutcome(200, 7)}));
}

TEST(BitfieldMultiplexedTransform, EmitsOneByteOutcomePerBitInAscendingOrder) {
    auto out = std::make_shared<Outcomes>();
    BitfieldMultiplexedTransform split(out);
    split.receive(value(1, {0xFF}));  // no bitfields: nothing
    EXPECT_EQ(out->count(), 0u);
    BitfieldMultiplexedTransform dropping(nullptr);  // no downstream: output dropped
    dropping.setBitfield(0, 1);
    dropping.receive(value(1, {0x01}));

    split.setBitfield(16, 1002);
    split.setBitfield(9, 1001);
    split.setBitfield(0, 1000);
    split.receive(value(1, {0x01, 0x02}, {0xAB}));
    EXPECT_EQ(out->received(),
              (std::vector<GetOutcome>{value(1000, {0x01}, {0xAB}), value(1001, {0x01}, {0xAB}),
                                       GetOutcome(1002, 2)}));
    out->clear();
    split.setBitfield(16, 1003);  // replaces the channel of bit 16
    split.setBitfield(7, 1007);
    split.setBitfield(6, 1006);
    split.receive(value(1, {0x80}));
    EXPECT_EQ(out->received(), (std::vector<GetOutcome>{value(1000, {0x00}), value(1006, {0x00}),
                                                        value(1007, {0x01}), GetOutcome(1001, 2),
                                                        GetOutcome(1003, 2)}));
}
