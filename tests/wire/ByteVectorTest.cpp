#include <gtest/gtest.h>

#include <climits>

#include "chanlink/wire/ByteVectorReader.h"
#include "chanlink/wire/ByteVectorWriter.h"
#include "support/Bytes.h"

using testing_support::bytes;
using testing_support::Bytes;

TEST(ByteVectorReader, ReadsPastTheEndAsZerosAndReportsItAfterwards) {
    const Bytes empty;
    ByteVectorReader reader(empty);
    EXPECT_EQ(reader.readUint8(), 0);
    EXPECT_EQ(reader.getReadPosition(), 1u);
    EXPECT_TRUE(reader.readPastEnd());
    EXPECT_EQ(reader.remainingBytes(), -1);

    const Bytes three = bytes("01 02 03");
    ByteVectorReader partial(three);
    EXPECT_EQ(partial.readUint32At(0), 0x00030201u);
    EXPECT_EQ(partial.readUint16At(2), 0x0003u);
    EXPECT_EQ(partial.readBytesAt(2, 4), bytes("03 00 00 00"));
    EXPECT_EQ(partial.readStringAt(1, 3), std::string("\x02\x03\0", 3));
    EXPECT_EQ(partial.readUint32(), 0x00030201u);
    EXPECT_TRUE(partial.readPastEnd());
    EXPECT_EQ(partial.remainingBytes(), -1);
}

TEST(ByteVectorReader, ConsumingEveryByteIsNotPastTheEnd) {
    const Bytes data = bytes("11 22 33 44 55 66 77");
    ByteVectorReader reader(data);
    EXPECT_EQ(reader.readUint8(), 0x11);
    EXPECT_EQ(reader.readUint16(), 0x3322);
    EXPECT_EQ(reader.readUint32(), 0x77665544u);
    EXPECT_FALSE(reader.readPastEnd());
    EXPECT_EQ(reader.remainingBytes(), 0);
}

TEST(ByteVectorReader, ByteRunsOfZeroLengthOrWrappingEndAreEmpty) {
    const Bytes data = bytes("01 02 03");
    ByteVectorReader reader(data);
    EXPECT_TRUE(reader.readBytesAt(5, 0).empty());
    EXPECT_TRUE(reader.readBytes(0).empty());
    EXPECT_EQ(reader.getReadPosition(), 0u);
    // index + length wraps: empty, and no attempt to allocate gigabytes.
    EXPECT_TRUE(reader.readBytesAt(2, 0xFFFFFFFFu).empty());
    reader.setReadPosition(2);
    EXPECT_TRUE(reader.readBytes(0xFFFFFFFEu).empty());
    EXPECT_EQ(reader.getReadPosition(), 0u);  // moved back by two, wrapping
}

TEST(ByteVectorReader, RemainingBytesStaysNegativeForPositionsFarBeyondTheEnd) {
    const Bytes data = bytes("01 02 03");
    ByteVectorReader reader(data);
    reader.setReadPosition(0xFFFFFFFFu);
    EXPECT_TRUE(reader.readPastEnd());
    EXPECT_EQ(reader.remainingBytes(), INT_MIN);
    // Byte indexes are 32-bit and wrap: the last three bytes come from the start.
    EXPECT_EQ(reader.readUint32(), 0x03020100u);
}

TEST(ByteVectorWriter, AppendsLittleEndianWithoutPrefixes) {
    Bytes out = bytes("AA");
    ByteVectorWriter writer(out);
    writer.pushBackUint32(0x11223344u);
    writer.pushBackUint16(0xABCD);
    writer.pushBackUint8(0x7F);
    writer.pushBackString("");
    writer.pushBackString("hi");
    writer.pushBackBytes(bytes("00 FF"));
    EXPECT_EQ(out, bytes("AA 44 33 22 11 CD AB 7F 68 69 00 FF"));
}
