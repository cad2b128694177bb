#include "chanlink/messages/ChannelValue.h"

#include <utility>

#include "chanlink/wire/ByteVectorReader.h"
#include "chanlink/wire/ByteVectorWriter.h"

namespace {

// Where the runs of one value lie, found by moving the reader as reading them
// would, without reading them.
struct Extent {
    unsigned int channelId;
    unsigned int headerStart;
    unsigned int headerLength;
    unsigned int dataStart;
    unsigned int dataLength;
};

// Returns false when the reader ended up past its end. Only positions are
// computed here, so a value that turns out to be cut off costs no allocation.
bool locate(ByteVectorReader& reader, Extent& extent) {
    extent.channelId = reader.readUint32();
    const unsigned int totalLength = reader.readUint16();
    extent.headerLength = reader.readUint16();
    extent.headerStart = reader.getReadPosition();
    extent.dataStart = extent.headerStart + extent.headerLength;
    extent.dataLength = totalLength - extent.headerLength;  // wraps on purpose
    reader.setReadPosition(extent.dataStart + extent.dataLength);
    return !reader.readPastEnd();
}

}  // namespace

ChannelValue::ChannelValue(unsigned int channelId, std::vector<unsigned char> header,
                           std::vector<unsigned char> data)
    : channelId(channelId), header(std::move(header)), data(std::move(data)) {}

ChannelValue::ChannelValue(unsigned int channelId, unsigned int value)
    : channelId(channelId),
      header(4, 0),
      data{static_cast<unsigned char>(value), static_cast<unsigned char>(value >> 8),
           static_cast<unsigned char>(value >> 16), static_cast<unsigned char>(value >> 24)} {}

ChannelValue::ChannelValue(const ChannelValue& other) = default;
ChannelValue::ChannelValue(ChannelValue&& other) noexcept = default;
ChannelValue& ChannelValue::operator=(const ChannelValue& other) = default;
ChannelValue& ChannelValue::operator=(ChannelValue&& other) noexcept = default;
ChannelValue::~ChannelValue() = default;

void ChannelValue::writeBytes(ByteVectorWriter& writer) const {
    writer.pushBackUint32(channelId);
    writer.pushBackUint16(static_cast<unsigned short>(header.size() + data.size()));
    writer.pushBackUint16(static_cast<unsigned short>(header.size()));
    writer.pushBackBytes(header);
    writer.pushBackBytes(data);
}

ChannelValue* ChannelValue::readBytes(ByteVectorReader& reader) {
    std::optional<ChannelValue> value = readValue(reader);
    return value ? new ChannelValue(std::move(*value)) : nullptr;
}

std::optional<ChannelValue> ChannelValue::readValue(ByteVectorReader& reader) {
    Extent extent;
    if (!locate(reader, extent)) {
        return std::nullopt;
    }
    // The header run may reach beyond the end (its missing bytes read as 0)
    // when the data length wrapped back into the vector; readBytesAt gives
    // exactly what reading the runs in turn would have given.
    return ChannelValue(extent.channelId,
                        reader.readBytesAt(extent.headerStart, extent.headerLength),
                        reader.readBytesAt(extent.dataStart, extent.dataLength));
}

bool ChannelValue::skipBytes(ByteVectorReader& reader) {
    Extent extent;
    return locate(reader, extent);
}

bool ChannelValue::valueEqual(const ChannelValue& other) const {
    return channelId == other.channelId && data == other.data;
}

bool ChannelValue::operator==(const ChannelValue& other) const {
    return channelId == other.channelId && header == other.header && data == other.data;
}
