#pragma once

#include <memory>
#include <vector>

#include "chanlink/messages/ChannelValue.h"
#include "chanlink/messages/Message.h"
#include "chanlink/messages/OpCode.h"

class ByteVectorReader;

// Server to client: the values of the channels asked for.
//
// Payload layout, little-endian:
//   0  opcode 11
//   1  count of channel values, 16-bit
//   3  count channel values one after the other, each in ChannelValue's layout
class GetResponse : public Message {
public:
    static constexpr OpCode Code = 11;
    static constexpr unsigned int CountPosition = Message::PayloadStartPosition;

    // Stores the payload unchecked.
    explicit GetResponse(std::vector<unsigned char> payload);

    // Opcode 11, every counted value complete, the last one ending at the
    // last byte and nothing after it.
    static bool validate(const std::vector<unsigned char>& payload);
    // A GetResponse of the payload, or an empty pointer when validate rejects it.
    static std::shared_ptr<const Message> read(const std::vector<unsigned char>& payload);
    // The message carrying these values in list order. An empty pointer when
    // the list holds an empty pointer, more than 65535 values, or a value of
    // more than 65535 header and data bytes: those do not fit the format.
    static std::shared_ptr<const Message> newInstance(
        const std::vector<std::shared_ptr<const ChannelValue>>& values);

    // Reads the count at CountPosition, then that many values with
    // ChannelValue::readBytes, in payload order. A value that reads past the
    // end is left out and the next one is read from wherever the reader
    // stands. The reader is left after the last value.
    static std::vector<ChannelValue> extractChannelValues(ByteVectorReader& reader);

    // The values of the payload, in payload order.
    std::vector<ChannelValue> getChannelValues() const;
};
