#pragma once

#include <memory>
#include <vector>

#include "chanlink/messages/Message.h"
#include "chanlink/messages/OpCode.h"

// Client to server: writes data bytes (no header) to one channel.
//
// Payload layout, little-endian:
//   0  opcode 2
//   1  channel id, 32-bit
//   5  data length, 16-bit
//   7  data bytes
class SetRequest : public Message {
public:
    static constexpr OpCode Code = 2;
    static constexpr unsigned int ChannelIdPosition = Message::PayloadStartPosition;
    static constexpr unsigned int DataLengthPosition = ChannelIdPosition + 4;
    static constexpr unsigned int DataPosition = DataLengthPosition + 2;

    // Stores the payload unchecked.
    explicit SetRequest(std::vector<unsigned char> payload);

    // Opcode 2 and exactly data length bytes after the length field.
    static bool validate(const std::vector<unsigned char>& payload);
    // A SetRequest of the payload, or an empty pointer when validate rejects it.
    static std::shared_ptr<const Message> read(const std::vector<unsigned char>& payload);
    // The message; an empty pointer for data longer than 65535 bytes.
    static std::shared_ptr<const Message> newInstance(unsigned int channelId,
                                                      const std::vector<unsigned char>& data);

    unsigned int getChannelId() const;
    std::vector<unsigned char> getData() const;
};
