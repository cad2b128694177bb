#include <gtest/gtest.h>

#include <memory>

#include "chanlink/messages/ChannelValue.h"
#include "chanlink/wire/ByteVectorReader.h"
#include "chanlink/wire/ByteVectorWriter.h"
#include "support/Bytes.h"

using testing_support::bytes;
using testing_support::Bytes;
using testing_support::hex;

namespace {

std::string serialised(const ChannelValue& value) {
    Bytes out;
    ByteVectorWriter writer(out);
    value.writeBytes(writer);
    EXPECT_EQ(out.size(), value.wireSize());
    return hex(out);
}

}  // namespace

TEST(ChannelValue, SerialisesIdLengthsHeaderAndData) {
    EXPECT_EQ(serialised(ChannelValue(5, 0x01020304u)),
              "05 00 00 00 08 00 04 00 00 00 00 00 04 03 02 01");
    EXPECT_EQ(serialised(ChannelValue(0x0A0B0C0Du, {}, {})), "0D 0C 0B 0A 00 00 00 00");
}

TEST(ChannelValue, ValueCutShortIsNullAndLeavesTheReaderPastTheEnd) {
    const Bytes cut = bytes("05 00 00 00 08 00 04 00 00 00 00 00 04 03 02");
    ByteVectorReader reader(cut);
    EXPECT_EQ(ChannelValue::readBytes(reader), nullptr);
    EXPECT_TRUE(reader.readPastEnd());
    EXPECT_EQ(reader.getReadPosition(), 16u);
    ByteVectorReader skipping(cut);
    EXPECT_FALSE(ChannelValue::skipBytes(skipping));
    EXPECT_EQ(skipping.getReadPosition(), 16u);
}

TEST(ChannelValue, HeaderLongerThanTotalReadsEmptyDataAndMovesTheReaderBack) {
    // Total 2, header 4: the data length wraps to -2.
    const Bytes inside = bytes("05 00 00 00 02 00 04 00 AA BB CC DD EE");
    ByteVectorReader reader(inside);
    std::unique_ptr<ChannelValue> value(ChannelValue::readBytes(reader));
    ASSERT_TRUE(value);
    EXPECT_EQ(*value, ChannelValue(5, bytes("AA BB CC DD"), {}));
    EXPECT_EQ(reader.getReadPosition(), 10u);

    // The header runs beyond the end (read as zeros), but the position comes
    // back inside, so the value is still returned.
    const Bytes beyond = bytes("09 00 00 00 00 00 03 00 AA");
    ByteVectorReader back(beyond);
    EXPECT_EQ(ChannelValue::readValue(back), ChannelValue(9, bytes("AA 00 00"), {}));
    EXPECT_EQ(back.getReadPosition(), 8u);
}

TEST(ChannelValue, ValueEqualIgnoresTheHeaderButEqualityDoesNot) {
    const ChannelValue a(3, bytes("01"), bytes("10 20"));
    const ChannelValue b(3, bytes("02"), bytes("10 20"));
    EXPECT_TRUE(a.valueEqual(b));
    EXPECT_FALSE(a == b);
    EXPECT_FALSE(a.valueEqual(ChannelValue(4, bytes("01"), bytes("10 20"))));
    EXPECT_FALSE(a.valueEqual(ChannelValue(3, bytes("01"), bytes("10"))));
    ChannelValue copy = a;
    copy = b;
    EXPECT_EQ(copy.getHeader(), bytes("02"));
}
