#include "chanlink/messages/SetResponse.h"

#include <utility>

#include "chanlink/wire/ByteVectorReader.h"
#include "chanlink/wire/ByteVectorWriter.h"

#include "ValidatedRead.h"

SetResponse::SetResponse(std::vector<unsigned char> payload) : Message(std::move(payload)) {}

bool SetResponse::validate(const std::vector<unsigned char>& payload) {
    ByteVectorReader reader(payload);
    return reader.readUint8() == Code && reader.remainingBytes() == 4;
}

std::shared_ptr<const Message> SetResponse::read(const std::vector<unsigned char>& payload) {
    return chanlink_detail::readValidated<SetResponse>(payload);
}

std::shared_ptr<const Message> SetResponse::newInstance(unsigned int channelId) {
    std::vector<unsigned char> payload = newFrame(Code);
    payload.reserve(ChannelIdPosition + 4);
    ByteVectorWriter(payload).pushBackUint32(channelId);
    return readBuilt<SetResponse>(std::move(payload));
}

unsigned int SetResponse::getChannelId() const {
    return ByteVectorReader(getPayload()).readUint32At(ChannelIdPosition);
}
