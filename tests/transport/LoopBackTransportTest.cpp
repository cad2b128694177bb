#include <gtest/gtest.h>

#include <memory>

#include "chanlink/transport/LoopBackTransport.h"
#include "support/Bytes.h"

using testing_support::bytes;
using testing_support::Bytes;

TEST(LoopBackTransport, AcceptsUpToItsCapacityAndReadsBackInOrder) {
    auto transport = std::make_shared<LoopBackTransport>(10);
    std::shared_ptr<WriteTransport> writer = transport;
    std::shared_ptr<ReadTransport> reader = transport;
    const Bytes data = bytes("01 02 03 04 05 06 07 08 09 0A 0B 0C");
    EXPECT_EQ(writer->write(data.data(), 6), 6);
    EXPECT_EQ(writer->write(data.data() + 6, 6), 4);
    EXPECT_EQ(writer->write(data.data(), 6), 0);
    transport->tick();
    EXPECT_EQ(transport->bufferedBytes(), 10);

    Bytes out(100, 0xEE);
    EXPECT_EQ(reader->read(out.data(), 3), 3);
    EXPECT_EQ(Bytes(out.begin(), out.begin() + 4), bytes("01 02 03 EE"));
    // Reading made room again.
    EXPECT_EQ(writer->write(data.data() + 10, 2), 2);
    EXPECT_EQ(reader->read(out.data(), 100), 9);
    EXPECT_EQ(Bytes(out.begin(), out.begin() + 10), bytes("04 05 06 07 08 09 0A 0B 0C EE"));
    EXPECT_EQ(reader->read(out.data(), 100), 0);
}

TEST(LoopBackTransport, OddLengthsAndBuffersMoveNothingExceptANegativeRead) {
    LoopBackTransport transport(8);
    const Bytes data = bytes("11 22 33 44 55");
    Bytes out(8, 0xEE);
    EXPECT_EQ(transport.write(data.data(), 0), 0);
    EXPECT_EQ(transport.write(data.data(), -1), 0);
    EXPECT_EQ(transport.write(nullptr, 3), 0);
    EXPECT_EQ(transport.bufferedBytes(), 0);

    EXPECT_EQ(transport.write(data.data(), 5), 5);
    EXPECT_EQ(transport.read(out.data(), 0), 0);
    EXPECT_EQ(transport.read(nullptr, 3), 0);
    EXPECT_EQ(transport.bufferedBytes(), 5);
    // A negative length asks for everything buffered.
    EXPECT_EQ(transport.read(out.data(), -1), 5);
    EXPECT_EQ(out, bytes("11 22 33 44 55 EE EE EE"));
}

TEST(LoopBackTransport, ANonPositiveCapacityAcceptsNothing) {
    const Bytes data = bytes("01 02");
    for (int capacity : {0, -1, -1000}) {
        LoopBackTransport transport(capacity);
        EXPECT_EQ(transport.write(data.data(), 2), 0) << capacity;
        EXPECT_EQ(transport.bufferedBytes(), 0) << capacity;
    }
}
