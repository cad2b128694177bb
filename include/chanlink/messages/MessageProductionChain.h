#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <vector>

#include "chanlink/messages/Message.h"
#include "chanlink/messages/OpCode.h"

// Turns the payload of a received frame into a typed, validated message. A
// registry from opcode to producer: which messages a peer can receive is
// decided only by which producers it registers.
class MessageProductionChain {
public:
    // A message producer: a message of the payload, or an empty pointer when
    // the payload is not acceptable. Every message class's static read is one.
    using Producer = std::shared_ptr<const Message> (*)(const std::vector<unsigned char>&);

    // No entries.
    MessageProductionChain();

    // A new chain with the five producers of what a client receives, in this
    // order: login, get, set and subscription responses, error responses.
    static std::shared_ptr<MessageProductionChain> newClientInstance();
    // A new chain with the producers of what a device receives: get, set,
    // subscription, log-push and account (login) requests.
    static std::shared_ptr<MessageProductionChain> newDeviceInstance();

    // Registers producer for code, in place of any producer it had. A null
    // producer leaves an entry that produces nothing.
    void addProducer(OpCode code, Producer producer);

    // The message that the producer of the frame's opcode (byte 0) makes of
    // the whole frame, or an empty pointer when that opcode has no producer or
    // the producer rejects the frame. Looking up an opcode that has no entry
    // adds an empty one, so every distinct unknown opcode seen leaves one entry
    // (at most 256 in all). An empty frame gives an empty pointer and adds
    // nothing.
    std::shared_ptr<const Message> produceMessageFromFrame(const std::vector<unsigned char>& frame);

    // The producer registered for code, or null; adds no entry.
    Producer getProducer(OpCode code) const;
    // Number of opcodes with an entry, with or without a producer.
    std::size_t size() const { return producers.size(); }

private:
    std::map<OpCode, Producer> producers;
};
