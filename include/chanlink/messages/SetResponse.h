#pragma once

#include <memory>
#include <vector>

#include "chanlink/messages/Message.h"
#include "chanlink/messages/OpCode.h"

// Server to client: acknowledges a set request.
//
// Payload layout, little-endian:
//   0  opcode 12
//   1  channel id of the channel that was set, 32-bit
class SetResponse : public Message {
public:
    static constexpr OpCode Code = 12;
    static constexpr unsigned int ChannelIdPosition = Message::PayloadStartPosition;

    // Stores the payload unchecked.
    explicit SetResponse(std::vector<unsigned char> payload);

    // Opcode 12 and exactly 4 bytes after it.
    static bool validate(const std::vector<unsigned char>& payload);
    // A SetResponse of the payload, or an empty pointer when validate rejects it.
    static std::shared_ptr<const Message> read(const std::vector<unsigned char>& payload);
    static std::shared_ptr<const Message> newInstance(unsigned int channelId);

    unsigned int getChannelId() const;
};
