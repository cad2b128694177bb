#include "chanlink/messages/ChannelListMessage.h"

#include <utility>

#include "chanlink/wire/ByteVectorReader.h"
#include "chanlink/wire/ByteVectorWriter.h"

ChannelListMessage::ChannelListMessage(std::vector<unsigned char> payload)
    : Message(std::move(payload)) {}

ChannelListMessage::~ChannelListMessage() = default;

bool ChannelListMessage::validate(OpCode code, const std::vector<unsigned char>& payload) {
    ByteVectorReader reader(payload);
    if (reader.readUint8() != code) {
        return false;
    }
    const int count = reader.readUint16();
    return reader.remainingBytes() == count * 4;
}

void ChannelListMessage::populateInstance(std::vector<unsigned char>& payload,
                                          const std::vector<unsigned int>& channelIds) {
    payload.reserve(payload.size() + 2 + 4 * channelIds.size());
    ByteVectorWriter writer(payload);
    writer.pushBackUint16(static_cast<unsigned short>(channelIds.size()));
    for (unsigned int channelId : channelIds) {
        writer.pushBackUint32(channelId);
    }
}

std::vector<unsigned int> ChannelListMessage::getChannelList() const {
    ByteVectorReader reader(getPayload());
    reader.setReadPosition(CountPosition);
    const unsigned int count = reader.readUint16();
    std::vector<unsigned int> channelIds;
    channelIds.reserve(count);
    for (unsigned int i = 0; i < count; ++i) {
        channelIds.push_back(reader.readUint32());
    }
    return channelIds;
}
