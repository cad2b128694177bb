#pragma once

#include <memory>

#include "chanlink/endpoint/IncomingEndPoint.h"
#include "chanlink/endpoint/OutgoingEndPoint.h"

// Collects the pieces of the two endpoints, with a new Decoder and Encoder
// and capacities of 1024 bytes as defaults, and builds endpoints that share
// them. A build with a piece missing gives an empty pointer.
class EndPointBuilder {
public:
    EndPointBuilder();
    virtual ~EndPointBuilder();

    EndPointBuilder(const EndPointBuilder&) = delete;
    EndPointBuilder& operator=(const EndPointBuilder&) = delete;

    // Each setter replaces the stored value and returns the builder for chaining.
    EndPointBuilder& setMaxInputCapacity(unsigned int capacity);
    EndPointBuilder& setMaxOutputCapacity(unsigned int capacity);
    EndPointBuilder& setDecoder(std::shared_ptr<Decoder> decoder);
    EndPointBuilder& setReadTransport(std::shared_ptr<ReadTransport> transport);
    EndPointBuilder& setWriteTransport(std::shared_ptr<WriteTransport> transport);
    EndPointBuilder& setMessageProductionChain(std::shared_ptr<MessageProductionChain> chain);
    EndPointBuilder& setMessageDistributor(std::shared_ptr<Receiver<Message>> distributor);
    EndPointBuilder& setEncoder(std::shared_ptr<Encoder> encoder);

    // Empty unless the input capacity, read as a signed 32-bit number, is
    // above 0 and decoder, read transport, production chain and distributor
    // are set (tested in that order).
    std::shared_ptr<IncomingEndPoint> buildIncomingEndPoint();
    // Empty unless the output capacity, read as a signed 32-bit number, is
    // above 0 and write transport, encoder and message queue are set. No
    // setter exists for the queue, so this always gives an empty pointer:
    // existing callers construct OutgoingEndPoint directly instead, and the
    // builder keeps answering as they expect.
    std::shared_ptr<OutgoingEndPoint> buildOutgoingEndPoint();

private:
    unsigned int maxInputCapacity = 1024;
    unsigned int maxOutputCapacity = 1024;
    std::shared_ptr<Decoder> decoder;
    std::shared_ptr<ReadTransport> readTransport;
    std::shared_ptr<WriteTransport> writeTransport;
    std::shared_ptr<MessageProductionChain> messageProductionChain;
    std::shared_ptr<QueuedReceiver<std::shared_ptr<const Message>>> messageQueue;
    std::shared_ptr<Receiver<Message>> messageDistributor;
    std::shared_ptr<Encoder> encoder;
};
