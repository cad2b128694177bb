#include "chanlink/messages/ErrorResponse.h"

#include <utility>

#include "chanlink/wire/ByteVectorReader.h"
#include "chanlink/wire/ByteVectorWriter.h"

#include "ValidatedRead.h"

namespace {

// Get and set requests name one channel, so errors about them carry its id.
constexpr OpCode GetRequestCode = 0;
constexpr OpCode SetRequestCode = 2;

}  // namespace

ErrorResponse::ErrorResponse(std::vector<unsigned char> payload) : Message(std::move(payload)) {}

bool ErrorResponse::carriesChannelId(OpCode triggeringOpCode) {
    return triggeringOpCode == GetRequestCode || triggeringOpCode == SetRequestCode;
}

bool ErrorResponse::validate(const std::vector<unsigned char>& payload) {
    ByteVectorReader reader(payload);
    if (reader.readUint8() != Code) {
        return false;
    }
    const OpCode triggeringOpCode = reader.readUint8();
    reader.readUint8();
    return reader.remainingBytes() >= (carriesChannelId(triggeringOpCode) ? 4 : 0);
}

std::shared_ptr<const Message> ErrorResponse::read(const std::vector<unsigned char>& payload) {
    return chanlink_detail::readValidated<ErrorResponse>(payload);
}

std::shared_ptr<const Message> ErrorResponse::newInstance(OpCode triggeringOpCode,
                                                          unsigned char reasonCode,
                                                          unsigned int channelId) {
    std::vector<unsigned char> payload = newFrame(Code);
    payload.reserve(ChannelIdPosition + 4);
    ByteVectorWriter writer(payload);
    writer.pushBackUint8(triggeringOpCode);
    writer.pushBackUint8(reasonCode);
    if (carriesChannelId(triggeringOpCode)) {
        writer.pushBackUint32(channelId);
    }
    return readBuilt<ErrorResponse>(std::move(payload));
}

OpCode ErrorResponse::getTriggeringOpCode() const {
    return ByteVectorReader(getPayload()).readUint8At(TriggeringOpCodePosition);
}

unsigned char ErrorResponse::getReasonCode() const {
    return ByteVectorReader(getPayload()).readUint8At(ReasonCodePosition);
}

unsigned int ErrorResponse::getChannelId() const {
    return ByteVectorReader(getPayload()).readUint32At(ChannelIdPosition);
}
