// A Session of two endpoints over an in-memory transport: the frames it delivers
// from the bytes read, the bytes it writes for the queued messages, per tick.
#include <gtest/gtest.h>

#include <stdexcept>

#include "chanlink/chanlink.h"
#include "support/Bytes.h"
#include "support/Frames.h"
#include "support/RecordingReceiver.h"
#include "support/TransportPair.h"

using testing_support::bytes;
using testing_support::Bytes;
using testing_support::framed;
using testing_support::framesIn;
using testing_support::MemoryTransport;
using testing_support::RecordingReceiver;
using Frames = std::vector<Bytes>;
using Queue = QueuedReceiver<std::shared_ptr<const Message>>;

namespace {

std::shared_ptr<const Message> anyMessage(const Bytes& payload) {
    return Message::createShared(new Message(payload));
}

// Reads and writes at most `capacity` bytes per tick; opcode 0x0B has a
// producer, 0x0C none; the receiver throws on the payload 0B EE.
struct Wired {
    explicit Wired(unsigned int capacity = 1024) {
        chain->addProducer(0x0B, &anyMessage);
        session = std::make_unique<Session>(
            transport,
            std::make_shared<IncomingEndPoint>(capacity, std::make_shared<Decoder>(), transport,
                                               chain, distributor),
            std::make_shared<OutgoingEndPoint>(capacity, transport, std::make_shared<Encoder>(),
                                               queue));
    }
    void send(const Bytes& payload) { queue->receive(anyMessage(payload)); }

    std::shared_ptr<MemoryTransport> transport = std::make_shared<MemoryTransport>();
    std::shared_ptr<MessageProductionChain> chain = std::make_shared<MessageProductionChain>();
    Frames received;
    std::shared_ptr<Receiver<Message>> distributor =
        makeReceiver<Message>([this](const Message& m) {
            if (m.write() == bytes("0B EE")) {
                throw std::runtime_error("receiver failed");
            }
            received.push_back(m.write());
        });
    std::shared_ptr<Queue> queue = std::make_shared<Queue>();
    std::unique_ptr<Session> session;
};

}  // namespace

TEST(Session, DeliversEveryFrameCompletedByATicksReadOfAtMostItsCapacity) {
    Wired w(8);
    for (const char* payload : {"0B 01", "0C 00", "0B 02 FF"}) {  // 8, 8 and 10 bytes
        w.transport->feed(framed(bytes(payload)));
    }
    w.session->tick();
    EXPECT_EQ(w.received, Frames{bytes("0B 01")});
    w.session->tick();  // no producer for 0x0C: dropped
    w.session->tick();
    EXPECT_EQ(w.received.size(), 1u);
    w.session->tick();
    EXPECT_EQ(w.received, (Frames{bytes("0B 01"), bytes("0B 02 FF")}));

    // After a receiver's exception, the frames behind it wait for a read that brings bytes.
    Wired t;
    t.transport->feed(framed(bytes("0B EE")));
    t.transport->feed(framed(bytes("0B 03")));
    EXPECT_THROW(t.session->tick(), std::runtime_error);
    t.session->tick();
    EXPECT_TRUE(t.received.empty());
    t.transport->feed(bytes("00"));
    t.session->tick();
    EXPECT_EQ(t.received, Frames{bytes("0B 03")});
}

TEST(Session, TicksTheTransportThenReadsThenWritesUpToCapacityLeftoversFirst) {
    Wired w(1200);
    for (int i = 0; i < 10; ++i) {
        w.send(Bytes(294, 0x11));  // frames of exactly 300 bytes
    }
    w.transport->writeLimit = 1000;
    w.session->tick();
    EXPECT_EQ(w.transport->calls, "trw");
    EXPECT_EQ(w.session->pendingOutputBytes(), 200u);
    w.transport->writeLimit = 1 << 30;
    for (int i = 0; i < 4; ++i) {
        w.session->tick();  // the last has nothing left: no write at all
    }
    EXPECT_EQ(w.transport->writeSizes, (std::vector<int>{1200, 1400, 600}));
    EXPECT_EQ(framesIn(w.transport->written()), Frames(10, Bytes(294, 0x11)));
}

TEST(Session, ResetDropsUndeliveredFramesUnsentBytesAndQueuedMessages) {
    Wired w;
    const Bytes half = framed(bytes("0B 01"));
    // Behind the receiver's exception: a whole frame and half of one.
    w.transport->feed(framed(bytes("0B EE")));
    w.transport->feed(framed(bytes("0B 03")));
    w.transport->feed(Bytes(half.begin(), half.begin() + 3));
    EXPECT_THROW(w.session->tick(), std::runtime_error);
    w.send(bytes("0B 09"));
    w.transport->writeLimit = 3;
    w.session->tick();
    w.send(bytes("0B 0A"));
    w.session->reset();
    EXPECT_EQ(w.session->pendingOutputBytes(), 0u);
    w.transport->takeWritten();
    w.transport->writeLimit = 1 << 30;
    w.transport->feed(Bytes(half.begin() + 3, half.end()));
    w.transport->feed(framed(bytes("0B 02")));
    w.session->tick();
    EXPECT_TRUE(w.transport->written().empty());
    EXPECT_EQ(w.received, Frames{bytes("0B 02")});

    const Session copy(*w.session);  // an inert copy: holds no transport
    EXPECT_EQ(copy.getTransport(), nullptr);
    EXPECT_EQ(w.session->getTransport(), w.transport);
}

TEST(EndPointBuilder, BuildsOnlyWithEveryPieceAndSharesOneDecoder) {
    EndPointBuilder builder;
    auto transport = std::make_shared<LoopBackTransport>(64);
    auto delivered = std::make_shared<RecordingReceiver<Message>>();
    auto chain = std::make_shared<MessageProductionChain>();
    chain->addProducer(0x0B, &anyMessage);
    builder.setReadTransport(transport).setMessageProductionChain(chain);
    EXPECT_EQ(builder.buildIncomingEndPoint(), nullptr);  // no distributor yet
    builder.setMessageDistributor(delivered);
    for (unsigned int capacity : {0u, 0x80000000u}) {  // none, or negative as signed
        builder.setMaxInputCapacity(capacity);
        EXPECT_EQ(builder.buildIncomingEndPoint(), nullptr) << capacity;
    }
    builder.setMaxInputCapacity(16);
    auto first = builder.buildIncomingEndPoint();
    auto second = builder.buildIncomingEndPoint();
    ASSERT_NE(second, nullptr);
    const Bytes whole = framed(bytes("0B 05"));
    transport->write(whole.data(), 3);
    first->doRead();
    transport->write(whole.data() + 3, static_cast<int>(whole.size() - 3));
    second->doRead();  // completes the frame the first endpoint began
    EXPECT_EQ(delivered->count(), 1u);

    builder.setDecoder(nullptr);
    EXPECT_EQ(builder.buildIncomingEndPoint(), nullptr);
    // No setter exists for the message queue, so an outgoing endpoint is never built.
    builder.setWriteTransport(transport).setEncoder(std::make_shared<Encoder>());
    EXPECT_EQ(builder.buildOutgoingEndPoint(), nullptr);
}
