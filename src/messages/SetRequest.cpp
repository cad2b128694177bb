#include "chanlink/messages/SetRequest.h"

#include <utility>

#include "chanlink/wire/ByteVectorReader.h"
#include "chanlink/wire/ByteVectorWriter.h"

#include "ValidatedRead.h"

SetRequest::SetRequest(std::vector<unsigned char> payload) : Message(std::move(payload)) {}

bool SetRequest::validate(const std::vector<unsigned char>& payload) {
    ByteVectorReader reader(payload);
    if (reader.readUint8() != Code) {
        return false;
    }
    reader.setReadPosition(DataLengthPosition);
    const int dataLength = reader.readUint16();
    return reader.remainingBytes() == dataLength;
}

std::shared_ptr<const Message> SetRequest::read(const std::vector<unsigned char>& payload) {
    return chanlink_detail::readValidated<SetRequest>(payload);
}

std::shared_ptr<const Message> SetRequest::newInstance(unsigned int channelId,
                                                       const std::vector<unsigned char>& data) {
    std::vector<unsigned char> payload = newFrame(Code);
    payload.reserve(DataPosition + data.size());
    ByteVectorWriter writer(payload);
    writer.pushBackUint32(channelId);
    writer.pushBackUint16(static_cast<unsigned short>(data.size()));
    writer.pushBackBytes(data);
    return readBuilt<SetRequest>(std::move(payload));
}

unsigned int SetRequest::getChannelId() const {
    return ByteVectorReader(getPayload()).readUint32At(ChannelIdPosition);
}

std::vector<unsigned char> SetRequest::getData() const {
    const ByteVectorReader reader(getPayload());
    return reader.readBytesAt(DataPosition, reader.readUint16At(DataLengthPosition));
}
