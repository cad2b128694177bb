#include "chanlink/messages/MessageProductionChain.h"

MessageProductionChain::MessageProductionChain() : producers{}, hasEntry{} {}

void MessageProductionChain::addProducer(OpCode code, Producer producer) {
    producers[code] = producer;
    hasEntry.set(code);
}

std::shared_ptr<const Message> MessageProductionChain::produceMessageFromFrame(
    const std::vector<unsigned char>& frame) {
    if (frame.empty()) {
        return nullptr;
    }
    const OpCode code = frame[Message::OpCodePosition];
    hasEntry.set(code);
    const Producer producer = producers[code];
    return producer ? producer(frame) : nullptr;
}
