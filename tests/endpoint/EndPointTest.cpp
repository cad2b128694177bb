#include <gtest/gtest.h>

#include "chanlink/endpoint/EndPointBuilder.h"
#include "chanlink/endpoint/Session.h"
#include "chanlink/transport/LoopBackTransport.h"
#include "support/Bytes.h"
#include "support/RecordingReceiver.h"
#include "support/ScriptedTransport.h"

using testing_support::bytes;
using testing_support::Bytes;
using testing_support::RecordingReceiver;
using testing_support::ScriptedTransport;

namespace {

using MessageQueue = QueuedReceiver<std::shared_ptr<const Message>>;

std::shared_ptr<const Message> anyMessage(const std::vector<unsigned char>& payload) {
    return Message::createShared(new Message(payload));
}

Bytes frame(const Bytes& payload) {
    Bytes out;
    Encoder().injectFrame(payload, out);
    return out;
}

std::vector<Bytes> payloadsOf(const RecordingReceiver<Message>& recorder) {
    std::vector<Bytes> payloads;
    for (const Message& message : recorder.received()) {
        payloads.push_back(message.write());
    }
    return payloads;
}

// Decodes everything a transport was given back into payloads.
std::vector<Bytes> framesIn(const Bytes& stream) {
    Decoder decoder;
    decoder.injectBytes(stream);
    std::vector<Bytes> frames;
    while (decoder.hasFrames()) {
        frames.push_back(decoder.extractFrame());
    }
    return frames;
}

struct Incoming {
    Incoming() {
        chain->addProducer(0x0B, &anyMessage);  // opcode 0x0C has no producer
        endPoint = std::make_shared<IncomingEndPoint>(1024, decoder, transport, chain, recorder);
    }
    std::shared_ptr<ScriptedTransport> transport = std::make_shared<ScriptedTransport>();
    std::shared_ptr<Decoder> decoder = std::make_shared<Decoder>();
    std::shared_ptr<MessageProductionChain> chain = std::make_shared<MessageProductionChain>();
    std::shared_ptr<RecordingReceiver<Message>> recorder =
        std::make_shared<RecordingReceiver<Message>>();
    std::shared_ptr<IncomingEndPoint> endPoint;
};

struct Outgoing {
    explicit Outgoing(int capacity = 1024)
        : endPoint(std::make_shared<OutgoingEndPoint>(capacity, transport,
                                                      std::make_shared<Encoder>(), queue)) {}
    std::shared_ptr<ScriptedTransport> transport = std::make_shared<ScriptedTransport>();
    std::shared_ptr<MessageQueue> queue = std::make_shared<MessageQueue>();
    std::shared_ptr<OutgoingEndPoint> endPoint;
};

}  // namespace

TEST(IncomingEndPoint, DeliversEveryFrameInTheReadThatCompletesIt) {
    Incoming in;
    in.endPoint->doRead();  // nothing to read: nothing happens
    EXPECT_EQ(in.recorder->count(), 0u);

    Bytes stream = frame(bytes("0B 01"));
    const Bytes split = frame(bytes("0B 02 FF"));
    for (const Bytes& part : {frame(bytes("0C 00")), frame(bytes("0B 03")), split}) {
        stream.insert(stream.end(), part.begin(), part.end());
    }
    in.transport->feed(Bytes(stream.begin(), stream.end() - 4));
    in.endPoint->doRead();
    EXPECT_EQ(payloadsOf(*in.recorder), (std::vector<Bytes>{bytes("0B 01"), bytes("0B 03")}));

    in.transport->feed(Bytes(stream.end() - 4, stream.end()));
    in.endPoint->doRead();
    EXPECT_EQ(payloadsOf(*in.recorder).back(), bytes("0B 02 FF"));
    EXPECT_EQ(in.recorder->count(), 3u);
}

TEST(IncomingEndPoint, ReadsAtMostItsCapacityPerCall) {
    Incoming in;
    in.endPoint =
        std::make_shared<IncomingEndPoint>(4, in.decoder, in.transport, in.chain, in.recorder);
    in.transport->feed(frame(bytes("0B 01")));  // 8 bytes
    in.endPoint->doRead();
    EXPECT_EQ(in.transport->unread(), 4u);
    EXPECT_EQ(in.recorder->count(), 0u);
    in.endPoint->doRead();
    EXPECT_EQ(in.recorder->count(), 1u);
}

TEST(IncomingEndPoint, ResetDropsAHalfReceivedFrame) {
    Incoming in;
    const Bytes first = frame(bytes("0B 01"));
    in.transport->feed(Bytes(first.begin(), first.begin() + 4));
    in.endPoint->doRead();
    in.endPoint->reset();
    in.transport->feed(Bytes(first.begin() + 4, first.end()));
    in.transport->feed(frame(bytes("0B 02")));
    in.endPoint->doRead();
    EXPECT_EQ(payloadsOf(*in.recorder), std::vector<Bytes>{bytes("0B 02")});
}

TEST(OutgoingEndPoint, FillsUpToCapacityAndWritesThePendingBufferOncePerCall) {
    Outgoing out;
    const Bytes payload(294, 0x11);  // frames of exactly 300 bytes
    for (int i = 0; i < 10; ++i) {
        out.queue->receive(Message::createShared(new Message(payload)));
    }
    out.endPoint->doWrite();
    out.endPoint->doWrite();
    out.endPoint->doWrite();
    out.endPoint->doWrite();  // nothing left: no write at all
    EXPECT_EQ(out.transport->writeSizes, (std::vector<int>{1200, 1200, 600}));
    EXPECT_EQ(framesIn(out.transport->written()).size(), 10u);
}

TEST(OutgoingEndPoint, OffersUnacceptedBytesFirstOnTheNextCall) {
    Outgoing out;
    out.transport->writeLimit = 5;
    out.queue->receive(Message::createShared(new Message(Bytes(14, 0x01))));  // 20-byte frame
    out.endPoint->doWrite();
    EXPECT_EQ(out.endPoint->pendingBytes(), 15u);
    out.queue->receive(Message::createShared(new Message(bytes("0B 02"))));
    out.transport->writeLimit = 1 << 30;
    out.endPoint->doWrite();
    EXPECT_EQ(out.transport->writeSizes, (std::vector<int>{20, 23}));
    EXPECT_EQ(framesIn(out.transport->written()),
              (std::vector<Bytes>{Bytes(14, 0x01), bytes("0B 02")}));
}

TEST(OutgoingEndPoint, ResetDropsPendingBytesAndQueuedMessages) {
    Outgoing out;
    out.transport->writeLimit = 3;
    out.queue->receive(Message::createShared(new Message(bytes("0B 01"))));
    out.endPoint->doWrite();
    out.queue->receive(Message::createShared(new Message(bytes("0B 02"))));
    out.endPoint->reset();
    EXPECT_EQ(out.endPoint->pendingBytes(), 0u);
    EXPECT_TRUE(out.queue->empty());
    out.transport->takeWritten();
    out.endPoint->doWrite();
    EXPECT_TRUE(out.transport->written().empty());
}

TEST(Session, TicksTransportThenReadsThenWritesSoAnswersLeaveInTheSameTick) {
    auto loopBack = std::make_shared<LoopBackTransport>(4096);
    auto queue = std::make_shared<MessageQueue>();
    auto chain = std::make_shared<MessageProductionChain>();
    chain->addProducer(0x0B, &anyMessage);
    chain->addProducer(0x0C, &anyMessage);
    // Answers each 0x0B message with a 0x0C one.
    struct Responder : Receiver<Message> {
        explicit Responder(std::shared_ptr<MessageQueue> q) : queue(std::move(q)) {}
        void receive(const Message& message) override {
            seen.push_back(message.write());
            if (message.getOpCode() == 0x0B) {
                queue->receive(Message::createShared(new Message(bytes("0C 01"))));
            }
        }
        std::shared_ptr<MessageQueue> queue;
        std::vector<Bytes> seen;
    };
    auto responder = std::make_shared<Responder>(queue);
    Session session(
        loopBack,
        std::make_shared<IncomingEndPoint>(1024, std::make_shared<Decoder>(), loopBack, chain,
                                           responder),
        std::make_shared<OutgoingEndPoint>(1024, loopBack, std::make_shared<Encoder>(), queue));
    const Bytes request = frame(bytes("0B 07"));
    loopBack->write(request.data(), static_cast<int>(request.size()));
    session.tick();
    EXPECT_EQ(responder->seen, std::vector<Bytes>{bytes("0B 07")});
    EXPECT_EQ(loopBack->bufferedBytes(), static_cast<int>(frame(bytes("0C 01")).size()));

    session.tick();  // the loop-back hands the answer back to the same session
    EXPECT_EQ(responder->seen.back(), bytes("0C 01"));

    auto scripted = std::make_shared<ScriptedTransport>();
    Session ordered(
        scripted,
        std::make_shared<IncomingEndPoint>(16, std::make_shared<Decoder>(), scripted, chain,
                                           responder),
        std::make_shared<OutgoingEndPoint>(16, scripted, std::make_shared<Encoder>(), queue));
    queue->receive(Message::createShared(new Message(bytes("0C 02"))));
    ordered.tick();
    EXPECT_EQ(scripted->calls, (std::vector<std::string>{"tick", "read", "write"}));
}

TEST(Session, ResetEmptiesBothEndpointsButLeavesTheTransport) {
    auto scripted = std::make_shared<ScriptedTransport>();
    auto queue = std::make_shared<MessageQueue>();
    auto chain = std::make_shared<MessageProductionChain>();
    chain->addProducer(0x0B, &anyMessage);
    auto recorder = std::make_shared<RecordingReceiver<Message>>();
    Session session(
        scripted,
        std::make_shared<IncomingEndPoint>(1024, std::make_shared<Decoder>(), scripted, chain,
                                           recorder),
        std::make_shared<OutgoingEndPoint>(1024, scripted, std::make_shared<Encoder>(), queue));
    const Bytes half = frame(bytes("0B 01"));
    scripted->feed(Bytes(half.begin(), half.begin() + 3));
    queue->receive(Message::createShared(new Message(bytes("0B 09"))));
    scripted->writeLimit = 0;
    session.tick();
    queue->receive(Message::createShared(new Message(bytes("0B 0A"))));
    session.reset();
    scripted->writeLimit = 1 << 30;
    scripted->feed(Bytes(half.begin() + 3, half.end()));
    scripted->feed(frame(bytes("0B 02")));
    session.tick();
    EXPECT_TRUE(scripted->written().empty());
    EXPECT_EQ(payloadsOf(*recorder), std::vector<Bytes>{bytes("0B 02")});

    const Session copy(session);  // an inert copy: holds no transport
    EXPECT_EQ(copy.getTransport(), nullptr);
    EXPECT_EQ(session.getTransport(), scripted);
}

TEST(EndPointBuilder, BuildsOnlyWithEveryPieceAndSharesItsFramingObjects) {
    EndPointBuilder builder;
    auto transport = std::make_shared<LoopBackTransport>(64);
    EXPECT_EQ(builder.buildIncomingEndPoint(), nullptr);
    builder.setReadTransport(transport).setMessageProductionChain(
        std::make_shared<MessageProductionChain>());
    EXPECT_EQ(builder.buildIncomingEndPoint(), nullptr);  // no distributor yet
    builder.setMessageDistributor(std::make_shared<RecordingReceiver<Message>>());
    EXPECT_NE(builder.buildIncomingEndPoint(), nullptr);

    builder.setMaxInputCapacity(0);
    EXPECT_EQ(builder.buildIncomingEndPoint(), nullptr);
    builder.setMaxInputCapacity(0x80000000u);  // negative when read as signed
    EXPECT_EQ(builder.buildIncomingEndPoint(), nullptr);
    builder.setMaxInputCapacity(16).setDecoder(nullptr);
    EXPECT_EQ(builder.buildIncomingEndPoint(), nullptr);

    // No setter exists for the message queue, so an outgoing endpoint is never built.
    builder.setWriteTransport(transport).setEncoder(std::make_shared<Encoder>());
    EXPECT_EQ(builder.buildOutgoingEndPoint(), nullptr);
}

TEST(EndPointBuilder, EndpointsFromOneBuilderShareOneDecoder) {
    EndPointBuilder builder;
    auto transport = std::make_shared<LoopBackTransport>(64);
    auto recorder = std::make_shared<RecordingReceiver<Message>>();
    auto chain = std::make_shared<MessageProductionChain>();
    chain->addProducer(0x0B, &anyMessage);
    builder.setReadTransport(transport).setMessageProductionChain(chain).setMessageDistributor(
        recorder);
    auto first = builder.buildIncomingEndPoint();
    auto second = builder.buildIncomingEndPoint();
    const Bytes whole = frame(bytes("0B 05"));
    transport->write(whole.data(), 3);
    first->doRead();
    transport->write(whole.data() + 3, static_cast<int>(whole.size() - 3));
    second->doRead();  // completes the frame the first endpoint began
    EXPECT_EQ(payloadsOf(*recorder), std::vector<Bytes>{bytes("0B 05")});
}
