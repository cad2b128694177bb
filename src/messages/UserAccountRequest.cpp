#include "chanlink/messages/UserAccountRequest.h"

#include <utility>

#include "chanlink/messages/LoginRequest.h"
#include "chanlink/wire/ByteVectorReader.h"

UserAccountRequest::UserAccountRequest(std::vector<unsigned char> payload)
    : Message(std::move(payload)) {}

bool UserAccountRequest::validate(const std::vector<unsigned char>& payload) {
    const ByteVectorReader reader(payload);
    return reader.readUint8At(OpCodePosition) == Code &&
           reader.readUint8At(SubMessageTypePosition) == LoginSubMessageType &&
           LoginRequest::validate(payload);
}

std::shared_ptr<const Message> UserAccountRequest::read(const std::vector<unsigned char>& payload) {
    return validate(payload) ? buildSubMessage(payload) : nullptr;
}

std::shared_ptr<const Message> UserAccountRequest::buildSubMessage(
    const std::vector<unsigned char>& payload) {
    if (ByteVectorReader(payload).readUint8At(SubMessageTypePosition) == LoginSubMessageType) {
        return LoginRequest::read(payload);
    }
    return nullptr;
}
