// The channel file of chanlink-device.
#include <gtest/gtest.h>

#include <sstream>
#include <tuple>

#include "ChannelTable.h"

namespace {

std::optional<std::vector<ChannelSpec>> parse(const std::string& text, std::string& error) {
    std::istringstream stream(text);
    return ChannelTable::parse(stream, error);
}

std::string problem(const std::string& text) {
    std::string error;
    return parse(text, error) ? std::string("accepted") : error;
}

}  // namespace

// The values and access of its channels are what the tools' integration
// test reads and sets.
TEST(DeviceChannelTable, TheBuiltInTableIsTheDocumentedOne) {
    std::string error;
    const auto table = parse(ChannelTable::defaultText(), error);
    ASSERT_TRUE(table) << error;

    MemoryChannelStore store;
    const std::vector<LiveChannel> live = ChannelTable::install(*table, store);
    EXPECT_EQ(store.channelIds(), (std::vector<unsigned int>{1, 2, 3, 4, 5}));
    ASSERT_EQ(live.size(), 2u);
    EXPECT_EQ(std::make_tuple(live[0].getChannelId(), live[0].getBehaviour(), live[0].getPeriod()),
              std::make_tuple(2u, LiveChannel::Counter, std::chrono::milliseconds(200)));
    EXPECT_EQ(std::make_tuple(live[1].getChannelId(), live[1].getBehaviour(), live[1].getPeriod(),
                              live[1].getBits()),
              std::make_tuple(4u, LiveChannel::Toggle, std::chrono::milliseconds(300), 4u));
}

TEST(DeviceChannelTable, EachFaultIsNamedWithItsLine) {
    EXPECT_EQ(problem("\n# only comments\n   \n"), "accepted");
    EXPECT_EQ(problem("0xFFFFFFFF 1 - ro toggle:5 top"), "accepted");  // all 8 bits by default
    EXPECT_EQ(problem("1 4 00000000 rw\n"), "1: expected: id size initial access live [name]");
    EXPECT_EQ(problem("\n1 4 - rw - a b"), "2: expected: id size initial access live [name]");
    EXPECT_EQ(problem("4294967296 1 - rw -"),
              "1: id must be a number from 0 to 4294967295, not '4294967296'");
    EXPECT_EQ(problem("1 0 - rw -"), "1: size must be 1 to 65535 bytes, not '0'");
    EXPECT_EQ(problem("1 2 0g00 rw -"),
              "1: initial value must be - or exactly 4 hex digits, not '0g00'");
    EXPECT_EQ(problem("1 1 00 wo -"), "1: access must be rw or ro, not 'wo'");
    EXPECT_EQ(problem("1 1 00 ro counter:0"),
              "1: period must be 1 to 86400000 milliseconds, not '0'");
    EXPECT_EQ(problem("1 1 00 ro toggle:10:9"), "1: toggle bits must be 1 to 8 (8 per byte)");
    EXPECT_EQ(problem("1 1 00 ro blink:10"),
              "1: live behaviour must be -, counter:MS or toggle:MS[:BITS], not 'blink:10'");
    EXPECT_EQ(problem("1 1 00 ro -\n1 1 00 ro -"), "2: channel 1 is listed twice");
}
