#include "chanlink/messages/Message.h"

#include <utility>

Message::Message(OpCode code) : payload(newFrame(code)) {}

Message::Message(const std::vector<unsigned char>& payload) : payload(payload) {}

Message::Message(std::vector<unsigned char>&& payload) : payload(std::move(payload)) {}

Message::Message(const Message& other) = default;

Message::~Message() = default;

std::vector<unsigned char> Message::write() const {
    return payload;
}

std::vector<unsigned char> Message::newFrame(OpCode code) {
    return {code};
}

std::shared_ptr<const Message> Message::createShared(const Message* message) {
    return std::shared_ptr<const Message>(message);
}
