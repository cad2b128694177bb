#include "chanlink/messages/LogPushRequest.h"

#include <utility>

#include "chanlink/wire/ByteVectorReader.h"
#include "chanlink/wire/ByteVectorWriter.h"

#include "ValidatedRead.h"

LogPushRequest::LogPushRequest(std::vector<unsigned char> payload) : Message(std::move(payload)) {}

bool LogPushRequest::validate(const std::vector<unsigned char>& payload) {
    const ByteVectorReader reader(payload);
    return payload.size() == 2 && reader.readUint8At(OpCodePosition) == Code &&
           reader.readUint8At(ValuePosition) < 2;
}

std::shared_ptr<const Message> LogPushRequest::read(const std::vector<unsigned char>& payload) {
    return chanlink_detail::readValidated<LogPushRequest>(payload);
}

std::shared_ptr<const Message> LogPushRequest::newInstance(bool on) {
    std::vector<unsigned char> payload = newFrame(Code);
    ByteVectorWriter(payload).pushBackUint8(on ? 1 : 0);
    return readBuilt<LogPushRequest>(std::move(payload));
}

bool LogPushRequest::getValue() const {
    return ByteVectorReader(getPayload()).readUint8At(ValuePosition) != 0;
}
